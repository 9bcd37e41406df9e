#include "drive/serial_numbers.h"

#include <gtest/gtest.h>

#include "changer/tape_variables.h"
#include "platform/testing/fakes.h"

namespace {

using namespace SerialNumberRules;

class SerialNumbers : public ::testing::Test {
protected:
    void TearDown() override {
        gCustomChanger.clear();
        gCustomPostfix.clear();
        gDeviceSerialPostfix.clear();
        gBarcodesPostfix.clear();
        gForbiddenSerialNames.clear();
    }

    static std::u16string barcode(std::string_view text, std::size_t size = 36) {
        std::vector<std::uint8_t> field(text.begin(), text.end());
        field.resize(size);
        return ShownBarcode(field);
    }

    platform::testing::test_system system;
};

TEST_F(SerialNumbers, OfDevicesGetTheDevicePostfix) {
    EXPECT_EQ(ShownDeviceSerial(u"S1"), u"S1");
    gDeviceSerialPostfix = u"_dev";
    EXPECT_EQ(ShownDeviceSerial(u"S1"), u"S1_dev");
    EXPECT_EQ(ShownDeviceSerial(u""), u"_dev");
}

TEST_F(SerialNumbers, OfElementsStayWithoutPostfixes) {
    CElementSerials serials(custom_postfix::for_custom_changer, u"Changer0");
    EXPECT_EQ(serials.Next(u"S1", ChangerDrive), u"S1");
    EXPECT_EQ(serials.Next(u"S1", ChangerSlot), u"S1");
}

TEST_F(SerialNumbers, OfDriveElementsGetTheDevicePostfix) {
    gDeviceSerialPostfix = u"_dev";
    CElementSerials serials(custom_postfix::never, u"Changer0");
    EXPECT_EQ(serials.Next(u"S1", ChangerDrive), u"S1_dev");
    EXPECT_EQ(serials.Next(u"S2", ChangerSlot), u"S2");
    EXPECT_EQ(serials.Next(u"S3", ChangerIEPort), u"S3");
}

TEST_F(SerialNumbers, OfTheCustomChangerStayAsLongAsItsPostfixIsEmpty) {
    gCustomChanger = u"Changer0";
    CElementSerials serials(custom_postfix::for_custom_changer, u"Changer0");
    EXPECT_EQ(serials.Next(u"S1", ChangerDrive), u"S1");
    EXPECT_EQ(serials.Next(u"S1", ChangerDrive), u"S1");
}

TEST_F(SerialNumbers, OfTheCustomChangerAreNumbered) {
    gCustomChanger = u"Changer0";
    gCustomPostfix = u"-";
    CElementSerials serials(custom_postfix::for_custom_changer, u"Changer0");
    EXPECT_EQ(serials.Next(u"S", ChangerDrive), u"S-0");
    EXPECT_EQ(serials.Next(u"S", ChangerDrive), u"S-1");
    EXPECT_EQ(serials.Next(u"S", ChangerDrive), u"S-2");
    CElementSerials next_record(custom_postfix::for_custom_changer, u"Changer0");
    EXPECT_EQ(next_record.Next(u"S", ChangerDrive), u"S-0");
    CElementSerials other_changer(custom_postfix::for_custom_changer, u"changer0");
    EXPECT_EQ(other_changer.Next(u"S", ChangerDrive), u"S");
    CElementSerials other_record(custom_postfix::never, u"Changer0");
    EXPECT_EQ(other_record.Next(u"S", ChangerDrive), u"S");
}

TEST_F(SerialNumbers, PreferTheDevicePostfixToTheCustomOne) {
    gCustomChanger = u"Changer0";
    gCustomPostfix = u"-";
    gDeviceSerialPostfix = u"_dev";
    CElementSerials serials(custom_postfix::for_custom_changer, u"Changer0");
    EXPECT_EQ(serials.Next(u"S", ChangerDrive), u"S_dev");
    // The counter goes up with each element, whichever rule it falls under.
    EXPECT_EQ(serials.Next(u"S", ChangerSlot), u"S-1");
}

TEST_F(SerialNumbers, OfBarcodesAreCutAndGetTheirPostfix) {
    EXPECT_EQ(barcode("TRN001L8"), u"TRN001L8");
    EXPECT_EQ(barcode("TRN001L8    "), u"TRN001L8");
    EXPECT_EQ(barcode("  TRN  "), u"  TRN");
    EXPECT_EQ(barcode(std::string(36, 'x')), std::u16string(36, u'x'));
    gBarcodesPostfix = u"+";
    EXPECT_EQ(barcode("TRN001L8 "), u"TRN001L8+");
    EXPECT_EQ(barcode(""), u"");
    EXPECT_EQ(barcode("      "), u"");
}

TEST_F(SerialNumbers, AreForbiddenByExactText) {
    EXPECT_FALSE(IsForbidden(u""));
    gForbiddenSerialNames = {u"A", u"", u"b"};
    EXPECT_TRUE(IsForbidden(u"A"));
    EXPECT_TRUE(IsForbidden(u""));
    EXPECT_FALSE(IsForbidden(u"a"));
    EXPECT_FALSE(IsForbidden(u"B"));
}

}  // namespace
