#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>

#include <exception>
#include <string>
#include <string_view>

#include "foundation/exc/exceptions.h"
#include "foundation/synch/trigger.h"

namespace synch {

/// The completion record of a piece of work, shared by who does it and who waits for it. It is completed when the work has ended,
/// well or badly, and failed only after that. Once completed it stays so; of several failures the latest is kept. Callable from any
/// thread.
class completion_port_t {
public:
    completion_port_t() = default;
    virtual ~completion_port_t() = default;
    completion_port_t(const completion_port_t&) = delete;
    completion_port_t& operator=(const completion_port_t&) = delete;

    [[nodiscard]] virtual bool is_completed() const;
    virtual void complete();
    /// The work ended with this failure, which gets the text as a trace record. The exception itself is left alone.
    virtual void fail(std::string_view text, const std::exception& e);
    virtual void fail(const std::exception& e);
    /// Throws the failure, if there is one.
    virtual void rethrow_error() const;
    /// Null without a failure. Nobody changes the object.
    [[nodiscard]] virtual boost::shared_ptr<exc::exc_base_t> get_error() const;
    /// Empty without a failure.
    [[nodiscard]] virtual std::string error_text() const;
    [[nodiscard]] virtual bool has_error() const;
    /// A sink hears the present state at once.
    virtual void add_completed_sink(const boost::shared_ptr<trigger_sink_t>& sink);
    virtual void add_failed_sink(const boost::shared_ptr<trigger_sink_t>& sink);
    /// Puts the failure's text, or nothing, in place of `text`. Waits for nobody: it serves those who report a process whose
    /// threads stand still, too.
    virtual void describe(std::string& text) const;

private:
    void end_with(const boost::shared_ptr<exc::exc_base_t>& error);

    mutable boost::mutex mutex_;
    boost::shared_ptr<exc::exc_base_t> error_;
    trigger_t completed_;
    trigger_t failed_;
};

}  // namespace synch
