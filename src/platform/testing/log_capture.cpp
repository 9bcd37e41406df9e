#include "platform/testing/log_capture.h"

#include <algorithm>
#include <mutex>

namespace platform::testing {

class log_capture::receiver final : public logging::receiver::log_file_t {
public:
    void write(const std::string& text) override {
        const std::lock_guard lock(mutex_);
        entries_.push_back(text);
        size_ += text.size();
    }
    const std::string& path() const override { return path_; }
    const std::string& line_end() const override { return line_end_; }
    std::uint64_t size() override {
        const std::lock_guard lock(mutex_);
        return size_;
    }

    [[nodiscard]] std::vector<std::string> entries() const {
        const std::lock_guard lock(mutex_);
        return entries_;
    }
    void clear() {
        const std::lock_guard lock(mutex_);
        entries_.clear();
        size_ = 0;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> entries_;
    std::uint64_t size_ = 0;
    const std::string path_ = "captured.log";
    const std::string line_end_ = "\n";
};

namespace {

/// What stands behind "[stamp] <thread> ".
std::string without_stamp(std::string_view line) {
    const std::size_t end = line.find("> ");
    return std::string(end == std::string_view::npos ? line : line.substr(end + 2));
}

}  // namespace

log_capture::log_capture() : receiver_(new receiver) {
    logging::log_t::process_log()->set_receiver(receiver_);
    logging::log_t::process_log()->set_initialized();
}

log_capture::~log_capture() {
    logging::log_t::process_log()->set_receiver({});
}

std::vector<std::string> log_capture::entries() const {
    return receiver_->entries();
}

std::vector<std::string> log_capture::lines() const {
    std::vector<std::string> found;
    for (const std::string& entry : receiver_->entries()) {
        std::string_view rest = entry;
        while (!rest.empty()) {
            const std::size_t end = std::min(rest.find('\n'), rest.size());
            found.push_back(without_stamp(rest.substr(0, end)));
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
    }
    return found;
}

bool log_capture::has_line(std::string_view ending) const {
    const std::vector<std::string> all = lines();
    return std::any_of(all.begin(), all.end(), [ending](const std::string& line) { return line.ends_with(ending); });
}

void log_capture::clear() {
    receiver_->clear();
}

}  // namespace platform::testing
