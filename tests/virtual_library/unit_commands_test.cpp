#include "foundation/util/bytes.h"
#include "virtual_library/library_fixture.h"

namespace platform::tape_library {

class unit_commands_test : public library_test {
protected:
    static byte_vector part(const byte_vector& bytes, std::size_t at, std::size_t count) {
        const auto piece = util::slice(bytes, at, count);
        return {piece.begin(), piece.end()};
    }
};

TEST_F(unit_commands_test, answers_an_inquiry) {
    start();
    const byte_vector reply = send(*changer, {0x12, 0, 0, 0, 0xFF, 0}, 255).data;
    ASSERT_EQ(reply.size(), 96U);
    EXPECT_EQ(part(reply, 0, 8), (byte_vector{0x08, 0x80, 0x06, 0x02, 91, 0, 0, 0}));
    EXPECT_EQ(util::to_text(part(reply, 8, 28)), "TARNO   VIRTUAL-LIBRARY 0100");
    EXPECT_EQ(part(reply, 58, 8), (byte_vector{0x00, 0xA0, 0x04, 0x60, 0x04, 0x80, 0, 0}));
    const byte_vector of_drive = send(*drive, {0x12, 0, 0, 0, 36, 0}, 255).data;
    ASSERT_EQ(of_drive.size(), 36U);
    EXPECT_EQ(of_drive[0], 0x01);
    EXPECT_EQ(util::to_text(part(of_drive, 8, 28)), "TARNO   VIRTUAL-LTO8    0100");
    EXPECT_EQ(result(*changer, {0x12, 0, 0x80, 0, 36, 0}, 36), "5/24/00");
}

TEST_F(unit_commands_test, answers_the_vital_product_data_pages) {
    start();
    EXPECT_EQ(send(*changer, {0x12, 1, 0x00, 0, 0xFF, 0}, 255).data, (byte_vector{8, 0x00, 0, 3, 0x00, 0x80, 0x83}));
    EXPECT_EQ(send(*drive, {0x12, 1, 0x00, 0, 0xFF, 0}, 255).data, (byte_vector{1, 0x00, 0, 4, 0x00, 0x80, 0x83, 0xB0}));
    EXPECT_EQ(send(*drive, {0x12, 1, 0xB0, 0, 0xFF, 0}, 255).data, (byte_vector{1, 0xB0, 0, 2, 0x01, 0}));
    const byte_vector serial = send(*drive, {0x12, 1, 0x80, 0, 0xFF, 0}, 255).data;
    EXPECT_EQ(part(serial, 0, 4), (byte_vector{1, 0x80, 0, 10}));
    EXPECT_EQ(util::to_text(part(serial, 4, 10)), "TRNDRV0001");
    EXPECT_EQ(result(*changer, {0x12, 1, 0xB0, 0, 0xFF, 0}, 255), "5/24/00");
}

TEST_F(unit_commands_test, answers_designators_in_the_order_of_the_personality) {
    personality value = make_personality();
    value.designators = {designator::naa, designator::t10_vendor, designator::vendor_specific, designator::scsi_name};
    start(value);
    const byte_vector page = send(*changer, {0x12, 1, 0x83, 0, 0xFF, 0}, 255).data;
    EXPECT_EQ(part(page, 0, 8), (byte_vector{8, 0x83, 0, 12 + 38 + 14 + 28, 1, 3, 0, 8}));
    EXPECT_EQ(util::load_be64(page, 8), naa_name("TARNO", "VIRTUAL-LIBRARY", "TRNLIB0001"));
    EXPECT_EQ(part(page, 16, 4), (byte_vector{2, 1, 0, 34}));
    EXPECT_EQ(util::to_text(part(page, 20, 34)), "TARNO   VIRTUAL-LIBRARY TRNLIB0001");
    EXPECT_EQ(part(page, 54, 4), (byte_vector{2, 0, 0, 10}));
    EXPECT_EQ(util::to_text(part(page, 58, 10)), "TRNLIB0001");
    EXPECT_EQ(part(page, 68, 4), (byte_vector{3, 8, 0, 24}));
    EXPECT_EQ(util::to_text(part(page, 72, 4)), "naa.");
    EXPECT_EQ(part(page, 92, 4), byte_vector(4));
}

TEST_F(unit_commands_test, has_no_identification_page_without_designators) {
    personality value = make_personality();
    value.designators.clear();
    start(value);
    EXPECT_EQ(send(*changer, {0x12, 1, 0x00, 0, 0xFF, 0}, 255).data, (byte_vector{8, 0x00, 0, 2, 0x00, 0x80}));
    EXPECT_EQ(result(*changer, {0x12, 1, 0x83, 0, 0xFF, 0}, 255), "5/24/00");
}

TEST_F(unit_commands_test, answers_the_changer_mode_pages) {
    start();
    const byte_vector addresses{0x1D, 18, 0, 0, 0, 1, 0x10, 0, 0, 24, 0, 0x10, 0, 2, 1, 0, 0, 2, 0, 0};
    const byte_vector geometry{0x1E, 2, 0, 0};
    const byte_vector capabilities{0x1F, 18, 0x0E, 0, 0x0E, 0x0E, 0x0E, 0x0E, 0, 0, 0, 0, 0, 0x0E, 0x0E, 0x0E, 0, 0, 0, 0};
    const auto with_header = [](byte_vector header, const byte_vector& page) {
        header.insert(header.end(), page.begin(), page.end());
        return header;
    };
    EXPECT_EQ(send(*changer, {0x1A, 8, 0x1D, 0, 0x18, 0}, 32).data, with_header({23, 0, 0, 0}, addresses));
    EXPECT_EQ(send(*changer, {0x1A, 0, 0x1D, 0, 0x18, 0}, 32).data, with_header({23, 0, 0, 0}, addresses));
    EXPECT_EQ(send(*changer, {0x1A, 8, 0x1E, 0, 0xFF, 0}, 255).data, with_header({7, 0, 0, 0}, geometry));
    EXPECT_EQ(send(*changer, {0x1A, 8, 0x1F, 0, 0x18, 0}, 512).data, with_header({23, 0, 0, 0}, capabilities));
    byte_vector all = with_header({47, 0, 0, 0}, addresses);
    all = with_header(with_header(all, geometry), capabilities);
    EXPECT_EQ(send(*changer, {0x1A, 8, 0x3F, 0, 0xFF, 0}, 255).data, all);
    EXPECT_EQ(send(*changer, {0x5A, 8, 0x1F, 0, 0, 0, 0, 0, 0xFF, 0}, 255).data,
              with_header({0, 26, 0, 0, 0, 0, 0, 0}, capabilities));
    EXPECT_EQ(send(*changer, {0x1A, 8, 0x1D, 0, 6, 0}, 32).data, (byte_vector{23, 0, 0, 0, 0x1D, 18}));
}

TEST_F(unit_commands_test, knows_the_page_controls) {
    start();
    EXPECT_EQ(send(*changer, {0x1A, 8, 0x5E, 0, 0xFF, 0}, 255).data, (byte_vector{7, 0, 0, 0, 0x1E, 2, 0, 0}));
    EXPECT_EQ(part(send(*changer, {0x1A, 8, 0x5D, 0, 0xFF, 0}, 255).data, 6, 18), byte_vector(18));
    EXPECT_EQ(result(*changer, {0x1A, 8, 0x9D, 0, 0xFF, 0}, 255), "ok");
    EXPECT_EQ(result(*changer, {0x1A, 8, 0xDD, 0, 0xFF, 0}, 255), "5/39/00");
    EXPECT_EQ(result(*changer, {0x5A, 8, 0xDD, 0, 0, 0, 0, 0, 0xFF, 0}, 255), "5/39/00");
    EXPECT_EQ(result(*changer, {0x1A, 8, 0x0F, 0, 0xFF, 0}, 255), "5/24/00");
    EXPECT_EQ(result(*changer, {0x1A, 8, 0x1D, 1, 0xFF, 0}, 255), "5/24/00");
    EXPECT_EQ(result(*changer, {0x1A, 8, 0x3F, 0xFF, 0xFF, 0}, 255), "ok");
}

TEST_F(unit_commands_test, announces_no_exchange_that_it_lacks) {
    personality value = make_personality();
    value.exchange = false;
    start(value);
    EXPECT_EQ(part(send(*changer, {0x1A, 8, 0x1F, 0, 0x18, 0}, 512).data, 16, 4), byte_vector(4));
}

TEST_F(unit_commands_test, answers_the_drive_mode_pages_with_a_block_descriptor) {
    personality value = make_personality();
    value.cartridges[0].write_protected = true;
    value.cartridges[1].worm = true;
    start(value);
    EXPECT_EQ(part(send(*drive, {0x1A, 0, 0x3F, 0, 0xFF, 0}, 255).data, 0, 14),
              (byte_vector{53, 0, 0x10, 8, 0x5E, 0, 0, 0, 0, 0, 0, 0, 0x0F, 14}));
    EXPECT_EQ(part(send(*drive, {0x1A, 8, 0x10, 0, 0xFF, 0}, 255).data, 0, 6), (byte_vector{19, 0, 0x10, 0, 0x10, 14}));
    ASSERT_EQ(move(slot, drive_element), "ok");
    ASSERT_EQ(result(*drive, test_unit_ready_cdb), "6/28/00");
    EXPECT_EQ(part(send(*drive, {0x5A, 0, 0x0F, 0, 0, 0, 0, 0, 0xFF, 0}, 255).data, 0, 10),
              (byte_vector{0, 30, 0x88, 0x90, 0, 0, 0, 8, 0x5E, 0}));
    ASSERT_EQ(move(drive_element, slot), "ok");
    ASSERT_EQ(move(slot + 1, drive_element), "ok");
    ASSERT_EQ(result(*drive, test_unit_ready_cdb), "6/28/00");
    EXPECT_EQ(part(send(*drive, {0x1A, 0, 0x0F, 0, 0xFF, 0}, 255).data, 0, 4), (byte_vector{27, 0x8C, 0x10, 8}));
}

TEST_F(unit_commands_test, answers_the_alert_log_once_to_each_initiator) {
    start();
    const auto other = library->connect(0);
    library->set_alert(0, 17, true);
    const byte_vector read{0x4D, 0, 0x6E, 0, 0, 0, 0, 0x01, 0x44, 0};
    const byte_vector page = send(*changer, read, 324).data;
    ASSERT_EQ(page.size(), 324U);
    EXPECT_EQ(part(page, 0, 9), (byte_vector{0x2E, 0, 0x01, 0x40, 0, 1, 3, 1, 0}));
    EXPECT_EQ(part(page, 4 + 16 * 5, 5), (byte_vector{0, 17, 3, 1, 1}));
    EXPECT_EQ(part(page, 319, 5), (byte_vector{0, 64, 3, 1, 0}));
    EXPECT_EQ(send(*changer, read, 324).data[4 + 16 * 5 + 4], 0);
    EXPECT_EQ(send(*other, read, 324).data[4 + 16 * 5 + 4], 1);
    library->set_alert(0, 17, true);
    EXPECT_EQ(send(*changer, read, 324).data[4 + 16 * 5 + 4], 1);
    library->set_alert(0, 17, true);
    library->set_alert(0, 17, false);
    EXPECT_EQ(send(*changer, read, 324).data[4 + 16 * 5 + 4], 0);
    EXPECT_EQ(result(*changer, {0x4D, 0, 0x4C, 0, 0, 0, 0, 0, 0xFF, 0}, 255), "5/24/00");
}

TEST_F(unit_commands_test, reserves_a_unit_for_one_initiator) {
    start();
    auto other = library->connect(0);
    EXPECT_EQ(result(*other, {0x16, 0, 0, 0, 0, 0}), "ok");
    EXPECT_EQ(result(*changer, test_unit_ready_cdb), "status 18");
    EXPECT_EQ(result(*changer, {0x16, 0, 0, 0, 0, 0}), "status 18");
    EXPECT_EQ(result(*changer, {0x12, 0, 0, 0, 36, 0}, 36), "ok");
    EXPECT_EQ(result(*changer, {0x03, 0, 0, 0, 18, 0}, 18), "ok");
    EXPECT_EQ(result(*changer, {0x17, 0, 0, 0, 0, 0}), "ok");
    EXPECT_EQ(result(*changer, test_unit_ready_cdb), "status 18");
    EXPECT_EQ(result(*other, test_unit_ready_cdb), "ok");
    EXPECT_EQ(result(*other, {0x57, 0, 0, 0, 0, 0, 0, 0, 0, 0}), "ok");
    EXPECT_EQ(result(*changer, test_unit_ready_cdb), "ok");
    EXPECT_EQ(result(*other, {0x56, 0, 0, 0, 0, 0, 0, 0, 0, 0}), "ok");
    other.reset();
    EXPECT_EQ(result(*changer, test_unit_ready_cdb), "ok");
    EXPECT_EQ(result(*changer, {0x16, 1, 0, 0, 0, 0}), "5/24/00");
    EXPECT_EQ(result(*changer, {0x17, 1, 0, 0, 0, 0}), "5/24/00");
}

TEST_F(unit_commands_test, keeps_the_ports_shut_while_an_initiator_prevents_removal) {
    start();
    auto other = library->connect(0);
    EXPECT_EQ(result(*other, {0x1E, 0, 0, 0, 1, 0}), "ok");
    EXPECT_FALSE(library->open_ports());
    EXPECT_FALSE(library->insert(port, "NEW001L8"));
    EXPECT_EQ(result(*changer, {0x1E, 0, 0, 0, 0, 0}), "ok");
    EXPECT_FALSE(library->open_ports());
    other.reset();
    EXPECT_TRUE(library->insert(port, "NEW001L8"));
    EXPECT_FALSE(library->insert(port, "NEW002L8"));
    EXPECT_TRUE(library->remove(port));
    EXPECT_FALSE(library->remove(port));
    EXPECT_FALSE(library->remove(slot));
    ASSERT_EQ(result(*changer, test_unit_ready_cdb), "6/28/01");
    EXPECT_EQ(result(*changer, {0x1E, 0, 0, 0, 2, 0}), "5/24/00");
}

TEST_F(unit_commands_test, queues_unit_attentions_for_each_initiator) {
    start();
    const auto other = library->connect(0);
    library->raise(0, sense::import_export_accessed);
    library->raise(0, sense::medium_may_have_changed);
    library->raise(0, sense::import_export_accessed);
    EXPECT_EQ(result(*changer, {0x12, 0, 0, 0, 36, 0}, 36), "ok");
    EXPECT_EQ(result(*changer, {0xA0, 0, 0, 0, 0, 0, 0, 0, 0, 64, 0, 0}, 64), "ok");
    EXPECT_EQ(result(*changer, {0xFF, 0, 0, 0, 0, 0}), "6/28/01");
    EXPECT_EQ(send(*changer, {0x03, 0, 0, 0, 252, 0}, 252).data,
              (byte_vector{0x70, 0, 6, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x28, 0, 0, 0, 0, 0}));
    EXPECT_EQ(result(*changer, test_unit_ready_cdb), "ok");
    EXPECT_EQ(result(*other, test_unit_ready_cdb), "6/28/01");
    EXPECT_EQ(send(*other, {0x03, 1, 0, 0, 252, 0}, 252).data, (byte_vector{0x72, 6, 0x28, 0, 0, 0, 0, 0}));
    EXPECT_EQ(send(*other, {0x03, 0, 0, 0, 8, 0}, 252).data, (byte_vector{0x70, 0, 0, 0, 0, 0, 0, 10}));
}

TEST_F(unit_commands_test, starts_a_new_initiator_with_an_attention_only_when_the_personality_says_so) {
    personality value = make_personality();
    value.power_on_attention = true;
    start(value);
    EXPECT_EQ(result(*changer, test_unit_ready_cdb), "6/29/00");
    EXPECT_EQ(result(*changer, test_unit_ready_cdb), "ok");
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "6/29/00");
    EXPECT_EQ(result(*library->connect(0), test_unit_ready_cdb), "6/29/00");
}

