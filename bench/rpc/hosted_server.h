#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace bench {

/// The one account of the hosted server, an administrator.
inline constexpr char account_name[] = "bench";
inline constexpr char account_password[] = "Bench-Password-1";

/// The server's own interface, d1c2c07a-d989-48cc-a423-b73ecd518d40.
inline constexpr std::array<std::uint8_t, 16> invoker_uuid = {0xD1, 0xC2, 0xC0, 0x7A, 0xD9, 0x89, 0x48, 0xCC,
                                                              0xA4, 0x23, 0xB7, 0x3E, 0xCD, 0x51, 0x8D, 0x40};
/// An interface of the benchmark's own for long texts: no procedure of the server takes or gives one and does nothing else.
inline constexpr std::array<std::uint8_t, 16> text_uuid = {0x5B, 0x1E, 0x6D, 0x92, 0x3C, 0x0F, 0x4A, 0x7E,
                                                           0x9D, 0x41, 0x8A, 0x26, 0xE0, 0xB7, 0x13, 0xC5};
inline constexpr std::uint16_t take_text = 0;  ///< stub of `DoRpc`; the input is converted to UTF-8
inline constexpr std::uint16_t give_text = 1;  ///< a UTF-8 text of `text_units` units converted to UTF-16, as `DoRpc` gives it
inline constexpr std::size_t text_units = std::size_t{1024} * 1024;

/// A text of that length that is nearly all ASCII.
[[nodiscard]] std::u16string long_text();

/// Hosts the tape server in this process: the parts that TarnoTapeSvc is made of, with the RPC runtime, the interface and the
/// frame of a call. `folder` takes its settings, accounts and log; with an empty `log` the log has no receiver. Tells its port
/// and serves until the process is killed.
[[noreturn]] void run_hosted_server(const std::string& folder, const std::string& log);

}  // namespace bench
