#include "changer/scsi_pass_through.h"

#include <gtest/gtest.h>

#include "changer/changer_commands.h"
#include "changer/changer_world.h"
#include "foundation/exc/exceptions.h"

namespace {

using namespace changer_tests;
using platform::testing::answer_scsi;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t direct_code = 0x4D014;
constexpr std::uint32_t indirect_code = 0x4D004;

const std::string ready_change =
    "Fixed format, current;  Sense key: Unit Attention. Additional sense: Not ready to ready change, medium may have changed";

const element_map_t map{{0, 0x0002, 0x1000, 0x0010, 0x0100}, {0, 1, 24, 2, 2}};

class ScsiPassThrough : public ::testing::Test {
protected:
    void SetUp() override { device = platform::system().devices->open_device(changer_link); }

    /// Answers to the next pass-throughs of either form, in order.
    void answer(std::vector<std::function<device_answer(const device_request&)>> answers) {
        const auto state = std::make_shared<std::pair<std::size_t, decltype(answers)>>(0, std::move(answers));
        const auto handler = [state](const device_request& request) {
            return state->second.at(std::min(state->first++, state->second.size() - 1))(request);
        };
        world.system.devices.on_direct(handler);
        world.system.devices.on_control(handler);
    }

    static std::function<device_answer(const device_request&)> scsi(std::uint8_t status, bytes sense, bytes data = {}) {
        return [=](const device_request& request) { return answer_scsi(request, status, sense, data); };
    }
    static std::function<device_answer(const device_request&)> failing(std::uint32_t error) {
        return [=](const device_request&) { return device_answer{error, {}, {}, {}}; };
    }

    changer_tests::world world;
    platform::device_handle device = 0;
};

TEST_F(ScsiPassThrough, SendsTheDirectBlockByteForByte) {
    answer({scsi(0, {}, {1, 2, 3})});
    bytes data(24);
    CScsiPassThrough request(device, data);
    EXPECT_TRUE(request.IsDirect());
    request.SetCdb({0x1A, 0x08, 0x1D, 0x00, 0x18, 0x00});
    request.Execute();

    const auto sent = world.controls(direct_code);
    ASSERT_EQ(sent.size(), 1u);
    bytes expected = {44,   0,    0,    0,    0,    0,   6, 240, 1, 0, 0, 0,  // header up to the direction
                      24,   0,    0,    0,                                    // data length
                      44,   1,    0,    0,                                    // 300 seconds
                      0,    0,    0,    0,                                    // the data's address is the port's business
                      48,   0,    0,    0,                                    // sense offset
                      0x1A, 0x08, 0x1D, 0x00, 0x18, 0x00};
    EXPECT_EQ(sent[0].input, padded(expected, 560));
    EXPECT_EQ(sent[0].output_size, 24u);
    EXPECT_EQ(bytes(data.begin(), data.begin() + 4), (bytes{1, 2, 3, 0}));
    EXPECT_EQ(data.size(), 24u);
    EXPECT_THAT(world.log(), IsEmpty());
}

TEST_F(ScsiPassThrough, SendsTheIndirectBlockByteForByte) {
    world.set_indirect(1);
    answer({scsi(0, {}, {1, 2, 3})});
    bytes data(24);
    CScsiPassThrough request(device, data);
    EXPECT_FALSE(request.IsDirect());
    request.SetCdb({0x1A, 0x08, 0x1D, 0x00, 0x18, 0x00});
    request.Execute();

    const auto sent = world.controls(indirect_code);
    ASSERT_EQ(sent.size(), 1u);
    bytes expected = {44,   0,    0,    0,    0,    0,   6, 240, 1, 0, 0, 0, 0, 0, 1, 0,  // 65,536
                      44,   1,    0,    0,                                                // 300 seconds
                      0x30, 2,    0,    0,                                                // data offset 560
                      48,   0,    0,    0,                                                // sense offset
                      0x1A, 0x08, 0x1D, 0x00, 0x18, 0x00};
    EXPECT_EQ(sent[0].input, padded(expected, 66096));
    EXPECT_EQ(sent[0].output_size, 66096u);
    EXPECT_THAT(world.log(), ElementsAre("tap| Using indirect SCSI."));
    // 560 + 3 bytes came back, and the vector counts them all.
    ASSERT_EQ(data.size(), 563u);
    EXPECT_EQ(bytes(data.begin(), data.begin() + 4), (bytes{1, 2, 3, 0}));
}

TEST_F(ScsiPassThrough, TakesTheSenseLengthOffTheIndirectCount) {
    world.set_indirect(7);
    answer({[](const device_request& request) {
        device_answer reply = answer_scsi(request, 0, {}, bytes{1, 2, 3});
        reply.output[7] = 240;  // a port that leaves the sense length as it was
        return reply;
    }});
    bytes data(24);
    CScsiPassThrough(device, data).Execute();
    EXPECT_EQ(data.size(), 323u);
}

TEST_F(ScsiPassThrough, KeepsTheIndirectDataWithinItsArea) {
    world.set_indirect(1);
    answer({[](const device_request& request) {
        device_answer reply = answer_scsi(request, 0, {}, bytes{1});
        reply.returned = 0xFFFFFFFF;
        return reply;
    }});
    bytes data(24);
    CScsiPassThrough(device, data).Execute();
    EXPECT_EQ(data.size(), 65536u);
}

TEST_F(ScsiPassThrough, SendsAnIndirectRequestWithoutDataWithAShortAnswer) {
    world.set_indirect(1);
    answer({scsi(0, {})});
    CScsiPassThrough request(device);
    MoveMediumCommand(request, 3, ChangerSlot, 1, ChangerDrive, map);
    const auto sent = world.controls(indirect_code);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].output_size, 560u);
    EXPECT_EQ(sent[0].input[8], 2);
    EXPECT_EQ(bytes(sent[0].input.begin() + 12, sent[0].input.begin() + 16), bytes(4));
}

