#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "console/connection.h"
#include "console/console_system.h"
#include "console/output.h"
#include "console/person.h"

namespace console_test {

/// Answers each procedure with a text of the test and keeps what was asked.
class scripted_connection final : public console::connection {
public:
    std::string call(const std::string& procedure, const console::argument_list& arguments) override {
        asked.push_back(procedure + " " + console::input_xml(arguments));
        if (const auto next = queues.find(procedure); next != queues.end() && !next->second.empty()) {
            const std::string answer = next->second.front();
            next->second.pop_front();
            return answer;
        }
        const auto found = answers.find(procedure);
        if (found == answers.end()) {
            throw console::failure(refusal, refusal_text.empty() ? "Unknown command: '" + procedure + "'" : refusal_text);
        }
        return found->second;
    }

    std::map<std::string, std::string> answers;
    std::map<std::string, std::deque<std::string>> queues;  ///< answers given once each, before those above
    console::exit_code refusal = console::exit_code::call_failed;
    std::string refusal_text;  ///< empty: that the procedure isn't known
    std::vector<std::string> asked;
};

/// Somebody who says what the test wants, and keeps what was shown.
class scripted_person final : public console::person {
public:
    [[nodiscard]] bool can_be_asked() const override { return present; }
    [[nodiscard]] std::optional<std::string> ask(const std::string& question) override {
        shown.push_back(question);
        return answer;
    }
    void show_progress(const std::string& line) override { shown.push_back(line); }
    void end_progress() override { shown.emplace_back("end"); }
    void note_for_interrupt(const std::string& note) override { notes.push_back(note); }

    bool present = true;
    std::optional<std::string> answer;
    std::vector<std::string> shown;
    std::vector<std::string> notes;
};

/// An answer whose output element `name` has this value.
inline std::string answer_of(const std::string& name, const std::string& value) {
    std::string escaped;
    for (const char c : value) {
        escaped += c == '<' ? "&lt;" : c == '>' ? "&gt;" : c == '"' ? "&quot;" : c == '&' ? "&amp;" : std::string(1, c);
    }
    return "<OutputArguments><" + name + " value=\"" + escaped + "\" /></OutputArguments>";
}

inline console::failure failure_of(const std::function<void()>& what) {
    try {
        what();
    } catch (const console::failure& e) {
        return e;
    }
    ADD_FAILURE() << "nothing failed";
    return {console::exit_code::done, ""};
}

class fixture : public testing::Test {
protected:
    console::console_system system_;
    scripted_connection server_;
    std::ostringstream text_;
    console::output out_{text_, false};
    console::output json_{text_, true};
};

}  // namespace console_test
