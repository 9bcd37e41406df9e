#include "foundation/crash/dump_files.h"

#include <algorithm>

#include "foundation/crash/crash_fixture.h"
#include "foundation/exc/exceptions.h"
#include "support/failure_text.h"

namespace {

using platform::testing::memory_files;

class DumpFiles : public test_support::CrashFixture {
protected:
    static std::string dump(std::uint32_t number) { return "C:\\L\\TAPE_crash_" + std::to_string(number) + ".log"; }

    /// The oldest first.
    void put_dumps(std::uint32_t count) {
        for (std::uint32_t number = 0; number < count; ++number) {
            system_.files.put(dump(number), "x");
        }
    }

    void fail_deletes_of(const std::vector<std::string>& paths) {
        system_.files.set_failure([paths](memory_files::operation what, const std::string& path) {
            const bool chosen = std::find(paths.begin(), paths.end(), path) != paths.end();
            return what == memory_files::operation::remove && chosen ? platform::error::access_denied : 0U;
        });
    }

    static text::wide_string next() { return crash::next_dump_path(u"C:\\L", u"TAPE", u"log"); }
};

TEST_F(DumpFiles, TheFirstOneIsNumberZeroInAFolderThatIsMade) {
    EXPECT_EQ(crash::next_dump_path(u"C:\\New\\Deep", u"TAPE", u"log"), u"C:\\New\\Deep\\TAPE_crash_0.log");
    EXPECT_TRUE(system_.files.exists(u"C:\\New\\Deep"));
    EXPECT_TRUE(lines().empty());
}

TEST_F(DumpFiles, TheLowestFreeNumberIsNext) {
    system_.files.put(dump(0), "x");
    system_.files.put(dump(2), "x");
    EXPECT_EQ(next(), u"C:\\L\\TAPE_crash_1.log");
    system_.files.put(dump(1), "x");
    EXPECT_EQ(next(), u"C:\\L\\TAPE_crash_3.log");
}

TEST_F(DumpFiles, OtherNamesDontCount) {
    for (const char* const name : {"OTHER_crash_0.log", "TAPE_crash_0.mdmp", "TAPE_crash0.log", "TAPE.log"}) {
        system_.files.put(std::string("C:\\L\\") + name, "x");
    }
    EXPECT_EQ(next(), u"C:\\L\\TAPE_crash_0.log");
}

TEST_F(DumpFiles, NineteenStay) {
    put_dumps(19);
    EXPECT_EQ(next(), u"C:\\L\\TAPE_crash_19.log");
    EXPECT_EQ(system_.files.paths().size(), 19u);
    EXPECT_TRUE(lines().empty());
}

TEST_F(DumpFiles, OfTwentyTheOldestGoes) {
    put_dumps(20);
    system_.files.set_written(dump(7), 0);
    EXPECT_EQ(next(), u"C:\\L\\TAPE_crash_7.log");
    EXPECT_EQ(system_.files.paths().size(), 19u);
    EXPECT_EQ(lines(), (std::vector<std::string>{"Dump [C:\\L\\TAPE_crash_7.log] deleted."}));
}

TEST_F(DumpFiles, OfMoreAllButNineteenGo) {
    put_dumps(23);
    EXPECT_EQ(next(), u"C:\\L\\TAPE_crash_0.log");
    EXPECT_EQ(lines(),
              (std::vector<std::string>{"Dump [C:\\L\\TAPE_crash_0.log] deleted.", "Dump [C:\\L\\TAPE_crash_1.log] deleted.",
                                        "Dump [C:\\L\\TAPE_crash_2.log] deleted.", "Dump [C:\\L\\TAPE_crash_3.log] deleted."}));
}

TEST_F(DumpFiles, DumpsOfOneMomentCountEach) {
    put_dumps(20);
    for (std::uint32_t number = 0; number < 20; ++number) {
        system_.files.set_written(dump(number), 5);
    }
    static_cast<void>(next());
    EXPECT_EQ(system_.files.paths().size(), 19u);
}

TEST_F(DumpFiles, OneThatCannotGoLeavesItsTurnToTheNext) {
    put_dumps(20);
    fail_deletes_of({dump(0), dump(1)});
    EXPECT_EQ(next(), u"C:\\L\\TAPE_crash_2.log");
    EXPECT_EQ(lines(),
              (std::vector<std::string>{
                  "ERR |Old dump cannot be removed. Dump path: [C:\\L\\TAPE_crash_0.log].", ">>  |Access is denied.",
                  ">>  |--tr:Error code: 0x00000005", "ERR |Old dump cannot be removed. Dump path: [C:\\L\\TAPE_crash_1.log].",
                  ">>  |Access is denied.", ">>  |--tr:Error code: 0x00000005", "Dump [C:\\L\\TAPE_crash_2.log] deleted."}));
}

TEST_F(DumpFiles, WhenNoneCanGoThereIsNoNewOne) {
    put_dumps(21);
    std::vector<std::string> all;
    for (std::uint32_t number = 1; number < 21; ++number) {
        all.push_back(dump(number));
    }
    fail_deletes_of(all);
    EXPECT_EQ(test_support::failure_text<exc::runtime_exc_t>([] { static_cast<void>(next()); }),
              "Cannot cleanup out of date dumps. There are [20] dumps stored. Maximum allowed dumps number: [20].\n"
              "--tr:Cannot define the name of the next crash dump. Dumps folder: [C:\\L].");
    EXPECT_FALSE(system_.files.exists(u"C:\\L\\TAPE_crash_0.log")) << "what could go is gone";
}

TEST_F(DumpFiles, AFolderThatCannotBeListed) {
    system_.files.add_folder("C:\\L");
    system_.files.set_failure([](memory_files::operation what, const std::string& /*path*/) {
        return what == memory_files::operation::list ? platform::error::access_denied : 0U;
    });
    EXPECT_EQ(test_support::failure_text<exc::win_sys_exc_t>([] { static_cast<void>(next()); }),
              "Access is denied.\n--tr:Error code: 0x00000005\n"
              "--tr:Unable to enumerate dumps stored in a folder. Folder: [C:\\L]. Dump extension: [log].\n"
              "--tr:Cannot define the name of the next crash dump. Dumps folder: [C:\\L].");
}

TEST_F(DumpFiles, AFolderThatCannotBeMade) {
    system_.files.set_failure([](memory_files::operation what, const std::string& /*path*/) {
        return what == memory_files::operation::create_folder ? platform::error::access_denied : 0U;
    });
    EXPECT_EQ(test_support::failure_text<exc::win_sys_exc_t>([] { static_cast<void>(next()); }),
              "Access is denied.\nCreateDirectory(C:\\L) function call failed.\n--tr:Error code: 0x00000005\n"
              "--tr:Cannot define the name of the next crash dump. Dumps folder: [C:\\L].");
}

TEST_F(DumpFiles, ANameInAnotherCaseIsTaken) {
    EXPECT_EQ(crash::free_dump_name({u"tape_CRASH_0.LOG"}, u"TAPE", u"log"), u"TAPE_crash_1.log");
}

TEST_F(DumpFiles, NumbersEndAtTenThousand) {
    std::vector<text::wide_string> taken;
    for (std::uint32_t number = 0; number < 9999; ++number) {
        taken.push_back(u"TAPE_crash_" + text::to_wstring(number) + u".log");
    }
    std::reverse(taken.begin(), taken.end());
    EXPECT_EQ(crash::free_dump_name(taken, u"TAPE", u"log"), u"TAPE_crash_9999.log");
    taken.push_back(u"TAPE_crash_9999.log");
    EXPECT_EQ(
        test_support::failure_text<exc::runtime_exc_t>([&] { static_cast<void>(crash::free_dump_name(taken, u"TAPE", u"log")); }),
        "All dump identifiers are reserved.");
}

}  // namespace
