#pragma once

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "command/call_arguments.h"

/// What every remote procedure returns. `errorMessage` is set on failure only.
struct InvokeResult {
    bool success = false;
    std::optional<std::u16string> errorMessage;
};

/// The result that tells a caller of a failure, in the exception's own text. Never throws a conversion failure.
[[nodiscard]] InvokeResult MakeErrorResult(const std::exception& e);

namespace wrap {

/// The frame of a call: a procedure name and an XML text come in, an XML text or a failure goes out. Objects are made for
/// one call and used by its thread.
class IInvokeDispatcher {
public:
    using binary_block = boost::shared_ptr<std::vector<std::uint8_t>>;

    virtual ~IInvokeDispatcher() = default;

    /// Runs one procedure. Throws on failure.
    virtual void Invoke(const std::u16string& procedure, const CInputArguments& input, COutputArguments& output) = 0;
    /// Drops the blocks. The interface has a place for it; no procedure of this service needs it.
    virtual void InvokeWithBinary(const std::u16string& procedure, const CInputArguments& input, COutputArguments& output,
                                  binary_block input_data, binary_block output_data);

    virtual void LogSoapEnter(const std::u16string& procedure, const std::u16string& input);
    virtual void LogSoapExit(const std::u16string& procedure, const std::u16string& output);
    virtual void LogCallFailure(const std::u16string& procedure, const std::u16string& input, const std::exception& e);
    /// Whether the caller has to send its calls one after the other.
    [[nodiscard]] virtual bool IsSerialInvokerEnabled();

    /// Serves one call. The texts are zero-terminated; null stands for a pointer that the caller left out. `output` is set
    /// on success only. Exceptions derived from `std::exception` end here, as a failed result.
    [[nodiscard]] InvokeResult ProcessCall(const char16_t* procedure, const char16_t* input, std::optional<std::u16string>& output);

private:
    [[nodiscard]] std::u16string run_call(const std::u16string& procedure, const std::u16string& input);
};

/// The procedure that the frame answers by itself.
inline constexpr char16_t serial_invoker_procedure[] = u"IInvokeDispatcher.IsSerialInvokerEnabled";

}  // namespace wrap
