#include "foundation/util/bytes.h"
#include "virtual_library/library_fixture.h"

namespace platform::tape_library {

class element_status_test : public library_test {
protected:
    [[nodiscard]] byte_vector status(std::uint8_t type, std::uint16_t first, std::uint16_t count, bool tags = true,
                                     bool identifiers = false, std::uint32_t allocation = 0xFFFF) {
        const answer got = send(*changer, status_cdb(type, first, count, tags, identifiers, allocation), 65535);
        EXPECT_EQ(outcome_text(got.outcome), "ok");
        return got.data;
    }

    static byte_vector part(const byte_vector& bytes, std::size_t at, std::size_t count) {
        const auto piece = util::slice(bytes, at, count);
        return {piece.begin(), piece.end()};
    }

    static byte_vector padded(const std::string& text, std::size_t width) {
        byte_vector bytes;
        append_padded(bytes, text, width);
        return bytes;
    }
};

TEST_F(element_status_test, describes_one_slot_byte_by_byte) {
    start();
    const byte_vector report = status(2, slot + 2, 1);
    const byte_vector head{0x10, 0x02, 0x00, 0x01, 0x00, 0x00, 0x00, 0x3C,  // first element 0x1002, one element, 60 bytes
                           0x02, 0x80, 0x00, 0x34, 0x00, 0x00, 0x00, 0x34,  // slots with volume tags, 52 bytes each
                           0x10, 0x02, 0x09, 0x00, 0x00, 0x00, 0x00, 0x00,  // full, accessible
                           0x00, 0x01, 0x00, 0x00};                         // data medium, no source
    ASSERT_EQ(report.size(), 68U);
    EXPECT_EQ(part(report, 0, 28), head);
    EXPECT_EQ(part(report, 28, 32), padded("TRN003L8", 32));
    EXPECT_EQ(part(report, 60, 8), byte_vector(8));
}

TEST_F(element_status_test, leaves_the_tag_of_an_empty_element_zero_or_blank) {
    start();
    EXPECT_EQ(part(status(2, slot + 20, 1), 28, 36), byte_vector(36));
    personality value = make_personality();
    value.blank_empty_tags = true;
    start(value);
    byte_vector blank = padded("", 32);
    blank.resize(36);
    EXPECT_EQ(part(status(2, slot + 20, 1), 28, 36), blank);
}

TEST_F(element_status_test, describes_a_drive_with_its_identifier) {
    start();
    ASSERT_EQ(move(slot, drive_element), "ok");
    const byte_vector report = status(4, drive_element, 500, true, true);
    EXPECT_EQ(part(report, 0, 16), (byte_vector{0x01, 0x00, 0x00, 0x02, 0, 0, 0, 0xB4, 0x04, 0x80, 0x00, 0x56, 0, 0, 0, 0xAC}));
    EXPECT_EQ(part(report, 16, 12), (byte_vector{0x01, 0x00, 0x09, 0, 0, 0, 0, 0, 0, 0x81, 0x10, 0x00}));
    EXPECT_EQ(part(report, 28, 32), padded("TRN001L8", 32));
    EXPECT_EQ(part(report, 64, 4), (byte_vector{0x02, 0x01, 0x00, 0x22}));
    EXPECT_EQ(part(report, 68, 34), padded("TARNO   VIRTUAL-LTO8    TRNDRV0001", 34));
    EXPECT_EQ(part(report, 102, 12), (byte_vector{0x01, 0x01, 0x08, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(part(report, 154, 34), padded("TARNO   VIRTUAL-LTO8    TRNDRV0002", 34));
    EXPECT_EQ(report.size(), 188U);
}

TEST_F(element_status_test, knows_the_forms_of_a_drive_identifier) {
    struct {
        drive_identifier form;
        byte_vector header;
        std::string text;
        std::size_t length;
    } const rows[] = {
        {drive_identifier::none, {0, 0, 0, 0}, "", 16},
        {drive_identifier::vendor_serial, {2, 0, 0, 32}, "TRNDRV0001                      ", 48},
        {drive_identifier::vendor_full, {2, 0, 0, 56}, "TARNO   VIRTUAL-LTO8    TRNDRV0001                      ", 72},
        {drive_identifier::tail, {0, 0, 0, 0}, "TRNDRV0001                      ", 48},
    };
    for (const auto& row : rows) {
        personality value = make_personality();
        value.identifier = row.form;
        start(value);
        const byte_vector report = status(4, drive_element, 1, false, true);
        EXPECT_EQ(util::load_be16(report, 10), row.length);
        EXPECT_EQ(report.size(), 16 + row.length);
        EXPECT_EQ(part(report, 28, 4), row.header);
        EXPECT_EQ(util::to_text(part(report, 32, 56)), row.text);
    }
}

TEST_F(element_status_test, identifies_a_drive_by_its_name_address_authority) {
    personality value = make_personality();
    value.identifier = drive_identifier::naa;
    start(value);
    const byte_vector report = status(4, drive_element, 1, false, true);
    EXPECT_EQ(part(report, 28, 4), (byte_vector{1, 3, 0, 8}));
    EXPECT_EQ(util::load_be64(report, 32), naa_name("TARNO", "VIRTUAL-LTO8", "TRNDRV0001"));
    EXPECT_EQ(report[32] >> 4, 3);
}

TEST_F(element_status_test, keeps_a_tail_serial_number_last_behind_extra_bytes) {
    personality value = make_personality();
    value.identifier = drive_identifier::tail;
    value.extra_bytes = 5;
    start(value);
    const byte_vector report = status(4, drive_element, 1, false, true);
    ASSERT_EQ(report.size(), 16U + 53U);
    EXPECT_EQ(util::to_text(part(report, 16 + 21, 32)), "TRNDRV0001                      ");
}

TEST_F(element_status_test, has_no_identifier_for_other_types_or_unasked) {
    start();
    EXPECT_EQ(util::load_be16(status(2, slot, 1, true, true), 10), 52);
    EXPECT_EQ(util::load_be16(status(4, drive_element, 1, true, false), 10), 52);
}

TEST_F(element_status_test, reports_all_types_in_ascending_addresses) {
    start();
    const byte_vector report = status(0, 0, 0xFFFF, false);
    EXPECT_EQ(part(report, 0, 8), (byte_vector{0, 0, 0, 29, 0, 0, 0x01, 0xF0}));
    std::vector<std::uint8_t> types;
    std::vector<std::uint16_t> addresses;
    std::size_t at = 8;
    while (at < report.size()) {
        types.push_back(report[at]);
        const std::size_t end = at + 8 + util::load_be24(report, at + 5);
        for (at += 8; at < end; at += 16) {
            addresses.push_back(util::load_be16(report, at));
        }
    }
    EXPECT_EQ(types, (std::vector<std::uint8_t>{1, 3, 4, 2}));
    EXPECT_EQ(addresses.size(), 29U);
    EXPECT_TRUE(std::is_sorted(addresses.begin(), addresses.end()));
}

TEST_F(element_status_test, counts_from_the_starting_address_over_types) {
    start();
    const byte_vector report = status(0, 0x11, 4, false);
    EXPECT_EQ(part(report, 0, 8), (byte_vector{0, 0x11, 0, 4, 0, 0, 0, 88}));
    EXPECT_EQ(util::load_be16(report, 16), 0x11);
    EXPECT_EQ(report[32], 4);
    EXPECT_EQ(util::load_be24(report, 37), 32U);
    EXPECT_EQ(report[72], 2);
    EXPECT_EQ(util::load_be16(report, 80), slot);
    EXPECT_EQ(report.size(), 96U);
}

TEST_F(element_status_test, begins_with_the_first_element_at_or_behind_the_starting_address) {
    start();
    EXPECT_EQ(util::load_be16(status(4, 0, 1, false), 0), drive_element);
    EXPECT_EQ(util::load_be16(status(2, 0, 1, false), 16), slot);
}

TEST_F(element_status_test, refuses_what_it_cannot_report) {
    start();
    EXPECT_EQ(result(*changer, status_cdb(2, slot + 24, 1), 100), "5/21/01");
    EXPECT_EQ(result(*changer, status_cdb(4, 0x102, 1), 100), "5/21/01");
    EXPECT_EQ(result(*changer, status_cdb(5, 0, 1), 100), "5/24/00");
    personality value = make_personality();
    value.volume_tags = false;
    value.device_identifiers = false;
    start(value);
    EXPECT_EQ(result(*changer, status_cdb(2, slot, 1, true), 100), "5/24/00");
    EXPECT_EQ(result(*changer, status_cdb(4, 0, 1, false, true), 100), "5/24/00");
    EXPECT_EQ(result(*changer, status_cdb(4, 0, 1, false, false), 100), "ok");
}

TEST_F(element_status_test, counts_everything_and_delivers_whole_descriptors_that_fit) {
    start();
    for (const std::uint32_t allocation : {8U, 15U, 16U, 67U, 68U, 119U, 120U, 3840U}) {
        const byte_vector report = status(2, slot, 24, true, false, allocation);
        EXPECT_EQ(part(report, 0, 8), (byte_vector{0x10, 0, 0, 24, 0, 0, 0x04, 0xE8}));
        const std::size_t whole = allocation < 16 ? 8 : 16 + (allocation - 16) / 52 * 52;
        EXPECT_EQ(report.size(), std::min<std::size_t>(whole, 16 + 24 * 52)) << allocation;
        if (allocation >= 16) {
            EXPECT_EQ(util::load_be24(report, 13), 24U * 52U);
        }
    }
    EXPECT_EQ(status(2, slot, 24, true, false, 5), (byte_vector{0x10, 0, 0, 24, 0}));
    EXPECT_TRUE(status(2, slot, 24, true, false, 0).empty());
}

TEST_F(element_status_test, delivers_no_more_than_the_room_of_the_caller) {
    start();
    const answer got = send(*changer, status_cdb(2, slot, 24), 20);
    EXPECT_EQ(got.outcome.transferred, 20U);
}

TEST_F(element_status_test, reports_only_the_header_for_a_count_of_zero) {
    start();
    EXPECT_EQ(status(2, slot, 0), (byte_vector{0x10, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(element_status_test, tells_who_put_a_cartridge_into_a_port) {
    start();
    ASSERT_TRUE(library->insert(port, "NEW001L8"));
    EXPECT_EQ(result(*changer, test_unit_ready_cdb), "6/28/01");
    EXPECT_EQ(status(3, port, 1)[18], 0x3B);
    EXPECT_EQ(status(3, port + 1, 1)[18], 0x38);
    ASSERT_EQ(move(slot, port + 1), "ok");
    EXPECT_EQ(status(3, port + 1, 1)[18], 0x39);
}

TEST_F(element_status_test, shows_an_open_port_as_out_of_reach) {
    start();
    ASSERT_TRUE(library->open_ports());
    EXPECT_EQ(status(3, port, 1)[18], 0x30);
    EXPECT_EQ(move(slot, port), "5/3b/11");
    library->close_ports();
    EXPECT_EQ(result(*changer, status_cdb(3, port, 1), 100), "6/28/01");
    EXPECT_EQ(status(3, port, 1)[18], 0x38);
}

TEST_F(element_status_test, shows_a_drive_that_keeps_its_tape_as_out_of_reach) {
    personality value = make_personality();
    value.unload_on_move = false;
    start(value);
    ASSERT_EQ(move(slot, drive_element), "ok");
    EXPECT_EQ(status(4, drive_element, 1)[18], 0x01);
    ASSERT_EQ(result(*drive, test_unit_ready_cdb), "6/28/00");
    ASSERT_EQ(result(*drive, {0x1B, 0, 0, 0, 0, 0}), "ok");
    EXPECT_EQ(status(4, drive_element, 1)[18], 0x09);
}

TEST_F(element_status_test, shows_an_exception_with_its_code) {
    start();
    library->set_exception(slot, {0x4, 0x83, 0x01});
    const byte_vector report = status(2, slot, 1);
    EXPECT_EQ(part(report, 16, 6), (byte_vector{0x10, 0x00, 0x0D, 0x00, 0x83, 0x01}));
    library->set_exception(slot, sense::none);
    EXPECT_EQ(part(status(2, slot, 1), 16, 6), (byte_vector{0x10, 0x00, 0x09, 0x00, 0x00, 0x00}));
}

TEST_F(element_status_test, tells_the_type_of_a_medium) {
    personality value = make_personality();
    value.cartridges[1].cleaning = true;
    value.cartridges[2].worm = true;
    start(value);
    const byte_vector report = status(2, slot, 3, false);
    EXPECT_EQ(report[16 + 9], 1);
    EXPECT_EQ(report[32 + 9], 2);
    EXPECT_EQ(report[48 + 9], 4);
    value.medium_types = false;
    start(value);
    EXPECT_EQ(status(2, slot, 3, false)[32 + 9], 0);
}

TEST_F(element_status_test, reads_a_portion_of_a_great_library) {
    library_options options;
    options.slots = 10000;
    options.cartridges = 10000;
    start(make_personality(options));
    const byte_vector report = status(2, slot + 9950, 100);
    EXPECT_EQ(util::load_be16(report, 2), 50);
    EXPECT_EQ(report.size(), 16U + 50U * 52U);
    EXPECT_EQ(util::to_text(part(report, report.size() - 52 + 12, 11)), "TRN10000L8 ");
}

}  // namespace platform::tape_library