TEST_F(ScsiPassThrough, TakesAnIndirectValueOfZeroOrOfAnotherTypeAsNone) {
    world.set_indirect(0);
    EXPECT_FALSE(IsIndirectScsiEnabled());
    world.system.registry.set_string(tape_key, "EnableIndirectScsi", "1");
    EXPECT_FALSE(IsIndirectScsiEnabled());
    EXPECT_THAT(world.log(), IsEmpty());
    world.system.registry.fail_open(5);
    EXPECT_FALSE(IsIndirectScsiEnabled());
}

TEST_F(ScsiPassThrough, LooksTheFormUpForEachRequest) {
    bytes data(24);
    EXPECT_TRUE(CScsiPassThrough(device, data).IsDirect());
    world.set_indirect(1);
    EXPECT_FALSE(CScsiPassThrough(device, data).IsDirect());
    EXPECT_FALSE(CScsiPassThrough(device, data).IsDirect());
    EXPECT_THAT(world.log(), ElementsAre("tap| Using indirect SCSI.", "tap| Using indirect SCSI."));
}

TEST_F(ScsiPassThrough, RefusesAnEmptyVectorInTheDirectFormOnly) {
    bytes none;
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { CScsiPassThrough(device, none); }), "Empty output buffer.");
    EXPECT_NO_THROW(CScsiPassThrough{device});
    world.set_indirect(1);
    EXPECT_NO_THROW(CScsiPassThrough(device, none));
}

TEST_F(ScsiPassThrough, SendsAgainAfterAUnitAttentionInTheDirectForm) {
    answer({scsi(2, fixed_sense(6, 0x28, 0)), scsi(0, {}, {9})});
    bytes data(24);
    CScsiPassThrough request(device, data);
    request.SetCdb({0x1A, 0x08, 0x1D, 0x00, 0x18, 0x00});
    request.Execute();

    const auto sent = world.controls(direct_code);
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[1].input[2], 0);
    EXPECT_EQ(bytes(sent[1].input.begin(), sent[1].input.begin() + 48), bytes(sent[0].input.begin(), sent[0].input.begin() + 48));
    EXPECT_EQ(data[0], 9);
    EXPECT_THAT(world.sleeps(), ElementsAre(400));
    EXPECT_THAT(world.log(), ElementsAre("tap| ERR |SCSI DIRECT ended with error " + ready_change + ". It has 5 attempts"));
}

TEST_F(ScsiPassThrough, SendsAgainForAsLongAsTheDeviceReportsTheUnitAttention) {
    int left = 1000;
    world.system.devices.on_direct([&](const device_request& request) {
        return --left > 0 ? answer_scsi(request, 2, fixed_sense(6, 0x28, 0)) : answer_scsi(request, 0, {});
    });
    CScsiPassThrough request(device);
    request.Execute();
    EXPECT_EQ(world.sleeps(), std::vector<std::int64_t>(999, 400));
    EXPECT_EQ(world.log_with("It has 5 attempts").size(), 999u);
}

