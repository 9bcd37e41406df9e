#include "foundation/util/bytes.h"
#include "virtual_library/library_fixture.h"

namespace platform::tape_library {

namespace {

const byte_vector request_sense_cdb{0x03, 0, 0, 0, 252, 0};
const byte_vector request_descriptor_sense_cdb{0x03, 1, 0, 0, 252, 0};
const byte_vector rewind_cdb{0x01, 0, 0, 0, 0, 0};
const byte_vector rewind_immediate_cdb{0x01, 1, 0, 0, 0, 0};
const byte_vector erase_short_cdb{0x19, 0, 0, 0, 0, 0};
const byte_vector erase_long_cdb{0x19, 1, 0, 0, 0, 0};
const byte_vector erase_long_immediate_cdb{0x19, 3, 0, 0, 0, 0};
const byte_vector format_cdb{0x04, 0, 0, 0, 0, 0};
const byte_vector format_immediate_cdb{0x04, 1, 0, 0, 0, 0};
const byte_vector load_cdb{0x1B, 0, 0, 0, 1, 0};
const byte_vector unload_cdb{0x1B, 0, 0, 0, 0, 0};
const byte_vector position_cdb{0x34, 0, 0, 0, 0, 0, 0, 0, 0, 0};
const byte_vector attributes_cdb{0x8C, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0};
const byte_vector written_cdb{0x8C, 0, 0, 0, 0, 0, 0, 0, 2, 0x20, 0, 0, 1, 0, 0, 0};

}  // namespace

/// A drive with a tape of 1000 MiB of which 400 are used.
class drive_work_test : public library_test {
protected:
    static personality loaded_drive() {
        personality value = make_personality();
        value.cartridges[0].element = drive_element;
        value.cartridges[0].capacity = 1000;
        value.cartridges[0].used = 400;
        value.cartridges[0].written = 7;
        value.timings.erase_short = 3000;
        value.timings.erase_long = 8'000'000;
        value.timings.rewind = 90'000;
        value.timings.tension = 200'000;
        value.timings.format = 40'000;
        return value;
    }

    /// MiB that the tape has room for, and MB that were ever written to it.
    [[nodiscard]] std::uint64_t remaining() { return util::load_be64(send(*drive, attributes_cdb, 256).data, 9); }
    [[nodiscard]] std::uint64_t written() { return util::load_be64(send(*drive, written_cdb, 256).data, 9); }

