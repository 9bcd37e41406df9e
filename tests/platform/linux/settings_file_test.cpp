#include "platform/linux/settings_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/text/unicode.h"
#include "platform/registry.h"

namespace {

using namespace platform;
using namespace platform::linux_os;
using bytes = std::vector<std::uint8_t>;

const std::string head = "Windows Registry Editor Version 5.00\n";
const std::string key_line = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Key]\n";

settings_key parse(const std::string& text) {
    return parse_settings(text, "test.reg");
}

/// The value of this line in a file of one key; its name is "v".
settings_value value_of(const std::string& data) {
    const settings_key root = parse(head + key_line + "\"v\"=" + data + "\n");
    const settings_key* key = find_key(root, {u"SOFTWARE", u"Key"});
    return key != nullptr && key->values.contains(u"v") ? key->values.at(u"v") : settings_value{0xFFFF, {}};
}

std::string refusal(const std::string& text) {
    try {
        static_cast<void>(parse(text));
    } catch (const settings_error& e) {
        return e.what();
    }
    return "not refused";
}

std::string value_refusal(const std::string& line) {
    return refusal(head + key_line + line);
}

std::string utf16le(const std::u16string& text) {
    std::string encoded = "\xFF\xFE";
    for (const char16_t unit : text) {
        encoded.push_back(static_cast<char>(unit & 0xFF));
        encoded.push_back(static_cast<char>(unit >> 8));
    }
    return encoded;
}

TEST(SettingsFile, ReadsAFileOfItsFirstLineOnly) {
    EXPECT_TRUE(parse("Windows Registry Editor Version 5.00").keys.empty());
    EXPECT_TRUE(parse("Windows Registry Editor Version 5.00  \r\n\r\n; nothing\r\n").keys.empty());
}

TEST(SettingsFile, RefusesAnotherFirstLine) {
    const std::string reason = "test.reg:1: The first line must be \"Windows Registry Editor Version 5.00\".";
    EXPECT_EQ(refusal(""), reason);
    EXPECT_EQ(refusal("REGEDIT4\n"), reason);
    EXPECT_EQ(refusal("\n" + head), reason);
    EXPECT_EQ(refusal("; comment\n" + head), reason);
    EXPECT_EQ(refusal("Windows Registry Editor Version 5.001\n"), reason);
}

TEST(SettingsFile, ReadsEveryEncodingAndLineEnd) {
    const std::string text = head + key_line + "\"n\xC3\xA4me\"=\"\xE2\x82\xAC\"\n";
    const settings_key plain = parse(text);
    ASSERT_NE(find_key(plain, {u"SOFTWARE", u"Key"}), nullptr);
    EXPECT_EQ(value_text(find_key(plain, {u"software", u"KEY"})->values.at(u"N\u00C4ME")), u"\u20AC");
    EXPECT_EQ(parse("\xEF\xBB\xBF" + text), plain);
    std::u16string wide = text::unicode::decode_utf8_lenient(text);
    EXPECT_EQ(parse(utf16le(wide)), plain);
    for (std::size_t at = 0; (at = wide.find(u'\n', at)) != std::u16string::npos; at += 2) {
        wide.insert(at, u"\r");
    }
    EXPECT_EQ(parse(utf16le(wide)), plain);
    EXPECT_EQ(parse(text::unicode::encode_utf8(wide)), plain);
}

TEST(SettingsFile, RefusesBrokenEncodings) {
    EXPECT_EQ(refusal(head + "; ok\n; \xC3\x28\n"), "test.reg:3: The text isn't well-formed UTF-8.");
    EXPECT_EQ(refusal(utf16le(u"Windows") + "x"), "test.reg: The file is UTF-16, but its length is odd.");
    EXPECT_EQ(refusal(std::string("\xFE\xFF\0W", 4)),
              "test.reg: The file is big-endian UTF-16; only UTF-8 and little-endian UTF-16 are read.");
    EXPECT_EQ(refusal(head + std::string("; \0\n", 4)), "test.reg:2: The text holds a NUL character.");
}

TEST(SettingsFile, ReadsStringsWithTheirEscapes) {
    EXPECT_EQ(value_of("\"plain\""), text_value(registry_type::string, u"plain"));
    EXPECT_EQ(value_of("\"\""), text_value(registry_type::string, u""));
    EXPECT_EQ(value_of(R"("\\\\.\\Tape0")"), text_value(registry_type::string, u"\\\\.\\Tape0"));
    EXPECT_EQ(value_of(R"("say \"yes\"")"), text_value(registry_type::string, u"say \"yes\""));
    EXPECT_EQ(value_of("\"a;b\" ; comment"), text_value(registry_type::string, u"a;b"));
    EXPECT_EQ(value_of("\"]\""), text_value(registry_type::string, u"]"));
}

