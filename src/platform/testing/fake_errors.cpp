#include "platform/testing/fake_errors.h"

#include <unordered_map>
#include <utility>

#include "platform/error_texts.h"

namespace platform::testing {

namespace {

struct thread_state {
    std::uint32_t last_error = 0;
    std::optional<std::string> com_description;
};

/// The calling thread's state in one instance. Ends with the thread, as the real thing does.
thread_state& state_of(std::uint64_t instance) {
    thread_local std::unordered_map<std::uint64_t, thread_state> states;
    return states[instance];
}

std::uint64_t next_instance() {
    static std::atomic<std::uint64_t> count{0};
    return ++count;
}

}  // namespace

fake_errors::fake_errors() : instance_(next_instance()) {}

std::uint32_t fake_errors::last_error() {
    return state_of(instance_).last_error;
}

void fake_errors::set_last_error(std::uint32_t code) {
    state_of(instance_).last_error = code;
}

std::optional<std::string> fake_errors::system_text(std::uint32_t code) {
    const std::lock_guard lock(mutex_);
    const auto own = system_texts_.find(code);
    if (own != system_texts_.end()) {
        return own->second;
    }
    const std::optional<std::string_view> text = english_error_text(code);
    return text ? std::optional<std::string>(std::string(*text) + "\r\n") : std::nullopt;
}

std::optional<std::string> fake_errors::internet_text(std::uint32_t code) {
    const std::lock_guard lock(mutex_);
    const auto own = internet_texts_.find(code);
    return own != internet_texts_.end() ? std::optional<std::string>(own->second) : std::nullopt;
}

std::string fake_errors::category_text(std::uint32_t code) {
    const std::lock_guard lock(mutex_);
    const auto own = category_texts_.find(code);
    return own != category_texts_.end() ? own->second : "Unknown error (" + std::to_string(code) + ")";
}

std::optional<std::string> fake_errors::take_com_description() {
    return std::exchange(state_of(instance_).com_description, std::nullopt);
}

void fake_errors::set_system_text(std::uint32_t code, std::optional<std::string> text) {
    const std::lock_guard lock(mutex_);
    system_texts_[code] = std::move(text);
}

void fake_errors::set_internet_text(std::uint32_t code, std::string text) {
    const std::lock_guard lock(mutex_);
    internet_texts_[code] = std::move(text);
}

void fake_errors::set_category_text(std::uint32_t code, std::string text) {
    const std::lock_guard lock(mutex_);
    category_texts_[code] = std::move(text);
}

void fake_errors::set_com_description(std::string text) {
    state_of(instance_).com_description = std::move(text);
}

}  // namespace platform::testing