TEST_F(unit_commands_test, refuses_operation_codes_without_a_row) {
    personality value = make_personality();
    value.refused = {0xB8, 0x1A};
    start(value);
    for (const std::uint8_t code : byte_vector{0x02, 0x08, 0x0A, 0x3C, 0x8C, 0xB5, 0xFF, 0xB8, 0x1A}) {
        byte_vector cdb(16);
        cdb[0] = code;
        EXPECT_EQ(result(*changer, cdb), "5/20/00") << int{code};
    }
    EXPECT_EQ(result(*drive, move_cdb(slot, slot + 20)), "5/20/00");
    EXPECT_EQ(result(*changer, {}), "5/24/00");
}

TEST_F(unit_commands_test, lists_its_units) {
    start();
    byte_vector expected(32);
    expected[3] = 24;
    expected[17] = 1;
    expected[25] = 2;
    EXPECT_EQ(send(*changer, {0xA0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0}, 256).data, expected);
    EXPECT_EQ(send(*drive, {0xA0, 0, 0, 0, 0, 0, 0, 0, 0, 16, 0, 0}, 256).data.size(), 16U);
}

TEST_F(unit_commands_test, tells_an_empty_drive_from_a_loaded_one) {
    start();
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/3a/00");
    EXPECT_EQ(result(*drive, {0x01, 0, 0, 0, 0, 0}), "2/3a/00");
    EXPECT_EQ(result(*drive, {0x1B, 0, 0, 0, 1, 0}), "2/3a/00");
    EXPECT_EQ(result(*drive, {0x1B, 0, 0, 0, 0, 0}), "2/3a/00");
    ASSERT_EQ(move(slot, drive_element), "ok");
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "6/28/00");
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "ok");
    EXPECT_EQ(result(*drive, {0x01, 0, 0, 0, 0, 0}), "ok");
    EXPECT_EQ(send(*drive, {0x05, 0, 0, 0, 0, 0}, 6).data, (byte_vector{0, 0x80, 0, 0, 0, 1}));
}

