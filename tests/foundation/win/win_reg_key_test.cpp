#include "foundation/win/win_reg_key.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/win/reg_options.h"
#include "platform/testing/fakes.h"
#include "support/failure_text.h"

namespace {

using test_support::failure_of;
using ::testing::ElementsAre;

constexpr const char* path = "SOFTWARE\\Tarno\\Tarno Backup Tape";
constexpr const char16_t* wide_path = u"SOFTWARE\\Tarno\\Tarno Backup Tape";

class RegKey : public ::testing::Test {
protected:
    [[nodiscard]] win::reg_key_ptr open() { return win::open_reg_key(std::string_view(path)); }

    platform::testing::test_system system_;
};

TEST_F(RegKey, MissingKeyIsNull) {
    EXPECT_EQ(open(), nullptr);
    EXPECT_EQ(win::open_reg_key(wide_path, platform::registry_access::read_64), nullptr);
    system_.registry.fail_open(3);
    EXPECT_EQ(open(), nullptr);
}

TEST_F(RegKey, OtherFailureToOpenThrows) {
    system_.registry.fail_open(5);
    EXPECT_EQ(failure_of([&] { (void)open(); }),
              std::string("Access is denied.\nFailed to open subkey. Path: [") + path + "].\n--tr:Error code: 0x00000005");
    system_.registry.fail_create(5);
    EXPECT_EQ(failure_of([&] { (void)win::create_reg_key(wide_path); }),
              std::string("Access is denied.\nFailed to create subkey [") + path + "].\n--tr:Error code: 0x00000005");
}

TEST_F(RegKey, KeysAreClosed) {
    system_.registry.add_key(path);
    {
        const auto key = open();
        ASSERT_NE(key, nullptr);
        EXPECT_EQ(system_.registry.open_keys(), 1U);
    }
    EXPECT_EQ(system_.registry.open_keys(), 0U);
}

TEST_F(RegKey, ValuesAreReadByTheirTypes) {
    system_.registry.set_dword(path, "Port", 6166);
    system_.registry.set_qword(path, "AgentMaxLogSize", 5'000'000'000ULL);
    system_.registry.set_string(path, "BackupServer", "H\xC3\xB6st");
    system_.registry.set_expand_string(path, "Folder", "%TEMP%\\x");
    system_.registry.set_string(path, "Empty", "");
    const auto key = open();
    std::uint32_t dword = 0;
    EXPECT_TRUE(key->try_get_dword("Port", dword));
    EXPECT_EQ(dword, 6166U);
    EXPECT_TRUE(key->try_get_dword(u"port", dword));
    std::uint64_t qword = 0;
    EXPECT_TRUE(key->try_get_qword(u"AgentMaxLogSize", qword));
    EXPECT_EQ(qword, 5'000'000'000ULL);
    std::string narrow = "before";
    EXPECT_TRUE(key->try_get_string("BackupServer", narrow));
    EXPECT_EQ(narrow, "H\xC3\xB6st");
    text::wide_string wide;
    EXPECT_TRUE(key->try_get_string(u"Folder", wide));
    EXPECT_EQ(wide, u"%TEMP%\\x");
    EXPECT_TRUE(key->try_get_string("Empty", narrow));
    EXPECT_EQ(narrow, "");
    EXPECT_EQ(key->get_dword("Port"), 6166U);
    EXPECT_EQ(key->get_string("Folder"), "%TEMP%\\x");
}

TEST_F(RegKey, NarrowFormsUseTheCodePage) {
    system_.registry.set_string(path, "BackupServer", "H\xC3\xB6st");
    system_.text_encoding.set_ansi_page(platform::testing::fake_text_encoding::ansi_page::western);
    EXPECT_EQ(open()->get_string("BackupServer"), "H\xF6st");
}

TEST_F(RegKey, TextsEndAtTheirFirstZeroWhateverTheirLength) {
    system_.registry.set_raw(path, "Two", 1, {'a', 0, 0, 0, 'b', 0, 0, 0});
    system_.registry.set_raw(path, "Open", 1, {'a', 0, 'b', 0});
    system_.registry.set_raw(path, "Odd", 1, {'a', 0, 'b'});
    system_.registry.set_raw(path, "Nothing", 1, {});
    const auto key = open();
    EXPECT_EQ(key->get_string("Two"), "a");
    EXPECT_EQ(key->get_string("Open"), "ab");
    EXPECT_EQ(key->get_string("Odd"), "ab");
    EXPECT_EQ(key->get_string("Nothing"), "");
}

TEST_F(RegKey, MissingValueIsFalseOrAFailure) {
    system_.registry.add_key(path);
    const auto key = open();
    std::uint32_t dword = 7;
    std::uint64_t qword = 7;
    std::string narrow = "before";
    system_.errors.set_last_error(1110);
    EXPECT_FALSE(key->try_get_dword("x", dword));
    EXPECT_FALSE(key->try_get_qword(u"x", qword));
    EXPECT_FALSE(key->try_get_string("x", narrow));
    EXPECT_FALSE(win::open_reg_key(std::u16string_view(u"SOFTWARE\\Nowhere"), platform::registry_access::read));
    EXPECT_EQ(system_.errors.last_error(), 1110U) << "a value that may be missing is nobody's failure";
    EXPECT_EQ(dword, 7U);
    EXPECT_EQ(qword, 7U);
    EXPECT_EQ(narrow, "before");
    const std::string missing = "The system cannot find the file specified.\n--tr:Error code: 0x00000002";
    EXPECT_EQ(failure_of([&] { (void)key->get_dword("x"); }), missing);
    EXPECT_EQ(failure_of([&] { (void)key->get_string("x"); }), missing);
}

TEST_F(RegKey, OtherTypeIsAFailure) {
    system_.registry.set_raw(path, "Binary", 3, {1, 2});
    system_.registry.set_string(path, "Text", "1");
    const auto key = open();
    std::uint32_t dword = 0;
    std::uint64_t qword = 0;
    EXPECT_EQ(failure_of([&] { (void)key->get_string("Binary"); }), "Unexpected registry type: [3].");
    EXPECT_EQ(failure_of([&] { (void)key->try_get_dword("Text", dword); }), "Unexpected registry type: [1].");
    EXPECT_EQ(failure_of([&] { (void)key->try_get_qword(u"Binary", qword); }), "Unexpected registry type: [3].");
}

TEST_F(RegKey, OtherErrorsKeepTheirCode) {
    system_.registry.set_dword(path, "Port", 1);
    const auto key = open();
    system_.registry.fail_query(5);
    EXPECT_EQ(failure_of([&] { (void)key->get_dword("Port"); }), "Access is denied.\n--tr:Error code: 0x00000005");
    EXPECT_EQ(failure_of([&] { (void)key->get_string("Port"); }),
              "Access is denied.\nCannot retrieve a registry value. Value name: [Port].\n--tr:Error code: 0x00000005");
}

TEST_F(RegKey, EmptyKeyRefusesEverything) {
    const win::win_reg_key_t key;
    std::uint32_t dword = 0;
    std::uint64_t qword = 0;
    std::string narrow;
    const std::string refusal = "Registry key object is not initialized.";
    EXPECT_EQ(failure_of([&] { (void)key.try_get_dword("x", dword); }), refusal);
    EXPECT_EQ(failure_of([&] { (void)key.try_get_qword(u"x", qword); }), refusal);
    EXPECT_EQ(failure_of([&] { (void)key.try_get_string("x", narrow); }), refusal);
    EXPECT_EQ(failure_of([&] { key.set_string(u"x", u"y"); }),
              refusal + "\nFailed to store string value [x]. Specified data: [y].");
    EXPECT_EQ(failure_of([&] { (void)key.subkeys(); }), refusal + "\n--tr:Failed to enumerate subkeys of the registry key");
}

TEST_F(RegKey, AddressIsForAnEmptyKeyOnly) {
    system_.registry.add_key(path);
    win::win_reg_key_t key;
    EXPECT_EQ(system_.registry.open_key(wide_path, platform::registry_access::read, *&key), 0U);
    EXPECT_EQ(failure_of([&] { (void)&key; }), "operator& cannot be called because registry key already initialized.");
}

TEST_F(RegKey, TextIsStored) {
    const auto key = win::create_reg_key(wide_path);
    key->set_string(u"BackupServer", u"H\u00f6st");
    EXPECT_EQ(system_.registry.string_at(path, "BackupServer"), "H\xC3\xB6st");
    system_.registry.fail_set(5);
    EXPECT_EQ(failure_of([&] { key->set_string(u"BackupServer", u"b"); }),
              "Access is denied.\n--tr:Error code: 0x00000005\nFailed to store string value [BackupServer]. Specified data: [b].");
}

TEST_F(RegKey, SubkeysAreListed) {
    system_.registry.add_key(std::string(path) + "\\B");
    system_.registry.add_key(std::string(path) + "\\a");
    EXPECT_THAT(open()->subkeys(), ElementsAre("a", "B"));
    const auto key = open();
    system_.registry.fail_enumerate(5);
    EXPECT_EQ(failure_of([&] { (void)key->subkeys(); }),
              "Access is denied.\nRegEnumKey() function call failed. Index: [0].\n--tr:Error code: 0x00000005\n"
              "--tr:Failed to enumerate subkeys of the registry key");
}

TEST_F(RegKey, SubkeysOfAKeyThatMustNotBeReadAreAFailure) {
    const auto writer = win::create_reg_key(wide_path);
    EXPECT_EQ(failure_of([&] { (void)writer->subkeys(); }),
              "Access is denied.\nRegQueryInfoEx() function call failed.\n--tr:Error code: 0x00000005\n"
              "--tr:Failed to enumerate subkeys of the registry key");
}

TEST_F(RegKey, OptionsFallBackToTheirDefaults) {
    system_.registry.set_dword(path, "Number", 5);
    system_.registry.set_dword(path, "Off", 0);
    system_.registry.set_qword(path, "Large", 5'000'000'000ULL);
    system_.registry.set_string(path, "Text", "t\xC3\xA9");
    const auto key = win::open_options_key(wide_path);
    EXPECT_EQ(win::read_option(key, u"Number", 1U), 5U);
    EXPECT_EQ(win::read_option(key, u"None", 1U), 1U);
    EXPECT_TRUE(win::read_option(key, u"Number", false));
    EXPECT_FALSE(win::read_option(key, u"Off", true));
    EXPECT_TRUE(win::read_option(key, u"None", true));
    EXPECT_EQ(win::read_option(key, u"Large", std::uint64_t{1}), 5'000'000'000ULL);
    EXPECT_EQ(win::read_option(key, u"Text", std::string("d")), "t\xC3\xA9");
    EXPECT_EQ(win::read_string_option(key, u"Text", "d"), "t\xC3\xA9");
    EXPECT_EQ(win::read_string_option(key, u"None", "d"), "d");
    EXPECT_EQ(win::read_string_option({}, u"Text", "d"), "d");
    EXPECT_EQ(win::read_option(win::reg_key_ptr(), u"Number", 1U), 1U);
    EXPECT_TRUE(system_.log.entries().empty());
}

TEST_F(RegKey, OptionsThatCannotBeReadAreLogged) {
    system_.registry.set_string(path, "Number", "5");
    system_.registry.set_dword(path, "Text", 5);
    const auto key = win::open_options_key(wide_path);
    EXPECT_EQ(win::read_option(key, u"Number", 1U), 1U);
    EXPECT_EQ(win::read_string_option(key, u"Text", "d"), "d");
    EXPECT_EQ(win::read_option(key, u"Text", std::string("d")), "d");
    EXPECT_TRUE(system_.log.has_line("ERR |Unable to retrieve registry option 'Number'"));
    EXPECT_TRUE(system_.log.has_line("ERR |Unable to retrieve registry option value, option 'Text', type 'string'."));
    EXPECT_TRUE(system_.log.has_line("ERR |Unable to retrieve registry option 'Text'"));
    EXPECT_TRUE(system_.log.has_line(">>  |Unexpected registry type: [4]."));
    system_.registry.fail_open(5);
    EXPECT_EQ(win::open_options_key(wide_path), nullptr);
    EXPECT_TRUE(system_.log.has_line(std::string("ERR |Unable to open registry key with product options. Registry path: ") + path));
}

}  // namespace
