#include "foundation/crash/text_dump.h"

#include "foundation/crash/crash_fixture.h"

namespace {

namespace text_dump = crash::text_dump;
using platform::code_address;

class TextDump : public test_support::CrashFixture {};

TEST_F(TextDump, Header) {
    EXPECT_EQ(text_dump::header({.code = 0xC0000005,
                                 .address = 0x401234,
                                 .time = {true, 2026, 11, 6, 4, 31, 5},
                                 .module_name = "TarnoTapeSvc.exe",
                                 .module_path = "C:\\P\\TarnoTapeSvc.exe",
                                 .process_id = 0x1092,
                                 .thread_id = 0xABC}),
              "\n/////////////////////////////////////////////////////////////////////////////////////\n"
              "// Exception: 0xc0000005, Address: 0x00401234, Date/Time Fri Nov  6 04:31:05 2026\n"
              "// Process TarnoTapeSvc.exe (C:\\P\\TarnoTapeSvc.exe), Process ID: 0x00001092, Thread ID: 0x00000abc\n");
}

TEST_F(TextDump, HeaderOfOtherDays) {
    const auto shown = [](platform::local_time time) {
        const std::string text = text_dump::header({.time = time});
        const std::size_t at = text.find("Date/Time ") + 10;
        return text.substr(at, text.find("// Process") - at);
    };
    EXPECT_EQ(shown({true, 2000, 2, 29, 23, 59, 60}), "Tue Feb 29 23:59:60 2000\n");
    EXPECT_EQ(shown({true, 2026, 1, 1, 0, 0, 0}), "Thu Jan  1 00:00:00 2026\n");
    EXPECT_EQ(shown({true, 2024, 12, 29, 12, 0, 9}), "Sun Dec 29 12:00:09 2024\n");
    EXPECT_EQ(shown({true, 2024, 3, 2, 12, 0, 9}), "Sat Mar  2 12:00:09 2024\n");
    EXPECT_EQ(shown({}), "unknown\n");
}

TEST_F(TextDump, AddressesBeyondThirtyTwoBitsAreWhole) {
    EXPECT_NE(text_dump::header({.address = 0x7F58DE0A412B}).find("Address: 0x7f58de0a412b, "), std::string::npos);
}

TEST_F(TextDump, Modules) {
    EXPECT_EQ(text_dump::modules_title(), "\nLoaded modules:\n\n");
    const platform::module_version version{platform::version_failure::none, (9U << 16) | 5U, 1536U};
    EXPECT_EQ(text_dump::module_line({0x400000, 0x455000, u"C:\\P\\a.dll", true, 0}, version, true),
              "0x00400000 - 0x00455000 a.dll (C:\\P\\a.dll) 9.5.0.1536, symbols loaded\n");
    EXPECT_EQ(text_dump::module_line({0x400000, 0x455000, u"/lib/a.so", true, 0}, version, false),
              "0x00400000 - 0x00455000 a.so (/lib/a.so) 9.5.0.1536, symbols loaded\n");
    EXPECT_EQ(text_dump::module_line({1, 2, u"a", false, 126}, {platform::version_failure::size_unknown, 7, 7}, true),
              "0x00000001 - 0x00000002 a (a) 0.0.0.0, no matching symbolic information found (error code: 0x0000007e)\n");
    EXPECT_EQ(text_dump::module_line({1, 2, u"a", false, 126}, version, false),
              "0x00000001 - 0x00000002 a (a) 9.5.0.1536, no symbols are available\n");
}

TEST_F(TextDump, Registers) {
    platform::cpu_registers values{.ax = 1, .bx = 2, .cx = 3, .dx = 4, .si = 5, .di = 6, .ip = 0x401234, .sp = 8, .bp = 9};
    values.flags = 0x10246;
    values.cs = 0x23;
    values.ss = 0x2B;
    values.ds = 0x2B;
    values.es = 0x2C;
    values.fs = 0x53;
    values.gs = 0x54;
    EXPECT_EQ(text_dump::registers(values),
              "\neax=00000001 ebx=00000002 ecx=00000003 edx=00000004 esi=00000005 edi=00000006\n"
              "eip=00401234 esp=00000008 ebp=00000009 iopl=0         nv up ei pl zr na po nc\n"
              "cs=0023  ss=002b  ds=002b  es=002c  fs=0053  gs=0054             efl=00010246");
}

TEST_F(TextDump, EveryFlagHasItsName) {
    platform::cpu_registers values;
    const auto flags = [&](std::uint32_t word) {
        values.flags = word;
        const std::string text = text_dump::registers(values);
        const std::size_t at = text.find("iopl=");
        return text.substr(at, text.find("\ncs=") - at);
    };
    EXPECT_EQ(flags(0xFFFFFFFF), "iopl=3 vip vif ov dn ei ng zr ac po cy");
    EXPECT_EQ(flags(0), "iopl=0         nv up di pl nz na pe nc");
    EXPECT_EQ(flags(1U << 20), "iopl=0 vip     nv up di pl nz na pe nc");
    EXPECT_EQ(flags(1U << 19), "iopl=0     vif nv up di pl nz na pe nc");
    EXPECT_EQ(flags(1U << 11), "iopl=0         ov up di pl nz na pe nc");
    EXPECT_EQ(flags(1U << 10), "iopl=0         nv dn di pl nz na pe nc");
    EXPECT_EQ(flags(1U << 9), "iopl=0         nv up ei pl nz na pe nc");
    EXPECT_EQ(flags(1U << 7), "iopl=0         nv up di ng nz na pe nc");
    EXPECT_EQ(flags(1U << 6), "iopl=0         nv up di pl zr na pe nc");
    EXPECT_EQ(flags(1U << 4), "iopl=0         nv up di pl nz ac pe nc");
    EXPECT_EQ(flags(1U << 2), "iopl=0         nv up di pl nz na po nc");
    EXPECT_EQ(flags(1U << 0), "iopl=0         nv up di pl nz na pe cy");
    EXPECT_EQ(flags(2U << 12), "iopl=2         nv up di pl nz na pe nc");
}

TEST_F(TextDump, Frames) {
    EXPECT_EQ(text_dump::stack_title(), "\n\nStack frames:\n");
    code_address where;
    where.module = "a.exe";
    where.symbol_type = 3;
    where.symbol = {"move", 18, {}};
    where.line = {"move.cpp", 42, 3};
    EXPECT_EQ(text_dump::frame({0x12FF00, 0x402000, {1, 2, 0xABCDEF, 4}, 0x401234}, where),
              "\nFrame address: 0x0012ff00\nReturn address: 0x00402000\nParam1: 0x00000001\nParam2: 0x00000002\n"
              "Param3: 0x00abcdef\nParam4: 0x00000004\n\n0x00401234\ta.exe!move +18 bytes, symbol type: PDB\n"
              "\t\tmove.cpp(42) +3 bytes\n");
}

TEST_F(TextDump, SymbolsAndLines) {
    code_address where;
    EXPECT_EQ(text_dump::symbol_text(where), "no symbol information was available");
    EXPECT_EQ(text_dump::line_text(where), "no line information was available");
    where.symbol = {"_Z1fv", 0, {}};
    EXPECT_EQ(text_dump::symbol_text(where), "<no module>!_Z1fv");
    where.symbol = {"_Z1fv", -7, {"f()", "f"}};
    EXPECT_EQ(text_dump::symbol_text(where), "<no module>!_Z1fv -7 bytes, f(), f");
    where.module = "a.so";
    where.symbol_type = 4;
    EXPECT_EQ(text_dump::symbol_text(where), "a.so!_Z1fv -7 bytes, f(), f, symbol type: export table");
    where.symbol.reset();
    EXPECT_EQ(text_dump::symbol_text(where), "a.so!<no symbol>, symbol type: export table");
    where.line = {"a.cpp", 1, 0};
    EXPECT_EQ(text_dump::line_text(where), "a.cpp(1)");
}

TEST_F(TextDump, TypesOfSymbols) {
    const char* const texts[] = {"no symbols", "COFF", "CodeView", "PDB", "export table", "deferred", "SYM", "7", "8"};
    code_address where;
    where.module = "a";
    for (std::uint32_t type = 0; type < std::size(texts); ++type) {
        where.symbol_type = type;
        EXPECT_EQ(text_dump::symbol_text(where), std::string("a!<no symbol>, symbol type: ") + texts[type]);
    }
}

}  // namespace
