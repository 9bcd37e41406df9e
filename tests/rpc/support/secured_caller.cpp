#include "rpc/support/secured_caller.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <sstream>

#include "rpc/support/secured_server.h"
#include "rpc/support/test_server.h"
#include "support/source_folder.h"

namespace rpc_test {

using namespace platform::linux_rpc;
using namespace std::chrono_literals;

std::string answer_of(rpc_client& client, auth_level level, std::unique_ptr<client_security> security) {
    client.bind({uuid_from_text(secured_interface), 1, 0}, 20s, std::move(security), level);
    std::string line;
    for (const std::size_t size : {100, 0, 16, 20'001, 7, 50'001}) {
        const bytes stub = pattern(size);
        const bytes answer = client.call(0, stub, 20s);
        const auto end = std::ranges::find(answer, std::uint8_t{'\n'});
        EXPECT_TRUE(std::equal(stub.rbegin(), stub.rend(), end + 1, answer.end())) << static_cast<int>(level) << ' ' << size;
        line.assign(answer.begin(), end);
    }
    return line;
}

outcomes foreign_calls(const std::string& script, std::uint16_t port, const std::string& user, const std::string& password,
                       const std::vector<std::string>& wanted) {
    const auto path = test_support::source_folder() / "tests/rpc/foreign" / script;
    std::string command = "/usr/bin/python3 -B '" + path.string() + "' " + std::to_string(port) + " '" + user + "' '" + password +
                          "' server.tarno.test";
    for (const std::string& wish : wanted) {
        command += " " + wish;
    }
    command += " 2>&1";
    std::FILE* const output = popen(command.c_str(), "r");
    std::string said;
    std::array<char, 512> part{};
    while (std::fgets(part.data(), static_cast<int>(part.size()), output) != nullptr) {
        said += part.data();
    }
    EXPECT_EQ(pclose(output), 0) << said;
    outcomes found;
    std::istringstream lines(said);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t blank = line.find(' ');
        if (std::ranges::find(wanted, line.substr(0, blank)) != wanted.end()) {  // else it is what the library says besides
            found[line.substr(0, blank)] = line.substr(blank + 1);
        }
    }
    return found;
}

}  // namespace rpc_test
