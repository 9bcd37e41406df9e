#include "platform/linux/rpc/folder_watch.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "support/temporary_folder.h"

namespace {

using platform::linux_rpc::folder_watch;
namespace fs = std::filesystem;

class FolderWatch : public testing::Test {
protected:
    FolderWatch() { write("one"); }
    void write(const std::string& text, const std::string& name = "accounts") const { std::ofstream(folder / name) << text; }
    bool changed_by(const std::function<void()>& change) {
        watch.settle();
        const bool before = watch.may_have_changed();
        change();
        return !before && watch.may_have_changed();
    }

    test_support::temporary_folder folder;
    folder_watch watch{folder / "accounts"};
};

TEST_F(FolderWatch, KnowsNothingBeforeItIsSettled) {
    EXPECT_TRUE(watch.may_have_changed());
}

TEST_F(FolderWatch, SeesEveryWayToChangeTheFileAtOnce) {
    const std::string path = folder / "accounts";
    EXPECT_TRUE(changed_by([&] { write("two"); }));
    EXPECT_TRUE(changed_by([&] { fs::permissions(path, fs::perms{0640}); }));
    EXPECT_TRUE(changed_by([&] {
        write("three", "fresh");
        fs::rename(folder / "fresh", path);
    }));
    EXPECT_TRUE(changed_by([&] { fs::remove(path); }));
    EXPECT_TRUE(changed_by([&] { write("four"); }));
}

TEST_F(FolderWatch, TrustsNoLink) {
    write("far", "elsewhere");
    fs::remove(folder / "accounts");
    fs::create_symlink(folder / "elsewhere", folder / "accounts");
    watch.settle();
    EXPECT_TRUE(watch.may_have_changed());
}

TEST_F(FolderWatch, FollowsTheNameWhenItsFolderIsReplaced) {
    const fs::path home = folder / "home";
    const auto make_home = [&] {
        fs::create_directory(home);
        std::ofstream(home / "accounts") << "x";
    };
    make_home();
    folder_watch inner(home / "accounts");
    inner.settle();
    ASSERT_FALSE(inner.may_have_changed());
    fs::rename(home, folder / "away");
    EXPECT_TRUE(inner.may_have_changed());
    make_home();
    inner.settle();
    EXPECT_FALSE(inner.may_have_changed());
    inner.settle();  // and stays at rest: the end of the old watch doesn't end the new one
    EXPECT_FALSE(inner.may_have_changed());
    std::ofstream(home / "accounts") << "y";
    EXPECT_TRUE(inner.may_have_changed());
}

TEST_F(FolderWatch, FollowsTheNameWhenALinkOnTheWayIsTurned) {
    for (const char* const home : {"one", "two"}) {
        fs::create_directory(folder / home);
        write("x", std::string(home) + "/accounts");
        fs::create_directory_symlink(folder / home, folder / (std::string("to ") + home));
    }
    folder_watch inner(folder / "to one/accounts");
    inner.settle();
    ASSERT_FALSE(inner.may_have_changed());
    fs::rename(folder / "to two", folder / "to one");
    inner.settle();  // which happens once a second
    EXPECT_FALSE(inner.may_have_changed());
    write("y", "one/accounts");
    EXPECT_FALSE(inner.may_have_changed());
    write("y", "two/accounts");
    EXPECT_TRUE(inner.may_have_changed());
}

TEST_F(FolderWatch, TellsWhatHappenedToTheFileFromWhatHappenedToItsNeighbours) {
    watch.settle();
    EXPECT_FALSE(watch.settle());
    write("two");
    EXPECT_TRUE(watch.settle());
    EXPECT_FALSE(watch.settle());
    write("x", "accounts.lock");
    write("x", "account");
    ASSERT_TRUE(watch.may_have_changed());
    EXPECT_FALSE(watch.settle());
    fs::remove(folder / "accounts");
    EXPECT_TRUE(watch.settle());
}

TEST_F(FolderWatch, AFolderThatIsMissingIsNeverTrusted) {
    const fs::path home = folder / "home";
    folder_watch inner(home / "accounts");
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(inner.settle());
        EXPECT_TRUE(inner.may_have_changed());
    }
    fs::create_directory(home);
    inner.settle();
    EXPECT_FALSE(inner.may_have_changed());
    fs::remove(home);
    EXPECT_TRUE(inner.may_have_changed());
    inner.settle();
    EXPECT_TRUE(inner.may_have_changed());
}

TEST_F(FolderWatch, MoreEventsThanTheSystemKeepsCountAsAChange) {
    std::size_t kept = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> kept;
    ASSERT_GT(kept, 0U);
    watch.settle();
    // Equal events in a row are kept as one, so that these differ.
    for (std::size_t i = 0; i <= kept / 2; ++i) {
        write("", i % 2 == 0 ? "even" : "odd");
    }
    // One look takes a bounded part of them, and trusts nothing before it has seen the last.
    std::size_t looks = 0;
    bool all_touched = true;
    do {
        ASSERT_TRUE(watch.may_have_changed());
        all_touched = watch.settle() && all_touched;
        ASSERT_LT(++looks, kept);
    } while (watch.may_have_changed());
    EXPECT_TRUE(all_touched);
    EXPECT_GT(looks, 1U);
}

}  // namespace
