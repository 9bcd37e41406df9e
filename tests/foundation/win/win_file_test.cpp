#include "foundation/win/win_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "foundation/exc/exceptions.h"
#include "platform/testing/fakes.h"
#include "support/failure_text.h"
#include "support/write_retry_scope.h"

namespace {

using test_support::failure_of;
using ::testing::ElementsAre;
using operation = platform::testing::memory_files::operation;

constexpr const char* lock_text = "The process cannot access the file because another process has locked a portion of the file.";

class WinFile : public ::testing::Test {
protected:
    static win::win_file_t open(platform::file_open_mode mode = platform::file_open_mode::open_always) {
        return win::win_file_t::open(u"C:\\a.bin", mode);
    }

    /// The first `times` operations of the kind fail.
    void fail(operation what, std::uint32_t code, int times = 1000) {
        system_.files.set_failure([what, code, left = std::make_shared<int>(times)](operation asked, const std::string&) {
            return asked == what && (*left)-- > 0 ? code : 0U;
        });
    }

    platform::testing::test_system system_;

private:
    const write_retry_scope options_;
};

TEST_F(WinFile, WritesReadsAndSeeks) {
    win::win_file_t file = open();
    file.write("0123456789");
    EXPECT_EQ(file.position(), 10U);
    file.seek_to_begin(2);
    std::vector<std::uint8_t> data(3);
    EXPECT_EQ(file.read(data), 3U);
    EXPECT_THAT(data, ElementsAre('2', '3', '4'));
    file.seek(2, win::seek_method::current);
    EXPECT_EQ(file.position(), 7U);
    file.seek(-4, win::seek_method::current);
    EXPECT_EQ(file.position(), 3U);
    file.seek(-1, win::seek_method::end);
    EXPECT_EQ(file.read(data), 1U);
    EXPECT_EQ(data[0], '9');
    EXPECT_EQ(file.read(data), 0U);
    file.set_size(4);
    EXPECT_EQ(file.size(), 4U);
    EXPECT_EQ(file.position(), 4U);
    file.write("!");
    file.flush();
    EXPECT_EQ(system_.files.content("C:\\a.bin"), "0123!");
    EXPECT_EQ(file.path(), "C:\\a.bin");
}

TEST_F(WinFile, OthersMayReadButNotWriteMeanwhile) {
    const win::win_file_t file = open();
    std::unique_ptr<platform::file> second;
    EXPECT_EQ(system_.files.open_file(u"C:\\a.bin", platform::file_access::write,
                                      platform::file_share::read | platform::file_share::write,
                                      platform::file_open_mode::open_existing, second),
              32U);
    EXPECT_EQ(
        system_.files.open_file(u"C:\\a.bin", platform::file_access::read, platform::file_share::read | platform::file_share::write,
                                platform::file_open_mode::open_existing, second),
        0U);
}

TEST_F(WinFile, OpensAsTheDispositionSays) {
    EXPECT_EQ(failure_of([] { open(platform::file_open_mode::open_existing); }),
              "The system cannot find the file specified.\nFailed to create or open file [C:\\a.bin].\n"
              "--tr:Error code: 0x00000002");
    open(platform::file_open_mode::create_new).write("x");
    EXPECT_EQ(failure_of([] { open(platform::file_open_mode::create_new); }),
              "The file exists.\nFailed to create or open file [C:\\a.bin].\n--tr:Error code: 0x00000050");
    open(platform::file_open_mode::create_always);
    EXPECT_EQ(system_.files.content("C:\\a.bin"), "");
}

TEST_F(WinFile, LockViolationsAreTriedAgainAndThenThrown) {
    product_options().win_file_write_retry_count = 3;
    win::win_file_t file = open();
    fail(operation::write, 33);
    const std::string failure =
        std::string(lock_text) + "\nFailed to write data to the file [C:\\a.bin].\n--tr:Error code: 0x00000021";
    EXPECT_EQ(failure_of([&] { file.write("text"); }), failure);
    const std::string warning[] = {std::string("WARN|") + lock_text, ">>  |Failed to write data to the file [C:\\a.bin].",
                                   ">>  |--tr:Error code: 0x00000021", "WARN|Retry."};
    EXPECT_THAT(system_.log.lines(),
                ElementsAre(warning[0], warning[1], warning[2], warning[3], warning[0], warning[1], warning[2], warning[3]));
    EXPECT_THAT(system_.clock.sleeps(), ElementsAre(0, 100));
}

TEST_F(WinFile, PausesGrowUpToTheLimit) {
    product_options().win_file_write_retry_max_timeout_msec = 350;
    win::win_file_t file = open();
    fail(operation::write, 1784, 6);
    file.write("text");
    EXPECT_EQ(system_.files.content("C:\\a.bin"), "text");
    EXPECT_THAT(system_.clock.sleeps(), ElementsAre(0, 100, 200, 300, 350, 350));
}

TEST_F(WinFile, OptionsBoundTheRetriesAtFiftyByDefault) {
    win::win_file_t file = open();
    fail(operation::write, 33);
    EXPECT_THROW(file.write("text"), exc::win_sys_exc_t);
    EXPECT_EQ(system_.clock.sleeps().size(), 49U);
    EXPECT_EQ(system_.clock.slept_milliseconds(), (0 + 900) * 10 / 2 + 39 * 1000);
}

TEST_F(WinFile, OtherFailuresAreThrownAtOnce) {
    win::win_file_t file = open();
    system_.files.set_free_bytes(2);
    EXPECT_EQ(failure_of([&] { file.write("text"); }),
              "There is not enough space on the disk.\nFailed to write data to the file [C:\\a.bin].\n--tr:Error code: 0x00000070");
    EXPECT_EQ(system_.files.content("C:\\a.bin"), "te");
    EXPECT_EQ(file.position(), 2U);
    EXPECT_THAT(system_.clock.sleeps(), ElementsAre());
    EXPECT_THAT(system_.log.lines(), ElementsAre());
}

TEST_F(WinFile, NoTriesAtAllWriteNothing) {
    product_options().win_file_write_retry_count = 0;
    win::win_file_t file = open();
    EXPECT_EQ(failure_of([&] { file.write("text"); }),
              "Failed to write 4 bytes to the file 'C:\\a.bin': 0 bytes were written instead");
    EXPECT_EQ(system_.files.content("C:\\a.bin"), "");
    EXPECT_NO_THROW(file.write(""));
}

TEST_F(WinFile, ShortWriteIsAFailure) {
    win::win_file_t file = open();
    system_.files.set_most_moved(3);
    EXPECT_EQ(failure_of([&] { file.write("text"); }),
              "Failed to write 4 bytes to the file 'C:\\a.bin': 3 bytes were written instead");
    EXPECT_EQ(file.position(), 3U);
    EXPECT_EQ(system_.files.content("C:\\a.bin"), "tex");
}

TEST_F(WinFile, FailuresNameTheFile) {
    win::win_file_t file = open();
    std::vector<std::uint8_t> data(1);
    const std::string code = "\n--tr:Error code: 0x00000005";
    const auto denied = [&](operation what, const auto& call) {
        fail(what, 5);
        const std::string text = failure_of(call);
        fail(what, 0);
        return text;
    };
    EXPECT_EQ(denied(operation::read, [&] { static_cast<void>(file.read(data)); }),
              "Access is denied.\nFailed to read data from the file [C:\\a.bin]." + code);
    EXPECT_EQ(denied(operation::size, [&] { static_cast<void>(file.size()); }),
              "Access is denied.\nWINAPI: Cannot get file size. File: [C:\\a.bin]." + code);
    EXPECT_EQ(denied(operation::flush, [&] { file.flush(); }),
              "Access is denied.\nFailed to flush file buffers. File: [C:\\a.bin]." + code);
    EXPECT_EQ(
        denied(operation::seek, [&] { file.set_size(7); }),
        "Access is denied.\nUnable to reset file size: move operation has failed. Specified file size: [7]. File: [C:\\a.bin]." +
            code);
    EXPECT_EQ(denied(operation::truncate, [&] { file.set_size(7); }),
              "Access is denied.\nUnable to reset file size: trunk operation has failed. File: [C:\\a.bin]." + code);
    const std::string seek = "Access is denied.\nSeek operation has failed. File: [C:\\a.bin]. Distance to move: ";
    EXPECT_EQ(denied(operation::seek, [&] { file.seek_to_begin(3); }), seek + "[3]. Move method: [FILE_BEGIN]." + code);
    EXPECT_EQ(denied(operation::seek, [&] { file.seek(4, win::seek_method::current); }),
              seek + "[4]. Move method: [FILE_CURRENT]." + code);
    EXPECT_EQ(denied(operation::size, [&] { file.seek_to_end(); }), seek + "[0]. Move method: [FILE_END]." + code);
}

TEST_F(WinFile, PositionNeverLiesBeforeTheStart) {
    win::win_file_t file = open();
    file.write("ab");
    EXPECT_EQ(failure_of([&] { file.seek(-3, win::seek_method::current); }),
              "An attempt was made to move the file pointer before the beginning of the file.\n"
              "Seek operation has failed. File: [C:\\a.bin]. Distance to move: [-3]. Move method: [FILE_CURRENT].\n"
              "--tr:Error code: 0x00000083");
    EXPECT_THROW(file.seek_to_begin(-1), exc::win_sys_exc_t);
    EXPECT_THROW(file.seek(std::numeric_limits<std::int64_t>::max(), win::seek_method::current), exc::win_sys_exc_t);
    EXPECT_THROW(file.seek_to_end(std::numeric_limits<std::int64_t>::min()), exc::win_sys_exc_t);
    EXPECT_EQ(file.position(), 2U);
}

TEST_F(WinFile, UnknownSeekMethodIsRefused) {
    win::win_file_t file = open();
    file.write("ab");
    EXPECT_EQ(failure_of([&] { file.seek(1, static_cast<win::seek_method>(3)); }),
              "The parameter is incorrect.\n"
              "Seek operation has failed. File: [C:\\a.bin]. Distance to move: [1]. Move method: [3].\n"
              "--tr:Error code: 0x00000057");
    EXPECT_EQ(file.position(), 2U);
}

TEST(LazyPath, ConvertsOnceAskedAndKnowsWhenThereIsNone) {
    const platform::testing::test_system system;
    const win::lazy_path_t from_wide(text::wide_string(u"C:\\\u00e9"));
    EXPECT_EQ(from_wide.narrow(), "C:\\\xC3\xA9");
    EXPECT_EQ(from_wide.wide(), u"C:\\\u00e9");
    const win::lazy_path_t from_narrow(std::string("C:\\\xC3\xA9"));
    EXPECT_EQ(from_narrow.wide(), u"C:\\\u00e9");
    const win::lazy_path_t none;
    EXPECT_EQ(failure_of([&] { static_cast<void>(none.narrow()); }), "Parameter is not available.");
    EXPECT_EQ(failure_of([&] { static_cast<void>(none.wide()); }), "Parameter is not available.");
}

}  // namespace
