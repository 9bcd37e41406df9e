#include "command/invoke_dispatcher.h"

#include <utility>

#include "command/com_scope.h"
#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "foundation/logging/quietly.h"
#include "foundation/security/client_check.h"
#include "foundation/text/ascii.h"
#include "foundation/text/conversion.h"
#include "platform/accounts.h"
#include "platform/system.h"

InvokeResult MakeErrorResult(const std::exception& e) {
    const char* what = e.what();
    return {false, what != nullptr ? text::utf8_to_wide_safe(what) : std::u16string()};
}

namespace wrap {

namespace {

/// Appends the text in the ANSI code page. ASCII is the same in all of them and goes the short way; the system converts what
/// isn't, as a whole, since an ASCII unit may belong to a letter's accent.
void append_ansi(std::string& line, std::u16string_view text) {
    const std::size_t start = line.size();
    if (text::append_narrowed_ascii(line, text) < text.size()) {
        line.resize(start);
        line.append(text::wide_to_ansi_safe(text));
    }
}

/// One log line of a call.
void log_call_line(std::string_view tag, const std::u16string& procedure, std::u16string_view text) {
    if (!g_rpcLog.log().takes_entries()) {
        return;
    }
    std::string line(tag);
    append_ansi(line, procedure);
    line.push_back(':');
    append_ansi(line, text);
    g_rpcLog.LogMessage(line);
}

/// Says who makes the calls of this thread from now on, when that changes, and now and then again, since the log's older lines move
/// to archives.
void log_caller() {
    constexpr std::uint32_t calls_between = 100;
    thread_local std::string told;
    thread_local std::uint32_t calls_since = 0;
    if (!g_rpcLog.log().takes_entries()) {
        return;
    }
    std::string caller = platform::system().accounts->client_text();
    if (caller.empty() || (caller == told && ++calls_since < calls_between)) {
        return;
    }
    g_rpcLog.LogMessage("This thread serves " + text::wide_to_ansi_safe(text::utf8_to_wide_safe(caller)) + ".");
    told = std::move(caller);
    calls_since = 0;
}

/// Nothing of a call comes before the check of its caller. The log tells of those who are refused, too.
void check_caller() {
    struct teller {
        teller() = default;
        teller(const teller&) = delete;
        teller& operator=(const teller&) = delete;
        ~teller() { logging::quietly(log_caller); }
    };
    const teller told_in_the_end;
    CheckRpcClientAuthorised();
}

}  // namespace

void IInvokeDispatcher::InvokeWithBinary(const std::u16string& /*procedure*/, const CInputArguments& /*input*/,
                                         COutputArguments& /*output*/, binary_block input_data, binary_block output_data) {
    input_data.reset();
    output_data.reset();
}

void IInvokeDispatcher::LogSoapEnter(const std::u16string& procedure, const std::u16string& input) {
    g_rpcLog.LogMessage("");
    log_call_line("[SoapEnter] ", procedure, input);
}

void IInvokeDispatcher::LogSoapExit(const std::u16string& procedure, const std::u16string& output) {
    std::u16string_view shown = output;
    if (shown.ends_with(u"\r\n")) {
        shown.remove_suffix(2);
    }
    log_call_line("[SoapExit] ", procedure, shown);
}

void IInvokeDispatcher::LogCallFailure(const std::u16string& procedure, const std::u16string& /*input*/, const std::exception& e) {
    g_rpcLog.LogError("RPC method call has failed (%1).", text::wide_to_ansi_safe(procedure), e);
}

bool IInvokeDispatcher::IsSerialInvokerEnabled() {
    return false;
}

InvokeResult IInvokeDispatcher::ProcessCall(const char16_t* procedure, const char16_t* input,
                                            std::optional<std::u16string>& output) {
    std::u16string procedure_name;
    std::u16string input_text;
    try {
        check_caller();
        if (procedure == nullptr) {
            throw exc::runtime_exc_t("Procedure name is not specified.");
        }
        procedure_name = procedure;
        if (input == nullptr) {
            throw exc::runtime_exc_t("Input arguments is not specified.");
        }
        input_text = input;
        output = run_call(procedure_name, input_text);
        return {true, std::nullopt};
    } catch (const std::exception& e) {
        LogCallFailure(procedure_name, input_text, e);
        return MakeErrorResult(e);
    }
}

std::u16string IInvokeDispatcher::run_call(const std::u16string& procedure, const std::u16string& input) {
    const com_scope com(com_model_probe::instance().model());
    LogSoapEnter(procedure, input);
    const CInputArguments arguments(input);
    COutputArguments results;
    if (procedure == serial_invoker_procedure) {
        results.Set("IsEnabled", IsSerialInvokerEnabled());
    } else {
        Invoke(procedure, arguments, results);
    }
    std::u16string text = results.TakeText();
    LogSoapExit(procedure, text);
    return text;
}

}  // namespace wrap
