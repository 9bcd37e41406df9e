#include "platform/linux/scsi/iscsi_setting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace platform::linux_scsi;
using testing::IsEmpty;

namespace {

std::string refusal(const std::string& setting) {
    try {
        static_cast<void>(parse_iscsi_setting(setting));
    } catch (const iscsi_setting_error& e) {
        return e.what();
    }
    return {};
}

}  // namespace

TEST(IscsiSetting, ReadsAHostAlone) {
    const auto entries = parse_iscsi_setting("iscsi://library.example");
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].portal.host, "library.example");
    EXPECT_EQ(entries[0].portal.port, 3260);
    EXPECT_EQ(entries[0].target, "");
    EXPECT_FALSE(entries[0].lun);
    EXPECT_EQ(entries[0].user, "");
    EXPECT_EQ(entries[0].portal.text(), "library.example:3260");
}

TEST(IscsiSetting, ReadsEveryPart) {
    const auto entries = parse_iscsi_setting("iscsi://back:up%s/e@c%ret@10.0.0.7:3261/iqn.2001-04.com.example:lib/7");
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].user, "back:up");
    EXPECT_EQ(entries[0].password, "s/e@c%ret");
    EXPECT_EQ(entries[0].portal.host, "10.0.0.7");
    EXPECT_EQ(entries[0].portal.port, 3261);
    EXPECT_EQ(entries[0].target, "iqn.2001-04.com.example:lib");
    EXPECT_EQ(entries[0].lun, 7);
}

TEST(IscsiSetting, ReadsAddressesInBrackets) {
    const auto entries = parse_iscsi_setting("iscsi://[fe80::1]/t;iscsi://[::1]:99/t/0");
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries[0].portal.host, "fe80::1");
    EXPECT_EQ(entries[0].portal.text(), "[fe80::1]:3260");
    EXPECT_EQ(entries[1].portal.port, 99);
    EXPECT_EQ(entries[1].lun, 0);
}

TEST(IscsiSetting, PassesOverBlanksAndEmptyEntries) {
    EXPECT_THAT(parse_iscsi_setting(""), IsEmpty());
    EXPECT_THAT(parse_iscsi_setting(" ; ;"), IsEmpty());
    EXPECT_EQ(parse_iscsi_setting(" iscsi://a/ ;; iscsi://b/t/ ;").size(), 2U);
}

TEST(IscsiSetting, RefusesWhatItDoesNotUnderstand) {
    EXPECT_EQ(refusal("host"), "iSCSI setting: entry [host]: \"iscsi://\" is expected at its start.");
    EXPECT_EQ(refusal("iscsi://host/t/256"),
              "iSCSI setting: entry [iscsi://host/t/256]: the logical unit number must be a number from 0 to 255.");
    EXPECT_EQ(refusal("iscsi://host//3"),
              "iSCSI setting: entry [iscsi://host//3]: a logical unit number needs a target in front of it.");
    for (const char* bad : {"iscsi://", "iscsi:///t", "iscsi://h:0", "iscsi://h:65536", "iscsi://h:", "iscsi://h:x", "iscsi://[::1",
                            "iscsi://[::1]x", "iscsi://[]:1"}) {
        EXPECT_EQ(refusal(bad),
                  "iSCSI setting: entry [" + std::string(bad) +
                      "]: a host, and a port from 1 to 65535 if any, is expected; an IPv6 address stands in brackets.");
    }
    for (const char* bad : {"iscsi://h/t/-1", "iscsi://h/t/1x", "iscsi://h/t/0/1"}) {
        EXPECT_NE(refusal(bad).find("the logical unit number must be"), std::string::npos) << bad;
    }
}

TEST(IscsiSetting, ShowsNoPassword) {
    EXPECT_EQ(refusal("iscsi://user%secret@host:0"),
              "iSCSI setting: entry [iscsi://***@host:0]: a host, and a port from 1 to 65535 if any, is expected; an IPv6 address "
              "stands in brackets.");
    EXPECT_EQ(refusal("iscsi://secret@host"),
              "iSCSI setting: entry [iscsi://***@host]: in front of \"@\" a user and a password "
              "separated by \"%\" are expected.");
    EXPECT_EQ(refusal("iscsl://user%secret@host"), "iSCSI setting: entry [***@host]: \"iscsi://\" is expected at its start.");
    for (const char* bad : {"iscsi://%secret@h", "iscsi://user%@h"}) {
        EXPECT_EQ(refusal(bad).find("secret"), std::string::npos);
        EXPECT_FALSE(refusal(bad).empty());
    }
}
