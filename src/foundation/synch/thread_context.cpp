#include "foundation/synch/thread_context.h"

#include <utility>

#include <boost/make_shared.hpp>
#include <boost/thread/lock_guard.hpp>
#include <boost/thread/tss.hpp>

namespace synch {

namespace {

using lock_t = boost::lock_guard<boost::mutex>;

boost::thread_specific_ptr<SSmartPointerContainer>& slot() {
    // Never gone: a thread may outlive the process's main function.
    static auto& pointer = *new boost::thread_specific_ptr<SSmartPointerContainer>;
    return pointer;
}

}  // namespace

boost::shared_ptr<CThreadContext> CThreadContext::current() {
    if (slot().get() == nullptr) {
        slot().reset(new SSmartPointerContainer{boost::make_shared<CThreadContext>()});
    }
    return slot()->context;
}

void CThreadContext::forget_current() {
    slot().reset();
}

/// Ancestors that nobody else has go one after the other: where each thread has started the next, there may be too many of them for
/// destructors within destructors.
CThreadContext::~CThreadContext() {
    boost::shared_ptr<CThreadContext> last = std::move(parent_);
    while (last != nullptr && last.use_count() == 1) {
        boost::shared_ptr<CThreadContext> next;
        {
            const lock_t lock(last->mutex_);  // who let go of it a moment ago may have set it
            next.swap(last->parent_);
        }
        last.swap(next);
    }
}

void CThreadContext::set_parent(const boost::shared_ptr<CThreadContext>& parent) {
    boost::shared_ptr<CThreadContext> present = parent;
    const lock_t lock(mutex_);
    parent_.swap(present);
}

boost::shared_ptr<CThreadContext> CThreadContext::parent() const {
    const lock_t lock(mutex_);
    return parent_;
}

void CThreadContext::set_stop_event(const boost::shared_ptr<stop_event_t>& event) {
    boost::shared_ptr<stop_event_t> present = event;
    const lock_t lock(mutex_);
    stop_event_.swap(present);
}

boost::shared_ptr<stop_event_t> CThreadContext::stop_event() const {
    boost::shared_ptr<CThreadContext> ancestor;  // keeps the context of the present step
    const CThreadContext* context = this;
    while (context != nullptr) {
        boost::shared_ptr<CThreadContext> next;
        {
            const lock_t lock(context->mutex_);
            if (context->stop_event_ != nullptr) {
                return context->stop_event_;
            }
            next = context->parent_;
        }
        ancestor = next;
        context = ancestor.get();
    }
    return {};
}

}  // namespace synch
