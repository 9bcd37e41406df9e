#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "platform/linux/rpc/ntlm_provider.h"
#include "rpc/ntlm/ntlm_fixture.h"
#include "rpc/support/test_server.h"
#include "support/source_folder.h"

namespace {

using namespace platform::linux_rpc;
using namespace rpc_test;

/// A client that this project did not write, driven by impacket_smoke.py, which says what it calls and expects.
TEST(ImpacketTest, ForeignClientIsServed) {
    if (std::system("/usr/bin/python3 -c 'import impacket' 2>/dev/null") != 0) {
        GTEST_SKIP() << "the package python3-impacket is not installed";
    }
    const auto accounts = std::make_shared<ntlm_testing::table_source>();
    accounts->add("operator", u"s3cret");
    test_server server(loopback_options(), 100,
                       std::make_shared<ntlm_provider>(ntlm_acceptor_settings{ntlm_host_names::of("server.example.com"), accounts,
                                                                              ntlm_environment::of_system(), nullptr}));
    const auto script = test_support::source_folder() / "tests/rpc/impacket_smoke.py";
    const std::string command =
        "/usr/bin/python3 '" + script.string() + "' " + std::to_string(server.port()) + " operator s3cret 2>&1";
    FILE* output = popen(command.c_str(), "r");
    ASSERT_NE(output, nullptr);
    std::string said;
    std::array<char, 512> part{};
    while (std::fgets(part.data(), part.size(), output) != nullptr) {
        said += part.data();
    }
    const int status = pclose(output);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << said;
}

}  // namespace