    [[nodiscard]] bool alert(std::uint8_t flag) {
        const byte_vector page = send(*library->connect(1), {0x4D, 0, 0x6E, 0, 0, 0, 0, 0x01, 0x44, 0}, 324).data;
        return page.at(static_cast<std::size_t>(4 + 5 * (flag - 1) + 4)) != 0;
    }
};

TEST_F(drive_work_test, erases_in_the_time_that_it_takes) {
    start(loaded_drive());
    EXPECT_EQ(remaining(), 600U);
    EXPECT_EQ(result(*drive, erase_short_cdb, 0, 14'400), "ok");
    EXPECT_EQ(remaining(), 1000U);
    EXPECT_EQ(written(), 7U);
    EXPECT_EQ(result(*drive, erase_long_cdb, 0, 86'400), "ok");
    // A thousand MiB are 1048.576 MB.
    EXPECT_EQ(written(), 1055U);
    EXPECT_EQ(system.clock.sleeps(), (std::vector<std::int64_t>{3000, 8'000'000}));
}

TEST_F(drive_work_test, keeps_what_an_erase_changed_over_a_restart) {
    start(loaded_drive());
    ASSERT_EQ(result(*drive, erase_long_immediate_cdb), "ok");
    // The power fails while the drive still erases: what was on the tape is gone all the same.
    stop();
    system.files.lose_power();
    open();
    EXPECT_EQ(remaining(), 1000U);
    EXPECT_EQ(written(), 1055U);
}

TEST_F(drive_work_test, erases_nothing_when_the_state_cannot_be_written) {
    start(loaded_drive());
    system.files.set_free_bytes(10);
    EXPECT_EQ(result(*drive, erase_long_cdb, 0, 86'400), "4/44/00");
    EXPECT_EQ(result(*drive, format_cdb), "4/44/00");
    EXPECT_EQ(remaining(), 600U);
    EXPECT_EQ(written(), 7U);
    EXPECT_TRUE(system.clock.sleeps().empty());
}

TEST_F(drive_work_test, goes_on_with_an_erase_whose_deadline_passes) {
    start(loaded_drive());
    EXPECT_EQ(result(*drive, erase_long_cdb, 0, 60), "transport 121");
    EXPECT_EQ(system.clock.sleeps(), (std::vector<std::int64_t>{60'000}));
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/04/07");
    system.clock.advance(8'000'000 - 60'000 - 1);
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/04/07");
    system.clock.advance(1);
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "ok");
}

TEST_F(drive_work_test, tells_how_far_an_erase_is) {
    start(loaded_drive());
    EXPECT_EQ(send(*drive, request_sense_cdb, 252).data, (byte_vector{0x70, 0, 0, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    ASSERT_EQ(result(*drive, erase_long_immediate_cdb), "ok");
    EXPECT_TRUE(system.clock.sleeps().empty());
    EXPECT_EQ(send(*drive, request_sense_cdb, 252).data,
              (byte_vector{0x70, 0, 0, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x00, 0x18, 0, 0x80, 0, 0}));
    system.clock.advance(2'000'000);
    EXPECT_EQ(send(*drive, request_sense_cdb, 252).data,
              (byte_vector{0x70, 0, 0, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x00, 0x18, 0, 0x80, 0x40, 0}));
    EXPECT_EQ(send(*drive, request_descriptor_sense_cdb, 252).data,
              (byte_vector{0x72, 0, 0x00, 0x18, 0, 0, 0, 8, 0x02, 6, 0, 0, 0x80, 0x40, 0, 0}));
    EXPECT_EQ(send(*drive, test_unit_ready_cdb).outcome.sense,
              (byte_vector{0x70, 0, 2, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x04, 0x07, 0, 0x80, 0x40, 0}));
    system.clock.advance(5'999'999);
    EXPECT_EQ(send(*drive, request_sense_cdb, 252).data,
              (byte_vector{0x70, 0, 0, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x00, 0x18, 0, 0x80, 0xFF, 0xFF}));
    system.clock.advance(1);
    EXPECT_EQ(send(*drive, request_sense_cdb, 252).data, (byte_vector{0x70, 0, 0, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(drive_work_test, answers_what_needs_no_tape_while_it_works) {
    start(loaded_drive());
    ASSERT_EQ(result(*drive, erase_long_immediate_cdb), "ok");
    for (const byte_vector& cdb :
         {test_unit_ready_cdb, rewind_cdb, erase_short_cdb, format_cdb, load_cdb, unload_cdb, position_cdb, attributes_cdb}) {
        EXPECT_EQ(result(*drive, cdb, 256), "2/04/07") << int{cdb[0]};
    }
    for (const byte_vector& cdb :
         {byte_vector{0x12, 0, 0, 0, 96, 0}, byte_vector{0x05, 0, 0, 0, 0, 0}, byte_vector{0x1A, 0, 0x3F, 0, 255, 0},
          byte_vector{0x5A, 0, 0x3F, 0, 0, 0, 0, 0, 255, 0}, byte_vector{0x4D, 0, 0x57, 0, 0, 0, 0, 1, 0, 0},
          byte_vector{0x1E, 0, 0, 0, 0, 0}, byte_vector{0x16, 0, 0, 0, 0, 0}, byte_vector{0x17, 0, 0, 0, 0, 0},
          byte_vector{0xA0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0}}) {
        EXPECT_EQ(result(*drive, cdb, 256), "ok") << int{cdb[0]};
    }
    EXPECT_EQ(result(*library->connect(2), test_unit_ready_cdb), "2/3a/00");
    EXPECT_EQ(move(slot + 1, slot + 20), "ok");
    EXPECT_TRUE(system.clock.sleeps().empty());
}

TEST_F(drive_work_test, gives_no_tape_away_while_it_works) {
    start(loaded_drive());
    ASSERT_EQ(result(*drive, erase_long_immediate_cdb), "ok");
    EXPECT_EQ(move(drive_element, slot + 20), "5/53/02");
    // The element isn't accessible to the robot: full, without the access bit.
    EXPECT_EQ(send(*changer, status_cdb(4, drive_element, 1, false), 100).data[18], 0x01);
    system.clock.advance(8'000'000);
    EXPECT_EQ(send(*changer, status_cdb(4, drive_element, 1, false), 100).data[18], 0x09);
    EXPECT_EQ(move(drive_element, slot + 20), "ok");
}

TEST_F(drive_work_test, lets_go_of_no_tape_whose_erase_began_while_the_robot_was_on_its_way) {
    personality value = loaded_drive();
    value.timings.move = 9000;
    start(value);
    bool begun = false;
    system.clock.on_sleep([&](std::int64_t) {
        if (!begun) {
            begun = true;
            EXPECT_EQ(result(*drive, erase_long_immediate_cdb), "ok");
        }
    });
    EXPECT_EQ(move(drive_element, slot + 20), "5/53/02");
    system.clock.on_sleep({});
    EXPECT_EQ(library->locate("TRN001L8"), drive_element);
}

TEST_F(drive_work_test, refuses_to_destroy_a_protected_tape) {
    personality value = loaded_drive();
    value.cartridges[0].write_protected = true;
    start(value);
    for (const byte_vector& cdb : {erase_short_cdb, erase_long_cdb, erase_long_immediate_cdb, format_cdb}) {
        EXPECT_FALSE(alert(9));
        EXPECT_EQ(result(*drive, cdb), "7/27/00") << int{cdb[0]};
        EXPECT_TRUE(alert(9));
        library->set_alert(1, 9, false);
    }
    EXPECT_EQ(result(*drive, rewind_cdb, 0, 100), "ok");
    EXPECT_EQ(remaining(), 600U);
}

TEST_F(drive_work_test, refuses_to_overwrite_a_worm_tape) {
    personality value = loaded_drive();
    value.cartridges[0].worm = true;
    start(value);
    for (const byte_vector& cdb : {erase_short_cdb, erase_long_cdb, format_cdb}) {
        EXPECT_FALSE(alert(60));
        EXPECT_EQ(result(*drive, cdb), "7/30/0c") << int{cdb[0]};
        EXPECT_TRUE(alert(60));
        library->set_alert(1, 60, false);
    }
    EXPECT_FALSE(alert(9));
    EXPECT_EQ(remaining(), 600U);
}

TEST_F(drive_work_test, forgets_what_it_said_of_a_tape_that_has_gone) {
    personality value = loaded_drive();
    value.cartridges[0].write_protected = true;
    start(value);
    ASSERT_EQ(result(*drive, erase_short_cdb), "7/27/00");
    library->set_alert(1, 30, true);
    ASSERT_EQ(move(drive_element, slot + 20), "ok");
    EXPECT_FALSE(alert(9));
    EXPECT_TRUE(alert(30));
}

TEST_F(drive_work_test, wants_a_tape) {
    start();
    for (const byte_vector& cdb :
         {erase_short_cdb, erase_long_cdb, format_cdb, rewind_cdb, position_cdb, attributes_cdb, load_cdb}) {
        EXPECT_EQ(result(*drive, cdb, 256), "2/3a/00") << int{cdb[0]};
    }
}

TEST_F(drive_work_test, does_nothing_with_a_cleaning_cartridge) {
    personality value = loaded_drive();
    value.cartridges[0].element = slot;
    value.cartridges[0].cleaning = true;
    value.timings.load = 1000;
    start(value);
    library->set_alert(1, 20, true);
    library->set_alert(1, 21, true);
    ASSERT_EQ(move(slot, drive_element), "ok");
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/04/01");
    EXPECT_FALSE(alert(11));
    system.clock.advance(1000);
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "6/28/00");
    for (const byte_vector& cdb : {test_unit_ready_cdb, erase_short_cdb, erase_long_cdb, format_cdb, rewind_cdb, position_cdb}) {
        EXPECT_EQ(result(*drive, cdb, 256), "2/30/03") << int{cdb[0]};
    }
    EXPECT_TRUE(alert(11));
    // The drive is clean now.
    EXPECT_FALSE(alert(20));
    EXPECT_FALSE(alert(21));
    EXPECT_EQ(send(*drive, {0x1A, 0, 0x0F, 0, 4, 0}, 4).data, (byte_vector{27, 0, 0x10, 8}));
    ASSERT_EQ(move(drive_element, slot), "ok");
    EXPECT_FALSE(alert(11));
}

TEST_F(drive_work_test, refuses_fields_that_it_does_not_know) {
    start(loaded_drive());
    for (const byte_vector& cdb : {
             byte_vector{0x19, 4, 0, 0, 0, 0},               // ERASE with a method
             byte_vector{0x19, 8, 0, 0, 0, 0},               // ERASE of security metadata
             byte_vector{0x04, 2, 0, 0, 0, 0},               // FORMAT MEDIUM with verification
             byte_vector{0x04, 0, 1, 0, 0, 0},               // into partitions
             byte_vector{0x04, 0, 2, 0, 0, 0},               //
             byte_vector{0x04, 0, 0, 0, 8, 0},               // with parameters
             byte_vector{0x1B, 0, 0, 0, 8, 0},               // LOAD UNLOAD: hold
             byte_vector{0x1B, 0, 0, 0, 9, 0},               //
             byte_vector{0x1B, 0, 0, 0, 5, 0},               // load, and to the end of the tape
             byte_vector{0x05, 1, 0, 0, 0, 0},               // READ BLOCK LIMITS: object identifiers
             byte_vector{0x34, 1, 0, 0, 0, 0, 0, 0, 0, 0},   // READ POSITION: a vendor's form
             byte_vector{0x34, 7, 0, 0, 0, 0, 0, 0, 0, 0},   //
             byte_vector{0x34, 0, 0, 0, 0, 0, 0, 0, 20, 0},  // with a length where the length is fixed
             byte_vector{0x34, 6, 0, 0, 0, 0, 0, 1, 0, 0},   //
         }) {
        EXPECT_EQ(result(*drive, cdb, 32), "5/24/00") << int{cdb[0]} << " " << int{cdb[1]} << " " << int{cdb[4]};
    }
    EXPECT_EQ(remaining(), 600U);
}

TEST_F(drive_work_test, tells_its_position_in_three_forms) {
    start(loaded_drive());
    byte_vector expected(20);
    expected[0] = 0x80;
    EXPECT_EQ(send(*drive, {0x34, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 64).data, expected);
    expected.resize(32);
    EXPECT_EQ(send(*drive, {0x34, 6, 0, 0, 0, 0, 0, 0, 0, 0}, 64).data, expected);
    expected[3] = 28;
    EXPECT_EQ(send(*drive, {0x34, 8, 0, 0, 0, 0, 0, 0, 64, 0}, 64).data, expected);
    EXPECT_EQ(send(*drive, {0x34, 8, 0, 0, 0, 0, 0, 0, 4, 0}, 64).data, (byte_vector{0x80, 0, 0, 28}));
    EXPECT_TRUE(send(*drive, {0x34, 8, 0, 0, 0, 0, 0, 0, 0, 0}, 64).data.empty());
}

TEST_F(drive_work_test, formats_a_tape) {
    start(loaded_drive());
    ASSERT_EQ(result(*drive, format_immediate_cdb), "ok");
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/04/04");
    system.clock.advance(10'000);
    EXPECT_EQ(send(*drive, request_sense_cdb, 252).data,
              (byte_vector{0x70, 0, 2, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x04, 0x04, 0, 0x80, 0x40, 0}));
    system.clock.advance(30'000);
    EXPECT_EQ(remaining(), 1000U);
    EXPECT_EQ(written(), 7U);
    EXPECT_EQ(result(*drive, format_cdb), "ok");
    EXPECT_EQ(system.clock.sleeps(), (std::vector<std::int64_t>{40'000}));
}

TEST_F(drive_work_test, rewinds_with_or_without_waiting) {
    start(loaded_drive());
    ASSERT_EQ(result(*drive, rewind_immediate_cdb), "ok");
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/04/07");
    system.clock.advance(45'000);
    EXPECT_EQ(send(*drive, request_sense_cdb, 252).data,
              (byte_vector{0x70, 0, 0, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x00, 0x1A, 0, 0x80, 0x80, 0}));
    system.clock.advance(45'000);
    EXPECT_EQ(result(*drive, rewind_cdb, 0, 90), "ok");
    EXPECT_EQ(result(*drive, rewind_cdb, 0, 89), "transport 121");
    EXPECT_EQ(system.clock.sleeps(), (std::vector<std::int64_t>{90'000, 89'000}));
}

TEST_F(drive_work_test, tensions_a_tape_at_load_at_unload_and_between) {
    personality value = loaded_drive();
    value.timings.load = 10'000;
    value.timings.unload = 4'000;
    start(value);
    const byte_vector load_and_tension{0x1B, 0, 0, 0, 3, 0};
    EXPECT_EQ(result(*drive, load_and_tension, 0, 300), "ok");
    EXPECT_EQ(result(*drive, {0x1B, 0, 0, 0, 2, 0}, 0, 300), "ok");
    EXPECT_EQ(result(*drive, load_and_tension, 0, 300), "ok");
    EXPECT_EQ(system.clock.sleeps(), (std::vector<std::int64_t>{200'000, 204'000, 210'000}));
    EXPECT_EQ(result(*drive, {0x1B, 1, 0, 0, 3, 0}), "ok");
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/04/07");
    EXPECT_EQ(send(*drive, request_sense_cdb, 252).data,
              (byte_vector{0x70, 0, 0, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x00, 0x16, 0, 0x80, 0, 0}));
    // A load of a tape that is loaded brings it to its beginning, where it is.
    system.clock.advance(200'000);
    EXPECT_EQ(result(*drive, load_cdb), "ok");
    EXPECT_EQ(system.clock.sleeps().size(), 3U);
}

TEST_F(drive_work_test, takes_its_time_after_a_load) {
    personality value = loaded_drive();
    value.cartridges[0].element = slot;
    value.timings.load = 12'000;
    value.timings.ready = 30'000;
    start(value);
    ASSERT_EQ(move(slot, drive_element), "ok");
    EXPECT_EQ(result(*drive, load_cdb), "ok");
    EXPECT_EQ(system.clock.sleeps(), (std::vector<std::int64_t>{12'000}));
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/04/01");
    for (const byte_vector& cdb : {erase_short_cdb, format_cdb, rewind_cdb, position_cdb, attributes_cdb}) {
        EXPECT_EQ(result(*drive, cdb, 256), "2/04/01") << int{cdb[0]};
    }
    system.clock.advance(29'999);
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/04/01");
    system.clock.advance(1);
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "6/28/00");
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "ok");
}

TEST_F(drive_work_test, raises_an_alert_when_the_end_of_an_unload_cannot_be_kept) {
    personality value = loaded_drive();
    value.timings.unload = 4000;
    start(value);
    system.files.set_free_bytes(10);
    EXPECT_EQ(result(*drive, unload_cdb), "4/44/00");
    EXPECT_TRUE(alert(56));
    EXPECT_EQ(result(*drive, {0x1B, 1, 0, 0, 0, 0}), "ok");
    EXPECT_FALSE(alert(56));
    system.clock.advance(4000);
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "ok");
    EXPECT_TRUE(alert(56));
    system.files.set_free_bytes(std::nullopt);
    EXPECT_EQ(result(*drive, unload_cdb), "ok");
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/3a/00");
    EXPECT_FALSE(alert(56));
}

TEST_F(drive_work_test, is_gone_when_it_is_pulled_while_it_works) {
    start(loaded_drive());
    bool pulled = false;
    system.clock.on_sleep([&](std::int64_t) {
        pulled = true;
        fault dead = faults::target_dead();
        dead.unit = std::uint8_t{1};
        library->faults().add(dead);
    });
    EXPECT_EQ(result(*drive, erase_short_cdb), "transport 1167");
    EXPECT_TRUE(pulled);
    system.clock.on_sleep({});
    EXPECT_EQ(result(*drive, {0x12, 0, 0, 0, 96, 0}, 96), "transport 1167");
    EXPECT_EQ(result(*library->connect(2), test_unit_ready_cdb), "2/3a/00");
    library->faults().clear();
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "ok");
}

}  // namespace platform::tape_library
