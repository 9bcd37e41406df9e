#include <map>
#include <optional>
#include <sstream>
#include <string>

#include "console/call_codec.h"
#include "console/commands.h"
#include "console/console_fixture.h"
#include "console/library_view.h"
#include "console/shown_text.h"
#include "console/table.h"

namespace {

using console::element_kind;
using console::exit_code;
using console::failure;
using console_test::answer_of;
using console_test::failure_of;

std::string element(const std::string& name, int number, unsigned flags, const std::string& barcode, const std::string& serial = "",
                    int source_type = 0, int source = 0, int exception_code = 0) {
    std::ostringstream text;
    text << "<" << name << " SerialNumber=\"" << serial << "\" Lun=\"0\" ProductIdentification=\"\" VendorIdentification=\"\" "
         << "AlternateVolumeID=\"\" PrimaryVolumeID=\"" << barcode << "\" TargetId=\"0\" ExceptionCode=\"" << exception_code
         << "\" Flags=\"" << flags << "\"><Element ElementAddress=\"" << number << "\" ElementType=\"2\" />"
         << "<SrcElementAddress ElementAddress=\"" << source << "\" ElementType=\"" << source_type << "\" /></" << name << ">";
    return text.str();
}

const std::string one_changer =
    R"(<Changer DeviceName="Changer0" SymbolicLink="\\.\Changer0" NoDriver="false"><Address Lun="0" TargetId="0" PathId="0" PortNumber="0" />)"
    R"(<Data SerialNumber="SN1" DeviceType="8" Revision="1.0" ProductId="LIB" VendorId="TRN" />)"
    R"(<Parameters NumberDataTransferElements="2" NumberIEElements="1" NumberStorageElements="3" /></Changer>)";

class Console : public console_test::fixture {
protected:
    console::library_view library_{server_, "OWNER", false};
};

TEST_F(Console, ElementsAreWrittenLongOrShort) {
    EXPECT_EQ(console::to_text(console::parse_element("slot:12")), "slot:12");
    EXPECT_EQ(console::to_text(console::parse_element("p0")), "port:0");
    EXPECT_EQ(console::to_text(console::parse_element("d65535")), "drive:65535");
    for (const char* bad : {"", "slot", "slot:", "slot:-1", "slot:1x", "robot:0", "s123456", ":1", "s"}) {
        EXPECT_EQ(failure_of([&] { (void)console::parse_element(bad); }).code(), exit_code::usage) << bad;
    }
}

TEST_F(Console, TablesAreAsWideAsTheirTextLooks) {
    console::table rows({"A", "NAME"});
    rows.add({"1", "Ä"});
    rows.add({"long", "xy"});
    rows.add({"2"});
    rows.print(text_);
    EXPECT_EQ(text_.str(), "A     NAME\n1     Ä\nlong  xy\n2\n");
}

TEST_F(Console, TablesStayInOrderWhateverTheCellsHold) {
    console::table rows({"A", "NAME", "C"});
    rows.add({"1", "\xE7\xA3\x81\xE5\xB8\xAF", "wide"});
    rows.add({"2", "e\xCC\x81", "a mark"});
    rows.add({"3", "a\x1B[2J\xFF", "neither"});
    rows.add({"4", "two\r\n  lines\n", "one"});
    rows.add({"5", "runs over the columns behind it"});
    rows.print(text_);
    EXPECT_EQ(text_.str(),
              "A  NAME       C\n"
              "1  \xE7\xA3\x81\xE5\xB8\xAF       wide\n"
              "2  e\xCC\x81          a mark\n"
              "3  a?[2J?     neither\n"
              "4  two lines  one\n"
              "5  runs over the columns behind it\n");
}

TEST_F(Console, WhatATerminalGetsControlsNothing) {
    EXPECT_EQ(console::printable("a\tb\nc\rd\x07\x7F\xC2\x9B"
                                 "e"),
              "a\tb\nc?d???e");
    EXPECT_EQ(console::printable("\xE2\x80\xAEgnp"), "?gnp") << "a reversal of the reading direction";
    for (const char* bad : {"\xC0\x80", "\xC3", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE4\xB8"}) {
        const std::string shown = console::printable(bad);
        EXPECT_EQ(shown, std::string(std::string(bad).size(), '?'));
    }
    EXPECT_EQ(console::printable("Stra\xC3\x9F"
                                 "e \xF0\x9F\x93\xBC"),
              "Stra\xC3\x9F"
              "e \xF0\x9F\x93\xBC");
}

TEST_F(Console, InputIsEscaped) {
    EXPECT_EQ(console::input_xml({{"SymLinkName", "\\\\.\\Changer0"}, {"Name", "a\"<&b"}}),
              "<InputArguments><SymLinkName value=\"\\\\.\\Changer0\" /><Name value='a&quot;&lt;&amp;b' /></InputArguments>");
}

TEST_F(Console, ChangersAreListedWithThoseThatCannotBeRead) {
    server_.answers["GetChangers"] = answer_of(
        "Changers", "<Changers>" + one_changer + R"(<Changer SymbolicLink="\\.\Changer1" Error="dead&#10;and why" /></Changers>)");
    console::list_changers(library_, out_);
    EXPECT_EQ(text_.str(),
              "LINK          VENDOR  PRODUCT  REV  SERIAL  SLOTS  PORTS  DRIVES\n"
              "\\\\.\\Changer0  TRN     LIB      1.0  SN1     3      1      2\n"
              "\\\\.\\Changer1  can't be read: dead\n");
    EXPECT_EQ(server_.asked.at(0), "GetChangers <InputArguments><OwnerName value=\"OWNER\" /></InputArguments>");
}

TEST_F(Console, TheOnlyChangerNeedsNoName) {
    server_.answers["GetChangers"] = answer_of("Changers", "<Changers>" + one_changer + "</Changers>");
    EXPECT_EQ(library_.choose_changer(""), "\\\\.\\Changer0");
    EXPECT_EQ(library_.choose_changer("changer0"), "\\\\.\\Changer0");
    EXPECT_EQ(library_.choose_changer("SN1"), "\\\\.\\Changer0");
    EXPECT_EQ(library_.choose_changer("\\\\.\\Changer7"), "\\\\.\\Changer7");
    EXPECT_EQ(failure_of([&] { (void)library_.choose_changer("Changer1"); }).code(), exit_code::usage);
    server_.answers["GetChangers"] = answer_of("Changers", "<Changers />");
    const failure none = failure_of([&] { (void)library_.choose_changer(""); });
    EXPECT_EQ(none.code(), exit_code::call_failed);
    EXPECT_STREQ(none.what(), "The server has found no changer; its log tells of libraries that can't be used.");
}

TEST_F(Console, InventoryShowsDrivesPortsAndFullSlots) {
    server_.answers["GetElementsStatuses"] = answer_of(
        "ElementsStatuses", "<ElementsStatuses>" + element("ElementStatus", 0, 0x800001, "T2", "D0", 2, 1) + "</ElementsStatuses>");
    server_.answers["GetIEPortsStatuses"] = answer_of(
        "IEPortsStatuses", "<IEPortsStatuses>" + element("IEPortStatus", 0, 4, "", "", 0, 0, 0x3B11) + "</IEPortsStatuses>");
    server_.answers["GetSlotsStatuses"] = answer_of("SlotsStatuses", "<SlotsStatuses>" + element("SlotStatus", 0, 1, "T1") +
                                                                         element("SlotStatus", 1, 0, "") + "</SlotsStatuses>");
    console::show_inventory(library_, "L", false, out_);
    EXPECT_EQ(text_.str(),
              "ELEMENT  STATE                   BAR CODE  CAME FROM  DRIVE SERIAL\n"
              "drive:0  full                    T2        slot:1     D0\n"
              "port:0   empty, exception 3B/11\n"
              "slot:0   full                    T1\n"
              "1 of 2 slots are full.\n");
}

TEST_F(Console, UnloadWithoutASlotGoesHome) {
    server_.answers["GetElementsStatuses"] =
        answer_of("ElementsStatuses", "<ElementsStatuses>" + element("ElementStatus", 0, 0x800001, "T2", "D0", 2, 7) +
                                          element("ElementStatus", 1, 1, "T3", "D1") + element("ElementStatus", 2, 0, "", "D2") +
                                          "</ElementsStatuses>");
    server_.answers["UnloadMedium"] = "<OutputArguments />";
    console::unload(library_, "L", 0, std::nullopt, json_);
    EXPECT_EQ(server_.asked.back(),
              "UnloadMedium <InputArguments><SymLinkName value=\"L\" /><DriveNum value=\"0\" /><SlotNum value=\"7\" /><OwnerName "
              "value=\"OWNER\" "
              "/></InputArguments>");
    EXPECT_EQ(text_.str(), "{\n  \"moved\": true,\n  \"from\": \"drive:0\",\n  \"to\": \"slot:7\"\n}\n");
    EXPECT_EQ(failure_of([&] { console::unload(library_, "L", 1, std::nullopt, out_); }).code(), exit_code::usage);
    EXPECT_EQ(failure_of([&] { console::unload(library_, "L", 2, std::nullopt, out_); }).code(), exit_code::call_failed);
    EXPECT_EQ(failure_of([&] { console::unload(library_, "L", 3, std::nullopt, out_); }).code(), exit_code::usage);
}

TEST_F(Console, EveryMoveHasItsProcedureOrIsRefused) {
    using enum element_kind;
    const std::map<std::pair<element_kind, element_kind>, std::string> procedures = {
        {{slot, drive}, "LoadMedium"},        {{slot, slot}, "MoveToSlot"},       {{drive, slot}, "UnloadMedium"},
        {{drive, port}, "FromDriveToIEPort"}, {{slot, port}, "FromSlotToIEPort"}, {{port, slot}, "FromIEPortToSlot"}};
    console::library_view by_scsi(server_, "OWNER", true);
    for (const element_kind from : {slot, port, drive}) {
        for (const element_kind to : {slot, port, drive}) {
            const auto found = procedures.find({from, to});
            const failure refused = failure_of([&] { by_scsi.move("L", {from, 1}, {to, 2}); });
            EXPECT_EQ(refused.code(), found == procedures.end() ? exit_code::usage : exit_code::call_failed);
            if (found != procedures.end()) {
                EXPECT_EQ(refused.what(), "Unknown command: '" + found->second + "ByScsi'");
            }
        }
    }
}

TEST_F(Console, MovesThatCannotBeAreRefusedWithoutTheServersWaiting) {
    using enum element_kind;
    server_.answers["GetChangers"] = answer_of("Changers", "<Changers>" + one_changer + "</Changers>");
    const std::string link = library_.choose_changer("");
    const auto refusal = [&](element_kind from, std::uint32_t from_number, element_kind to, std::uint32_t to_number) {
        const failure refused = failure_of([&] { library_.move(link, {from, from_number}, {to, to_number}); });
        EXPECT_EQ(refused.code(), exit_code::usage);
        return std::string(refused.what());
    };
    EXPECT_EQ(refusal(slot, 3, drive, 0), "The changer \\\\.\\Changer0 has no slot:3: its slots are slot:0 to slot:2.");
    EXPECT_EQ(refusal(slot, 0, drive, 2), "The changer \\\\.\\Changer0 has no drive:2: its drives are drive:0 to drive:1.");
    EXPECT_EQ(refusal(slot, 0, port, 1), "The changer \\\\.\\Changer0 has no port:1: its only port is port:0.");
    EXPECT_EQ(refusal(slot, 1, slot, 1), "slot:1 can't be moved to itself.");
    EXPECT_EQ(server_.asked.size(), 1u) << "only the list of changers";
    server_.answers["LoadMedium"] = "<OutputArguments />";
    library_.move(link, {slot, 2}, {drive, 1});
    library_.move("\\\\.\\Changer1", {slot, 700}, {drive, 1});
    EXPECT_EQ(server_.asked.size(), 3u);
}

TEST_F(Console, AChangerThatCannotBeOpenedSaysWhyInWords) {
    server_.answers["GetChangers"] = answer_of(
        "Changers",
        "<Changers><Changer SymbolicLink=\"L\" Error=\"&lt;Error&gt;&lt;ApiFunctionName&gt;CreateFile&lt;/ApiFunctionName&gt;"
        "&lt;ApiCode&gt;5&lt;/ApiCode&gt;&lt;ApiMessage&gt;No.&lt;/ApiMessage&gt;&lt;/Error&gt;\" />"
        "<Changer SymbolicLink=\"M\" Error=\"&lt;Error\" /></Changers>");
    const std::vector<console::changer_view> views = library_.changers();
    EXPECT_EQ(views.at(0).error, "No. (CreateFile, error 5)");
    EXPECT_EQ(views.at(1).error, "<Error");
}

TEST(ServersTexts, SomeTellWhatAPersonCanDo) {
    const failure refused =
        console::failure_told("Access is denied.\nRPC client is not a member of built-in Administrators group.\nx");
    EXPECT_EQ(refused.code(), exit_code::not_let_in);
    EXPECT_EQ(console::failure_told("Auth context not available").code(), exit_code::not_let_in);
    const failure other_owner = console::failure_told("'a' isn't current owner. You have to change current owner");
    EXPECT_EQ(other_owner.code(), exit_code::call_failed);
    EXPECT_STREQ(other_owner.what(),
                 "'a' isn't current owner. You have to change current owner\n'tarnoctl owner' shows the owner. Act for "
                 "it by --owner or $TARNO_OWNER, or make another one the owner by 'tarnoctl owner NAME'.");
    EXPECT_STREQ(console::failure_told("Anything\nelse").what(), "Anything\nelse");
    EXPECT_STREQ(console::failure_told("").what(), "The call failed, and the server doesn't say why.");
}

TEST_F(Console, CallPrintsTheAnswerAsItCame) {
    server_.answers["EnumLocks"] = "<OutputArguments><locks /></OutputArguments>";
    console::call_procedure(server_, "EnumLocks", {"A=1=2", "B="}, "", out_);
    EXPECT_EQ(text_.str(), "<OutputArguments><locks /></OutputArguments>\n");
    EXPECT_EQ(server_.asked.back(), "EnumLocks <InputArguments><A value=\"1=2\" /><B value=\"\" /></InputArguments>");
    console::call_procedure(server_, "EnumLocks", {"OwnerName=ME"}, "OTHER", out_);
    EXPECT_EQ(server_.asked.back(), "EnumLocks <InputArguments><OwnerName value=\"ME\" /></InputArguments>");
    for (const char* bad : {"=1", "A", "", "a b=1", "1a=1", "A/><B=1", "\xC3\xA4=1"}) {
        EXPECT_EQ(failure_of([&] { console::call_procedure(server_, "EnumLocks", {bad}, "", out_); }).code(), exit_code::usage)
            << bad;
    }
    EXPECT_EQ(failure_of([&] { console::call_procedure(server_, "NoSuch", {}, "", out_); }).code(), exit_code::call_failed);
}

TEST_F(Console, AnAnswerThatIsNoAnswerIsSaidSo) {
    for (const char* rubbish :
         {"", "<x/>", "<OutputArguments />", "<OutputArguments><Changers value=\"no xml\" /></OutputArguments>"}) {
        server_.answers["GetChangers"] = rubbish;
        EXPECT_EQ(failure_of([&] { (void)library_.changers(); }).code(), exit_code::bad_answer) << rubbish;
    }
}

TEST(CallCodec, RequestIsTwoCountedStrings) {
    EXPECT_EQ(console::encode_call(u"ab", u""),
              (std::vector<std::uint8_t>{3, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 'a', 0, 'b', 0, 0, 0,
                                         0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0,   0, 0,   0, 0, 0}));
}

TEST(CallCodec, AnswersOfBothKinds) {
    const std::vector<std::uint8_t> good = {0, 0, 2, 0, 2, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 'x', 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0};
    const auto answer = console::decode_answer(good);
    ASSERT_TRUE(answer);
    EXPECT_TRUE(answer->success);
    EXPECT_EQ(answer->output, u"x");
    EXPECT_EQ(answer->error_message, std::nullopt);
    for (std::size_t length = 0; length < good.size(); ++length) {
        EXPECT_FALSE(console::decode_answer(std::span(good).first(length))) << length;
    }
    const std::vector<std::uint8_t> bad = {0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 2, 0, 2, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 'e', 0, 0, 0};
    const auto failed = console::decode_answer(bad);
    ASSERT_TRUE(failed);
    EXPECT_FALSE(failed->success);
    EXPECT_EQ(failed->output, std::nullopt);
    EXPECT_EQ(failed->error_message, u"e");
}

TEST(CallCodec, CountsThatLieAreNoAnswer) {
    EXPECT_FALSE(console::decode_answer(
        std::vector<std::uint8_t>{1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 1}));
    EXPECT_FALSE(console::decode_answer(
        std::vector<std::uint8_t>{1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 'x', 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0}));
}

}  // namespace
