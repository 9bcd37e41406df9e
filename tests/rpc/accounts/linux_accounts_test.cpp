#include "platform/linux/rpc/linux_accounts.h"

#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>

#include "platform/errors.h"
#include "platform/linux/rpc/current_call.h"
#include "platform/system.h"
#include "platform/testing/fake_errors.h"
#include "rpc/ntlm/ntlm_fixture.h"

namespace {

using namespace platform::linux_rpc;
using ntlm_testing::to_hex;
using platform::client_context;
using platform::group_entry;
using testing::ElementsAre;

constexpr std::uint32_t no_call_active = 1725;
constexpr std::uint32_t no_authentication = 1746;
const std::string administrators = "01020000000000052000000020020000";

const std::string unix_group_100 =
    "010200000000001602000000"
    "64000000";

class scripted_users : public user_database {
public:
    bool groups_of(uid_t user, bool& found, std::vector<gid_t>& groups) override {
        ++look_ups;
        const auto entry = by_number.find(user);
        found = entry != by_number.end();
        groups = found ? entry->second : std::vector<gid_t>();
        return answers;
    }
    bool groups_of(const std::string& user, bool& found, std::vector<gid_t>& groups) override {
        ++look_ups;
        const auto entry = by_name.find(user);
        found = entry != by_name.end();
        groups = found ? entry->second : std::vector<gid_t>();
        return answers;
    }
    std::optional<gid_t> group_number(const std::string& group) override {
        const auto entry = numbers.find(group);
        return entry == numbers.end() ? std::nullopt : std::optional(entry->second);
    }

    std::map<uid_t, std::vector<gid_t>> by_number;
    std::map<std::string, std::vector<gid_t>> by_name;
    std::map<std::string, gid_t> numbers{{"root", 0}, {"wheel", 10}, {"sudo", 27}};
    bool answers = true;
    int look_ups = 0;
};

struct outcome {
    std::uint32_t status = 0;
    std::uint32_t size = 0;
    bool listed = false;
    std::vector<std::string> sids;
    std::vector<std::uint32_t> attributes;
};

class LinuxAccounts : public testing::Test {
protected:
    LinuxAccounts() { set.errors = &errors; }

    static client_identity local_user(uid_t uid, gid_t gid) {
        client_identity identity;
        identity.name = "someone";
        identity.authenticated = true;
        identity.local = true;
        identity.uid = uid;
        identity.gid = gid;
        return identity;
    }

    static client_identity remote(const std::string& name) {
        client_identity identity;
        identity.name = name;
        identity.authenticated = true;
        return identity;
    }

    outcome ask(const client_identity& identity) {
        const platform::scoped_system scope(set);
        const call_scene scene{&identity, auth_level::integrity, 0};
        const current_call_scope call(scene);
        outcome result;
        client_context context = 0;
        result.status = accounts.open_client_context(context);
        if (result.status == 0) {
            result.size = accounts.client_groups_size(context);
            std::vector<group_entry> groups;
            result.listed = accounts.client_groups(context, groups);
            for (const group_entry& entry : groups) {
                result.sids.push_back(to_hex(entry.sid));
                result.attributes.push_back(entry.attributes);
            }
            EXPECT_EQ(0U, accounts.free_client_context(context));
        }
        return result;
    }

    bool administers(const client_identity& identity) {
        const outcome result = ask(identity);
        return std::find(result.sids.begin(), result.sids.end(), administrators) != result.sids.end();
    }

