#include <gtest/gtest.h>

#include <string>

#include "foundation/exc/exceptions.h"
#include "foundation/win/win_file.h"
#include "platform/linux/files.h"
#include "platform/testing/fakes.h"
#include "support/failure_text.h"
#include "support/temporary_folder.h"

namespace {

constexpr std::int64_t five_gibibytes = std::int64_t{5} << 30;

/// Files of this machine, where a gap costs no room, in either mode.
class LargeWinFile : public ::testing::TestWithParam<bool> {
protected:
    LargeWinFile() : scope_(with_files()) {}

    win::win_file_t open() const {
        const text::wide_string path = text::utf8_to_wide(place_ / "large.bin");
        return GetParam() ? win::win_file_t::open_async(path, platform::file_open_mode::open_always)
                          : win::win_file_t::open(path, platform::file_open_mode::open_always);
    }
    static std::string read(win::win_file_t& file, std::size_t size) {
        std::string text(size, '?');
        text.resize(file.read(std::span(reinterpret_cast<std::uint8_t*>(text.data()), size)));
        return text;
    }

private:
    platform::system_set with_files() {
        platform::system_set set = system_.fakes();
        set.files = &files_;
        return set;
    }

    platform::testing::test_system system_;
    platform::linux_os::linux_files files_;
    test_support::temporary_folder place_;
    platform::scoped_system scope_;
};

INSTANTIATE_TEST_SUITE_P(Modes, LargeWinFile, ::testing::Bool(),
                         [](const auto& tested) { return tested.param ? "Async" : "Synchronous"; });

TEST_P(LargeWinFile, IsReadAndWrittenBehindFourGibibytes) {
    win::win_file_t file = open();
    file.write("start");
    file.seek_to_begin(five_gibibytes - 2);
    file.write("across");
    EXPECT_EQ(file.position(), static_cast<std::uint64_t>(five_gibibytes) + 4);
    EXPECT_EQ(file.size(), static_cast<std::uint64_t>(five_gibibytes) + 4);
    file.seek_to_begin();
    EXPECT_EQ(read(file, 7), std::string("start\0\0", 7));
    file.seek(five_gibibytes - 7, win::seek_method::current);
    EXPECT_EQ(read(file, 10), "ross");
    file.seek(-5, win::seek_method::end);
    EXPECT_EQ(read(file, 3), "cro");
    file.seek(1 - five_gibibytes, win::seek_method::current);
    EXPECT_EQ(file.position(), 3U);
    EXPECT_EQ(read(file, 2), "rt");
    file.set_size(static_cast<std::uint64_t>(five_gibibytes) - 1);
    file.seek_to_end(-1);
    EXPECT_EQ(read(file, 10), "a");
}

TEST_P(LargeWinFile, RefusesASizeThatNoFileHas) {
    win::win_file_t file = open();
    EXPECT_TRUE(test_support::failure_of([&] { file.set_size(std::uint64_t{1} << 63); })
                    .starts_with("The parameter is incorrect.\nUnable to reset file size: move operation has failed. "
                                 "Specified file size: [9223372036854775808]. File: ["));
    EXPECT_EQ(file.position(), 0U);
    EXPECT_EQ(file.size(), 0U);
}

}  // namespace
