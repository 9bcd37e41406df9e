#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <thread>

#include "command/com_scope.h"
#include "command/invoke_dispatcher.h"
#include "foundation/exc/exceptions.h"
#include "support/service_fixture.h"

namespace {

using test_support::call_answer;
using test_support::ServiceFixture;

class Frame : public ServiceFixture {
protected:
    /// A dispatcher whose procedures a test writes.
    class scripted_dispatcher : public wrap::IInvokeDispatcher {
    public:
        void Invoke(const std::u16string& /*procedure*/, const CInputArguments& input, COutputArguments& output) override {
            body(input, output);
        }
        std::function<void(const CInputArguments& input, COutputArguments& output)> body = [](const auto&, auto&) {};
    };

    call_answer run(const std::function<void(const CInputArguments& input, COutputArguments& output)>& body,
                    const std::string& input = "<InputArguments />") {
        scripted_dispatcher dispatcher;
        dispatcher.body = body;
        std::optional<std::u16string> output;
        const InvokeResult result = dispatcher.ProcessCall(u"Procedure", text::utf8_to_wide(input).c_str(), output);
        call_answer answer{result.success, result.errorMessage ? text::wide_to_utf8(*result.errorMessage) : "(none)", std::nullopt};
        if (output) {
            answer.output = text::wide_to_utf8(*output);
        }
        return answer;
    }

