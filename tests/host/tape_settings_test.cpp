#include "host/tape_settings.h"

#include <gtest/gtest.h>

#include "foundation/exc/exceptions.h"
#include "support/service_fixture.h"

namespace {

using test_support::tape_key;
using lines = std::vector<std::string>;

class TapeSettings : public test_support::ServiceFixture {
protected:
    lines logged(void (*load)(const std::u16string& key_path)) {
        system_.log.clear();
        load(tape_key_path);
        return system_.log.lines();
    }
};

TEST_F(TapeSettings, WithoutAKeyEverythingHasItsDefault) {
    EXPECT_EQ(logged(tape_settings::LoadAll),
              (lines{"tap| No adding postfix for drives serial names.", "tap| Work without scsi. Use driver.",
                     "tap| Host name was not found in registry.", "tap| Many hosts regime is off."}));
    EXPECT_FALSE(gEnableScsiChanger);
    EXPECT_EQ(gUserSlotPortion, 50);
    EXPECT_TRUE(gForbiddenSerialNames.empty());
    EXPECT_EQ(OwnerName(), u"");
    EXPECT_FALSE(ManyOwners());
}

TEST_F(TapeSettings, AKeyThatCannotBeReadCountsAsOneWithoutValues) {
    system_.registry.set_dword(tape_key, "EnableScsiChanger", 1);
    system_.registry.fail_open(5);
    tape_settings::LoadAll(tape_key_path);
    EXPECT_FALSE(gEnableScsiChanger);
}

TEST_F(TapeSettings, TheCustomPostfixIsTakenForTheChanger) {
    system_.registry.set_string(tape_key, "CustomChanger", "Changer1");
    EXPECT_EQ(logged(tape_settings::LoadCustomChanger), lines{"tap| No adding postfix for drives serial names."});
    EXPECT_EQ(gCustomChanger, u"");
    system_.registry.set_string(tape_key, "CustomPostfix", "_P");
    EXPECT_EQ(logged(tape_settings::LoadCustomChanger), lines{"tap| For changer [_P] set serial name postfix [] for drives."});
    EXPECT_EQ(gCustomChanger, u"_P");
    EXPECT_EQ(gCustomPostfix, u"");
}

TEST_F(TapeSettings, PostfixesAreCopied) {
    system_.registry.set_string(tape_key, "TapeDeviceSerialNumberPostfix", "-\xC3\xA4");
    system_.registry.set_expand_string(tape_key, "BarcodesPostfix", "%X%");
    EXPECT_EQ(logged(tape_settings::LoadDeviceSerialPostfix), lines{"tap| Adding postfix for devices serial names = -\xC3\xA4."});
    EXPECT_EQ(logged(tape_settings::LoadBarcodesPostfix), lines{"tap| Adding postfix for barcodes = %X%."});
    EXPECT_EQ(gDeviceSerialPostfix, u"-\u00E4");
    EXPECT_EQ(gBarcodesPostfix, u"%X%");
}

TEST_F(TapeSettings, EnableScsiChangerTellsBothWays) {
    system_.registry.set_dword(tape_key, "EnableScsiChanger", 2);
    EXPECT_EQ(logged(tape_settings::LoadEnableScsiChanger),
              (lines{"tap| =======Find EnableScsiChanger key.======", "tap| Work without driver. Use scsi."}));
    EXPECT_TRUE(gEnableScsiChanger);
    system_.registry.set_dword(tape_key, "EnableScsiChanger", 0);
    EXPECT_EQ(logged(tape_settings::LoadEnableScsiChanger),
              (lines{"tap| =======Find EnableScsiChanger key.======", "tap| Work without scsi. Use driver."}));
    EXPECT_FALSE(gEnableScsiChanger);
}

TEST_F(TapeSettings, TheSlotPortionHasToFit16Bits) {
    for (const std::uint32_t value : {0u, 1u, 65535u}) {
        system_.registry.set_dword(tape_key, "UserSlotPortion", value);
        EXPECT_EQ(logged(tape_settings::LoadUserSlotPortion), lines{"tap| User set new slot portion: " + std::to_string(value)});
        EXPECT_EQ(gUserSlotPortion, value);
    }
    system_.registry.set_dword(tape_key, "UserSlotPortion", 65536);
    try {
        tape_settings::LoadUserSlotPortion(tape_key_path);
        FAIL();
    } catch (const exc::runtime_exc_t& e) {
        EXPECT_EQ(std::string(e.what()), "Unable to cast value from [unsigned long] to [unsigned short].");
    }
}

TEST_F(TapeSettings, AStringOfAnotherTypeEndsTheStart) {
    system_.registry.set_dword(tape_key, "BarcodesPostfix", 1);
    try {
        tape_settings::LoadAll(tape_key_path);
        FAIL();
    } catch (const exc::runtime_exc_t& e) {
        EXPECT_EQ(std::string(e.what()),
                  "Unexpected registry type: [4].\n--tr:Failed to load tape settings. Values: [BarcodesPostfix].");
    }
}

TEST_F(TapeSettings, ANumberOfAnotherTypeEndsTheStart) {
    system_.registry.set_string(tape_key, "ManyOwners", "1");
    try {
        tape_settings::LoadAll(tape_key_path);
        FAIL();
    } catch (const exc::runtime_exc_t& e) {
        EXPECT_EQ(std::string(e.what()),
                  "Unexpected registry type: [1].\n--tr:Failed to load tape settings. Values: [BackupServer, ManyOwners].");
    }
}

TEST_F(TapeSettings, TheOwnerIsReadAndItsKeyKept) {
    system_.registry.set_string(tape_key, "BackupServer", "HOST1");
    EXPECT_EQ(logged(tape_settings::LoadOwnerSettings),
              (lines{"tap| Host name setting were read from registry. [HOST1].", "tap| Many hosts regime is off."}));
    EXPECT_EQ(OwnerName(), u"HOST1");
    EXPECT_TRUE(SetOwner(u"HOST2"));
    EXPECT_EQ(system_.registry.string_at(tape_key, "BackupServer"), "HOST2");
}

TEST_F(TapeSettings, OnlyOneTurnsManyOwnersOn) {
    for (const std::uint32_t value : {0u, 1u, 2u}) {
        system_.registry.set_dword(tape_key, "ManyOwners", value);
        EXPECT_EQ(logged(tape_settings::LoadOwnerSettings).back(),
                  value == 1 ? "tap| Many hosts regime is turned on" : "tap| Many hosts regime is off.");
        EXPECT_EQ(ManyOwners(), value == 1);
    }
}

TEST_F(TapeSettings, TheAlertsEmulatorIsASwitch) {
    system_.registry.set_dword(tape_key, "TapeAlertsEmulator", 5);
    EXPECT_EQ(logged(tape_settings::LoadTapeAlertsEmulator), lines{"tap| Use Tape Alerts Emulator."});
    EXPECT_TRUE(gTapeAlertsEmulator);
    system_.registry.set_dword(tape_key, "TapeAlertsEmulator", 0);
    EXPECT_EQ(logged(tape_settings::LoadTapeAlertsEmulator), lines{});
    EXPECT_FALSE(gTapeAlertsEmulator);
}

TEST_F(TapeSettings, TheOldEnumerationIsOnlyNoted) {
    system_.registry.set_dword(tape_key, "OldDeviceEnumerate", 0);
    EXPECT_EQ(logged(tape_settings::LoadOldDeviceEnumerate), lines{});
    EXPECT_FALSE(gOldDeviceEnumerate);
    system_.registry.set_dword(tape_key, "OldDeviceEnumerate", 1);
    EXPECT_EQ(logged(tape_settings::LoadOldDeviceEnumerate), lines{"tap| User have set old style device enumerate"});
    EXPECT_TRUE(gOldDeviceEnumerate);
}

TEST_F(TapeSettings, ForbiddenNamesAreSplitAtEverySemicolon) {
    system_.registry.set_string(tape_key, "ForbiddenSerialNames", "A;B;");
    EXPECT_EQ(logged(tape_settings::LoadForbiddenSerialNames),
              (lines{"tap| =======Find ForbiddenSerialNames key.======", "tap| A", "tap| B", "tap| "}));
    EXPECT_EQ(gForbiddenSerialNames, (std::vector<std::u16string>{u"A", u"B", u""}));
    system_.registry.set_string(tape_key, "ForbiddenSerialNames", "");
    EXPECT_EQ(logged(tape_settings::LoadForbiddenSerialNames),
              (lines{"tap| =======Find ForbiddenSerialNames key.======", "tap| "}));
    EXPECT_EQ(gForbiddenSerialNames, std::vector<std::u16string>{u""});
}

TEST_F(TapeSettings, TheDriveNameSettingSaysOnWhateverItHolds) {
    for (const std::uint32_t value : {0u, 1u}) {
        system_.registry.set_dword(tape_key, "GenerateDriveNameFromAddressNumber", value);
        EXPECT_EQ(logged(tape_settings::LoadGenerateDriveNameFromAddressNumber),
                  lines{"tap| =======Generate drive name from address number on.======"});
        EXPECT_EQ(gGenerateDriveNameFromAddressNumber, value != 0);
    }
}

TEST_F(TapeSettings, TheLoadersRunInOrder) {
    system_.registry.set_string(tape_key, "CustomPostfix", "1");
    system_.registry.set_string(tape_key, "TapeDeviceSerialNumberPostfix", "2");
    system_.registry.set_string(tape_key, "BarcodesPostfix", "3");
    system_.registry.set_dword(tape_key, "EnableScsiChanger", 1);
    system_.registry.set_dword(tape_key, "UserSlotPortion", 5);
    system_.registry.set_string(tape_key, "BackupServer", "6");
    system_.registry.set_dword(tape_key, "TapeAlertsEmulator", 1);
    system_.registry.set_dword(tape_key, "OldDeviceEnumerate", 1);
    system_.registry.set_string(tape_key, "ForbiddenSerialNames", "9");
    system_.registry.set_dword(tape_key, "GenerateDriveNameFromAddressNumber", 1);
    EXPECT_EQ(logged(tape_settings::LoadAll),
              (lines{"tap| For changer [1] set serial name postfix [] for drives.",
                     "tap| Adding postfix for devices serial names = 2.", "tap| Adding postfix for barcodes = 3.",
                     "tap| =======Find EnableScsiChanger key.======", "tap| Work without driver. Use scsi.",
                     "tap| User set new slot portion: 5", "tap| Host name setting were read from registry. [6].",
                     "tap| Many hosts regime is off.", "tap| Use Tape Alerts Emulator.",
                     "tap| User have set old style device enumerate", "tap| =======Find ForbiddenSerialNames key.======", "tap| 9",
                     "tap| =======Generate drive name from address number on.======"}));
}

}  // namespace
