#include "device_stack/tgt_library.h"
#include "support/source_folder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

namespace {

std::string script_path() {
    return (test_support::source_folder() / "tests/support/tgt_library.sh").string();
}

}  // namespace

tgt_library::tgt_library(const std::vector<std::string>& arguments) {
    int input[2];
    int output[2];
    if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipes");
    }
    std::string path = script_path();
    std::vector<std::string> texts = arguments;
    std::vector<char*> argv = {path.data()};
    for (std::string& text : texts) {
        argv.push_back(text.data());
    }
    argv.push_back(nullptr);
    script_ = fork();
    if (script_ == 0) {
        dup2(input[0], STDIN_FILENO);
        dup2(output[1], STDOUT_FILENO);
        execv(path.c_str(), argv.data());
        _exit(127);
    }
    close(input[0]);
    close(output[1]);
    keep_alive_ = input[1];
    FILE* lines = fdopen(output[0], "r");
    char line[512];
    while (fgets(line, sizeof(line), lines) != nullptr) {
        const std::string text(line);
        const std::size_t equals = text.find('=');
        if (equals != std::string::npos) {
            values_[text.substr(0, equals)] = text.substr(equals + 1, text.find('\n') - equals - 1);
        } else if (text == "ready\n") {
            available_ = true;
            break;
        }
    }
    fclose(lines);
    if (!available_) {
        int status = 0;
        waitpid(script_, &status, 0);
        script_ = -1;
        constexpr int not_installed = 3;
        if (!WIFEXITED(status) || WEXITSTATUS(status) != not_installed || getenv("CI") != nullptr) {
            throw std::runtime_error("the test library did not start");
        }
    }
}

tgt_library::~tgt_library() {
    close(keep_alive_);
    if (script_ > 0) {
        waitpid(script_, nullptr, 0);
    }
}

void tgt_library::signal_daemon(int number) const {
    kill(daemon(), number);
}