    /// Runs a body that throws and gives the failure's text.
    std::string failure(const std::function<void(const CInputArguments& input)>& body, const std::string& input) {
        const call_answer answer = run([&](const CInputArguments& arguments, COutputArguments&) { body(arguments); }, input);
        EXPECT_FALSE(answer.success);
        EXPECT_FALSE(answer.output);
        return answer.error;
    }
};

constexpr char16_t serial_invoker[] = u"IInvokeDispatcher.IsSerialInvokerEnabled";

TEST_F(Frame, AnswersTheSerialInvokerQuestionByItself) {
    const call_answer answer = process(serial_invoker, u"<InputArguments />");
    EXPECT_TRUE(answer.success);
    EXPECT_EQ(answer.error, "(none)");
    EXPECT_EQ(answer.output, "<OutputArguments><IsEnabled value=\"false\" /></OutputArguments>");
}

TEST_F(Frame, TheReservedNameDependsOnCase) {
    EXPECT_FALSE(process(u"IInvokeDispatcher.isSerialInvokerEnabled", u"<InputArguments />").success);
}

TEST_F(Frame, TheReservedNameAlsoNeedsXml) {
    const call_answer answer = process(serial_invoker, u"no xml");
    EXPECT_FALSE(answer.success);
    EXPECT_NE(answer.error.find("Failed to parse XML content. Source content: [no xml]."), std::string::npos) << answer.error;
    EXPECT_FALSE(answer.output);
}

TEST_F(Frame, NullTextsAreRefusedInTheirOwnWords) {
    EXPECT_EQ(process(nullptr, nullptr).error, "Procedure name is not specified.");
    EXPECT_EQ(process(nullptr, u"<InputArguments />").error, "Procedure name is not specified.");
    EXPECT_EQ(process(u"GetOwnerName", nullptr).error, "Input arguments is not specified.");
    EXPECT_TRUE(system_.log.has_line("RPC method call has failed (GetOwnerName)."));
}

TEST_F(Frame, AnEmptyTextFailsInTheParser) {
    const call_answer answer = process(u"GetOwnerName", u"");
    EXPECT_FALSE(answer.success);
    EXPECT_NE(answer.error.find("Failed to parse XML content. Source content: []."), std::string::npos) << answer.error;
}

TEST_F(Frame, AStrangerIsRefusedBeforeAnythingElse) {
    system_.accounts.set_ordinary_user();
    for (const char16_t* procedure : {serial_invoker, static_cast<const char16_t*>(nullptr), u"GetOwnerName"}) {
        system_.log.clear();
        const call_answer answer = process(procedure, nullptr);
        EXPECT_FALSE(answer.success);
        EXPECT_NE(answer.error.find("\nRPC client is not a member of built-in Administrators group.\n--tr:Error code: 0x80070005"),
                  std::string::npos)
            << answer.error;
        EXPECT_EQ(system_.log.lines().front(), "rpc| ERR |RPC method call has failed ().");
    }
    EXPECT_TRUE(system_.com_runtime.models().empty());
}

TEST_F(Frame, LogsEnteringAndLeaving) {
    run([](const CInputArguments&, COutputArguments& output) { output.Set("A", true); });
    const std::vector<std::string> lines = system_.log.lines();
    const auto first = std::find(lines.begin(), lines.end(), "rpc| ");
    ASSERT_NE(first, lines.end());
    EXPECT_EQ(std::vector<std::string>(first, lines.end()),
              (std::vector<std::string>{"rpc| ", "rpc| [SoapEnter] Procedure:<InputArguments />",
                                        "rpc| [SoapExit] Procedure:<OutputArguments><A value=\"true\" /></OutputArguments>"}));
}

TEST_F(Frame, TheLogTellsWhoCallsWhenThatChangesAndAfterAHundredCalls) {
    const auto told = [this] {
        const std::vector<std::string> lines = system_.log.lines();
        std::vector<std::string> callers;
        std::copy_if(lines.begin(), lines.end(), std::back_inserter(callers),
                     [](const std::string& line) { return line.starts_with("rpc| This thread serves "); });
        system_.log.clear();
        return callers;
    };
    const auto one_call = [this] { run([](const CInputArguments&, COutputArguments&) {}); };
    const std::vector<std::string> anna{"rpc| This thread serves [VM\\Anna 100%1] at [192.0.2.7]."};
    system_.accounts.set_client_text("[VM\\Anna 100%1] at [192.0.2.7]");
    one_call();
    EXPECT_EQ(system_.log.lines().front(), anna.front());
    EXPECT_EQ(told(), anna);
    for (int i = 0; i < 99; ++i) {
        one_call();
    }
    EXPECT_TRUE(told().empty());
    one_call();
    EXPECT_EQ(told(), anna);
    system_.accounts.set_ordinary_user();
    system_.accounts.set_client_text("[root] on this machine");
    one_call();
    const std::vector<std::string> refused = system_.log.lines();
    EXPECT_EQ(refused.at(0), "rpc| This thread serves [root] on this machine.");
    EXPECT_EQ(refused.at(1), "rpc| ERR |RPC method call has failed ().");
    std::thread([&] { one_call(); }).join();
    EXPECT_EQ(told().size(), 2u) << "each thread tells";
    system_.accounts.set_client_text("");
    one_call();
    EXPECT_TRUE(told().empty());
}

TEST_F(Frame, LogsPercentSignsAsTheyAre) {
    run([](const CInputArguments&, COutputArguments&) {}, "<InputArguments><A value=\"%1\" /></InputArguments>");
    EXPECT_TRUE(system_.log.has_line("[SoapEnter] Procedure:<InputArguments><A value=\"%1\" /></InputArguments>"));
}

TEST_F(Frame, TheExitLineLosesOneLineEnd) {
    scripted_dispatcher dispatcher;
    dispatcher.LogSoapExit(u"P", u"<A />\r\n");
    dispatcher.LogSoapExit(u"P", u"<A />\n");
    EXPECT_EQ(system_.log.lines(), (std::vector<std::string>{"rpc| [SoapExit] P:<A />", "rpc| [SoapExit] P:<A />"}));
    EXPECT_EQ(system_.log.entries()[0].find('\r'), std::string::npos);
}

TEST_F(Frame, LogsInTheAnsiCodePage) {
    system_.text_encoding.set_ansi_page(platform::testing::fake_text_encoding::ansi_page::western);
    run([](const CInputArguments&, COutputArguments&) {}, "<InputArguments><A value=\"\xC3\xA4\" /></InputArguments>");
    EXPECT_TRUE(system_.log.has_line("[SoapEnter] Procedure:<InputArguments><A value=\"\xE4\" /></InputArguments>"));
}

TEST_F(Frame, AFailureLeavesNoExitLineAndNoOutput) {
    const call_answer answer = run([](const CInputArguments&, COutputArguments& output) {
        output.Set("A", true);
        throw exc::runtime_exc_t("It broke.");
    });
    EXPECT_FALSE(answer.success);
    EXPECT_EQ(answer.error, "It broke.");
    EXPECT_FALSE(answer.output);
    const std::vector<std::string> lines = system_.log.lines();
    EXPECT_EQ(lines[lines.size() - 3], "rpc| ERR |RPC method call has failed (Procedure).");
    EXPECT_EQ(lines[lines.size() - 2], "rpc| >>  |It broke.");
    EXPECT_EQ(lines[lines.size() - 1].find("rpc| >>  |An exception was thrown from thread ["), 0u);
    EXPECT_FALSE(system_.log.has_line("[SoapExit] Procedure:<OutputArguments><A value=\"true\" /></OutputArguments>"));
}

TEST_F(Frame, AnExceptionOfAnotherKindLeavesTheFrame) {
    EXPECT_THROW(run([](const CInputArguments&, COutputArguments&) { throw 42; }), int);
    EXPECT_EQ(system_.com_runtime.open_count(), 0u);
}

TEST_F(Frame, ComIsEnteredAndLeftOnEveryPath) {
    run([&](const CInputArguments&, COutputArguments&) { EXPECT_EQ(system_.com_runtime.open_count(), 1u); });
    run([](const CInputArguments&, COutputArguments&) { throw exc::runtime_exc_t("no"); });
    EXPECT_EQ(system_.com_runtime.models().size(), 2u);
    EXPECT_EQ(system_.com_runtime.open_count(), 0u);
}

TEST_F(Frame, ComThatCannotBeEnteredFailsTheCallBeforeItsFirstLine) {
    system_.com_runtime.fail_initialize(0x80010106);
    const call_answer answer = run([](const CInputArguments&, COutputArguments&) { FAIL(); });
    EXPECT_EQ(answer.error, " Error code: 0x80010106\nCannot initialize COM runtime");
    EXPECT_FALSE(system_.log.has_line("[SoapEnter] Procedure:<InputArguments />"));
}

TEST_F(Frame, ComTakesTheModelOfASystemWithAnInstaller) {
    std::unique_ptr<platform::file> file;
    const std::u16string installer = system_.files.system_folder() + system_.files.separator() + u"msiexec.exe";
    ASSERT_EQ(system_.files.open_file(installer, platform::file_access::write, 0, platform::file_open_mode::create_new, file), 0u);
    com_model_probe probe;
    EXPECT_EQ(probe.model(), platform::com_model::apartment_threaded);
    EXPECT_EQ(probe.model(), platform::com_model::apartment_threaded);
    EXPECT_EQ(system_.log.lines(), std::vector<std::string>{"Getting system directory"});
}

TEST_F(Frame, ComTakesTheOtherModelWithoutOne) {
    com_model_probe probe;
    EXPECT_EQ(probe.model(), platform::com_model::multi_threaded);
}

TEST_F(Frame, AFailureTextThatIsNotUtf8ComesRaw) {
    struct odd : std::exception {
        [[nodiscard]] const char* what() const noexcept override { return "\xFF"; }
    };
    const InvokeResult result = MakeErrorResult(odd());
    EXPECT_FALSE(result.success);
    EXPECT_EQ(result.errorMessage, std::u16string(u"UTF8 -> UTF16 failed. Raw: \u00FF"));
}

TEST_F(Frame, AFailureWithoutATextGivesTheEmptyText) {
    struct mute : std::exception {
        [[nodiscard]] const char* what() const noexcept override { return nullptr; }
    };
    const InvokeResult result = MakeErrorResult(mute());
    EXPECT_FALSE(result.success);
    EXPECT_EQ(result.errorMessage, std::u16string());
}

constexpr char one_argument[] = "<InputArguments><A value=\"12ab\" /></InputArguments>";

TEST_F(Frame, GettersReadTheirArgument) {
    const call_answer answer = run(
        [](const CInputArguments& input, COutputArguments& output) {
            output.Set("Wide", input.get_wstring_argument("A"));
            output.Set("Narrow", input.get_string_argument("A"));
            output.Set("Int", input.get_int_argument("A"));
            output.Set("Bool", input.get_bool_argument("A"));
            output.Set("Big", std::to_string(input.get_uint64_argument("A")));
        },
        one_argument);
    EXPECT_EQ(answer.output,
              "<OutputArguments><Wide value=\"12ab\" /><Narrow value=\"12ab\" /><Int value=\"12\" /><Bool value=\"true\" />"
              "<Big value=\"12\" /></OutputArguments>");
}

TEST_F(Frame, BooleansAreReadGenerously) {
    const std::pair<const char*, bool> cases[] = {{"TRUE", true}, {"true", true}, {"False", false},
                                                  {"yes", true},  {"0", false},   {"", true}};
    for (const auto& [value, expected] : cases) {
        run([&](const CInputArguments& input, COutputArguments&) { EXPECT_EQ(input.get_bool_argument("B"), expected) << value; },
            "<InputArguments><B value=\"" + std::string(value) + "\" /></InputArguments>");
    }
}

TEST_F(Frame, AMissingArgumentNamesItself) {
    EXPECT_EQ(failure([](const CInputArguments& input) { static_cast<void>(input.get_wstring_argument("X")); }, one_argument),
              "Value of the argument 'X' is not defined.\n--tr:Failed to retrieve value of the unicode attribute 'X'.");
    EXPECT_EQ(failure([](const CInputArguments& input) { static_cast<void>(input.get_string_argument("X")); }, one_argument),
              "Value of the argument 'X' is not defined.\n--tr:Failed to retrieve value of the multibyte attribute 'X'.");
    EXPECT_EQ(failure([](const CInputArguments& input) { static_cast<void>(input.get_int_argument("X")); }, one_argument),
              "Value of the argument 'X' is not defined.\n--tr:Failed to retrieve value of the integer attribute 'X'.");
    EXPECT_EQ(failure([](const CInputArguments& input) { static_cast<void>(input.get_bool_argument("X")); }, one_argument),
              "Value of the argument 'X' is not defined.\n--tr:Failed to retrieve value of the boolean attribute 'X'.");
    EXPECT_EQ(failure([](const CInputArguments& input) { static_cast<void>(input.get_uint64_argument("X")); }, one_argument),
              "Value of the argument 'X' is not defined.\n--tr:Failed to retrieve value of the UInt64 attribute 'X'.");
}

TEST_F(Frame, AnArgumentWithoutItsValueSaysSo) {
    EXPECT_EQ(failure([](const CInputArguments& input) { static_cast<void>(input.get_int_argument("A")); },
                      "<InputArguments><A text=\"1\" /></InputArguments>"),
              "Attribute value is not specified. Attribute: [value].\n--tr:Failed to retrieve value of the integer attribute 'A'.");
}

TEST_F(Frame, AnIntegerNeedsADigit) {
    EXPECT_EQ(failure([](const CInputArguments& input) { static_cast<void>(input.get_int_argument("A")); },
                      "<InputArguments><A value=\"x1\" /></InputArguments>"),
              "Cannot convert string value to signed integer. Given string: [x1].\n"
              "--tr:Failed to retrieve value of the integer attribute 'A'.");
}

TEST_F(Frame, ABigNumberWithoutADigitIsZero) {
    run([](const CInputArguments& input, COutputArguments&) { EXPECT_EQ(input.get_uint64_argument("A"), 0u); },
        "<InputArguments><A value=\"none\" /></InputArguments>");
    run([](const CInputArguments& input, COutputArguments&) { EXPECT_EQ(input.get_uint64_argument("A"), 18446744073709551615u); },
        "<InputArguments><A value=\"18446744073709551615\" /></InputArguments>");
}

TEST_F(Frame, AnotherRootHoldsNoArguments) {
    EXPECT_EQ(failure([](const CInputArguments& input) { static_cast<void>(input.get_string_argument("A")); },
                      "<Arguments><A value=\"1\" /></Arguments>"),
              "Failed to retrieve XML element [InputArguments]. Element doesn't exist.\n--tr:Failed to find argument node 'A'.\n"
              "--tr:Failed to retrieve value of the multibyte attribute 'A'.");
}

TEST_F(Frame, AnArgumentInAnotherCaseIsFoundWithAWarning) {
    run([](const CInputArguments& input, COutputArguments&) { EXPECT_EQ(input.get_string_argument("SlotNum"), "3"); },
        "<InputArguments><slotnum value=\"3\" /></InputArguments>");
    EXPECT_TRUE(system_.log.has_line(
        "[winxml] Found XML element with case-insensitive search, this is deprecated and will stop working in the future. Expected "
        "name: [SlotNum], got [slotnum] instead."));
}

TEST_F(Frame, AnOptionalArgumentIsLookedUpWithoutFailing) {
    run(
        [](const CInputArguments& input, COutputArguments&) {
            EXPECT_TRUE(input.find_argument("A"));
            EXPECT_FALSE(input.find_argument("B"));
        },
        one_argument);
}

TEST_F(Frame, ResultsStandInTheOrderOfWriting) {
    const call_answer answer = run([](const CInputArguments&, COutputArguments& output) {
        output.Set("B", "two");
        output.Set("A", std::int32_t{-1});
        output.Set("B", false);
        output.Set("W", u"\u00E4<");
    });
    EXPECT_EQ(answer.output,
              "<OutputArguments><B value=\"two\" /><A value=\"-1\" /><B value=\"false\" /><W value=\"\xC3\xA4&lt;\" "
              "/></OutputArguments>");
}

TEST_F(Frame, AnEmptyResultIsAnEmptyElement) {
    EXPECT_EQ(run([](const CInputArguments&, COutputArguments&) {}).output, "<OutputArguments />");
}

TEST_F(Frame, ANarrowResultHasToBeUtf8) {
    const call_answer answer = run([](const CInputArguments&, COutputArguments& output) { output.Set("A", std::string("\xFF")); });
    EXPECT_FALSE(answer.success);
    EXPECT_NE(answer.error.find("Multibyte UTF8 string cannot be converted to unicode string."), std::string::npos);
}

TEST_F(Frame, ARecordArrivesEscaped) {
    const winxml::document_t record = winxml::create_document();
    const winxml::node_t root = winxml::add_element(winxml::document_node(record), "R");
    winxml::add_element(root, "C");
    const call_answer plain = run([&](const CInputArguments&, COutputArguments& output) { output.SetRecord("R", record); });
    EXPECT_EQ(plain.output, "<OutputArguments><R value=\"&lt;R&gt;&lt;C /&gt;&lt;/R&gt;\" /></OutputArguments>");
    winxml::set_attribute(root, "A", "1");
    const call_answer quoted = run([&](const CInputArguments&, COutputArguments& output) { output.SetRecord("R", record); });
    EXPECT_EQ(quoted.output, "<OutputArguments><R value='&lt;R A=&quot;1&quot;&gt;&lt;C /&gt;&lt;/R&gt;' /></OutputArguments>");
}

winxml::record_stream_t stream_of(std::string_view value) {
    static constexpr std::string_view attributes[] = {"A"};
    winxml::record_stream_t stream("R", winxml::record_form::attribute_value);
    const winxml::record_layout_t layout({{"C", attributes}, {}}, stream.form());
    stream.begin_record(layout);
    stream.value(value);
    stream.end_record();
    return stream;
}

winxml::document_t document_of(std::string_view value) {
    const winxml::document_t document = winxml::create_document();
    const winxml::node_t root = winxml::add_element(winxml::document_node(document), "R");
    winxml::set_attribute(winxml::add_element(root, "C"), "A", value);
    return document;
}

TEST_F(Frame, AStreamedRecordGivesTheSameOutputAsADocument) {
    for (const std::string value : {"plain", "", "<\"&'>", "\xC3\xA4", "\xFF", "a\x80z", "\x01"}) {
        const call_answer streamed = run([&](const CInputArguments&, COutputArguments& output) {
            output.Set("Before", "\xC3\xA4");
            output.SetRecord("R", stream_of(value));
            output.Set("After", true);
            output.SetRecord("R", stream_of(value));
        });
        const call_answer printed = run([&](const CInputArguments&, COutputArguments& output) {
            output.Set("Before", "\xC3\xA4");
            output.SetRecord("R", document_of(value));
            output.Set("After", true);
            output.SetRecord("R", document_of(value));
        });
        EXPECT_TRUE(streamed.success) << streamed.error;
        EXPECT_EQ(streamed.output, printed.output);
    }
}

TEST_F(Frame, DeviceBytesThatAreNotUtf8ArriveReplaced) {
    const call_answer answer =
        run([](const CInputArguments&, COutputArguments& output) { output.SetRecord("R", stream_of("A\xFF\xE2\x82Z")); });
    EXPECT_TRUE(answer.success);
    EXPECT_NE(answer.output->find("A=&quot;A\xEF\xBF\xBD\xEF\xBF\xBDZ&quot;"), std::string::npos) << *answer.output;
}

TEST_F(Frame, AListOfJobsStandsInTheOrderOfTheSet) {
    const call_answer answer = run([](const CInputArguments&, COutputArguments& output) {
        WriteJobList(output.AddElement("locks"), {{u"B", u"2"}, {u"A", u"9"}, {u"B", u"1"}});
    });
    EXPECT_EQ(answer.output,
              "<OutputArguments><locks><item BackupConsole=\"A\" JobName=\"9\" /><item BackupConsole=\"B\" JobName=\"1\" />"
              "<item BackupConsole=\"B\" JobName=\"2\" /></locks></OutputArguments>");
}

TEST_F(Frame, AListOfJobsThatCannotBeWrittenSaysSo) {
    try {
        WriteJobList(winxml::node_t(), {{u"A", u"1"}});
        FAIL();
    } catch (const exc::exc_base_t& e) {
        EXPECT_EQ(e.messages().back().text, "Failed to serialize list of jobs.");
        EXPECT_TRUE(e.messages().back().trace);
    }
}

TEST_F(Frame, BinaryBlocksAreDropped) {
    scripted_dispatcher dispatcher;
    const auto block = boost::make_shared<std::vector<std::uint8_t>>(3);
    const CInputArguments input(u"<InputArguments />");
    COutputArguments output;
    dispatcher.InvokeWithBinary(u"P", input, output, block, block);
    EXPECT_EQ(block.use_count(), 1);
    EXPECT_EQ(output.TakeText(), u"<OutputArguments />");
}

TEST_F(Frame, CallsRunSideBySide) {
    // Both bodies have to be inside at once for either to end.
    std::mutex mutex;
    std::condition_variable arrived;
    int inside = 0;
    const auto body = [&](const CInputArguments&, COutputArguments&) {
        std::unique_lock<std::mutex> lock(mutex);
        ++inside;
        arrived.notify_all();
        arrived.wait(lock, [&] { return inside == 2; });
    };
    std::thread other([&] { EXPECT_TRUE(run(body).success); });
    EXPECT_TRUE(run(body).success);
    other.join();
}

}  // namespace
