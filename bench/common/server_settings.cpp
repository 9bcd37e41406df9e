#include "common/server_settings.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>

#include "common/measure.h"

namespace bench {

std::uint16_t free_port() {
    const int probe = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    const bool bound = bind(probe, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
                       getsockname(probe, reinterpret_cast<sockaddr*>(&address), &size) == 0;
    close(probe);
    if (!bound) {
        fail("There is no free port.");
    }
    return ntohs(address.sin_port);
}

void write_settings(const std::filesystem::path& file, const std::string& libraries, const std::string& local_socket) {
    constexpr char product[] = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarno\\Tarno Backup Tape";
    std::ofstream reg(file);
    reg << "Windows Registry Editor Version 5.00\n\n" << product << "]\n\n";
    reg << product << "\\Devices]\n\"ScsiGeneric\"=dword:00000000\n";
    if (!libraries.empty()) {
        reg << "\"VirtualLibrary\"=\"" << libraries << "\"\n";
    }
    reg << '\n' << product << "\\Access]\n\"ListenAddress\"=\"127.0.0.1\"\n\"LocalSocket\"=\"" << local_socket << "\"\n";
    reg << "\"EndpointMapperPort\"=dword:00000000\n\"Accounts\"=\"accounts\"\n";
    if (!reg.flush()) {
        fail("The settings can't be written to " + file.string() + ".");
    }
}

}  // namespace bench
