#pragma once

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <span>
#include <string_view>

#include "command/invoke_dispatcher.h"
#include "command/svc_context.h"

/// What a procedure's body works with.
struct procedure_call {
    ctx::CSvcContext& context;
    const CInputArguments& input;
    COutputArguments& output;
    bool byScsi = false;  ///< the procedure came by the name that asks for the SCSI backend
};

/// Runs one procedure; throws on failure.
using procedure_body = void (*)(const procedure_call& call);

enum class procedure_group : std::uint8_t { before_gate, changers, changers_by_scsi, drives, alerts };

/// What becomes of the call when a body before the gate has run.
enum class procedure_end : std::uint8_t {
    answered,
    /// The name is looked up in the groups as well, none knows it, and the caller is told so.
    falls_through
};

struct procedure_row {
    std::u16string_view name;
    procedure_group group;
    procedure_body body;
    procedure_end end = procedure_end::answered;
    bool may_wait = true;  ///< for a device, a disk or a lock that is held over such waiting
};

/// All procedures, in the order of the look-up. A new one is a new row.
[[nodiscard]] std::span<const procedure_row> ProcedureTable();

/// Whether a call of this procedure may wait; the frame's own can't.
[[nodiscard]] bool ProcedureMayWait(std::u16string_view name);

/// The dispatcher of the tape server. Every procedure that touches a device runs for the current owner only.
class CTapeInvokeDispatcher : public wrap::IInvokeDispatcher {
public:
    explicit CTapeInvokeDispatcher(boost::shared_ptr<ctx::CSvcContext> context) : context_(std::move(context)) {}

    void Invoke(const std::u16string& procedure, const CInputArguments& input, COutputArguments& output) override;
    void LogSoapEnter(const std::u16string& procedure, const std::u16string& input) override;
    void LogSoapExit(const std::u16string& procedure, const std::u16string& output) override;
    void LogCallFailure(const std::u16string& procedure, const std::u16string& input, const std::exception& e) override;

private:
    boost::shared_ptr<ctx::CSvcContext> context_;
};
