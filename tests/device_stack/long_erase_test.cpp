#include "platform/device_stack/long_erase.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device_stack/scripted_transport.h"
#include "platform/testing/fakes.h"

using namespace platform::device_stack;
using testing::ElementsAre;
using testing::IsEmpty;
using bytes = std::vector<std::uint8_t>;

namespace {

bytes sense(std::uint8_t key, std::uint8_t asc, std::uint8_t ascq, std::uint8_t response = 0x70) {
    bytes made = scripted_transport::fixed_sense(key, asc, ascq);
    made[0] = response;
    return made;
}

bytes erasing(std::uint16_t progress) {
    bytes made = sense(0, 0x00, 0x18);
    made[15] = 0x80;
    made[16] = static_cast<std::uint8_t>(progress >> 8);
    made[17] = static_cast<std::uint8_t>(progress & 0xFF);
    return made;
}

const bytes nothing_to_say = sense(0, 0, 0);

class LongErase : public testing::Test {
protected:
    std::uint32_t run() { return long_erase(transport, "Tape3").run(); }

    /// The drive takes the erase on.
    void begins() { transport.answer(); }
    void says(const bytes& data) { transport.answer(data); }
    void ends_well() {
        says(nothing_to_say);
        transport.answer();
    }
    [[nodiscard]] bytes opcodes() const {
        bytes codes;
        for (const auto& one : transport.sent) {
            codes.push_back(one.cdb[0]);
        }
        return codes;
    }

    platform::testing::test_system system_;
    scripted_transport transport;
};

}  // namespace