    platform::testing::fake_errors errors;
    platform::system_set set;
    scripted_users users;
    linux_accounts accounts{administrator_rules::of("root; wheel ;;sudo;nosuchgroup", " CORP\\Anna;bob@EXAMPLE.COM "), users};
};

TEST_F(LinuxAccounts, AThreadThatServesNoCallHasNoCaller) {
    client_context context = 77;
    EXPECT_EQ(no_call_active, accounts.open_client_context(context));
    EXPECT_EQ(77U, context);
}

TEST_F(LinuxAccounts, TheLogsTextOfACallerSaysWhoAndWhere) {
    EXPECT_EQ("", accounts.client_text()) << "no call";
    const std::string address = "192.0.2.7";
    const auto text_of = [&](const client_identity& identity, const std::string* where) {
        const call_scene scene{&identity, auth_level::integrity, 0, where};
        const current_call_scope call(scene);
        return accounts.client_text();
    };
    EXPECT_EQ("[VM\\anna] at [192.0.2.7]", text_of(remote("VM\\anna"), &address));
    EXPECT_EQ("[VM\\anna]", text_of(remote("VM\\anna"), nullptr));
    EXPECT_EQ("[someone] on this machine", text_of(local_user(1000, 100), &address));
    client_identity nobody;
    nobody.name = "CORP\\Anna";
    EXPECT_EQ("somebody who gave no proof at [192.0.2.7]", text_of(nobody, &address));
}

TEST_F(LinuxAccounts, ACallerWithoutProofHasNoContext) {
    client_identity nobody;
    nobody.name = "CORP\\Anna";
    nobody.administrator = true;
    EXPECT_EQ(no_authentication, ask(nobody).status);
}

TEST_F(LinuxAccounts, UnixGroupsAreSecurityIdentifiers) {
    users.by_number[1000] = {100, 0xFFFFFFFE};
    const outcome result = ask(local_user(1000, 100));
    EXPECT_TRUE(result.listed);
    EXPECT_THAT(result.sids, ElementsAre(unix_group_100, "010200000000001602000000feffffff"));
    EXPECT_THAT(result.attributes, ElementsAre(7U, 7U));
    EXPECT_EQ(8U + 2 * (16 + 16), result.size);
}

TEST_F(LinuxAccounts, RootIsAdministrator) {
    users.by_number[0] = {0};
    const outcome result = ask(local_user(0, 0));
    EXPECT_THAT(result.sids, ElementsAre("01020000000000160200000000000000", administrators));
    EXPECT_THAT(result.attributes, ElementsAre(7U, 7U));
}

TEST_F(LinuxAccounts, AMemberOfAnAdministratorGroupIsAdministrator) {
    users.by_number[1000] = {100, 27};
    users.by_number[1001] = {100, 28};
    EXPECT_TRUE(administers(local_user(1000, 100)));
    EXPECT_FALSE(administers(local_user(1001, 100)));
}

TEST_F(LinuxAccounts, TheGroupOfTheCallersProcessCounts) {
    users.by_number[1000] = {100};
    EXPECT_TRUE(administers(local_user(1000, 10)));
}

TEST_F(LinuxAccounts, AnUnknownUserHasTheGroupOfItsProcessOnly) {
    EXPECT_THAT(ask(local_user(4711, 100)).sids, ElementsAre(unix_group_100));
}

TEST_F(LinuxAccounts, MembershipIsLookedUpForEachCall) {
    users.by_number[1000] = {100};
    EXPECT_FALSE(administers(local_user(1000, 100)));
    users.by_number[1000] = {100, 10};
    EXPECT_TRUE(administers(local_user(1000, 100)));
    users.by_number[1000] = {100};
    EXPECT_FALSE(administers(local_user(1000, 100)));
    EXPECT_EQ(3, users.look_ups) << "once for a call, though it is asked twice about the list";
}

TEST_F(LinuxAccounts, AnAccountAddedAsAdministratorIsOne) {
    client_identity identity = remote("SERVER\\operator");
    identity.administrator = true;
    EXPECT_THAT(ask(identity).sids, ElementsAre(administrators));
}

TEST_F(LinuxAccounts, AnotherAccountHasNoGroupsAtAll) {
    const outcome result = ask(remote("SERVER\\visitor"));
    EXPECT_EQ(0U, result.status);
    EXPECT_EQ(0U, result.size);
    EXPECT_THAT(result.sids, ElementsAre());
}

TEST_F(LinuxAccounts, ARemoteCallerIsNotTakenForTheLocalRoot) {
    client_identity identity = remote("SERVER\\root");
    identity.uid = 0;
    identity.gid = 0;
    users.by_number[0] = {0};
    EXPECT_FALSE(administers(identity));
}

TEST_F(LinuxAccounts, ListedPrincipalsAreAdministratorsWithoutRegardToCase) {
    EXPECT_TRUE(administers(remote("corp\\ANNA")));
    EXPECT_TRUE(administers(remote("Bob@example.com")));
    EXPECT_FALSE(administers(remote("CORP\\Ann")));
    EXPECT_FALSE(administers(remote("Anna")));
    EXPECT_FALSE(administers(remote("bob@EXAMPLE.COM ")));
    EXPECT_FALSE(administers(remote("")));
}

TEST_F(LinuxAccounts, ARemoteCallerHasTheGroupsOfTheAccountItIsMappedTo) {
    client_identity identity = remote("carol@EXAMPLE.COM");
    identity.local_account = "carol";
    users.by_name["carol"] = {100, 10};
    EXPECT_THAT(ask(identity).sids, ElementsAre(unix_group_100, "0102000000000016020000000a000000", administrators));
    identity.local_account = "nobody-of-that-name";
    EXPECT_THAT(ask(identity).sids, ElementsAre());
}

TEST_F(LinuxAccounts, AFailedLookUpIsAnErrorAndNoRefusal) {
    users.answers = false;
    const outcome result = ask(local_user(1000, 100));
    EXPECT_EQ(0U, result.status);
    EXPECT_NE(0U, result.size);
    EXPECT_FALSE(result.listed);
    EXPECT_EQ(1627U, errors.last_error());
}

TEST_F(LinuxAccounts, AFailedLookUpDoesNotLockAnAdministratorOut) {
    users.answers = false;
    EXPECT_TRUE(administers(local_user(0, 0)));
    EXPECT_TRUE(administers(remote("CORP\\Anna")));
}

TEST_F(LinuxAccounts, ContextsAreReleasedOnce) {
    const platform::scoped_system scope(set);
    const client_identity identity = remote("CORP\\Anna");
    const call_scene scene{&identity, auth_level::integrity, 0};
    const current_call_scope call(scene);
    client_context first = 0;
    client_context second = 0;
    ASSERT_EQ(0U, accounts.open_client_context(first));
    ASSERT_EQ(0U, accounts.open_client_context(second));
    EXPECT_NE(0U, first);
    EXPECT_NE(first, second);
    EXPECT_EQ(0U, accounts.free_client_context(first));
    EXPECT_EQ(87U, accounts.free_client_context(first));
    std::vector<group_entry> groups;
    EXPECT_EQ(0U, accounts.client_groups_size(first));
    EXPECT_FALSE(accounts.client_groups(first, groups));
    EXPECT_EQ(6U, errors.last_error());
    EXPECT_TRUE(accounts.client_groups(second, groups));
    EXPECT_EQ(0U, accounts.free_client_context(second));
}

TEST_F(LinuxAccounts, MakesTheIdentifierOfTheAdministratorsAndNoOther) {
    const platform::scoped_system scope(set);
    platform::sid_bytes sid;
    EXPECT_TRUE(accounts.create_well_known_sid(26, sid));
    EXPECT_EQ(administrators, to_hex(sid));
    EXPECT_FALSE(accounts.create_well_known_sid(27, sid));
    EXPECT_EQ(87U, errors.last_error());
}

TEST(AdministratorRules, AreListsWithoutEmptyEntries) {
    const administrator_rules rules = administrator_rules::of(" root;;wheel; ", "CORP\\Backup Operators\t;");
    EXPECT_THAT(rules.groups, ElementsAre("root", "wheel"));
    EXPECT_THAT(rules.principals, ElementsAre("CORP\\Backup Operators"));
    EXPECT_TRUE(administrator_rules::of("", ";").groups.empty());
}

TEST(UserDatabase, KnowsTheUserThatThisRunsAs) {
    user_database& users = user_database::of_system();
    const passwd* const self = ::getpwuid(::getuid());
    ASSERT_NE(nullptr, self);
    const std::string name = self->pw_name;
    const gid_t primary = self->pw_gid;
    bool found = false;
    std::vector<gid_t> by_number;
    std::vector<gid_t> by_name;
    EXPECT_TRUE(users.groups_of(::getuid(), found, by_number));
    EXPECT_TRUE(found);
    EXPECT_TRUE(users.groups_of(name, found, by_name));
    EXPECT_TRUE(found);
    EXPECT_EQ(by_number, by_name);
    ASSERT_FALSE(by_number.empty());
    EXPECT_EQ(primary, by_number.front());
    const group* const own = ::getgrgid(primary);
    ASSERT_NE(nullptr, own);
    EXPECT_EQ(primary, users.group_number(own->gr_name));
}

TEST(UserDatabase, KnowsNoUserOrGroupThatIsNotThere) {
    user_database& users = user_database::of_system();
    bool found = true;
    std::vector<gid_t> groups{1};
    EXPECT_TRUE(users.groups_of(uid_t{3'999'999'999U}, found, groups));
    EXPECT_FALSE(found);
    EXPECT_TRUE(groups.empty());
    EXPECT_TRUE(users.groups_of("no-such-user-here", found, groups));
    EXPECT_FALSE(found);
    EXPECT_EQ(std::nullopt, users.group_number("no-such-group-here"));
}

/// An account whose rights change while its connection lasts.
class changing_standing : public caller_standing {
public:
    [[nodiscard]] rank now() override { return current; }
    rank current = rank::administrator;
};

TEST_F(LinuxAccounts, AFlagThatChangedBetweenTwoCallsCounts) {
    const auto standing = std::make_shared<changing_standing>();
    client_identity identity = remote("SERVER\\carol");
    identity.administrator = true;  // as it was when she logged on
    identity.standing = standing;
    EXPECT_TRUE(administers(identity));
    standing->current = caller_standing::rank::known;
    EXPECT_FALSE(administers(identity));
    standing->current = caller_standing::rank::administrator;
    EXPECT_TRUE(administers(identity));
}

TEST_F(LinuxAccounts, AnAccountThatIsShutOutIsNoAdministratorByItsNameEither) {
    const auto standing = std::make_shared<changing_standing>();
    client_identity identity = remote("CORP\\Anna");
    identity.standing = standing;
    standing->current = caller_standing::rank::known;
    EXPECT_TRUE(administers(identity)) << "the rules name the account";
    standing->current = caller_standing::rank::shut_out;
    const outcome result = ask(identity);
    EXPECT_EQ(result.status, 0U);
    EXPECT_EQ(result.size, 0U);
    EXPECT_TRUE(result.sids.empty());
}

}  // namespace
