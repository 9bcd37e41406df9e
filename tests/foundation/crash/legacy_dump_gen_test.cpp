#include "foundation/crash/legacy_dump_gen.h"

#include "foundation/crash/crash_fixture.h"
#include "foundation/exc/exceptions.h"
#include "platform/process.h"
#include "support/failure_text.h"

namespace {

using crash::dump_mode;

class LegacyDump : public test_support::CrashFixture {
protected:
    LegacyDump() {
        system_.crash.loaded.modules = {{0x400000, 0x455000, system_.process.path, true, 0},
                                        {0x10000000, 0x10010000, u"C:\\Windows\\a.dll", false, 2}};
        platform::code_address where;
        where.module = "TarnoTapeSvc.exe";
        where.symbol_type = 3;
        where.symbol = {"move", 4, {}};
        system_.crash.code = {{0x401234, where}};
        system_.crash.frames = {{0x12FF00, 0x402000, {1, 2, 3, 4}, 0x401234}, {0x12FF80, 0, {}, 0x402000}, {0, 0, {}, 0x403000}};
    }

    void generate() { generator_.generate(dump_mode::by_settings, u"C:\\L", u"TAPE", &record_); }

    crash::win32::legacy_dump_gen_t generator_;
};

TEST_F(LegacyDump, HoldsEverythingInOrder) {
    record_.registers = platform::cpu_registers{.ax = 1, .ip = 0x401234, .flags = 2};
    generate();
    const std::string thread = text::format_hex(system_.process.current_thread_id());
    EXPECT_EQ(
        system_.files.content("C:\\L\\TAPE_crash_0.log"),
        "\n/////////////////////////////////////////////////////////////////////////////////////\n"
        "// Exception: 0xc0000005, Address: 0x00401234, Date/Time Mon Nov 16 04:31:54 2026\n"
        "// Process TarnoTapeSvc.exe (C:\\Program Files\\Tarno\\TarnoTapeSvc.exe), Process ID: 0x00001092, Thread ID: " +
            thread +
            "\n"
            "\nLoaded modules:\n\n"
            "0x00400000 - 0x00455000 TarnoTapeSvc.exe (C:\\Program Files\\Tarno\\TarnoTapeSvc.exe) 9.5.0.1536, symbols loaded\n"
            "0x10000000 - 0x10010000 a.dll (C:\\Windows\\a.dll) 0.0.0.0, "
            "no matching symbolic information found (error code: 0x00000002)\n"
            "\neax=00000001 ebx=00000000 ecx=00000000 edx=00000000 esi=00000000 edi=00000000\n"
            "eip=00401234 esp=00000000 ebp=00000000 iopl=0         nv up di pl nz na pe nc\n"
            "cs=0000  ss=0000  ds=0000  es=0000  fs=0000  gs=0000             efl=00000002"
            "\n\nStack frames:\n"
            "\nFrame address: 0x0012ff00\nReturn address: 0x00402000\nParam1: 0x00000001\nParam2: 0x00000002\n"
            "Param3: 0x00000003\nParam4: 0x00000004\n\n0x00401234\tTarnoTapeSvc.exe!move +4 bytes, symbol type: PDB\n"
            "\t\tno line information was available\n"
            "\nFrame address: 0x0012ff80\nReturn address: 0x00000000\nParam1: 0x00000000\nParam2: 0x00000000\n"
            "Param3: 0x00000000\nParam4: 0x00000000\n\n0x00402000\tno symbol information was available\n"
            "\t\tno line information was available\n")
        << "the frame that returns to nobody is the last";
    EXPECT_EQ(lines(), (std::vector<std::string>{"Writing legacy dump. Dump path: C:\\L\\TAPE_crash_0.log."}));
}

TEST_F(LegacyDump, LeavesRegistersOutWhereThereAreNone) {
    generate();
    const std::string text = system_.files.content("C:\\L\\TAPE_crash_0.log").value();
    EXPECT_EQ(text.find("eax="), std::string::npos);
    EXPECT_NE(text.find("0x00000002)\n\n\nStack frames:\n"), std::string::npos);
}

TEST_F(LegacyDump, StopsAfterAHundredFrames) {
    system_.crash.frames.assign(101, {1, 1, {}, 1});
    generate();
    const std::string text = system_.files.content("C:\\L\\TAPE_crash_0.log").value();
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find("Frame address", at)) != std::string::npos; ++at) {
        ++count;
    }
    EXPECT_EQ(count, 100u);
}

TEST_F(LegacyDump, IsNothingWithoutAnException) {
    generator_.generate(dump_mode::full, u"C:\\L", u"TAPE", nullptr);
    EXPECT_TRUE(system_.files.paths().empty());
    EXPECT_FALSE(system_.files.exists(u"C:\\L"));
    EXPECT_TRUE(lines().empty());
}

TEST_F(LegacyDump, KeepsOtherProcessesOffWhileItWrites) {
    bool held = false;
    system_.files.set_failure([&](platform::testing::memory_files::operation what, const std::string& /*path*/) {
        if (what == platform::testing::memory_files::operation::write) {
            held = system_.crash.guard_held;
        }
        return 0U;
    });
    generate();
    EXPECT_TRUE(held);
    EXPECT_FALSE(system_.crash.guard_held);
    EXPECT_EQ(system_.crash.guarded, (std::vector<std::u16string>{u"C:\\L\\TAPE_crash_0.log"}));
}

TEST_F(LegacyDump, ADiskThatIsFull) {
    system_.files.add_folder("C:\\L");
    system_.files.set_free_bytes(0);
    EXPECT_EQ(test_support::failure_text<exc::win_sys_exc_t>([this] { generate(); }),
              "There is not enough space on the disk.\nFailed to write data to the file [C:\\L\\TAPE_crash_0.log].\n"
              "--tr:Error code: 0x00000070\nCrash details cannot be stored in legacy format.");
}

TEST_F(LegacyDump, AFolderThatCannotBeMade) {
    system_.files.put("C:\\L", "a file");
    EXPECT_EQ(test_support::failure_text<exc::win_sys_exc_t>([this] { generate(); }),
              "Cannot create a file when that file already exists.\nCreateDirectory(C:\\L) function call failed.\n"
              "--tr:Error code: 0x000000b7\n--tr:Cannot define the name of the next crash dump. Dumps folder: [C:\\L].\n"
              "Crash details cannot be stored in legacy format.");
}

}  // namespace
