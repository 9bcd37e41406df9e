#include "platform/linux/state_file.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <random>

#include "foundation/text/unicode.h"
#include "platform/linux/registry.h"
#include "platform/linux/settings_file.h"
#include "support/temporary_folder.h"

namespace {

using namespace platform;
using namespace platform::linux_os;

const std::u16string key_path = u"SOFTWARE\\Tarno\\Tarno Backup Tape";

/// Owners of very different lengths, each naming its number: a torn file can't be taken for a whole one.
std::u16string owner_name(std::uint32_t number) {
    return text::unicode::decode_utf8_lenient(std::to_string(number)) + u":" + std::u16string(number * 7919 % 5000, u'x');
}

std::uint32_t stored_owner(const std::string& folder, std::u16string& owner) {
    linux_registry registry(linux_registry::options{"", false, folder});
    registry_key key = 0;
    if (const std::uint32_t refused = registry.open_key(key_path, registry_access::read, key)) {
        return refused;
    }
    settings_value value;
    const std::uint32_t result = registry.query_value(key, u"BackupServer", value.type, value.data);
    owner = value_text(value);
    return result;
}

/// Stores one owner after the other and writes a byte to the pipe for each, until it is killed.
[[noreturn]] void write_for_ever(const std::string& folder, int progress, std::uint32_t number) {
    linux_registry registry(linux_registry::options{"", false, folder});
    registry_key key = 0;
    if (registry.create_key(key_path, registry_access::write, key) != 0) {
        _exit(1);
    }
    for (;; ++number) {
        const settings_value value = text_value(registry_type::string, owner_name(number));
        if (registry.set_value(key, u"BackupServer", value.type, value.data) != 0 || write(progress, "+", 1) != 1) {
            _exit(1);
        }
    }
}

TEST(StateFile, IsWholeAfterAKillAtAnyMoment) {
    const test_support::temporary_folder folder;
    std::mt19937 random(20261121);
    std::uint32_t stored = 0;
    for (int round = 0; round < 25; ++round) {
        std::array<int, 2> ends{};
        ASSERT_EQ(pipe(ends.data()), 0);
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            close(ends[0]);
            write_for_ever(folder.path(), ends[1], stored + 1);
        }
        close(ends[1]);
        const auto wanted = static_cast<std::uint32_t>(random() % 6) + 1;
        std::uint32_t seen = 0;
        char mark = 0;
        while (seen < wanted && read(ends[0], &mark, 1) == 1) {
            ++seen;
        }
        ASSERT_EQ(seen, wanted);
        // A moment within the next write, which takes some hundred thousand of these steps.
        std::atomic<std::uint32_t> steps = 0;
        for (const auto most = static_cast<std::uint32_t>(random() % 400'000); steps < most;) {
            ++steps;
        }
        kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status));
        while (read(ends[0], &mark, 1) == 1) {
            ++seen;
        }
        close(ends[0]);

        std::u16string owner;
        ASSERT_EQ(stored_owner(folder.path(), owner), 0U);
        const auto number = static_cast<std::uint32_t>(std::stoul(text::unicode::encode_utf8(owner)));
        EXPECT_EQ(owner, owner_name(number));
        // What was acknowledged is there; at most one write was under way.
        EXPECT_GE(number, stored + seen);
        EXPECT_LE(number, stored + seen + 1);
        stored = number;
    }
}

TEST(StateFile, LeavesTheOldContentWhenTheNewOneCantBeWritten) {
    const test_support::temporary_folder folder;
    const std::string path = folder.put("state.reg", "old");
    ASSERT_EQ(mkdir((path + ".new").c_str(), 0700), 0);
    EXPECT_EQ(replace_content(path, "new"), EISDIR);
    EXPECT_EQ(folder.content("state.reg"), "old");
}

TEST(StateFile, ReplacesWhatAKilledProcessLeftBehind) {
    const test_support::temporary_folder folder;
    folder.put("state.reg.new", std::string(10000, 'x'));
    EXPECT_EQ(replace_content(folder / "state.reg", "new"), 0);
    EXPECT_EQ(folder.content("state.reg"), "new");
    EXPECT_FALSE(std::filesystem::exists(folder / "state.reg.new"));
}

TEST(StateFile, FollowsNoLinkThatStandsInTheWay) {
    const test_support::temporary_folder folder;
    folder.put("victim", "precious");
    std::filesystem::create_symlink(folder / "victim", folder / "state.reg.new");
    EXPECT_EQ(replace_content(folder / "state.reg", "new"), ELOOP);
    EXPECT_EQ(folder.content("victim"), "precious");
}

TEST(FolderLock, TellsWhyThereIsNone) {
    EXPECT_EQ(folder_lock("/there/is/no/such/folder").failure(), ENOENT);
}

}  // namespace
