#include "changer/unit_identity.h"

#include <gtest/gtest.h>

#include "changer/changer_world.h"
#include "foundation/exc/exceptions.h"

namespace {

using namespace changer_tests;
using platform::testing::answer_scsi;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t pass_through = 0x4D004;
constexpr std::uint32_t query_property = 0x2D1400;

/// One STORAGE_IDENTIFIER record; `next` is the distance to the next one.
bytes identifier(std::uint8_t type, const std::string& text, std::uint8_t next) {
    return joined({{2, 0, 0, 0, type, 0, 0, 0, static_cast<std::uint8_t>(text.size()), 0, next, 0, 0, 0, 0, 0}, text_bytes(text)});
}

bytes descriptor(std::uint8_t count, const bytes& identifiers) {
    return joined({{0, 0, 0, 0, 0, 0, 0, 0, count, 0, 0, 0}, identifiers});
}

class UnitIdentity : public ::testing::Test {
protected:
    void SetUp() override { device = platform::system().devices->open_device(changer_link); }

    std::u16string serial_of_page(const bytes& page) {
        world.system.devices.on_control([=](const device_request& request) { return answer_scsi(request, 0, {}, page); });
        return ReadUnitSerialPage(device, changer_link);
    }
    std::u16string serial_of_property(const bytes& reply) {
        world.system.devices.queue_control(query_property, {0, reply, {}, {}});
        return ReadStoragePropertySerial(device, changer_link);
    }

    changer_tests::world world;
    platform::device_handle device = 0;
};

TEST_F(UnitIdentity, SendsInquiryByteForByte) {
    world.system.devices.on_control([](const device_request& request) {
        return answer_scsi(request, 0, {}, bytes{1, 0x80, 0, 2, 'A', 'B'});
    });
    const bytes answer = SendInquiry(device, 0x80, true, changer_link);
    const auto sent = world.controls(pass_through);
    ASSERT_EQ(sent.size(), 1u);
    const bytes expected = {44, 0, 0, 0, 0,    0, 6,    64, 1,   0, 0, 0, 0xAF, 0x3C, 0, 0,  // 15,535
                            10, 0, 0, 0, 0x30, 1, 0,    0,                                   // data offset 304
                            48, 0, 0, 0, 0x12, 1, 0x80, 0,  128, 0};
    EXPECT_EQ(sent[0].input, padded(expected, 65840));
    EXPECT_EQ(sent[0].output_size, 15839u);
    // The count that came back includes the 304 bytes in front of the data.
    EXPECT_EQ(answer, padded({1, 0x80, 0, 2, 'A', 'B'}, 310));
}

TEST_F(UnitIdentity, SendsInquiryForTheStandardData) {
    world.system.devices.on_control([](const device_request& request) { return answer_scsi(request, 0, {}); });
    static_cast<void>(SendInquiry(device, 0, false, changer_link));
    EXPECT_EQ(platform::testing::cdb_of(world.controls(pass_through).at(0)), (bytes{0x12, 0, 0, 0, 128, 0}));
}

TEST_F(UnitIdentity, ThrowsWhenInquiryCannotBeSent) {
    world.system.devices.queue_control(pass_through, {5, {}, {}, {}});
    try {
        static_cast<void>(SendInquiry(device, 0x80, true, changer_link));
        FAIL();
    } catch (const exc::win_sys_exc_t& e) {
        EXPECT_EQ(e.code(), 5u);
        EXPECT_EQ(e.messages().at(1).text, "DeviceIoControl(ScsiPassThrough) in '\\\\.\\Changer0' with error Access is denied.");
    }
}

TEST_F(UnitIdentity, DoesNotLookAtTheStatusOfInquiry) {
    world.system.devices.on_control([](const device_request& request) { return answer_scsi(request, 2, fixed_sense(5, 0x24, 0)); });
    EXPECT_NO_THROW(static_cast<void>(SendInquiry(device, 0x80, true, changer_link)));
    EXPECT_EQ(ReadUnitSerialPage(device, changer_link), u"");
}

TEST_F(UnitIdentity, ReadsTheUnitSerialPageUpToItsNulWithBlanks) {
    EXPECT_EQ(serial_of_page(joined({{8, 0x80, 0, 3}, text_bytes("  SER 01  ")})), u"  SER 01  ");
    EXPECT_EQ(serial_of_page(joined({{8, 0x80, 0, 9}, text_bytes("AB"), {0}, text_bytes("CD")})), u"AB");
}

TEST_F(UnitIdentity, TakesTwelveCharactersOfAPageWithoutNul) {
    const std::string text = "ABCDEFGHIJKLMNOPQ" + std::string(120, 'x');
    EXPECT_EQ(serial_of_page(joined({{8, 0x80, 0, 127}, text_bytes(text)})), u"ABCDEFGHIJKL");
    const bytes ends_at_127 = joined({{8, 0x80, 0, 127}, bytes(123, 'y'), {0}});
    EXPECT_EQ(serial_of_page(ends_at_127), std::u16string(123, u'y'));
}

TEST_F(UnitIdentity, GivesAnEmptySerialForAPageThatStartsWithNul) {
    EXPECT_EQ(serial_of_page({8, 0x80, 0, 4, 0, 'A', 'B'}), u"");
    EXPECT_THAT(world.log(), IsEmpty());
}

TEST_F(UnitIdentity, KeepsASerialWithBytesThatAreNoText) {
    EXPECT_EQ(serial_of_page({8, 0x80, 0, 4, 'A', 0xFF, 'B'}), u"A\uFFFDB");
}

TEST_F(UnitIdentity, LogsAFailedPageReadAndGivesNothing) {
    world.system.devices.queue_control(pass_through, {1167, {}, {}, {}});
    EXPECT_EQ(ReadUnitSerialPage(device, changer_link), u"");
    ASSERT_FALSE(world.log().empty());
    EXPECT_EQ(world.log().at(0), "tap| ERR |Failed to get unit [\\\\.\\Changer0] serial number.");
    EXPECT_EQ(world.log_with("DeviceIoControl(ScsiPassThrough) in '\\\\.\\Changer0' with error ").size(), 1u);
}

TEST_F(UnitIdentity, AsksForTheDeviceIdentifiers) {
    EXPECT_EQ(serial_of_property(descriptor(1, identifier(1, "VENDOR  PRODUCT SER01   ", 0))), u"SER01   ");
    const auto sent = world.controls(query_property);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].input, padded({2, 0, 0, 0, 0, 0, 0, 0}, 12));
    EXPECT_EQ(sent[0].output_size, 8192u);
}

