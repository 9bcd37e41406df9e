#pragma once

#include <string>
#include <string_view>

#include "foundation/monitoring/thread_states.h"

namespace monitoring {

/// A piece of work that shows in the log only when it fails: no line and no indentation meanwhile, and " Failed." behind its text
/// if it is left without `done()`.
class activity_scope_t {
public:
    explicit activity_scope_t(std::string_view text);
    ~activity_scope_t();
    activity_scope_t(const activity_scope_t&) = delete;
    activity_scope_t& operator=(const activity_scope_t&) = delete;

    /// The normal end.
    void done() { finished_ = true; }

private:
    std::string text_;
    activity_t activity_;
    bool finished_ = false;
};

}  // namespace monitoring
