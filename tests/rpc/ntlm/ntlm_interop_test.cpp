#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "rpc/ntlm/ntlm_fixture.h"
#include "support/source_folder.h"

namespace {

using namespace platform::linux_rpc;
using ntlm_testing::bytes;
using ntlm_testing::from_hex;
using ntlm_testing::to_hex;
using testing::HasSubstr;
using accept_state = security_context::state;

/// A client that we did not write, in a process of its own: see ntlm_interop.py.
class foreign_client {
public:
    explicit foreign_client(std::vector<std::string> arguments) {
        const auto script = test_support::source_folder() / "tests/rpc/ntlm_interop.py";
        arguments.insert(arguments.begin(), {"python3", script.string()});
        std::vector<char*> words;
        for (std::string& argument : arguments) {
            words.push_back(argument.data());
        }
        words.push_back(nullptr);
        std::array<int, 2> to_client{};
        std::array<int, 2> from_client{};
        EXPECT_EQ(0, ::pipe(to_client.data()));
        EXPECT_EQ(0, ::pipe(from_client.data()));
        process_ = ::fork();
        if (process_ == 0) {
            ::dup2(to_client[0], STDIN_FILENO);
            ::dup2(from_client[1], STDOUT_FILENO);
            for (const int used : {to_client[0], to_client[1], from_client[0], from_client[1]}) {
                ::close(used);
            }
            ::execv("/usr/bin/python3", words.data());
            ::_exit(127);
        }
        ::close(to_client[0]);
        ::close(from_client[1]);
        output_ = ::fdopen(to_client[1], "w");
        input_ = ::fdopen(from_client[0], "r");
    }

    ~foreign_client() {
        std::fclose(output_);
        std::fclose(input_);
        ::waitpid(process_, nullptr, 0);
    }

    foreign_client(const foreign_client&) = delete;
    foreign_client& operator=(const foreign_client&) = delete;

    /// The words of the next line; none at the end.
    std::vector<std::string> receive() {
        char* line = nullptr;
        std::size_t room = 0;
        const ssize_t length = ::getline(&line, &room, input_);
        std::istringstream stream(length > 0 ? line : "");
        std::free(line);
        std::vector<std::string> words;
        for (std::string word; stream >> word;) {
            words.push_back(word);
        }
        return words;
    }

    bytes receive_block() {
        const std::vector<std::string> words = receive();
        return words.empty() ? bytes() : from_hex(words.front());
    }

    void send(const std::string& line) {
        std::fputs((line + "\n").c_str(), output_);
        std::fflush(output_);
    }

private:
    pid_t process_ = 0;
    std::FILE* output_ = nullptr;
    std::FILE* input_ = nullptr;
};

class NtlmInterop : public testing::Test {
protected:
    NtlmInterop() {
        server.accounts->add("Anna", u"correct horse \u20AC", true);
        std::signal(SIGPIPE, SIG_IGN);
    }

    /// Up to the verdict on the AUTHENTICATE.
    static accept_state authenticate(foreign_client& client, ntlm_acceptor& acceptor) {
        bytes reply;
        if (acceptor.accept(client.receive_block(), reply) != accept_state::proceed) {
            return accept_state::refused;
        }
        client.send(to_hex(reply));
        const accept_state verdict = acceptor.accept(client.receive_block(), reply);
        client.send(verdict == accept_state::complete ? "complete" : "refused");
        return verdict;
    }

    std::string refusal_of(std::vector<std::string> arguments) {
        foreign_client client(std::move(arguments));
        ntlm_acceptor acceptor = server.acceptor();
        EXPECT_EQ(accept_state::refused, authenticate(client, acceptor));
        return server.reports->empty() ? "" : server.reports->back();
    }

    ntlm_testing::server server;
};

TEST_F(NtlmInterop, AForeignClientIsLetInAndUnderstood) {
    foreign_client client({"CORP", "anna", "correct horse \xE2\x82\xAC"});
    ntlm_acceptor acceptor = server.acceptor();
    ASSERT_EQ(accept_state::complete, authenticate(client, acceptor)) << server.reports->back();
    EXPECT_EQ("SERVER\\Anna", acceptor.identity().name);
    for (int round = 0; round < 3; ++round) {
        const std::vector<std::string> words = client.receive();
        ASSERT_EQ(2U, words.size());
        bytes message = from_hex(words[0]);
        ASSERT_TRUE(acceptor.unprotect(auth_level::privacy, message, 0, message.size(), from_hex(words[1]))) << round;
        std::reverse(message.begin(), message.end());
        std::array<std::uint8_t, 16> signature{};
        acceptor.protect(auth_level::privacy, message, 0, message.size(), signature);
        client.send(to_hex(message) + " " + to_hex(signature));
    }
    EXPECT_EQ(std::vector<std::string>{"verified"}, client.receive());
}

TEST_F(NtlmInterop, AForeignClientIsRefusedForWhatItOffers) {
    EXPECT_THAT(refusal_of({"CORP", "anna", "wrong"}), HasSubstr("the password is wrong"));
    EXPECT_THAT(refusal_of({"CORP", "berta", "wrong"}), HasSubstr("there is no such account"));
    EXPECT_THAT(refusal_of({"CORP", "anna", "correct horse", "v1"}), HasSubstr("NTLM version 1 only"));
    EXPECT_THAT(refusal_of({"", "", ""}), HasSubstr("it is anonymous"));
}

}  // namespace
