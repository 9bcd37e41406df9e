#include "foundation/synch/stop_events.h"

#include <exception>

#include <boost/thread/lock_guard.hpp>

#include "foundation/logging/log_writer.h"
#include "foundation/logging/quietly.h"

namespace synch {

namespace {

using lock_t = boost::lock_guard<boost::mutex>;

}  // namespace

CStopEvtCollection& CStopEvtCollection::instance() {
    static CStopEvtCollection& collection =
        *new CStopEvtCollection;  // never gone: a thread may outlive the process's main function
    return collection;
}

void CStopEvtCollection::add(std::uint32_t thread_id, const boost::shared_ptr<stop_event_t>& event) {
    boost::shared_ptr<stop_event_t> present = event;
    const lock_t lock(mutex_);
    events_[thread_id].swap(present);
}

void CStopEvtCollection::remove(std::uint32_t thread_id) {
    boost::shared_ptr<stop_event_t> last;  // closed, if it is the last, after the lock
    const lock_t lock(mutex_);
    const auto found = events_.find(thread_id);
    if (found != events_.end()) {
        last.swap(found->second);
        events_.erase(found);
    }
}

boost::shared_ptr<stop_event_t> CStopEvtCollection::find(std::uint32_t thread_id) const {
    const lock_t lock(mutex_);
    const auto found = events_.find(thread_id);
    return found == events_.end() ? boost::shared_ptr<stop_event_t>() : found->second;
}

CStopEvtThreadRegistration::CStopEvtThreadRegistration(std::uint32_t thread_id, const boost::shared_ptr<stop_event_t>& of_parent)
    : thread_id_(thread_id) {
    if (of_parent != nullptr) {
        CStopEvtCollection::instance().add(thread_id_, of_parent);
    }
}

CStopEvtThreadRegistration::~CStopEvtThreadRegistration() {
    try {
        CStopEvtCollection::instance().remove(thread_id_);
    } catch (const std::exception& e) {
        logging::quietly([&e] { g_libraryLog.LogError("At ~CStopEvtThreadRegistration.", e); });
    }
}

}  // namespace synch