TEST(SettingsFile, RefusesBrokenStrings) {
    const std::string open = "test.reg:3: The string isn't closed by '\"' on its line.";
    EXPECT_EQ(value_refusal("\"v\"=\"open\n"), open);
    EXPECT_EQ(value_refusal("\"v\"=\"open\\\"\n"), open);
    EXPECT_EQ(value_refusal("\"v\"=\"open\\\n"), open);
    EXPECT_EQ(value_refusal("\"v\"=\"two\nlines\"\n"), open);
    EXPECT_EQ(value_refusal("\"v=1\n"), open);
    EXPECT_EQ(value_refusal("\"v\"=\"C:\\temp\"\n"),
              "test.reg:3: The backslash in front of 't' is no escape; a backslash within quotes is written as \\\\.");
    EXPECT_EQ(value_refusal("\"v\"=\"a\" b\n"), "test.reg:3: Behind the end of the entry stands 'b'.");
}

TEST(SettingsFile, ReadsDwords) {
    EXPECT_EQ(value_of("dword:0000003c"), (settings_value{4, {0x3C, 0, 0, 0}}));
    EXPECT_EQ(value_of("DWORD:FFFFFFFF"), (settings_value{4, {0xFF, 0xFF, 0xFF, 0xFF}}));
    EXPECT_EQ(value_of("dword:1"), (settings_value{4, {1, 0, 0, 0}}));
    EXPECT_EQ(value_of("dword: 12 ; twelve"), (settings_value{4, {0x12, 0, 0, 0}}));
    const std::string reason = "test.reg:3: Behind dword: stand one to eight hexadecimal digits.";
    EXPECT_EQ(value_refusal("\"v\"=dword:\n"), reason);
    EXPECT_EQ(value_refusal("\"v\"=dword:123456789\n"), reason);
    EXPECT_EQ(value_refusal("\"v\"=dword:g\n"), reason);
    EXPECT_EQ(value_refusal("\"v\"=dword:0x10\n"), "test.reg:3: Behind the end of the entry stands 'x10'.");
}

TEST(SettingsFile, ReadsBytesOfEveryType) {
    EXPECT_EQ(value_of("hex:"), (settings_value{3, {}}));
    EXPECT_EQ(value_of("hex:01"), (settings_value{3, {1}}));
    EXPECT_EQ(value_of("hex:1,a,FF"), (settings_value{3, {1, 10, 255}}));
    EXPECT_EQ(value_of("HEX: 01 , 02 ; two"), (settings_value{3, {1, 2}}));
    EXPECT_EQ(value_of("hex(1):41,00,00,00"), text_value(registry_type::string, u"A"));
    EXPECT_EQ(value_of("hex(2):25,00,00,00"), text_value(registry_type::expand_string, u"%"));
    EXPECT_EQ(value_of("hex(7):41,00,00,00,00,00"), (settings_value{7, {0x41, 0, 0, 0, 0, 0}}));
    EXPECT_EQ(value_of("hex(b):01,02,03,04,05,06,07,08"), (settings_value{11, {1, 2, 3, 4, 5, 6, 7, 8}}));
    EXPECT_EQ(value_of("hex(4):01,00,00,00"), (settings_value{4, {1, 0, 0, 0}}));
    EXPECT_EQ(value_of("hex(0):"), (settings_value{0, {}}));
    EXPECT_EQ(value_of("hex(ffff0001):07"), (settings_value{0xFFFF0001, {7}}));
}

TEST(SettingsFile, GoesOnBehindABackslash) {
    EXPECT_EQ(value_of("hex:01,02,\\\n  03,04,\\\n  05"), (settings_value{3, {1, 2, 3, 4, 5}}));
    EXPECT_EQ(value_of("hex:\\\r\n  01"), (settings_value{3, {1}}));
    EXPECT_EQ(value_of("hex:01\\\n,02"), (settings_value{3, {1, 2}}));
    EXPECT_EQ(value_of("hex:01,\\ ; comment\n02"), (settings_value{3, {1, 2}}));
    EXPECT_EQ(value_refusal("\"v\"=hex:01,\\"), "test.reg:3: The bytes end in a backslash, but no line follows.");
    EXPECT_EQ(value_refusal("\"v\"=hex:01,\\\n"), "test.reg:3: The bytes end in a backslash, but no line follows.");
    EXPECT_EQ(value_refusal("\"v\"=hex:01,\\\n02,xx\n"), "test.reg:4: A byte has one or two hexadecimal digits; here stands 'xx'.");
}

