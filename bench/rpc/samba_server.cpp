#include "rpc/samba_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "common/measure.h"

namespace bench {

namespace {

namespace fs = std::filesystem;

constexpr char host_program[] = "/usr/libexec/samba/samba-dcerpcd";
constexpr char mapper_program[] = "/usr/libexec/samba/rpcd_epmapper";
constexpr int looks = 1000;
constexpr std::chrono::milliseconds look_pause{10};

bool answers() {
    const int probe = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(samba_server::port);
    const bool connected = connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    close(probe);
    return connected;
}

std::string write_configuration(const std::string& folder) {
    fs::create_directories(folder + "/ncalrpc");
    const std::string path = folder + "/smb.conf";
    std::ofstream file(path);
    file << "[global]\nserver role = standalone server\nbind interfaces only = yes\ninterfaces = lo\n"
         << "rpc start on demand helpers = no\nrpcd_epmapper:num_workers = 2\nrpcd_epmapper:idle_seconds = 600\n";
    for (const char* name : {"lock directory", "state directory", "cache directory", "pid directory", "private dir"}) {
        file << name << " = " << folder << '\n';
    }
    file << "ncalrpc dir = " << folder << "/ncalrpc\n";
    return path;
}

}  // namespace

std::string samba_server::lack() {
    if (!fs::exists(host_program) || !fs::exists(mapper_program)) {
        return "the package samba-common-bin isn't installed";
    }
    if (geteuid() != 0) {
        return "its port needs root";
    }
    return answers() ? "its port is taken" : "";
}

samba_server::samba_server(const std::string& folder) {
    const std::string configuration = write_configuration(folder);
    process_ = fork();
    if (process_ == 0) {
        setpgid(0, 0);  // its helpers end with it
        const int nowhere = open("/dev/null", O_RDWR);
        for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            dup2(nowhere, stream);
        }
        execl(host_program, host_program, "-F", "--no-process-group", "-s", configuration.c_str(), "-l", folder.c_str(),
              mapper_program, static_cast<char*>(nullptr));
        _exit(127);
    }
    for (int look = 0; look < looks && process_ > 0; ++look) {
        if (answers()) {
            return;
        }
        std::this_thread::sleep_for(look_pause);
    }
    fail("Samba doesn't answer.");
}

samba_server::~samba_server() {
    kill(-process_, SIGTERM);
    waitpid(process_, nullptr, 0);
}

}  // namespace bench