TEST_F(unit_commands_test, unloads_and_loads_a_drive) {
    personality value = make_personality();
    value.timings.load = 12000;
    value.timings.unload = 4000;
    value.timings.rewind = 1500;
    value.cartridges[0].element = drive_element;
    start(value);
    const auto other = library->connect(1);
    EXPECT_EQ(result(*drive, {0x01, 0, 0, 0, 0, 0}), "ok");
    EXPECT_EQ(result(*drive, {0x01, 1, 0, 0, 0, 0}), "ok");
    system.clock.advance(1500);
    EXPECT_EQ(result(*drive, {0x1E, 0, 0, 0, 1, 0}), "ok");
    EXPECT_EQ(result(*drive, {0x1B, 0, 0, 0, 0, 0}), "5/53/02");
    EXPECT_EQ(result(*drive, {0x1E, 0, 0, 0, 0, 0}), "ok");
    EXPECT_EQ(result(*drive, {0x1B, 0, 0, 0, 0, 0}), "ok");
    EXPECT_EQ(result(*drive, {0x1B, 0, 0, 0, 0, 0}), "ok");
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/3a/00");
    EXPECT_EQ(result(*drive, {0x1B, 0, 0, 0, 1, 0}), "ok");
    EXPECT_EQ(system.clock.sleeps(), (std::vector<std::int64_t>{1500, 4000, 12000}));
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "ok");
    EXPECT_EQ(result(*other, test_unit_ready_cdb), "6/28/00");
    EXPECT_EQ(result(*drive, {0x1B, 1, 0, 0, 0, 0}), "ok");
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/04/07");
    EXPECT_EQ(result(*drive, {0x1B, 1, 0, 0, 1, 0}), "2/04/07");
    system.clock.advance(4000);
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/3a/00");
    EXPECT_EQ(result(*drive, {0x1B, 1, 0, 0, 1, 0}), "ok");
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/04/01");
    EXPECT_EQ(result(*drive, {0x1B, 0, 0, 0, 1, 0}, 0, 5), "transport 121");
    system.clock.advance(7000);
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "ok");
}