TEST(SettingsFile, RefusesBrokenBytes) {
    EXPECT_EQ(value_refusal("\"v\"=hex:01,\n"), "test.reg:3: Behind the last comma stands no byte.");
    EXPECT_EQ(value_refusal("\"v\"=hex:,01\n"), "test.reg:3: A byte has one or two hexadecimal digits; here stands ',01'.");
    EXPECT_EQ(value_refusal("\"v\"=hex:01,,02\n"), "test.reg:3: A byte has one or two hexadecimal digits; here stands ',02'.");
    EXPECT_EQ(value_refusal("\"v\"=hex:001\n"), "test.reg:3: A byte has one or two hexadecimal digits; here stands '001'.");
    EXPECT_EQ(value_refusal("\"v\"=hex:01 02\n"), "test.reg:3: Between two bytes stands no comma, but '02'.");
    EXPECT_EQ(value_refusal("\"v\"=hex 01\n"), "test.reg:3: Behind hex stands no ':'.");
    EXPECT_EQ(value_refusal("\"v\"=hex(:01\n"), "test.reg:3: Within hex(...) stands the type's number in hexadecimal digits.");
    EXPECT_EQ(value_refusal("\"v\"=hex(2:01\n"), "test.reg:3: Within hex(...) stands the type's number in hexadecimal digits.");
}

TEST(SettingsFile, HoldsATypeToItsSize) {
    const std::string odd = "test.reg:3: A text is UTF-16; its bytes must be even in number.";
    EXPECT_EQ(value_refusal("\"v\"=hex(1):41\n"), odd);
    EXPECT_EQ(value_refusal("\"v\"=hex(2):41,00,\\\n00\n"), odd);
    EXPECT_EQ(value_refusal("\"v\"=hex(7):41\n"), odd);
    EXPECT_EQ(value_refusal("\"v\"=hex(4):01,00\n"), "test.reg:3: A value of type 4 has four bytes.");
    EXPECT_EQ(value_refusal("\"v\"=hex(b):01\n"), "test.reg:3: A value of type b has eight bytes.");
}

TEST(SettingsFile, ReadsNamesOfEveryForm) {
    const settings_key root =
        parse(head + key_line + "@=\"default\"\n\"\"=\"empty name\"\n\"a\\\\b \\\"c\\\"\" = dword:5\n  \"x\"=hex:\n");
    const settings_key* key = find_key(root, {u"SOFTWARE", u"Key"});
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(key->values.size(), 3U);
    EXPECT_EQ(value_text(key->values.at(u"")), u"empty name");
    EXPECT_EQ(key->values.at(u"a\\b \"c\"").data[0], 5);
    EXPECT_TRUE(key->values.contains(u"X"));
}

TEST(SettingsFile, LetsTheLastWordCount) {
    const settings_key root =
        parse(head + key_line + "\"v\"=\"one\"\n\"V\"=\"two\"\n\"gone\"=dword:1\n\"gone\"=-\n\"never\"=- ; comment\n");
    const settings_key* key = find_key(root, {u"SOFTWARE", u"Key"});
    ASSERT_NE(key, nullptr);
    ASSERT_EQ(key->values.size(), 1U);
    EXPECT_EQ(value_text(key->values.at(u"v")), u"two");
}

TEST(SettingsFile, ReadsAndRemovesKeys) {
    const settings_key root = parse(head +
                                    "[hkey_local_machine\\SOFTWARE\\A\\B] ; comment\n\"v\"=dword:1\n"
                                    "[HKEY_LOCAL_MACHINE\\SOFTWARE\\A\\b]\n\"w\"=dword:2\n"
                                    "[HKEY_LOCAL_MACHINE\\SOFTWARE\\C\\D]\n"
                                    "[-HKEY_LOCAL_MACHINE\\SOFTWARE\\C]\n"
                                    "[-HKEY_LOCAL_MACHINE\\SOFTWARE\\Never\\There]\n"
                                    "  [HKEY_LOCAL_MACHINE\\SOFTWARE\\with ] bracket]\n"
                                    "[HKEY_LOCAL_MACHINE]\n");
    const settings_key* key = find_key(root, {u"SOFTWARE", u"A", u"B"});
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(key->values.size(), 2U);
    EXPECT_EQ(key->line, 2U);
    EXPECT_EQ(find_key(root, {u"SOFTWARE"})->line, 2U);
    EXPECT_EQ(find_key(root, {u"SOFTWARE", u"C"}), nullptr);
    EXPECT_EQ(find_key(root, {u"SOFTWARE", u"Never"}), nullptr);
    EXPECT_NE(find_key(root, {u"SOFTWARE", u"with ] bracket"}), nullptr);
}