TEST_F(ScsiPassThrough, TakesAUnitAttentionInTheIndirectFormAsDone) {
    world.set_indirect(1);
    answer({scsi(2, fixed_sense(6, 0x28, 0), {7})});
    bytes data(24);
    CScsiPassThrough request(device, data);
    EXPECT_NO_THROW(request.Execute());
    EXPECT_EQ(world.controls(indirect_code).size(), 1u);
    EXPECT_EQ(data.size(), 561u - 18u);
    EXPECT_EQ(data[0], 7);
    EXPECT_THAT(world.sleeps(), IsEmpty());
    EXPECT_THAT(world.log(), ElementsAre("tap| Using indirect SCSI."));
}

TEST_F(ScsiPassThrough, GivesUpAUnitAttentionWithoutAttempts) {
    answer({scsi(2, fixed_sense(6, 0x28, 0))});
    CScsiPassThrough request(device);
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { request.ExecuteDirect(0); }),
              " [MT]SCSI PASS THROUGH DIRECT ended with Scsi Error " + ready_change);
    EXPECT_THAT(world.log(), ElementsAre("tap| ERR |SCSI DIRECT ended with error " + ready_change + ". It has 0 attempts"));
    EXPECT_THAT(world.sleeps(), IsEmpty());
}

TEST_F(ScsiPassThrough, TakesTheSameUnitAttentionInDescriptorFormatForAnError) {
    const bytes sense = {0x72, 6, 0x28, 0, 0, 0, 0, 0};
    const std::string text =
        "Descriptor format, current;  Sense key: Unit Attention. Additional sense: Not ready to ready change, medium may have "
        "changed";
    answer({scsi(2, sense)});
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { CScsiPassThrough(device).Execute(); }),
              " [MT]SCSI PASS THROUGH DIRECT ended with Scsi Error " + text);
    world.set_indirect(1);
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { CScsiPassThrough(device).Execute(); }),
              " [MT]SCSI PASS THROUGH INDIRECT ended with Scsi Error " + text);
}

TEST_F(ScsiPassThrough, ReportsACheckConditionWithoutSense) {
    answer({scsi(2, {})});
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { CScsiPassThrough(device).Execute(); }),
              " [MT]SCSI PASS THROUGH DIRECT ended with Scsi Error Sense buffer empty");
}

TEST_F(ScsiPassThrough, ReportsOtherStatusesWithoutSayingWhich) {
    for (const std::uint8_t status : bytes{0x08, 0x18, 0x28, 0x40}) {
        answer({scsi(status, {})});
        EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { CScsiPassThrough(device).Execute(); }), "[MT] SCSI ERROR: is");
    }
    EXPECT_THAT(world.log(), IsEmpty());
}

TEST_F(ScsiPassThrough, ReportsAControlThatFailed) {
    answer({failing(121)});
    CScsiPassThrough request(device);
    try {
        request.Execute();
        FAIL();
    } catch (const exc::win_sys_exc_t& e) {
        EXPECT_EQ(e.code(), 121u);
        EXPECT_EQ(e.messages().at(1).text, "DeviceIoControl fails or is pending.");
    }
}

TEST_F(ScsiPassThrough, EmptiesTheVectorWhenTheIndirectControlFailed) {
    world.set_indirect(1);
    answer({failing(1117)});
    bytes data(24);
    CScsiPassThrough request(device, data);
    EXPECT_THROW(request.Execute(), exc::win_sys_exc_t);
    EXPECT_TRUE(data.empty());
}

TEST_F(ScsiPassThrough, PrefersTheStatusOfAControlThatFailed) {
    answer({scsi(0x08, {})});
    world.devices.fail_after_block = true;
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { CScsiPassThrough(device).Execute(); }), "[MT] SCSI ERROR: is");
}

TEST_F(ScsiPassThrough, FailsAfterTheResendWhenTheFirstControlHadFailed) {
    answer({scsi(2, fixed_sense(6, 0x28, 0)), scsi(0, {})});
    world.devices.fail_after_block = true;
    EXPECT_THROW(CScsiPassThrough(device).Execute(), exc::win_sys_exc_t);
    EXPECT_EQ(world.controls(direct_code).size(), 2u);
}

TEST_F(ScsiPassThrough, DoesNotTakeAnOldStatusForANewOne) {
    answer({scsi(2, fixed_sense(6, 0x28, 0)), failing(1167)});
    EXPECT_THROW(CScsiPassThrough(device).Execute(), exc::win_sys_exc_t);
    EXPECT_EQ(world.controls(direct_code).size(), 2u);
}

