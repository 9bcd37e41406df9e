#include "rpc/kerberos/kerberos_realm.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace rpc_test {

namespace {

std::uint16_t free_port() {
    const int probe = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    socklen_t size = sizeof(address);
    EXPECT_EQ(getsockname(probe, reinterpret_cast<sockaddr*>(&address), &size), 0);
    close(probe);
    return ntohs(address.sin_port);
}

void run(const std::string& command) {
    std::FILE* const output = popen((command + " 2>&1").c_str(), "r");
    std::string said;
    std::array<char, 512> part{};
    while (std::fgets(part.data(), static_cast<int>(part.size()), output) != nullptr) {
        said += part.data();
    }
    EXPECT_EQ(pclose(output), 0) << command << '\n' << said;
}

}  // namespace

bool kerberos_realm::available() {
    for (const char* program :
         {"/usr/sbin/krb5kdc", "/usr/sbin/kdb5_util", "/usr/sbin/kadmin.local", "/usr/bin/kinit", "/usr/bin/kvno"}) {
        if (access(program, X_OK) != 0) {
            return false;
        }
    }
    return true;
}

kerberos_realm::kerberos_realm() : port_(free_port()) {
    write_settings();
    setenv("KRB5_CONFIG", path("krb5.conf").c_str(), 1);
    setenv("KRB5_KDC_PROFILE", path("kdc.conf").c_str(), 1);
    setenv("KRB5CCNAME", ticket_cache().c_str(), 1);
    setenv("KRB5_KTNAME", path("no.keytab").c_str(), 1);
    setenv("KRB5RCACHENAME", ("dfl:" + path("replays")).c_str(), 1);
    run("/usr/sbin/kdb5_util create -s -P master");
    std::string commands;
    for (const std::string user : {"anna", "bob", "root", "anna/admin"}) {
        commands += "addprinc -pw " + user + " " + user + "\n";
    }
    for (const std::string& principal : {service, std::string("host/server.tarno.test")}) {
        commands += "addprinc -randkey " + principal + "\nktadd -k " + keytab() + " " + principal + "\n";
    }
    commands += "addprinc -randkey stranger/server.tarno.test\n";
    std::ofstream(path("commands")) << commands;
    run("/usr/sbin/kadmin.local < " + path("commands"));
    start_kdc();
}

kerberos_realm::~kerberos_realm() {
    if (kdc_ > 0) {
        kill(kdc_, SIGTERM);
        waitpid(kdc_, nullptr, 0);
        close(log_);
    }
    for (const char* variable : {"KRB5_CONFIG", "KRB5_KDC_PROFILE", "KRB5CCNAME", "KRB5_KTNAME", "KRB5RCACHENAME"}) {
        unsetenv(variable);
    }
}

void kerberos_realm::write_settings() const {
    const std::string address = "127.0.0.1:" + std::to_string(port_);
    std::ofstream(path("krb5.conf")) << "[libdefaults]\n default_realm = " << name
                                     << "\n dns_lookup_kdc = false\n dns_lookup_realm = false\n dns_canonicalize_hostname = false\n"
                                        " rdns = false\n udp_preference_limit = 1\n allow_weak_crypto = true\n"
                                     << "[realms]\n " << name << " = {\n  kdc = " << address << "\n }\n"
                                     << "[domain_realm]\n server.tarno.test = " << name << '\n';
    std::ofstream(path("kdc.conf")) << "[kdcdefaults]\n kdc_listen = " << address << "\n kdc_tcp_listen = " << address
                                    << "\n[realms]\n " << name << " = {\n  database_name = " << path("principal")
                                    << "\n  key_stash_file = " << path("stash") << "\n  max_life = 1h\n }\n"
                                    << "[logging]\n kdc = STDERR\n admin_server = FILE:/dev/null\n";
}

/// Its end comes with ours at the latest.
void kerberos_realm::start_kdc() {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    const pid_t parent = getpid();
    kdc_ = fork();
    if (kdc_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != parent) {
            _exit(1);
        }
        dup2(ends[1], STDERR_FILENO);
        close(ends[0]);
        close(ends[1]);
        execl("/usr/sbin/krb5kdc", "krb5kdc", "-n", nullptr);
        _exit(127);
    }
    close(ends[1]);
    std::string said;
    std::array<char, 512> part{};
    while (said.find("commencing operation") == std::string::npos) {
        const ssize_t got = read(ends[0], part.data(), part.size());
        if (got <= 0) {
            break;
        }
        said.append(part.data(), static_cast<std::size_t>(got));
    }
    EXPECT_NE(said.find("commencing operation"), std::string::npos) << said;
    log_ = ends[0];
}

void kerberos_realm::log_in(const std::string& user) const {
    run("echo " + user + " | /usr/bin/kinit " + user);
}

void kerberos_realm::log_out() const {
    std::filesystem::remove(ticket_cache());
}

void kerberos_realm::fetch_ticket(const std::string& principal) const {
    run("/usr/bin/kvno " + principal);
}

void kerberos_realm::add_service(const std::string& principal, const std::string& key_type, const std::string& keytab_file) const {
    std::ofstream(path("commands")) << "addprinc -randkey -e " << key_type << " " << principal << "\nktadd -norandkey -k "
                                    << keytab_file << " " << principal << "\n";
    run("/usr/sbin/kadmin.local < " + path("commands"));
}

}  // namespace rpc_test