TEST_F(UnitIdentity, TakesTheFirstVendorIdentification) {
    const bytes others = identifier(3, "12345678", 24);
    EXPECT_EQ(serial_of_property(descriptor(3, joined({others, identifier(1, "V S1", 20), identifier(1, "V S2", 0)}))), u"S1");
    EXPECT_EQ(serial_of_property(descriptor(1, others)), u"");
    EXPECT_EQ(serial_of_property(descriptor(0, identifier(1, "V S1", 0))), u"");
}

TEST_F(UnitIdentity, FollowsTheDistancesAndNotTheSizes) {
    bytes first = identifier(3, "12345678", 32);
    first.resize(32);
    EXPECT_EQ(serial_of_property(descriptor(2, joined({first, identifier(1, "V S9", 0)}))), u"S9");
}

TEST_F(UnitIdentity, StaysWithinTheIdentifiersThatCame) {
    EXPECT_EQ(serial_of_property(descriptor(255, identifier(3, "12345678", 0))), u"");
    EXPECT_EQ(serial_of_property(descriptor(255, identifier(3, "12345678", 250))), u"");
    bytes lying = descriptor(1, identifier(1, "V SHORT", 0));
    lying[12 + 9] = 0xFF;  // claims 65,287 bytes
    EXPECT_EQ(serial_of_property(lying), u"SHORT");
    EXPECT_EQ(serial_of_property({0, 0, 0}), u"");
    EXPECT_EQ(serial_of_property({}), u"");
}

TEST_F(UnitIdentity, RepeatsThePropertyQueryOnceAfterAMediaChange) {
    world.system.devices.queue_control(query_property, {1110, {}, {}, {}});
    EXPECT_EQ(serial_of_property(descriptor(1, identifier(1, "V S1", 0))), u"S1");
    EXPECT_THAT(world.log(), IsEmpty());

    world.system.devices.queue_control(query_property, {1110, {}, {}, {}});
    world.system.devices.queue_control(query_property, {1110, {}, {}, {}});
    EXPECT_EQ(ReadStoragePropertySerial(device, changer_link), u"");
    EXPECT_EQ(world.controls(query_property).size(), 4u);
    EXPECT_THAT(world.log_with("tap| "), ::testing::Contains("tap| ERR |Failed to get device [\\\\.\\Changer0] serial number."));
    EXPECT_THAT(world.log(), ::testing::Contains("tap| >>  |DeviceIoControl(StorageQueryProperty) in '\\\\.\\Changer0'"));
}

TEST_F(UnitIdentity, DoesNotRepeatThePropertyQueryAfterOtherFailures) {
    world.system.devices.queue_control(query_property, {1, {}, {}, {}});
    EXPECT_EQ(ReadStoragePropertySerial(device, changer_link), u"");
    EXPECT_EQ(world.controls(query_property).size(), 1u);
}

TEST(LastWordWithBlanks, KeepsTheTrailingBlanks) {
    EXPECT_EQ(LastWordWithBlanks("VENDOR  PRODUCT SERIAL   "), "SERIAL   ");
    EXPECT_EQ(LastWordWithBlanks("SERIAL"), "SERIAL");
    EXPECT_EQ(LastWordWithBlanks(" SERIAL"), "SERIAL");
    EXPECT_EQ(LastWordWithBlanks("    "), "    ");
    EXPECT_EQ(LastWordWithBlanks(""), "");
}

TEST(LastWord, LosesTheTrailingBlanks) {
    EXPECT_EQ(LastWord("VENDOR  PRODUCT SERIAL   "), "SERIAL");
    EXPECT_EQ(LastWord("SERIAL"), "SERIAL");
    EXPECT_EQ(LastWord("    "), "");
}

}  // namespace
