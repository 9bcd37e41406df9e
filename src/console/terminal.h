#pragma once

#include "console/person.h"

namespace console {

/// The person at this process's terminal: asked on standard error, answering on standard input. One at a time in a process.
class terminal : public person {
public:
    terminal() = default;
    ~terminal() override;
    terminal(const terminal&) = delete;
    terminal& operator=(const terminal&) = delete;

    [[nodiscard]] bool can_be_asked() const override;
    [[nodiscard]] std::optional<std::string> ask(const std::string& question) override;
    void show_progress(const std::string& line) override;
    void end_progress() override;
    void note_for_interrupt(const std::string& note) override;

private:
    std::size_t shown_ = 0;  ///< length of the line that stands there
    std::string note_;
};

}  // namespace console
