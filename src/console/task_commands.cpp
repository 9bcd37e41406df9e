#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <string_view>

#include "console/drive_commands.h"
#include "console/json_output.h"
#include "foundation/text/conversion.h"
#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/system.h"

namespace console {

namespace {

/// The first looks come quickly, the later ones seldom, since each makes the server write lines to its log.
constexpr std::int64_t shortest_pause = 250;
constexpr std::int64_t longest_pause = 15000;
constexpr std::int64_t looks_in_the_time_so_far = 16;
/// How often the time that is shown changes.
constexpr std::int64_t tick = 1000;

std::string how_to_ask(std::uint32_t task) {
    return "'tarnoctl task " + text::to_string(task) + "' asks after it.";
}

std::string clock_text(std::int64_t milliseconds) {
    const std::int64_t seconds = milliseconds / 1000;
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%02lld:%02lld:%02lld", static_cast<long long>(seconds / 3600),
                  static_cast<long long>(seconds / 60 % 60), static_cast<long long>(seconds % 60));
    return text.data();
}

/// Asks after a task until it has ended, and shows the time meanwhile.
class task_watch {
public:
    task_watch(tape_drives& drives, std::uint32_t task, person& who)
        : drives_(drives), task_(task), who_(who), began_(platform::system().clock->milliseconds()) {}

    [[nodiscard]] std::int64_t elapsed() const { return platform::system().clock->milliseconds() - began_; }

    /// Returns the status that it ended with.
    std::uint32_t wait(const std::string& what) {
        std::uint32_t status = look();
        while (status == platform::error::io_pending) {
            const std::int64_t next_look =
                elapsed() + std::clamp(elapsed() / looks_in_the_time_so_far, shortest_pause, longest_pause);
            do {
                who_.show_progress(what + " " + clock_text(elapsed()));
                platform::system().clock->sleep(std::min(tick, next_look - elapsed()));
            } while (elapsed() < next_look);
            status = look();
        }
        who_.end_progress();
        who_.note_for_interrupt("");
        return status;
    }

private:
    std::uint32_t look() {
        try {
            return drives_.task_status(task_);
        } catch (const failure& e) {
            who_.end_progress();
            throw failure(e.code(), "What became of task " + text::to_string(task_) + " is not known: " + e.what() +
                                        "\nAsking doesn't stop a task; " + how_to_ask(task_));
        }
    }

    tape_drives& drives_;
    std::uint32_t task_;
    person& who_;
    std::int64_t began_;
};

const char* state_of(std::uint32_t status) {
    return status == platform::error::io_pending ? "running" : status == platform::error::success ? "done" : "failed";
}

void add_state(json& object, std::uint32_t status) {
    object["state"] = state_of(status);
    object["status"] = status;
    if (status != platform::error::success && status != platform::error::io_pending) {
        object["meaning"] = meaning_of(status);
    }
}

void throw_if_failed(std::uint32_t task, std::uint32_t status) {
    if (status != platform::error::success && status != platform::error::io_pending) {
        throw failure(exit_code::call_failed, "Task " + text::to_string(task) + " failed with status " + text::to_string(status) +
                                                  ": " + meaning_of(status));
    }
}

std::uint32_t ask_after(tape_drives& drives, std::uint32_t task) {
    try {
        return drives.task_status(task);
    } catch (const failure& e) {
        if (e.code() != exit_code::call_failed ||
            std::string_view(e.what()).find("There is no task with id") == std::string_view::npos) {
            throw;
        }
        throw failure(e.code(),
                      std::string(e.what()) + "\nA success is told once: if somebody has been told it, the server's log has it.");
    }
}

}  // namespace

void erase(tape_drives& drives, const erase_order& order, person& who, const output& out) {
    if (!order.confirmed) {
        confirm(who, "This destroys all that is on the tape in " + order.link + ". Erase it?");
    }
    who.note_for_interrupt("tarnoctl: The server may have begun to erase the tape in " + order.link +
                           "; it goes on without tarnoctl.");
    const std::uint32_t task = drives.start_erase(order.link, order.overwrite_all);
    const std::string number = text::to_string(task);
    json object = {{"drive", order.link}, {"long", order.overwrite_all}, {"task", task}};
    std::uint32_t status = platform::error::io_pending;
    std::int64_t elapsed = 0;
    if (order.wait) {
        who.note_for_interrupt("tarnoctl: The erase goes on in the server as task " + number + ". " + how_to_ask(task));
        task_watch watch(drives, task, who);
        status = watch.wait("Erasing the tape in " + order.link + ", task " + number + ":");
        elapsed = watch.elapsed();
    } else {
        who.note_for_interrupt("");
    }
    if (out.json) {
        add_state(object, status);
        if (order.wait) {
            object["seconds"] = elapsed / 1000;
        }
        print_json(out, object);
    }
    throw_if_failed(task, status);
    if (!out.json) {
        out.stream << (order.wait ? "The tape in " + order.link + " is erased; it took " + clock_text(elapsed) + ".\n"
                                  : "The erase goes on in the server as task " + number + ". " + how_to_ask(task) + "\n");
    }
}

exit_code show_task(tape_drives& drives, std::uint32_t task, bool wait, person& who, const output& out) {
    const std::string name = "Task " + text::to_string(task);
    std::uint32_t status = 0;
    if (wait) {
        who.note_for_interrupt("tarnoctl: " + name + " goes on in the server. " + how_to_ask(task));
        status = task_watch(drives, task, who).wait(name + ":");
    } else {
        status = ask_after(drives, task);
    }
    if (out.json) {
        json object = {{"task", task}};
        add_state(object, status);
        print_json(out, object);
    }
    throw_if_failed(task, status);
    if (!out.json) {
        out.stream << name << " is " << state_of(status) << ".\n";
    }
    return status == platform::error::io_pending ? exit_code::still_running : exit_code::done;
}

}  // namespace console
