#include "platform/linux/files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

#include "foundation/text/unicode.h"
#include "platform/errors.h"
#include "platform/linux/descriptor.h"
#include "support/temporary_folder.h"

namespace {

using namespace platform;

class LinuxFiles : public ::testing::Test {
protected:
    std::uint32_t open(std::string_view name, std::uint32_t access, std::uint32_t share, std::unique_ptr<file>& opened) {
        return files_.open_file(text::unicode::decode_utf8_lenient(folder_ / name), access, share, file_open_mode::open_always,
                                opened);
    }

    test_support::temporary_folder folder_;
    linux_os::linux_files files_;
};

TEST_F(LinuxFiles, SharesWithOtherProcessesUntilTheyDie) {
    folder_.put("log", "content");
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        std::unique_ptr<file> held;
        const bool opened = open("log", file_access::write, file_share::read, held) == 0;
        if (write(ends[1], opened ? "+" : "-", 1) == 1) {
            pause();
        }
        _exit(1);
    }
    char mark = 0;
    ASSERT_EQ(read(ends[0], &mark, 1), 1);
    EXPECT_EQ(mark, '+');
    std::unique_ptr<file> opened;
    EXPECT_EQ(open("log", file_access::write, file_share::read, opened), error::sharing_violation);
    EXPECT_EQ(open("log", file_access::read, file_share::read, opened), error::sharing_violation);
    EXPECT_EQ(open("log", file_access::read, file_share::read | file_share::write, opened), 0U);
    opened.reset();
    kill(child, SIGKILL);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_EQ(open("log", file_access::write, file_share::none, opened), 0U);
    close(ends[0]);
    close(ends[1]);
}

TEST_F(LinuxFiles, IsNotHeldUpByWhoLocksAFileForHimself) {
    folder_.put("log", "content");
    const linux_os::descriptor stranger(::open((folder_ / "log").c_str(), O_RDONLY));
    ASSERT_EQ(flock(stranger.get(), LOCK_EX), 0);
    std::unique_ptr<file> opened;
    EXPECT_EQ(open("log", file_access::write, file_share::read, opened), 0U);
    std::unique_ptr<file> second;
    EXPECT_EQ(open("log", file_access::write, file_share::read, second), error::sharing_violation);
}

TEST_F(LinuxFiles, LetsNobodyButOwnerAndGroupReadWhatItMakes) {
    const mode_t former = umask(0);
    std::unique_ptr<file> opened;
    EXPECT_EQ(open("log", file_access::write, file_share::read, opened), 0U);
    EXPECT_EQ(files_.create_folder(text::unicode::decode_utf8_lenient(folder_ / "folder")), 0U);
    umask(former);
    struct stat status {};
    ASSERT_EQ(stat((folder_ / "log").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0640U);
    ASSERT_EQ(stat((folder_ / "folder").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0750U);
}

TEST_F(LinuxFiles, TellsAFullDevice) {
    std::unique_ptr<file> opened;
    ASSERT_EQ(files_.open_file(u"/dev/full", file_access::write, file_share::read, file_open_mode::open_existing, opened), 0U);
    std::size_t count = 99;
    const std::array<std::uint8_t, 3> data{};
    EXPECT_EQ(opened->write(data, count), error::disk_full);
    EXPECT_EQ(count, 0U);
}

TEST_F(LinuxFiles, TellsWhenAnOpenFileHasLostItsName) {
    std::unique_ptr<file> opened;
    ASSERT_EQ(open("log", file_access::write, file_share::read, opened), 0U);
    const std::u16string path = text::unicode::decode_utf8_lenient(folder_ / "log");
    std::filesystem::rename(folder_ / "log", folder_ / "log.1");
    EXPECT_FALSE(opened->is_named(path));
    folder_.put("log", "another one");
    EXPECT_FALSE(opened->is_named(path));
    std::filesystem::rename(folder_ / "log.1", folder_ / "log");
    EXPECT_TRUE(opened->is_named(path));
    std::filesystem::create_symlink(folder_ / "log", folder_ / "link");
    EXPECT_TRUE(opened->is_named(text::unicode::decode_utf8_lenient(folder_ / "link")));
    EXPECT_FALSE(opened->is_named(text::unicode::decode_utf8_lenient(folder_ / "log/below")));
    EXPECT_TRUE(opened->is_named(text::unicode::decode_utf8_lenient(folder_ / std::string(300, 'x')))) << "can't be told";
}

TEST_F(LinuxFiles, AppendsToWhatSomebodyElseHasLeft) {
    std::unique_ptr<file> opened;
    ASSERT_EQ(open("log", file_access::write | file_access::append, file_share::read, opened), 0U);
    const std::array<std::uint8_t, 3> data{'a', 'b', 'c'};
    std::size_t count = 0;
    EXPECT_EQ(opened->write(data, count), 0U);
    std::filesystem::resize_file(folder_ / "log", 1);
    EXPECT_EQ(opened->write(data, count), 0U);
    EXPECT_EQ(folder_.content("log"), "aabc");
}

TEST_F(LinuxFiles, RefusesNamesWithATerminator) {
    std::unique_ptr<file> opened;
    EXPECT_EQ(
        files_.open_file(std::u16string(u"a\0b", 3), file_access::read, file_share::read, file_open_mode::open_always, opened),
        error::invalid_name);
    EXPECT_EQ(files_.create_folder(std::u16string(u"a\0b", 3)), error::invalid_name);
}

TEST_F(LinuxFiles, OpensADanglingLinksTarget) {
    std::filesystem::create_symlink(folder_ / "target", folder_ / "link");
    std::unique_ptr<file> opened;
    EXPECT_EQ(open("link", file_access::write, file_share::read, opened), 0U);
    EXPECT_TRUE(std::filesystem::exists(folder_ / "target"));
}

}  // namespace
