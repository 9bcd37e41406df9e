#include "foundation/win/paths.h"

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include "foundation/exc/exceptions.h"
#include "foundation/util/common_lib_ctx.h"
#include "foundation/win/win_file.h"
#include "platform/testing/fakes.h"
#include "support/failure_text.h"

namespace {

using test_support::failure_of;
using operation = platform::testing::memory_files::operation;

class Paths : public ::testing::Test {
protected:
    platform::testing::test_system system_;
};

TEST_F(Paths, JoinWithOneSeparator) {
    EXPECT_EQ(win::join_path(u"", u"b"), u"b");
    EXPECT_EQ(win::join_path(u"a", u""), u"a");
    EXPECT_EQ(win::join_path(u"a", u"b"), u"a\\b");
    EXPECT_EQ(win::join_path(u"a\\/", u"/\\b"), u"a\\b");
    EXPECT_EQ(win::join_path(u"C:\\", u"b\\"), u"C:\\b\\");
    platform::testing::memory_files unix_files(u'/');
    platform::system_set set = system_.fakes();
    set.files = &unix_files;
    const platform::scoped_system scope(set);
    EXPECT_EQ(win::join_path(u"/var/log/", u"Tarno"), u"/var/log/Tarno");
    EXPECT_EQ(win::join_path(u"/", u"a"), u"/a");
}

TEST_F(Paths, SplitAtTheLaterSeparator) {
    EXPECT_EQ(win::parent_path(u"a/b\\c"), u"a/b");
    EXPECT_EQ(win::parent_path(u"a\\b/c"), u"a\\b");
    EXPECT_EQ(win::parent_path(u"a"), u"");
    text::wide_string folder = u"f";
    text::wide_string name = u"n";
    win::split_path(u"a/b\\c.log", folder, name);
    EXPECT_EQ(folder, u"a/b");
    EXPECT_EQ(name, u"c.log");
    win::split_path(u"c.log", folder, name);
    EXPECT_EQ(folder, u"");
    EXPECT_EQ(name, u"c.log");
    win::split_path(name, name, folder);
    EXPECT_EQ(folder, u"c.log");
}

TEST_F(Paths, RelateByTheirParts) {
    using win::path_relation_t;
    EXPECT_EQ(win::path_relation(u"C:\\Logs", u"C:\\Logs"), path_relation_t::equal);
    EXPECT_EQ(win::path_relation(u"C:\\Logs\\a\\b.log", u"C:/Logs"), path_relation_t::inside);
    EXPECT_EQ(win::path_relation(u"C:\\Logs2\\b.log", u"C:\\Logs"), path_relation_t::different);
    EXPECT_EQ(win::path_relation(u"C:\\", u"C:\\Logs"), path_relation_t::different);
}

TEST_F(Paths, ExistenceIgnoresASeparatorAtTheEnd) {
    system_.files.put("C:\\a\\b.txt", "x");
    EXPECT_TRUE(win::file_exists(u"C:\\a\\b.txt"));
    EXPECT_TRUE(win::folder_exists(u"C:\\a\\"));
    EXPECT_FALSE(win::file_exists(u"C:\\a\\c.txt"));
}

TEST_F(Paths, FoldersAreMadeFromTheTop) {
    win::create_folder(u"C:\\x\\y\\z");
    EXPECT_TRUE(win::folder_exists(u"C:\\x\\y\\z"));
    EXPECT_NO_THROW(win::create_folder(u"C:\\x\\y\\z"));
    win::ensure_parent_folder(u"C:\\p\\q\\a.log");
    EXPECT_TRUE(win::folder_exists(u"C:\\p\\q"));
    EXPECT_FALSE(win::folder_exists(u"C:\\p\\q\\a.log"));
}

TEST_F(Paths, FoldersThatCannotBeAreRefused) {
    EXPECT_EQ(failure_of([] { win::create_folder(u""); }), "Invalid folder path: [].");
    EXPECT_EQ(failure_of([] { win::create_folder(u"relative"); }), "Invalid folder path: [relative].");
    EXPECT_EQ(failure_of([] { win::create_folder(u"\\\\server"); }), "Invalid folder path: [\\\\server].");
    EXPECT_EQ(failure_of([] { win::create_folder(u"\\\\server\\share"); }), "Invalid folder path: [\\\\server].");
    EXPECT_NO_THROW(win::create_folder(u"C:"));
    system_.files.set_failure([](platform::testing::memory_files::operation what, const std::string&) {
        return what == platform::testing::memory_files::operation::create_folder ? 5U : 0U;
    });
    EXPECT_EQ(failure_of([] { win::create_folder(u"C:\\n\\m"); }),
              "Access is denied.\nCreateDirectory(C:\\n) function call failed.\n--tr:Error code: 0x00000005");
    EXPECT_EQ(failure_of([] { win::create_folder(u"Q:"); }),
              "Access is denied.\nCreateDirectory(Q:) function call failed.\n--tr:Error code: 0x00000005");
}

TEST_F(Paths, FolderMadeByAnotherMeanwhileIsWelcome) {
    system_.files.set_failure([this](operation what, const std::string& path) {
        if (what != operation::create_folder) {
            return 0U;
        }
        system_.files.add_folder(path);
        return 183U;
    });
    EXPECT_NO_THROW(win::create_folder(u"C:\\n"));
}

TEST_F(Paths, FileInTheFoldersPlaceIsAFailure) {
    system_.files.put("C:\\n", "a file");
    EXPECT_EQ(failure_of([] { win::create_folder(u"C:\\n"); }),
              "Cannot create a file when that file already exists.\nCreateDirectory(C:\\n) function call failed.\n"
              "--tr:Error code: 0x000000b7");
}

TEST_F(Paths, FileIsNoFolderAndFolderIsNoFile) {
    system_.files.put("C:\\a\\b", "x");
    EXPECT_TRUE(win::file_exists(u"C:\\a\\b"));
    EXPECT_FALSE(win::folder_exists(u"C:\\a\\b"));
    EXPECT_TRUE(win::folder_exists(u"C:\\a"));
    EXPECT_FALSE(win::file_exists(u"C:\\a"));
    EXPECT_TRUE(win::folder_exists(u"C:\\"));
    EXPECT_FALSE(win::folder_exists(u"Q:\\"));
}

TEST_F(Paths, ExistenceThatCannotBeToldIsAFailure) {
    system_.files.set_failure([](operation what, const std::string&) { return what == operation::look_up ? 5U : 0U; });
    EXPECT_EQ(failure_of([] { static_cast<void>(win::file_exists(u"C:\\a")); }),
              "Access is denied.\nFailed to check whether file 'C:\\a' exists.\n--tr:Error code: 0x00000005");
    EXPECT_EQ(failure_of([] { static_cast<void>(win::folder_exists(u"C:\\a\\")); }),
              "Access is denied.\nFailed to check whether folder 'C:\\a\\' exists.\n--tr:Error code: 0x00000005");
}

TEST_F(Paths, DriveThatDoesNotExistIsTheSystemsToRefuse) {
    EXPECT_EQ(failure_of([] { win::create_folder(u"Q:"); }),
              "The system cannot find the path specified.\nCreateDirectory(Q:) function call failed.\n--tr:Error code: 0x00000003");
}

TEST_F(Paths, TemporaryFolderIsTheSystems) {
    EXPECT_EQ(win::temp_folder(), u"C:\\Temp");
    system_.files.fail_temp_folder(5);
    EXPECT_EQ(failure_of([] { static_cast<void>(win::temp_folder()); }),
              "Access is denied.\nCannot retrieve the path to the temporary directory. GetTempPath() failed.\n"
              "--tr:Error code: 0x00000005");
}

TEST_F(Paths, MoveReplacesNothing) {
    system_.files.put("C:\\a", "a");
    system_.files.put("C:\\b", "b");
    EXPECT_EQ(failure_of([] { win::move_file(u"C:\\a", u"C:\\b"); }),
              "Cannot create a file when that file already exists.\nFailed to move file [C:\\a] to [C:\\b].\n"
              "--tr:Error code: 0x000000b7");
    win::move_file(u"C:\\a", u"C:\\c");
    EXPECT_EQ(system_.files.content("C:\\c"), "a");
    win::delete_file(u"C:\\c");
    EXPECT_FALSE(win::file_exists(u"C:\\c"));
    EXPECT_EQ(failure_of([] { win::delete_file(u"C:\\c"); }),
              "The system cannot find the file specified.\nFailed to delete file [C:\\c].\n--tr:Error code: 0x00000002");
}

TEST_F(Paths, LongPathsBearAPrefix) {
    EXPECT_EQ(win::to_long_path(u"\\\\server\\share"), u"\\\\?\\UNC\\server\\share");
    EXPECT_EQ(win::to_long_path(u"C:\\a"), u"\\\\?\\C:\\a");
    EXPECT_EQ(win::strip_long_prefix(u"\\\\?\\UNC\\server\\share"), u"\\\\server\\share");
    EXPECT_EQ(win::strip_long_prefix(u"//?/UNC/server/share"), u"\\\\server/share");
    EXPECT_EQ(win::strip_long_prefix(u"\\\\?\\C:\\a"), u"C:\\a");
    EXPECT_EQ(win::strip_long_prefix(u"//?/C:/a"), u"C:/a");
    EXPECT_EQ(win::strip_long_prefix(u"C:\\a"), u"C:\\a");
    EXPECT_EQ(win::strip_long_prefix(u"\\\\server\\share"), u"\\\\server\\share");
    using win::long_path_kind_t;
    EXPECT_EQ(win::is_long_path(u"\\\\?\\UNC\\server"), long_path_kind_t::network);
    EXPECT_EQ(win::is_long_path(u"\\\\?\\C:\\a"), long_path_kind_t::local);
    EXPECT_EQ(win::is_long_path(u"\\\\server\\share"), long_path_kind_t::network);
    EXPECT_EQ(win::is_long_path(u"C:\\a"), long_path_kind_t::none);
}

/// Lets through what lies in one folder.
class one_folder final : public security::IFilesAccessPermissions {
public:
    void check(const text::wide_string& path) override {
        if (!path.starts_with(u"C:\\mine")) {
            throw exc::runtime_exc_t("Not here: [%1].", text::wide_to_utf8(path));
        }
    }
};

TEST_F(Paths, PermissionsAreAskedBeforeAnyPathIsTouched) {
    system_.files.put("C:\\other\\a", "a");
    system_.files.put("C:\\mine\\a", "a");
    common_lib_ctx().set_files_access_permissions(boost::make_shared<one_folder>());
    const std::string refusal = "Not here: [C:\\other\\a].";
    EXPECT_EQ(failure_of([] { static_cast<void>(win::file_exists(u"C:\\other\\a")); }), refusal);
    EXPECT_EQ(failure_of([] { static_cast<void>(win::folder_exists(u"C:\\other\\a")); }), refusal);
    EXPECT_EQ(failure_of([] { win::create_folder(u"C:\\other\\a"); }), refusal);
    EXPECT_EQ(failure_of([] { win::delete_file(u"C:\\other\\a"); }), refusal);
    EXPECT_EQ(failure_of([] { win::move_file(u"C:\\mine\\a", u"C:\\other\\a"); }), refusal);
    EXPECT_EQ(failure_of([] { win::move_file(u"C:\\other\\a", u"C:\\mine\\b"); }), refusal);
    EXPECT_EQ(failure_of([] { static_cast<void>(win::win_file_t::open(u"C:\\other\\a", platform::file_open_mode::open_always)); }),
              refusal);
    EXPECT_TRUE(win::file_exists(u"C:\\mine\\a"));
    common_lib_ctx().set_files_access_permissions({});
    EXPECT_TRUE(win::file_exists(u"C:\\other\\a"));
}

}  // namespace
