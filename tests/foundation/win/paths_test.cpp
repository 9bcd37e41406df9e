#include "foundation/win/paths.h"

#include <gtest/gtest.h>

#include "foundation/exc/exceptions.h"
#include "platform/testing/fakes.h"

namespace {

class Paths : public ::testing::Test {
protected:
    platform::testing::test_system system_;
};

template <typename Call>
std::string failure_of(Call call) {
    try {
        call();
    } catch (const exc::exc_base_t& e) {
        return e.what();
    }
    return "no failure";
}

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
    system_.files.set_failure([](platform::testing::memory_files::operation what, const std::string&) {
        return what == platform::testing::memory_files::operation::create_folder ? 183U : 0U;
    });
    EXPECT_NO_THROW(win::create_folder(u"C:\\n"));
}

}  // namespace