TEST(SettingsFile, ABracketInACommentBelongsToNoName) {
    const settings_key root = parse(head +
                                    "[HKEY_LOCAL_MACHINE\\A] ; [see] the guide [1]\n\"v\"=dword:1\n"
                                    "[HKEY_LOCAL_MACHINE\\B];]\n"
                                    "[HKEY_LOCAL_MACHINE\\C]]\t\n"
                                    "[HKEY_LOCAL_MACHINE\\D] ] ;]\n"
                                    "[-HKEY_LOCAL_MACHINE\\B] ; [B]\n");
    ASSERT_NE(find_key(root, {u"A"}), nullptr);
    EXPECT_EQ(find_key(root, {u"A"})->values.size(), 1U);
    EXPECT_NE(find_key(root, {u"C]"}), nullptr);
    EXPECT_NE(find_key(root, {u"D] "}), nullptr);
    EXPECT_EQ(root.keys.size(), 3U);
    EXPECT_EQ(refusal(head + "[HKEY_LOCAL_MACHINE\\A] x] y\n"), "test.reg:2: Behind the end of the entry stands 'y'.");
}

TEST(SettingsFile, RefusesBrokenKeys) {
    EXPECT_EQ(refusal(head + "[HKEY_LOCAL_MACHINE\\A\n"), "test.reg:2: The key's name isn't closed by ']'.");
    EXPECT_EQ(refusal(head + "[HKEY_LOCAL_MACHINE\\A] x\n"), "test.reg:2: Behind the end of the entry stands 'x'.");
    EXPECT_EQ(refusal(head + "[HKEY_CURRENT_USER\\A]\n"),
              "test.reg:2: The root 'HKEY_CURRENT_USER' isn't read here; only HKEY_LOCAL_MACHINE is.");
    EXPECT_EQ(refusal(head + "[-HKEY_USERS\\A]\n"),
              "test.reg:2: The root 'HKEY_USERS' isn't read here; only HKEY_LOCAL_MACHINE is.");
    EXPECT_EQ(refusal(head + "[HKEY_LOCAL_MACHINES\\A]\n"),
              "test.reg:2: The root 'HKEY_LOCAL_MACHINES' isn't read here; only HKEY_LOCAL_MACHINE is.");
    EXPECT_EQ(refusal(head + "[]\n"), "test.reg:2: The root '' isn't read here; only HKEY_LOCAL_MACHINE is.");
    EXPECT_EQ(refusal(head + "[HKEY_LOCAL_MACHINE\\A\\\\B]\n"), "test.reg:2: The key's path holds an empty name.");
    EXPECT_EQ(refusal(head + "[HKEY_LOCAL_MACHINE\\A\\]\n"), "test.reg:2: The key's path holds an empty name.");
    EXPECT_EQ(refusal(head + "[-HKEY_LOCAL_MACHINE]\n"), "test.reg:2: The root itself can't be removed.");
    EXPECT_THAT(refusal(head + "[HKEY_LOCAL_MACHINE\\" + std::string(256, 'k') + "]\n"),
                testing::EndsWith("has more than 255 characters."));
    std::string deep = "[HKEY_LOCAL_MACHINE";
    for (int level = 0; level < 513; ++level) {
        deep += "\\k";
    }
    EXPECT_EQ(refusal(head + deep + "]\n"), "test.reg:2: The key lies deeper than 512 levels.");
}

