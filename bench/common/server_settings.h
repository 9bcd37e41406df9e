#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace bench {

/// A TCP port of the loopback address that nobody has.
[[nodiscard]] std::uint16_t free_port();

/// Name of a measured server's local socket, in the folder of its settings.
inline constexpr char local_socket_name[] = "rpc.sock";

/// Settings of a server that is measured: on the loopback address alone, no drives of the machine's own. `libraries`: its virtual
/// libraries, empty for none. `local_socket`: the name of that, empty for none.
void write_settings(const std::filesystem::path& file, const std::string& libraries,
                    const std::string& local_socket = local_socket_name);

}  // namespace bench
