#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include <boost/make_shared.hpp>

#include "changer/tape_variables.h"
#include "command/owner.h"
#include "command/svc_context.h"
#include "command/tape_dispatcher.h"
#include "platform/testing/fakes.h"
#include "support/tape_variables_scope.h"

namespace test_support {

/// The tape key as the fakes' own hand names it.
inline constexpr char tape_key[] = "SOFTWARE\\Tarno\\Tarno Backup Tape";

/// What came back from a call, in UTF-8.
struct call_answer {
    bool success = false;
    std::string error;                  ///< "(none)" when the result carries none
    std::optional<std::string> output;  ///< nothing when the output pointer stayed null
};

/// A server in the test's process: an administrator calls, no owner is set, nothing is in the registry.
class ServiceFixture : public testing::Test {
protected:
    ServiceFixture() : context_(boost::make_shared<ctx::CSvcContext>()) {
        system_.accounts.set_administrator();
        LoadOwner(tape_key_path, u"", false);
    }
    ~ServiceFixture() override { LoadOwner(tape_key_path, u"", false); }

    call_answer process(const char16_t* procedure, const char16_t* input) {
        std::optional<std::u16string> output;
        CTapeInvokeDispatcher dispatcher(context_);
        const InvokeResult result = dispatcher.ProcessCall(procedure, input, output);
        call_answer answer;
        answer.success = result.success;
        answer.error = result.errorMessage ? text::wide_to_utf8(*result.errorMessage) : "(none)";
        if (output) {
            answer.output = text::wide_to_utf8(*output);
        }
        return answer;
    }

    call_answer call(const std::string& procedure, const std::string& arguments = "") {
        const std::string input = arguments.empty() ? "<InputArguments />" : "<InputArguments>" + arguments + "</InputArguments>";
        return process(text::utf8_to_wide(procedure).c_str(), text::utf8_to_wide(input).c_str());
    }

    /// A call by the owner "HOST1".
    call_answer owner_call(const std::string& procedure, const std::string& arguments = "") {
        return call(procedure, "<OwnerName value=\"HOST1\" />" + arguments);
    }

    platform::testing::test_system system_;
    tape_variables_scope variables_;
    boost::shared_ptr<ctx::CSvcContext> context_;
};

}  // namespace test_support