TEST_F(unit_commands_test, keeps_an_ejected_tape_ejected_over_a_restart) {
    personality value = make_personality();
    value.cartridges[0].element = drive_element;
    start(value);
    ASSERT_EQ(result(*drive, {0x1B, 0, 0, 0, 0, 0}), "ok");
    stop();
    open();
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/3a/00");
    system.files.set_free_bytes(10);
    EXPECT_EQ(result(*drive, {0x1B, 0, 0, 0, 1, 0}), "4/44/00");
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/3a/00");
}

TEST_F(unit_commands_test, knows_a_cleaning_cartridge) {
    personality value = make_personality();
    value.cartridges[0].cleaning = true;
    start(value);
    ASSERT_EQ(move(slot, drive_element), "ok");
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "6/28/00");
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/30/03");
}

TEST_F(unit_commands_test, takes_its_inventory_when_asked) {
    personality value = make_personality();
    value.timings.inventory = 30000;
    start(value);
    EXPECT_EQ(result(*changer, {0x07, 0, 0, 0, 0, 0}), "ok");
    EXPECT_EQ(result(*changer, {0x37, 1, 0x10, 0, 0, 0, 0, 4, 0, 0}), "ok");
    EXPECT_EQ(system.clock.sleeps(), (std::vector<std::int64_t>{30000, 30000}));
    EXPECT_EQ(result(*changer, {0x07, 0, 0, 0, 0, 0}, 0, 10), "transport 121");
}

}  // namespace platform::tape_library
