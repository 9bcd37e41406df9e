#include "command/task_procedures.h"

#include <boost/make_shared.hpp>

#include "command/erase_worker.h"
#include "foundation/logging/log_scope.h"
#include "foundation/text/conversion.h"
#include "platform/errors.h"

namespace procedures {

namespace {

std::uint32_t read_task_id(const CInputArguments& input) {
    return static_cast<std::uint32_t>(input.get_uint64_argument("TaskID"));
}

}  // namespace

void EraseTape(const procedure_call& call) {
    const std::string link = call.input.get_string_argument("SymLinkName");
    const bool long_erasure = call.input.get_bool_argument("LongErasure");
    const auto worker = boost::make_shared<CEraseTapeWorker>(link, long_erasure);
    call.output.Set("TaskID", text::to_string(call.context.AddTask(worker)));
}

void TaskStatus(const procedure_call& call) {
    logging::log_scope_t scope(g_log, "Checking task status");
    const std::uint32_t id = read_task_id(call.input);
    // Held to the end: where a thread's id is free for another once nobody holds the thread, it must not be free yet.
    const boost::shared_ptr<ITapeWorker> task = call.context.FindTask(id);
    const std::uint32_t status = task->GetStatus();
    if (status == platform::error::success) {
        call.context.RemoveTask(id);
    }
    call.output.Set("TaskStatus", text::to_string(status));
    scope.ok();
}

void WaitForResult(const procedure_call& call) {
    const std::uint32_t id = read_task_id(call.input);
    if (call.context.FindTask(id)->IsFinished()) {
        call.context.FindTask(id)->Join();
    }
}

}  // namespace procedures
