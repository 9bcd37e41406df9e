#include "platform/linux/rpc/accounts_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "rpc/ntlm/ntlm_fixture.h"
#include "support/temporary_folder.h"

namespace {

using namespace platform::linux_rpc;
using testing::ElementsAre;
using testing::HasSubstr;

const std::string hash_of_password = "a4f49c406510bdcab6824ee7c30fd852";
const std::string two_accounts =
    "tarno-tape-accounts 1\n# name:flags:hash, kept by tarno-tape-account. A hash is as good as its password.\n"
    "Anna:administrator:a4f49c406510bdcab6824ee7c30fd852\n"
    "bob:disabled:00000000000000000000000000000000\n";

void write_file(const std::string& path, const std::string& text, unsigned int mode = 0600) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
    std::filesystem::permissions(path, static_cast<std::filesystem::perms>(mode));
}

std::string read_file(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

unsigned int mode_of(const std::string& path) {
    return static_cast<unsigned int>(std::filesystem::status(path).permissions());
}

account make_account(const std::string& name, bool administrator = false) {
    account made;
    made.name = name;
    made.hash = nt_hash(u"Password");
    made.administrator = administrator;
    return made;
}

std::string fault_of(std::string_view text) {
    try {
        static_cast<void>(account_table::parse(text));
        return "";
    } catch (const accounts_file_error& error) {
        return error.what();
    }
}

std::vector<std::string> names_in(const account_table& table) {
    std::vector<std::string> names;
    for (const auto& [key, kept] : table.accounts()) {
        names.push_back(kept.name);
    }
    return names;
}

TEST(AccountTable, ReadsAndWritesTheSameText) {
    const account_table table = account_table::parse(two_accounts);
    EXPECT_EQ(two_accounts, table.format());
    const account* const anna = table.find(u"ANNA");
    ASSERT_NE(nullptr, anna);
    EXPECT_EQ("Anna", anna->name);
    EXPECT_TRUE(anna->administrator);
    EXPECT_FALSE(anna->disabled);
    EXPECT_EQ(hash_of_password, ntlm_testing::to_hex(anna->hash.view()));
    const account* const bob = table.find(u"Bob");
    ASSERT_NE(nullptr, bob);
    EXPECT_FALSE(bob->administrator);
    EXPECT_TRUE(bob->disabled);
    EXPECT_EQ(nullptr, table.find(u"carol"));
}

TEST(AccountTable, TakesCommentsEmptyLinesAndEitherLineEnd) {
    const account_table table = account_table::parse(
        "tarno-tape-accounts 1\r\n\r\n#x:y\r\na::A4F49C406510BDCAB6824EE7C30FD852\r\n"
        "b:administrator,disabled:00000000000000000000000000000000");
    EXPECT_THAT(names_in(table), ElementsAre("a", "b"));
    EXPECT_EQ(hash_of_password, ntlm_testing::to_hex(table.find(u"a")->hash.view()));
    EXPECT_TRUE(table.find(u"b")->administrator && table.find(u"b")->disabled);
}

TEST(AccountTable, SaysWhichLineIsWrongAndWhy) {
    const std::string start = "tarno-tape-accounts 1\n";
    const std::string hash(32, '0');
    EXPECT_EQ("line 1: this is no accounts file of this version, which begins with \"tarno-tape-accounts 1\".", fault_of(""));
    EXPECT_THAT(fault_of("tarno-tape-accounts 2\n"), HasSubstr("line 1: "));
    EXPECT_EQ("line 2: an account has the form name:flags:hash.", fault_of(start + "anna\n"));
    EXPECT_EQ("line 2: an account has the form name:flags:hash.", fault_of(start + "anna:" + hash + "\n"));
    EXPECT_EQ("line 3: the flags are \"administrator\" and \"disabled\", separated by commas.",
              fault_of(start + "\nanna:Administrator:" + hash + "\n"));
    EXPECT_EQ("line 2: the flags are \"administrator\" and \"disabled\", separated by commas.",
              fault_of(start + "anna:,:" + hash + "\n"));
    for (const std::string& wrong : {hash.substr(1), hash + "0", "g" + hash.substr(1), hash + ":"}) {
        EXPECT_EQ("line 2: the hash has 32 hexadecimal digits.", fault_of(start + "anna::" + wrong + "\n")) << wrong;
    }
    EXPECT_EQ("line 3: the account 'ANNA' is there twice.", fault_of(start + "anna::" + hash + "\nANNA::" + hash + "\n"));
    EXPECT_EQ("line 2: a name has 1 to 104 characters.", fault_of(start + "::" + hash + "\n"));
}

TEST(AccountTable, PutReplacesWithoutRegardToCase) {
    account_table table;
    EXPECT_FALSE(table.put(make_account("Anna", true)));
    EXPECT_TRUE(table.put(make_account("anna")));
    EXPECT_THAT(names_in(table), ElementsAre("anna"));
    EXPECT_FALSE(table.find(u"ANNA")->administrator);
    EXPECT_FALSE(table.remove(u"bob"));
    EXPECT_TRUE(table.remove(u"ANNA"));
    EXPECT_TRUE(table.accounts().empty());
}

TEST(AccountName, FollowsTheRules) {
    const std::vector<std::string> names{"a", "Anna Smith", "j\xC3\xBCrgen", "svc-tape.1", "x y#z", std::string(104, 'n')};
    for (const std::string& good : names) {
        EXPECT_EQ("", name_fault(good)) << good;
    }
    EXPECT_EQ("a name has 1 to 104 characters.", name_fault(""));
    EXPECT_EQ("a name has 1 to 104 characters.", name_fault(std::string(105, 'n')));
    EXPECT_EQ("a name has to be well-formed UTF-8.", name_fault("\xFF"));
    for (const char wrong : std::string("\"/\\[]:;|=,+*?<>@\n\t\x7f")) {
        EXPECT_EQ("a name has no control characters and none of \"/\\[]:;|=,+*?<>@.", name_fault(std::string("a") + wrong))
            << wrong;
    }
    for (const std::string wrong : {" a", "a ", "a.", "#a"}) {
        EXPECT_EQ("a name neither begins with a blank or '#' nor ends with a blank or a full stop.", name_fault(wrong)) << wrong;
    }
}

class AccountsFile : public testing::Test {
protected:
    std::string fault_of_reading() {
        try {
            static_cast<void>(file.read());
            return "";
        } catch (const accounts_file_error& error) {
            return error.what();
        }
    }

    test_support::temporary_folder folder;
    const std::string path = folder / "accounts";
    accounts_file file{path};
};

TEST_F(AccountsFile, IsMadeByTheFirstEditWithModeForItsOwnerOnly) {
    const mode_t former = ::umask(0);
    file.edit([](account_table& table) { table.put(make_account("Anna", true)); });
    ::umask(former);
    EXPECT_EQ(0600U, mode_of(path));
    EXPECT_EQ(0600U, mode_of(path + ".lock"));
    EXPECT_FALSE(std::filesystem::exists(path + ".new"));
    EXPECT_THAT(names_in(file.read().table), ElementsAre("Anna"));
}

TEST_F(AccountsFile, KeepsTheOtherAccountsOfAnEdit) {
    write_file(path, two_accounts);
    file.edit([](account_table& table) { table.remove(u"anna"); });
    EXPECT_THAT(names_in(file.read().table), ElementsAre("bob"));
}

TEST_F(AccountsFile, AnEditClosesAnExposedFile) {
    write_file(path, two_accounts, 0644);
    EXPECT_EQ("The accounts file '" + path + "' is open to other users than its owner; it has to have mode 0600.",
              file.read().exposure);
    file.edit([](account_table&) {});
    EXPECT_EQ(0600U, mode_of(path));
    EXPECT_EQ("", file.read().exposure);
    EXPECT_EQ(two_accounts, read_file(path));
}

TEST_F(AccountsFile, AnyBitForOthersExposesIt) {
    for (const unsigned int mode : {0640U, 0620U, 0610U, 0604U, 0602U, 0601U}) {
        write_file(path, two_accounts, mode);
        EXPECT_NE("", file.read().exposure) << mode;
    }
    write_file(path, two_accounts, 0400);
    EXPECT_EQ("", file.read().exposure);
}

TEST_F(AccountsFile, BelongingToAThirdUserExposesIt) {
    write_file(path, two_accounts);
    if (::chown(path.c_str(), 12345, 12345) != 0) {
        GTEST_SKIP() << "only root can give a file away";
    }
    EXPECT_THAT(file.read().exposure, HasSubstr("belongs to user 12345"));
}

TEST_F(AccountsFile, KeepsItsOwnerWhenRootEditsIt) {
    write_file(path, two_accounts);
    if (::chown(path.c_str(), 12345, 12346) != 0) {
        GTEST_SKIP() << "only root can give a file away";
    }
    file.edit([](account_table& table) { table.remove(u"bob"); });
    struct stat status {};
    ASSERT_EQ(0, ::stat(path.c_str(), &status));
    EXPECT_EQ(12345U, status.st_uid);
    EXPECT_EQ(12346U, status.st_gid);
}

TEST_F(AccountsFile, SaysWhyItCantBeRead) {
    EXPECT_EQ("Cannot open the accounts file '" + path + "': No such file or directory.", fault_of_reading());
    write_file(path, "tarno-tape-accounts 1\nanna\n");
    EXPECT_EQ("Accounts file '" + path + "', line 2: an account has the form name:flags:hash.", fault_of_reading());
    std::filesystem::remove(path);
    ASSERT_EQ(0, ::mkfifo(path.c_str(), 0600));
    EXPECT_EQ("The accounts file '" + path + "' is no regular file.", fault_of_reading()) << "and doesn't wait for a writer";
    std::filesystem::remove(path);
    write_file(path, std::string((16U << 20) + 1, '#'));
    EXPECT_EQ("The accounts file '" + path + "' is larger than 16 MiB.", fault_of_reading());
}

TEST_F(AccountsFile, StaysAsItWasWhenAnEditFails) {
    write_file(path, two_accounts);
    EXPECT_THROW(file.edit([](account_table& table) {
        table.remove(u"anna");
        throw std::runtime_error("changed my mind");
    }),
                 std::runtime_error);
    EXPECT_EQ(two_accounts, read_file(path));
    write_file(path, "something else");
    EXPECT_THROW(file.edit([](account_table&) {}), accounts_file_error);
    EXPECT_EQ("something else", read_file(path)) << "a file that isn't understood isn't replaced";
}

TEST_F(AccountsFile, AnEditorThatDiedIsNoHindrance) {
    write_file(path + ".new", "half a fi", 0644);
    write_file(path + ".lock", "");
    file.edit([](account_table& table) { table.put(make_account("Anna")); });
    EXPECT_THAT(names_in(file.read().table), ElementsAre("Anna"));
    EXPECT_EQ(0600U, mode_of(path));
}

TEST_F(AccountsFile, ReplacesWhatALinkPointsTo) {
    std::filesystem::create_directory(folder / "real");
    const std::string target = folder / "real/accounts";
    write_file(target, two_accounts);
    std::filesystem::create_symlink(target, path);
    file.edit([](account_table& table) { table.remove(u"bob"); });
    EXPECT_TRUE(std::filesystem::is_symlink(path));
    EXPECT_THAT(names_in(accounts_file(target).read().table), ElementsAre("Anna"));
}

TEST_F(AccountsFile, EditsOfManyEditorsAreAllKept) {
    constexpr int editors = 4;
    constexpr int edits = 10;
    std::vector<std::thread> threads;
    threads.reserve(editors);
    for (int editor = 0; editor < editors; ++editor) {
        threads.emplace_back([this, editor] {
            for (int edit = 0; edit < edits; ++edit) {
                const std::string name = "user" + std::to_string(editor * edits + edit);
                file.edit([&name](account_table& table) { table.put(make_account(name)); });
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(std::size_t{editors * edits}, file.read().table.accounts().size());
}

class LiveAccounts : public testing::Test {
protected:
    bool knows(std::u16string_view name) { return accounts.find(name).has_value(); }

    test_support::temporary_folder folder;
    const std::string path = folder / "accounts";
    std::vector<std::string> reports;
    live_accounts accounts{path, [this](const std::string& sentence) { reports.push_back(sentence); }};
};

TEST_F(LiveAccounts, FindsWithoutRegardToCase) {
    write_file(path, two_accounts);
    const auto found = accounts.find(u"ANNA");
    ASSERT_TRUE(found);
    EXPECT_EQ("Anna", found->name);
    EXPECT_TRUE(found->administrator);
    EXPECT_EQ(hash_of_password, ntlm_testing::to_hex(found->hash.view()));
    EXPECT_FALSE(knows(u"carol"));
    EXPECT_THAT(reports, ElementsAre());
}

TEST_F(LiveAccounts, TakesEachChangeUpAtTheNextSearch) {
    write_file(path, two_accounts);
    EXPECT_TRUE(knows(u"bob"));
    const accounts_file editor(path);
    editor.edit([](account_table& table) { table.remove(u"bob"); });
    EXPECT_FALSE(knows(u"bob"));
    EXPECT_TRUE(knows(u"anna"));
    editor.edit([](account_table& table) { table.put(make_account("Carol")); });
    EXPECT_TRUE(knows(u"carol"));
    std::filesystem::remove(path);
    EXPECT_FALSE(knows(u"anna"));
    EXPECT_THAT(reports, ElementsAre("Cannot open the accounts file '" + path + "': No such file or directory."));
}

TEST_F(LiveAccounts, AnExposedFileLetsNobodyInUntilItIsClosed) {
    write_file(path, two_accounts, 0640);
    EXPECT_FALSE(knows(u"anna"));
    EXPECT_FALSE(knows(u"anna"));
    EXPECT_THAT(reports, ElementsAre(HasSubstr("has to have mode 0600")));
    std::filesystem::permissions(path, std::filesystem::perms{0600});
    EXPECT_TRUE(knows(u"anna"));
    std::filesystem::permissions(path, std::filesystem::perms{0644});
    EXPECT_FALSE(knows(u"anna"));
    EXPECT_EQ(2U, reports.size());
}

TEST_F(LiveAccounts, AMissingOrBrokenFileIsReportedOnceForEachStateOfIt) {
    EXPECT_FALSE(knows(u"anna"));
    EXPECT_FALSE(knows(u"anna"));
    EXPECT_EQ(1U, reports.size());
    write_file(path, "tarno-tape-accounts 1\nbroken\n");
    EXPECT_FALSE(knows(u"anna"));
    EXPECT_FALSE(knows(u"anna"));
    ASSERT_EQ(2U, reports.size());
    EXPECT_THAT(reports.back(), HasSubstr("line 2"));
    write_file(path, two_accounts);
    EXPECT_TRUE(knows(u"anna"));
    EXPECT_EQ(2U, reports.size());
}

TEST_F(LiveAccounts, TheGenerationChangesWithTheFileAndWithNothingElse) {
    write_file(path, two_accounts);
    const std::uint64_t first = accounts.generation();
    EXPECT_TRUE(knows(u"anna"));
    EXPECT_EQ(accounts.generation(), first);
    const accounts_file editor(path);
    editor.edit([](account_table& table) { table.put(make_account("Anna")); });
    const std::uint64_t second = accounts.generation();
    EXPECT_NE(second, first);
    EXPECT_FALSE(accounts.find(u"anna")->administrator);
    write_file(folder / "neighbour", "x");
    EXPECT_EQ(accounts.generation(), second);
    std::filesystem::remove(path);
    EXPECT_NE(accounts.generation(), second);
}

TEST_F(LiveAccounts, AChangeIsSeenByEveryThreadThatAsksAfterIt) {
    write_file(path, two_accounts);
    const accounts_file editor(path);
    constexpr int changes = 50;
    constexpr int askers = 4;
    std::atomic<int> made{0};
    std::atomic<bool> ended{false};
    std::atomic<int> stale{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < askers; ++i) {
        threads.emplace_back([&] {
            std::uint64_t generation = 0;
            bool administrator = false;
            while (!ended) {
                const int before = made;
                if (const std::uint64_t now = accounts.generation(); now != generation) {
                    administrator = accounts.find(u"anna")->administrator;
                    generation = now;
                }
                // Only an answer that no change overtook is held against the file. Every second change makes an administrator.
                const bool settled = before > 0 && before % 2 == 0 && made == before;
                stale += settled && administrator != ((before / 2) % 2 == 0) ? 1 : 0;
            }
        });
    }
    for (int i = 1; i <= changes; ++i) {
        ++made;  // odd: a change is being made
        editor.edit([i](account_table& table) { table.put(make_account("Anna", i % 2 == 0)); });
        ++made;
        std::this_thread::yield();
    }
    ended = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(stale, 0);
}

}  // namespace