TEST(SettingsFile, RefusesWhatIsNeitherKeyNorValue) {
    EXPECT_EQ(refusal(head + "\"v\"=dword:1\n"), "test.reg:2: The value belongs to no key.");
    EXPECT_EQ(value_refusal("[-HKEY_LOCAL_MACHINE\\SOFTWARE\\Key]\n\"v\"=dword:1\n"), "test.reg:4: The value belongs to no key.");
    EXPECT_EQ(value_refusal("value=1\n"), "test.reg:3: Neither a key nor a value: 'value=1'.");
    EXPECT_EQ(value_refusal("\"v\" dword:1\n"), "test.reg:3: Behind the value's name stands no '='.");
    EXPECT_EQ(value_refusal("@\n"), "test.reg:3: Behind the value's name stands no '='.");
    EXPECT_EQ(value_refusal("\"v\"=\n"), "test.reg:3: The data '' is neither a string in quotes nor dword:, hex:, hex(...): or -.");
    EXPECT_EQ(value_refusal("\"v\"=60\n"),
              "test.reg:3: The data '60' is neither a string in quotes nor dword:, hex:, hex(...): or -.");
    EXPECT_EQ(value_refusal("\"v\"=- x\n"), "test.reg:3: Behind the end of the entry stands 'x'.");
    EXPECT_EQ(value_refusal("\"" + std::string(16384, 'n') + "\"=dword:1\n"),
              "test.reg:3: The value's name has more than 16383 characters.");
}

TEST(SettingsFile, CutsLongTextsInMessages) {
    std::string line(100, 'x');
    line += '\n';
    EXPECT_EQ(value_refusal(line), "test.reg:3: Neither a key nor a value: '" + std::string(60, 'x') + "...'.");
}

TEST(SettingsFile, WritesWhatItReadsBack) {
    settings_key root;
    settings_key& key = make_key(root, {u"SOFTWARE", u"Sub ] key \u00E4"});
    make_key(root, {u"SOFTWARE", u"Empty"});
    key.values[u""] = text_value(registry_type::string, u"default");
    key.values[u"quotes \" and \\"] = text_value(registry_type::string, u"\\\\host \"x\" \u20AC \U0001F4FC");
    key.values[u"control"] = text_value(registry_type::string, u"a\r\nb");
    key.values[u"surrogate"] = text_value(registry_type::string, std::u16string(1, 0xD800));
    key.values[u"unterminated"] = {registry_type::string, {'x', 0}};
    key.values[u"nothing"] = {registry_type::string, {}};
    key.values[u"odd"] = {registry_type::binary, bytes(100, 0xAB)};
    key.values[u"expand"] = text_value(registry_type::expand_string, u"%X%");
    key.values[u"number"] = {registry_type::dword, {1, 2, 3, 4}};
    key.values[u"large"] = {registry_type::qword, {1, 2, 3, 4, 5, 6, 7, 8}};
    key.values[u"none"] = {0, {1}};
    key.values[u"far"] = {0xFFFF0001, {}};
    EXPECT_EQ(parse(format_settings(root)), root);
}

TEST(SettingsFile, WritesTheEditorsForm) {
    settings_key root;
    make_key(root, {u"SOFTWARE", u"Key"}).values[u"Owner"] = text_value(registry_type::string, u"HOST\\1");
    make_key(root, {u"SOFTWARE", u"Key"}).values[u"Portion"] = {registry_type::dword, {0x32, 0, 0, 0}};
    make_key(root, {u"SOFTWARE", u"Key"}).values[u"Bytes"] = {registry_type::binary, bytes(25, 1)};
    EXPECT_EQ(format_settings(root),
              "Windows Registry Editor Version 5.00\r\n"
              "\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE]\r\n"
              "\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Key]\r\n"
              "\"Bytes\"=hex:01,01,01,01,01,01,01,01,01,01,01,01,01,01,01,01,01,01,01,01,01,01,01,01,\\\r\n  01\r\n"
              "\"Owner\"=\"HOST\\\\1\"\r\n"
              "\"Portion\"=dword:00000032\r\n");
}

TEST(SettingsTree, OrdersNamesByNumberAndWithoutCase) {
    const name_order before;
    EXPECT_TRUE(before(u"Scsi Port 2", u"scsi port 10"));
    EXPECT_FALSE(before(u"Scsi Port 10", u"Scsi Port 2"));
    EXPECT_FALSE(before(u"ABC", u"abc"));
    EXPECT_FALSE(before(u"abc", u"ABC"));
    EXPECT_TRUE(before(u"a", u"ab"));
    EXPECT_TRUE(before(u"a01", u"a1") != before(u"a1", u"a01"));
    EXPECT_TRUE(before(u"a1b2", u"a1b10"));
    EXPECT_TRUE(before(u"99999999999999999999", u"100000000000000000000"));
    EXPECT_FALSE(before(u"", u""));
}

}  // namespace