TEST_F(LongErase, LetsTheDriveAnswerAtTheStartAndAsksForTheEnd) {
    begins();
    says(sense(2, 0x04, 0x07));
    ends_well();
    EXPECT_EQ(run(), 0U);
    ASSERT_EQ(transport.sent.size(), 4U);
    EXPECT_EQ(transport.sent[0].cdb, (bytes{0x19, 3, 0, 0, 0, 0}));
    EXPECT_EQ(transport.sent[0].timeout_seconds, 86'400);
    EXPECT_EQ(transport.sent[1].cdb, (bytes{0x03, 0, 0, 0, 252, 0}));
    EXPECT_EQ(transport.sent[1].timeout_seconds, 60);
    EXPECT_EQ(transport.sent[2].cdb, (bytes{0x03, 0, 0, 0, 252, 0}));
    EXPECT_EQ(transport.sent[3].cdb, (bytes{0x00, 0, 0, 0, 0, 0}));
    EXPECT_THAT(system_.clock.sleeps(), ElementsAre(1000));
}

TEST_F(LongErase, WaitsForNothingWhenTheDriveHasEnded) {
    begins();
    ends_well();
    EXPECT_EQ(run(), 0U);
    EXPECT_THAT(system_.clock.sleeps(), IsEmpty());
    EXPECT_THAT(system_.log.lines(), IsEmpty());
}

TEST_F(LongErase, AsksAtGrowingDistances) {
    begins();
    for (int poll = 0; poll < 7; ++poll) {
        says(sense(0, 0x00, 0x16));
    }
    ends_well();
    EXPECT_EQ(run(), 0U);
    EXPECT_THAT(system_.clock.sleeps(), ElementsAre(1000, 2000, 4000, 8000, 10'000, 10'000, 10'000));
}

TEST_F(LongErase, LogsTheProgressInTenths) {
    begins();
    for (const int progress : {0x0000, 0x1000, 0x1999, 0x199A, 0x1FFF, 0x6000, 0x5000, 0xFFFF}) {
        says(erasing(static_cast<std::uint16_t>(progress)));
    }
    ends_well();
    EXPECT_EQ(run(), 0U);
    EXPECT_THAT(system_.log.lines(), ElementsAre(testing::EndsWith("Tape3: 10 percent of the tape is erased."),
                                                 testing::EndsWith("Tape3: 30 percent of the tape is erased."),
                                                 testing::EndsWith("Tape3: 90 percent of the tape is erased.")));
}

TEST_F(LongErase, BelievesADriveThatSaysItOnlyWhenItIsTested) {
    begins();
    says(nothing_to_say);
    transport.check_condition(2, 0x04, 0x07);
    says({});  // no sense data at all
    transport.check_condition(2, 0x04, 0x04);
    transport.check_condition(5, 0x20, 0);  // or no REQUEST SENSE
    transport.check_condition(2, 0x04, 0x01);
    ends_well();
    EXPECT_EQ(run(), 0U);
    EXPECT_EQ(opcodes(), (bytes{0x19, 0x03, 0, 0x03, 0, 0x03, 0, 0x03, 0}));
    EXPECT_THAT(system_.clock.sleeps(), ElementsAre(1000, 2000, 4000));
}

TEST_F(LongErase, TakesWordOfThePositionForNoFault) {
    for (const std::uint8_t where : bytes{0x02, 0x04}) {  // end, beginning of the medium
        begins();
        says(sense(0x40, 0x00, where));
        transport.answer();
        EXPECT_EQ(run(), 0U);
    }
    begins();
    says(sense(1, 0x17, 0x01));  // overcome
    transport.answer();
    EXPECT_EQ(run(), 0U);
}

TEST_F(LongErase, SendsTheCommandOnceMoreToADriveThatCannotAnswerAtTheStart) {
    for (const std::uint8_t asc : bytes{0x20, 0x24}) {
        transport.sent.clear();
        transport.check_condition(5, asc, 0);
        transport.answer();
        EXPECT_EQ(run(), 0U);
        ASSERT_EQ(transport.sent.size(), 2U);
        EXPECT_EQ(transport.sent[0].cdb, (bytes{0x19, 3, 0, 0, 0, 0}));
        EXPECT_EQ(transport.sent[1].cdb, (bytes{0x19, 1, 0, 0, 0, 0}));
        EXPECT_EQ(transport.sent[1].timeout_seconds, 86'400);
    }
    transport.check_condition(5, 0x20, 0);
    transport.check_condition(5, 0x20, 0);
    EXPECT_EQ(run(), 50U);
    transport.check_condition(5, 0x24, 0);
    transport.check_condition(3, 0x51, 0);
    EXPECT_EQ(run(), 1117U);
}

TEST_F(LongErase, ReportsWhyItDidNotBegin) {
    transport.check_condition(7, 0x27, 0);
    EXPECT_EQ(run(), 19U);
    transport.check_condition(2, 0x3A, 0);
    EXPECT_EQ(run(), 1112U);
    transport.check_condition(6, 0x29, 0);
    EXPECT_EQ(run(), 1111U);
    transport.transport_error(1167);
    EXPECT_EQ(run(), 1167U);
    EXPECT_EQ(opcodes(), (bytes{0x19, 0x19, 0x19, 0x19}));
    EXPECT_THAT(system_.clock.sleeps(), IsEmpty());
}

TEST_F(LongErase, ReportsWhatWentWrongAfterTheStart) {
    const struct {
        bytes found;
        std::uint32_t status;
    } endings[] = {
        {sense(3, 0x51, 0x00, 0x71), 1117},  // erase failure, deferred
        {sense(3, 0x51, 0x00), 1117},        // or as the present state
        {{0x73, 3, 0x51, 0x00, 0, 0, 0, 0}, 1117},
        {sense(7, 0x27, 0x00, 0x71), 19},
        {sense(2, 0x3A, 0x00), 1112},  // pulled out
        {sense(2, 0x04, 0x12), 21},    // switched off
        {sense(6, 0x28, 0x00), 1110},
        {sense(6, 0x29, 0x00), 1111},
        {sense(6, 0x2F, 0x00), 1111},  // cleared by another
    };
    for (const auto& one : endings) {
        begins();
        says(erasing(0x100));
        says(one.found);
        EXPECT_EQ(run(), one.status) << int{one.found[12]};
        // The same, found by the test instead.
        begins();
        says(nothing_to_say);
        transport.status(2, one.found);
        EXPECT_EQ(run(), one.status);
    }
}

TEST_F(LongErase, IsNotPutOffByAttentionsThatDoNotConcernTheTape) {
    begins();
    says(sense(6, 0x2A, 0x01));  // another initiator has set parameters
    transport.check_condition(6, 0x3F, 0x03);
    says(erasing(0x100));
    ends_well();
    EXPECT_EQ(run(), 0U);
    EXPECT_EQ(opcodes(), (bytes{0x19, 0x03, 0, 0x03, 0x03, 0}));
}

TEST_F(LongErase, EndsWithTheTransport) {
    for (const std::uint32_t failure : {1117U, 1167U, 121U}) {
        begins();
        says(erasing(0x100));
        transport.transport_error(failure);
        EXPECT_EQ(run(), failure);
        begins();
        says(nothing_to_say);
        transport.transport_error(failure);
        EXPECT_EQ(run(), failure);
    }
}

TEST_F(LongErase, PutsUpWithABusyDriveForAWhile) {
    begins();
    for (int poll = 0; poll < 9; ++poll) {
        transport.status(poll % 2 == 0 ? 0x08 : 0x28);
    }
    says(nothing_to_say);
    transport.status(0x08);
    EXPECT_EQ(run(), 170U);
    EXPECT_EQ(transport.sent.size(), 12U);
    system_.clock.forget_sleeps();

    begins();
    transport.status(0x08);
    says(erasing(1));
    for (int poll = 0; poll < 9; ++poll) {
        transport.status(0x08);
    }
    ends_well();
    EXPECT_EQ(run(), 0U);

    begins();
    transport.status(0x18);
    EXPECT_EQ(run(), 170U);
}

TEST_F(LongErase, GivesUpAfterADay) {
    begins();
    transport.otherwise([](const scsi_command& command) {
        scsi_outcome outcome;
        const bytes data = erasing(0x8000);
        std::copy(data.begin(), data.end(), command.data.begin());
        outcome.transferred = static_cast<std::uint32_t>(data.size());
        return outcome;
    });
    EXPECT_EQ(run(), 121U);
    EXPECT_GE(system_.clock.slept_milliseconds(), 86'400'000);
    EXPECT_LT(system_.clock.slept_milliseconds(), 86'411'000);
}

TEST_F(LongErase, DoesNotTakeADriveThatMayHaveBeenResetForDone) {
    // What answers each command, and over which connection.
    struct reply {
        std::uint32_t connection;
        std::uint8_t status;
        bytes data;
    };
    const auto play = [this](std::vector<reply> replies) {
        transport = {};
        auto next = std::make_shared<std::size_t>(0);
        transport.otherwise([replies = std::move(replies), next](const scsi_command& command) {
            const reply& one = replies.at((*next)++);
            scsi_outcome outcome;
            outcome.connection = one.connection;
            outcome.scsi_status = one.status;
            if (one.status == 2) {
                outcome.sense = one.data;
            } else {
                std::copy(one.data.begin(), one.data.end(), command.data.begin());
                outcome.transferred = static_cast<std::uint32_t>(one.data.size());
            }
            return outcome;
        });
        return run();
    };
    const bytes becoming_ready = sense(2, 0x04, 0x01);
    EXPECT_EQ(play({{5, 0, {}}, {5, 0, erasing(1)}, {5, 0, nothing_to_say}, {5, 0, {}}}), 0U);
    EXPECT_EQ(play({{5, 0, {}}, {5, 0, erasing(1)}, {6, 0, nothing_to_say}, {6, 0, {}}}), 1111U);
    EXPECT_EQ(play({{5, 0, {}}, {5, 0, nothing_to_say}, {6, 0, {}}}), 1111U);
    // It still works: it was the connection alone.
    EXPECT_EQ(play({{5, 0, {}}, {6, 0, erasing(9)}, {6, 0, nothing_to_say}, {6, 0, {}}}), 0U);
    // A drive that comes up again works, too, but not on this.
    EXPECT_EQ(play({{5, 0, {}}, {6, 0, becoming_ready}, {6, 0, nothing_to_say}, {6, 0, {}}}), 1111U);
    // What it says of itself goes before the guess.
    EXPECT_EQ(play({{5, 0, {}}, {6, 0, nothing_to_say}, {6, 2, sense(2, 0x3A, 0)}}), 1112U);
}
