#pragma once

#include <optional>
#include <string>

namespace console {

/// Who sits before the console, if anybody does.
class person {
public:
    virtual ~person() = default;
    /// Whether there is somebody to ask.
    [[nodiscard]] virtual bool can_be_asked() const = 0;
    /// The line that is answered; nothing when the input ends.
    [[nodiscard]] virtual std::optional<std::string> ask(const std::string& question) = 0;
    /// Shows a line in place of the one shown before. Does nothing where nobody looks.
    virtual void show_progress(const std::string& line) = 0;
    /// What comes next begins on a line of its own.
    virtual void end_progress() = 0;
    /// From now on a signal that ends this process has the note written to standard error first. Empty: nothing is written.
    virtual void note_for_interrupt(const std::string& note) = 0;
};

/// Asks whether to go on, and throws a usage `failure` unless the person says so.
void confirm(person& who, const std::string& question);

}  // namespace console
