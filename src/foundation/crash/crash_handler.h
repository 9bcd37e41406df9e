#pragma once

#include <boost/shared_ptr.hpp>

#include <cstdint>

#include "foundation/crash/deinit_seq.h"
#include "foundation/text/conversion.h"
#include "platform/crash.h"

namespace crash {

/// What the process does when it crashes: it leaves a dump, then runs its cleaning up. Set up by the process's entry, before other
/// threads; steps may come and go from any thread.
class crash_handler_t {
public:
    crash_handler_t();
    crash_handler_t(const crash_handler_t&) = delete;
    crash_handler_t& operator=(const crash_handler_t&) = delete;

    /// Makes the process's crashes come to `crash_handler()`. Dumps go to the folder of the program. Failures are logged and the
    /// process goes on.
    void install();
    /// Dumps lie beside `path` from now on, if it names a folder, and their names begin with `name`.
    void configure(const text::wide_string& path, const text::wide_string& name);

    void add_step(std::int32_t key, const boost::shared_ptr<deinit_step_t>& step) { deinit_->add(key, step); }
    void remove_step(std::int32_t key) { deinit_->remove(key); }

    /// What to do about a crash: throws nothing, whatever fails stands in the log. The result is the former filter's, else 1: the
    /// process is to end without a dialog.
    std::int32_t process(const platform::crash_record& record) noexcept;

    /// True: the filter does nothing and answers 1.
    bool disabled = false;

private:
    void make_dump(const platform::crash_record& record) const;
    void run_steps();

    const boost::shared_ptr<deinit_seq_t> deinit_;
    platform::crash_filter previous_filter_ = nullptr;
    text::wide_string folder_;
    text::wide_string name_;
};

/// The process's own, made on first use and never gone.
[[nodiscard]] crash_handler_t& crash_handler();

}  // namespace crash
