#include "command/owner.h"

#include <gtest/gtest.h>

#include <latch>
#include <thread>

#include "foundation/exc/exceptions.h"
#include "support/service_fixture.h"

namespace {

using test_support::call_answer;
using test_support::ServiceFixture;
using test_support::tape_key;

class Owner : public ServiceFixture {
protected:
    std::optional<std::string> stored() { return system_.registry.string_at(tape_key, "BackupServer"); }
};

TEST_F(Owner, TheFirstCandidateBecomesTheOwner) {
    EXPECT_TRUE(TestOwnerName(u"A"));
    EXPECT_EQ(OwnerName(), u"A");
    EXPECT_EQ(stored(), "A");
    EXPECT_TRUE(TestOwnerName(u"a"));
    EXPECT_FALSE(TestOwnerName(u"B"));
    EXPECT_EQ(stored(), "A");
}

TEST_F(Owner, CaseIsFoldedUnitByUnit) {
    LoadOwner(tape_key_path, u"\u00C4-Host", false);
    EXPECT_TRUE(TestOwnerName(u"\u00E4-hOST"));
    EXPECT_FALSE(TestOwnerName(u"\u00E4-host1"));
    EXPECT_FALSE(TestOwnerName(u""));
}

TEST_F(Owner, EverybodyIsOwnerInManyOwnersMode) {
    LoadOwner(tape_key_path, u"A", true);
    EXPECT_TRUE(TestOwnerName(u"B"));
    EXPECT_TRUE(TestOwnerName(u""));
    EXPECT_EQ(OwnerName(), u"A");
    EXPECT_EQ(stored(), std::nullopt);
}

TEST_F(Owner, AnEmptyCandidateLeavesTheServerWithoutOwner) {
    EXPECT_TRUE(TestOwnerName(u""));
    EXPECT_TRUE(TestOwnerName(u"A"));
    EXPECT_EQ(OwnerName(), u"A");
}

TEST_F(Owner, StoringSaysSoInTheLog) {
    system_.registry.add_key(tape_key);
    EXPECT_TRUE(SetOwner(u"HOST1"));
    EXPECT_EQ(system_.log.lines(), std::vector<std::string>{"tap| Host name setting were write to registry. [HOST1]."});
    EXPECT_EQ(system_.registry.open_keys(), 0u);
}

TEST_F(Owner, AMissingKeyIsMade) {
    EXPECT_FALSE(system_.registry.has_key(tape_key));
    EXPECT_TRUE(SetOwner(u"HOST1"));
    EXPECT_EQ(stored(), "HOST1");
}

TEST_F(Owner, AKeyThatCannotBeHadLeavesTheNameInMemory) {
    system_.registry.fail_open(5);
    system_.registry.fail_create(5);
    EXPECT_FALSE(SetOwner(u"HOST1"));
    EXPECT_EQ(OwnerName(), u"HOST1");
    EXPECT_EQ(system_.log.lines(), std::vector<std::string>{"tap| Key for host name was not found in registry."});
    EXPECT_EQ(exc::last_error(), 5u);
}

TEST_F(Owner, TheFirstCandidateIsOwnerThoughItCannotBeStored) {
    system_.registry.set_read_only(true);
    EXPECT_TRUE(TestOwnerName(u"A"));
    EXPECT_FALSE(TestOwnerName(u"B"));
}

TEST_F(Owner, AFailingWriteIsToldInItsOwnWords) {
    system_.registry.fail_set(112);
    try {
        static_cast<void>(SetOwner(u"HOST1"));
        FAIL();
    } catch (const exc::exc_base_t& e) {
        EXPECT_EQ(e.messages().back().text, "Failed to store string value [BackupServer]. Specified data: [HOST1].");
    }
    EXPECT_EQ(OwnerName(), u"HOST1");
}

TEST_F(Owner, OfManyFirstCandidatesOneWins) {
    constexpr int candidates = 8;
    std::latch start(candidates);
    std::atomic<int> accepted{0};
    std::vector<std::thread> threads;
    for (int index = 0; index < candidates; ++index) {
        threads.emplace_back([&, index] {
            const std::u16string name = u"HOST" + text::to_wstring(std::int32_t{index});
            start.arrive_and_wait();
            accepted += TestOwnerName(name) ? 1 : 0;
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(accepted, 1);
    EXPECT_EQ(stored(), text::wide_to_utf8(OwnerName()));
}

TEST_F(Owner, MemoryAndRegistryAgreeAfterARace) {
    std::vector<std::thread> threads;
    for (int index = 0; index < 8; ++index) {
        threads.emplace_back([index] {
            for (int round = 0; round < 50; ++round) {
                static_cast<void>(SetOwner(u"HOST" + text::to_wstring(std::int32_t{index * 100 + round})));
                static_cast<void>(OwnerName());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(stored(), text::wide_to_utf8(OwnerName()));
}

// The procedures.

TEST_F(Owner, GetOwnerNameTellsOfNone) {
    EXPECT_EQ(call("GetOwnerName").output, "<OutputArguments><OwnerName value=\"\" /></OutputArguments>");
}

TEST_F(Owner, SetOwnerNameTakesTheOwnershipOver) {
    LoadOwner(tape_key_path, u"HOST1", false);
    const call_answer answer = call("SetOwnerName", "<NewOwnerName value=\"HOST2\" />");
    EXPECT_EQ(answer.output, "<OutputArguments><NewOwnerName value=\"HOST2\" /></OutputArguments>");
    EXPECT_EQ(call("GetOwnerName").output, "<OutputArguments><OwnerName value=\"HOST2\" /></OutputArguments>");
    EXPECT_EQ(stored(), "HOST2");
    EXPECT_EQ(owner_call("GetChangers").error, "'HOST1' isn't current owner. You have to change current owner");
}

TEST_F(Owner, SetOwnerNameInOtherCaseChangesNothing) {
    LoadOwner(tape_key_path, u"HOST1", false);
    EXPECT_EQ(call("SetOwnerName", "<NewOwnerName value=\"host1\" />").output,
              "<OutputArguments><NewOwnerName value=\"host1\" /></OutputArguments>");
    EXPECT_EQ(OwnerName(), u"HOST1");
    EXPECT_EQ(stored(), std::nullopt);
}

TEST_F(Owner, SetOwnerNameChangesNothingInManyOwnersMode) {
    LoadOwner(tape_key_path, u"HOST1", true);
    EXPECT_TRUE(call("SetOwnerName", "<NewOwnerName value=\"HOST2\" />").success);
    EXPECT_EQ(OwnerName(), u"HOST1");
}

TEST_F(Owner, SetOwnerNameFailsWhereItCannotBeStored) {
    LoadOwner(tape_key_path, u"HOST1", false);
    system_.registry.fail_open(5);
    system_.registry.fail_create(5);
    const call_answer answer = call("SetOwnerName", "<NewOwnerName value=\"HOST2\" />");
    EXPECT_FALSE(answer.success);
    EXPECT_EQ(answer.error, "Access is denied.\nProblem with changing Host Name\n--tr:Error code: 0x00000005");
    EXPECT_TRUE(system_.log.has_line("Changing owner name Failed."));
}

TEST_F(Owner, SetOwnerNameNeedsTheName) {
    EXPECT_EQ(call("SetOwnerName").error,
              "Value of the argument 'NewOwnerName' is not defined.\n"
              "--tr:Failed to retrieve value of the unicode attribute 'NewOwnerName'.");
}

}  // namespace
