#include "foundation/security/client_check.h"

#include <gtest/gtest.h>

#include "foundation/exc/exceptions.h"
#include "platform/testing/fakes.h"

namespace {

using platform::testing::builtin_administrators_sid;
using platform::testing::make_sid;
namespace attribute = platform::group_attribute;

class ClientCheck : public testing::Test {
protected:
    static std::string check_failure() {
        try {
            CheckRpcClientAuthorised();
        } catch (const exc::win_sys_exc_t& e) {
            return e.what();
        }
        return "(passed)";
    }

    platform::testing::test_system system_;
};

TEST_F(ClientCheck, AnAdministratorPasses) {
    system_.accounts.set_administrator();
    EXPECT_TRUE(IsMemberOfBuiltinAdministrators());
    EXPECT_NO_THROW(CheckRpcClientAuthorised());
    EXPECT_EQ(system_.accounts.open_contexts(), 0u);
}

TEST_F(ClientCheck, AnybodyElseIsRefused) {
    system_.accounts.set_ordinary_user();
    EXPECT_EQ(check_failure(), exc::win_error_text(0x80070005) +
                                   "\nRPC client is not a member of built-in Administrators group.\n--tr:Error code: 0x80070005");
}

TEST_F(ClientCheck, EitherEnabledBitCounts) {
    const std::pair<std::uint32_t, bool> cases[] = {{attribute::enabled, true},
                                                    {attribute::enabled_by_default, true},
                                                    {attribute::mandatory, false},
                                                    {attribute::use_for_deny_only, false},
                                                    {attribute::use_for_deny_only | attribute::enabled, true},
                                                    {0, false}};
    for (const auto& [attributes, member] : cases) {
        system_.accounts.set_caller({{builtin_administrators_sid(), attributes}});
        EXPECT_EQ(IsMemberOfBuiltinAdministrators(), member) << attributes;
    }
}

TEST_F(ClientCheck, TheFirstEntryOfTheGroupDecides) {
    system_.accounts.set_caller({{make_sid(1, {0}), attribute::enabled},
                                 {builtin_administrators_sid(), attribute::use_for_deny_only},
                                 {builtin_administrators_sid(), attribute::enabled}});
    EXPECT_FALSE(IsMemberOfBuiltinAdministrators());
}

TEST_F(ClientCheck, AnIdentifierThatIsLongerIsAnotherGroup) {
    system_.accounts.set_caller({{make_sid(5, {32, 544, 1}), attribute::enabled}, {make_sid(5, {32, 545}), attribute::enabled}});
    EXPECT_FALSE(IsMemberOfBuiltinAdministrators());
}

TEST_F(ClientCheck, ACallerWithoutGroupsIsNoMember) {
    system_.accounts.set_caller({});
    EXPECT_FALSE(IsMemberOfBuiltinAdministrators());
}

constexpr char context_line[] = "\n--tr:Failed to check whether RPC client is a member of the specified built-in group.";

TEST_F(ClientCheck, ACallerThatCannotBeToldIsRefusedWithTheStatus) {
    system_.accounts.set_no_caller(1746);
    EXPECT_EQ(check_failure(),
              exc::win_error_text(1746) + "\nAuth context not available\n--tr:Error code: 0x000006d2" + context_line);
}

TEST_F(ClientCheck, GroupsThatCannotBeReadAreAFailure) {
    system_.accounts.set_administrator();
    system_.accounts.fail_groups(5);
    EXPECT_EQ(check_failure(), "Access is denied.\nClient security group list retrieval failed\n--tr:Error code: 0x00000005" +
                                   std::string(context_line));
    EXPECT_EQ(system_.accounts.open_contexts(), 0u);
}

TEST_F(ClientCheck, AnIdentifierThatCannotBeMadeIsAFailure) {
    system_.accounts.set_administrator();
    system_.accounts.fail_well_known_sid(87);
    EXPECT_EQ(check_failure(), exc::win_error_text(87) +
                                   "\nFailed to create SID for the specified security alias.\n--tr:Error code: 0x00000057" +
                                   context_line);
}

TEST_F(ClientCheck, AnIdentifierWithoutMemoryIsAFailure) {
    class poor_accounts final : public platform::accounts {
    public:
        std::uint32_t open_client_context(platform::client_context& context) override {
            context = 1;
            return 0;
        }
        std::uint32_t free_client_context(platform::client_context) override { return 0; }
        std::uint32_t client_groups_size(platform::client_context) override { return 1; }
        bool client_groups(platform::client_context, std::vector<platform::group_entry>&) override { return true; }
        bool create_well_known_sid(std::uint32_t, platform::sid_bytes&) override { throw std::bad_alloc(); }
    } poor;
    platform::system_set set = platform::system();
    set.accounts = &poor;
    const platform::scoped_system scope(set);
    EXPECT_EQ(check_failure(),
              exc::win_error_text(8) + "\nFailed to allocate SID buffer.\n--tr:Error code: 0x00000008" + context_line);
}

TEST_F(ClientCheck, AContextThatCannotBeFreedIsOnlyLogged) {
    system_.accounts.set_administrator();
    system_.accounts.fail_free(6);
    EXPECT_TRUE(IsMemberOfBuiltinAdministrators());
    EXPECT_TRUE(system_.log.has_line("Failed to release auth context handle"));
}

TEST_F(ClientCheck, TheAnswerIsNeverKept) {
    system_.accounts.set_administrator();
    EXPECT_TRUE(IsMemberOfBuiltinAdministrators());
    system_.accounts.set_ordinary_user();
    EXPECT_FALSE(IsMemberOfBuiltinAdministrators());
    EXPECT_EQ(system_.accounts.open_calls(), 2u);
}

}  // namespace
