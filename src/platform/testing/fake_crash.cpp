#include "platform/testing/fake_crash.h"

#include <algorithm>
#include <utility>

#include "platform/errors.h"

namespace platform::testing {

namespace {

class held_guard final : public dump_guard {
public:
    explicit held_guard(bool& held) : held_(held) { held_ = true; }
    ~held_guard() override { held_ = false; }
    held_guard(const held_guard&) = delete;
    held_guard& operator=(const held_guard&) = delete;

private:
    bool& held_;
};

class recorder_file final : public placed_recorder {
public:
    recorder_file(std::vector<std::u16string>& present, std::u16string path) : present_(present), path_(std::move(path)) {
        present_.push_back(path_);
    }
    ~recorder_file() override { std::erase(present_, path_); }
    recorder_file(const recorder_file&) = delete;
    recorder_file& operator=(const recorder_file&) = delete;

private:
    std::vector<std::u16string>& present_;
    const std::u16string path_;
};

class scripted_recorder final : public running_recorder {
public:
    explicit scripted_recorder(fake_crash& owner) : owner_(owner) {}
    std::uint32_t wait(std::uint32_t milliseconds, bool& finished) override {
        owner_.recorder_waits.push_back(milliseconds);
        if (owner_.wait_error == error::success) {
            finished = owner_.recorder_finishes;
        }
        return owner_.wait_error;
    }
    std::uint32_t exit_code(std::uint32_t& code) override {
        if (owner_.exit_code_error == error::success) {
            code = owner_.recorder_exit_code;
        }
        return owner_.exit_code_error;
    }

private:
    fake_crash& owner_;
};

}  // namespace

std::uint32_t fake_crash::set_filter(crash_filter filter, crash_filter& former) {
    if (filter_error == error::success) {
        former = std::exchange(present, filter);
    }
    return filter_error;
}

code_address fake_crash::describe(std::uint64_t address) {
    const auto found = std::find_if(code.begin(), code.end(), [address](const auto& entry) { return entry.first == address; });
    return found == code.end() ? code_address{} : found->second;
}

std::vector<stack_frame> fake_crash::walk_stack(const crash_record& /*record*/, std::size_t limit) {
    return {frames.begin(), frames.begin() + static_cast<std::ptrdiff_t>(std::min(frames.size(), limit))};
}

std::unique_ptr<dump_guard> fake_crash::guard_dump(const std::u16string& path) {
    guarded.push_back(path);
    return std::make_unique<held_guard>(guard_held);
}

std::uint32_t fake_crash::load_minidump_writer(minidump_step& failed) {
    if (!minidump_failure || minidump_failure->first > minidump_step::find_function) {
        return error::success;
    }
    failed = minidump_failure->first;
    return minidump_failure->second;
}

std::uint32_t fake_crash::write_minidump(const std::u16string& path, std::uint32_t flags, const crash_record* record,
                                         minidump_step& failed) {
    if (minidump_failure) {
        failed = minidump_failure->first;
        return minidump_failure->second;
    }
    minidumps.push_back({path, flags, record != nullptr});
    return error::success;
}

std::uint32_t fake_crash::inheritable_process(std::int64_t& handle) {
    if (inherit_error == error::success) {
        handle = 308;
    }
    return inherit_error;
}

std::u16string fake_crash::unique_text() {
    ++texts_;
    std::u16string text = u"{0000}";
    for (std::size_t at = 4, rest = texts_; rest != 0; --at, rest /= 10) {
        text[at] = static_cast<char16_t>(u'0' + rest % 10);
    }
    return text;
}

std::uint32_t fake_crash::place_recorder(const std::u16string& path, recorder_step& failed,
                                         std::unique_ptr<placed_recorder>& placed) {
    if (place_failure) {
        failed = place_failure->first;
        return place_failure->second;
    }
    placed = std::make_unique<recorder_file>(present_recorders, path);
    return error::success;
}

std::uint32_t fake_crash::start_recorder(const std::u16string& path, const std::u16string& command_line,
                                         std::unique_ptr<running_recorder>& started) {
    if (start_error == error::success) {
        recorder_starts.push_back({path, command_line});
        started = std::make_unique<scripted_recorder>(*this);
    }
    return start_error;
}

void fake_crash::become_windows() {
    version = 610;
    minidump_failure.reset();
    inherit_error = error::success;
}

}  // namespace platform::testing