TEST_F(ScsiPassThrough, PreparesABlockAnew) {
    answer({scsi(2, fixed_sense(5, 0x24, 0)), scsi(0, {})});
    bytes data(24);
    CScsiPassThrough request(device, data);
    request.SetCdb({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
    EXPECT_THROW(request.Execute(), exc::runtime_exc_t);
    request.Prepare();
    request.SetCdb({0x1A, 0, 0, 0, 0, 0});
    request.Execute();
    const auto sent = world.controls(direct_code);
    EXPECT_EQ(sent[1].input[2], 0);
    EXPECT_EQ(sent[1].input[7], 240);
    EXPECT_EQ(bytes(sent[1].input.begin() + 28, sent[1].input.begin() + 44), padded({0x1A}, 16));
    EXPECT_EQ(bytes(sent[1].input.begin() + 48, sent[1].input.end()), bytes(512));
}

TEST_F(ScsiPassThrough, BuildsReadElementStatus) {
    answer({scsi(0, {})});
    const auto cdb_of_read = [&](ELEMENT_TYPE type, bool identifiers) {
        world.system.devices.forget_requests();
        bytes data(64);
        CScsiPassThrough request(device, data);
        ReadElementStatus(request, 3, type, 0x0102, map, identifiers);
        return platform::testing::cdb_of(world.controls(direct_code).at(0));
    };
    EXPECT_EQ(cdb_of_read(ChangerSlot, true), (bytes{0xB8, 0x12, 0x10, 0x03, 1, 2, 0, 0, 0x0F, 0, 0, 0}));
    EXPECT_EQ(cdb_of_read(ChangerDrive, true), (bytes{0xB8, 0x14, 0x01, 0x03, 1, 2, 1, 0, 0x0F, 0, 0, 0}));
    EXPECT_EQ(cdb_of_read(ChangerDrive, false), (bytes{0xB8, 0x14, 0x01, 0x03, 1, 2, 0, 0, 0x0F, 0, 0, 0}));
    EXPECT_EQ(cdb_of_read(AllElements, true), (bytes{0xB8, 0x10, 0x00, 0x03, 1, 2, 0, 0, 0x0F, 0, 0, 0}));
}

TEST_F(ScsiPassThrough, BuildsReadDriveElementStatus) {
    answer({scsi(0, {})});
    bytes data(64);
    CScsiPassThrough request(device, data);
    ReadDriveElementStatus(request, map, true);
    EXPECT_EQ(platform::testing::cdb_of(world.controls(direct_code).at(0)),
              (bytes{0xB8, 0x14, 0x01, 0x00, 0x01, 0xF4, 1, 0, 0x0F, 0, 0, 0}));
}

TEST_F(ScsiPassThrough, BuildsMoveMedium) {
    answer({scsi(0, {})});
    CScsiPassThrough request(device);
    MoveMediumCommand(request, 5, ChangerSlot, 1, ChangerDrive, map);
    EXPECT_EQ(platform::testing::cdb_of(world.controls(direct_code).at(0)),
              (bytes{0xA5, 0, 0x00, 0x02, 0x10, 0x05, 0x01, 0x01, 0, 0, 0, 0}));
    EXPECT_EQ(world.controls(direct_code).at(0).input[8], 2);
}

TEST_F(ScsiPassThrough, RefusesAddressesOfTypesThatTheMapLacks) {
    bytes data(64);
    CScsiPassThrough request(device, data);
    EXPECT_EQ(failure_text<std::out_of_range>([&] { ReadElementStatus(request, 0, ChangerSlot, 1, {}, true); }),
              "invalid vector<T> subscript");
    EXPECT_THAT(world.controls(direct_code), IsEmpty());
}

TEST_F(ScsiPassThrough, RefusesAddressesThatWouldNameOtherElements) {
    answer({scsi(0, {})});
    bytes data(64);
    CScsiPassThrough read(device, data);
    // Cut to 16 bits, slot 61456 of this map would be the first port.
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { ReadElementStatus(read, 61456, ChangerSlot, 1, map, true); }),
              "There is no ChangerSlot #61456: the changer has no such address.");
    CScsiPassThrough move(device);
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { MoveMediumCommand(move, 61456, ChangerSlot, 0, ChangerDrive, map); }),
              "There is no ChangerSlot #61456: the changer has no such address.");
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { MoveMediumCommand(move, 0, ChangerDrive, 61440, ChangerSlot, map); }),
              "There is no ChangerSlot #61440: the changer has no such address.");
    EXPECT_THAT(world.controls(direct_code), IsEmpty());
    MoveMediumCommand(move, 0, ChangerDrive, 61439, ChangerSlot, map);
    EXPECT_EQ(platform::testing::cdb_of(world.controls(direct_code).at(0)),
              (bytes{0xA5, 0, 0x00, 0x02, 0x01, 0x00, 0xFF, 0xFF, 0, 0, 0, 0}));
}

}  // namespace
