#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <map>

#include "foundation/text/unicode.h"
#include "platform/linux/clock.h"
#include "platform/linux/files.h"
#include "support/temporary_folder.h"
#include "virtual_library/library_fixture.h"

namespace platform::tape_library {

namespace {

/// Moves cartridges about for ever; tells a byte over the pipe for each move that was reported as done.
[[noreturn]] void move_until_killed(const std::u16string& folder, int done) {
    const std::shared_ptr<virtual_library> library = virtual_library::open(folder);
    const std::shared_ptr<scsi_transport> changer = library->connect(0);
    for (std::uint32_t turn = 0;; ++turn) {
        const auto source = static_cast<std::uint16_t>(0x1000 + turn * 5 % 24);
        const auto destination = static_cast<std::uint16_t>(turn % 3 == 0 ? 0x100 + turn % 2 : 0x1000 + turn * 11 % 24);
        (void)send(*changer, move_cdb(source, destination));
        (void)send(*changer, move_cdb(destination, source));
        const char mark = '.';
        if (::write(done, &mark, 1) != 1) {
            ::_exit(1);
        }
    }
}

}  // namespace

/// Kills a process that moves cartridges, again and again at other moments, and looks for each cartridge after each time.
TEST(library_crash_test, finds_every_cartridge_exactly_once_after_a_kill) {
    testing::test_system fakes;
    linux_os::linux_files files;
    linux_os::linux_clock clock;
    system_set set = fakes.fakes();
    set.files = &files;
    set.clock = &clock;
    const scoped_system scope(set);
    const test_support::temporary_folder place;
    const std::u16string folder = text::unicode::decode_utf8_lenient(place / "library");
    create_library(folder);
    for (int round = 0; round < 12; ++round) {
        int ends[2] = {};
        ASSERT_EQ(::pipe(ends), 0);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::close(ends[0]);
            move_until_killed(folder, ends[1]);
        }
        ::close(ends[1]);
        // The moment of the kill is set by the child's progress, a different one each time.
        char mark = 0;
        for (int step = 0; step <= 3 * round; ++step) {
            ASSERT_EQ(::read(ends[0], &mark, 1), 1);
        }
        ASSERT_EQ(::kill(child, SIGKILL), 0);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status));
        ::close(ends[0]);

        const std::shared_ptr<virtual_library> library = virtual_library::open(folder);
        std::map<std::string, int> seen;
        for (const cartridge_place& each : library->cartridges()) {
            ++seen[each.barcode];
        }
        ASSERT_EQ(seen.size(), 20U);
        for (const auto& [barcode, times] : seen) {
            EXPECT_EQ(times, 1) << barcode;
        }
    }
}

}  // namespace platform::tape_library
