#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "platform/linux/rpc/rpc_client.h"
#include "platform/linux/rpc/rpc_server.h"
#include "rpc/support/test_server.h"
#include "support/temporary_folder.h"

namespace {

using namespace platform::linux_rpc;
using namespace rpc_test;
using namespace std::chrono_literals;

class LocalSocketTest : public testing::Test {
protected:
    LocalSocketTest() { options.local_socket = folder / "socket"; }
    test_support::temporary_folder folder;
    rpc_server_options options = loopback_options();
};

TEST_F(LocalSocketTest, TheKernelTellsWhoCalls) {
    test_server server(options);
    auto client = rpc_client::connect_local(options.local_socket, 10s);
    client.bind({server.offered.uuid, 1, 0}, 10s);
    const bytes who = client.call(operation::who, {}, 10s);
    const std::string expected = geteuid() == 0 ? "root 1" : std::to_string(geteuid());
    EXPECT_EQ(std::string(who.begin(), who.end()).substr(0, expected.size()), expected);
}

TEST_F(LocalSocketTest, ModeIsAsSetAndTheFileGoesAtTheStop) {
    options.local_socket_mode = 0660;
    test_server server(options);
    struct stat file {};
    ASSERT_EQ(lstat(options.local_socket.c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 07777, 0660U);
    EXPECT_EQ(server->local_socket_status(), 0U);
    (void)server->stop_listening();
    EXPECT_NE(lstat(options.local_socket.c_str(), &file), 0);
}

TEST_F(LocalSocketTest, TheReasonWhyThereIsNoneIsTold) {
    const auto told = [this](const std::string& path) {
        options.local_socket = path;
        test_server server(options);
        const std::vector<std::string> events = server.events();
        const std::string start = "The local socket '" + path + "' cannot be used: ";
        return events.size() == 1 && events.front().starts_with(start) ? events.front().substr(start.size()) : "not told so";
    };
    EXPECT_EQ(told(folder / "no/folder/s"), "No such file or directory (status 1720).");
    std::ofstream(folder / "file") << "kept";
    EXPECT_EQ(told(folder / "file"), "something that is no socket has this name (status 1740).");
    EXPECT_EQ(told(folder / std::string(200, 'x')), "the path of a socket has 1 to 107 bytes (status 1707).");
}

TEST_F(LocalSocketTest, FileThatADeadServerLeftIsReplaced) {
    const int dead = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    options.local_socket.copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(dead, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    close(dead);
    test_server server(options);
    EXPECT_EQ(server->local_socket_status(), 0U);
    raw_connection client(options.local_socket);
    EXPECT_EQ(type_of(client.exchange(bind_pdu())), 12U);
}

TEST_F(LocalSocketTest, SocketThatSomebodyAnswersOnStaysHis) {
    test_server first(options);
    test_server second(options);
    EXPECT_EQ(second->local_socket_status(), 1740U);
    EXPECT_THAT(second.events(), testing::ElementsAre("The local socket '" + options.local_socket +
                                                      "' cannot be used: another server is there (status 1740)."));
    raw_connection tcp(second.port());
    EXPECT_EQ(type_of(tcp.exchange(bind_pdu())), 12U) << "the start goes on without it";
    (void)second->stop_listening();
    raw_connection local(options.local_socket);
    EXPECT_EQ(type_of(local.exchange(bind_pdu())), 12U);
}

TEST_F(LocalSocketTest, OtherFilesAreLeftAlone) {
    std::ofstream(options.local_socket) << "precious";
    test_server server(options);
    EXPECT_EQ(server->local_socket_status(), 1740U);
    std::string content;
    std::ifstream(options.local_socket) >> content;
    EXPECT_EQ(content, "precious");
}

TEST_F(LocalSocketTest, MissingFolderIsMadeAndAnImpossiblePathIsReported) {
    options.local_socket = folder / "run/socket";
    const test_server server(options);
    EXPECT_TRUE(std::filesystem::is_socket(options.local_socket));
    options.local_socket = folder / std::string(200, 'x');
    test_server too_long(options);
    EXPECT_EQ(too_long->local_socket_status(), 1707U);
}

}  // namespace
