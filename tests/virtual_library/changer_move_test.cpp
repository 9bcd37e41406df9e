#include <thread>

#include "virtual_library/library_fixture.h"

namespace platform::tape_library {

class changer_move_test : public library_test {};

TEST_F(changer_move_test, carries_a_cartridge_from_a_slot_to_a_drive_and_back) {
    start();
    EXPECT_EQ(move(slot, drive_element), "ok");
    EXPECT_EQ(library->locate("TRN001L8"), drive_element);
    EXPECT_EQ(move(drive_element, slot + 20), "ok");
    EXPECT_EQ(library->locate("TRN001L8"), slot + 20);
}

TEST_F(changer_move_test, says_what_is_wrong_with_a_move) {
    start();
    struct {
        byte_vector cdb;
        const char* expected;
    } const rows[] = {
        {move_cdb(slot + 20, drive_element), "5/3b/0e"},          // empty source
        {move_cdb(slot, slot + 1), "5/3b/0d"},                    // full destination
        {move_cdb(slot + 24, drive_element), "5/21/01"},          // no such source
        {move_cdb(slot, 0x102), "5/21/01"},                       // no such destination
        {move_cdb(slot, drive_element, 1), "5/21/01"},            // no such transport
        {move_cdb(slot, 0), "5/21/01"},                           // a transport keeps nothing
        {{0xA5, 0, 0, 0, 0x10, 0, 1, 0, 0, 0, 1, 0}, "5/24/00"},  // inversion
        {{0xA5, 0, 0, 0, 0x10, 0}, "5/24/00"},                    // a CDB that ends early
        {move_cdb(slot, slot), "ok"},                             // to where it is: nothing to do
    };
    for (const auto& row : rows) {
        EXPECT_EQ(result(*changer, row.cdb), row.expected);
        EXPECT_EQ(library->locate("TRN001L8"), slot);
    }
}

TEST_F(changer_move_test, remembers_the_last_storage_slot_as_source) {
    start();
    ASSERT_EQ(move(slot + 3, drive_element), "ok");
    byte_vector status = send(*changer, status_cdb(4, drive_element, 1, false), 100).data;
    EXPECT_EQ(status[16 + 9], 0x81);
    EXPECT_EQ(status[16 + 10], 0x10);
    EXPECT_EQ(status[16 + 11], 0x03);
    ASSERT_EQ(move(drive_element, slot + 21), "ok");
    status = send(*changer, status_cdb(2, slot + 21, 1, false), 100).data;
    EXPECT_EQ(status[16 + 9], 0x81);
    EXPECT_EQ(status[16 + 10], 0x10);
    EXPECT_EQ(status[16 + 11], 0x03);
}

TEST_F(changer_move_test, remembers_the_last_element_of_any_kind_when_the_personality_says_so) {
    personality value = make_personality();
    value.track_storage_only = false;
    start(value);
    ASSERT_EQ(move(slot, drive_element + 1), "ok");
    ASSERT_EQ(move(drive_element + 1, slot + 5 + 15), "ok");
    const byte_vector status = send(*changer, status_cdb(2, slot + 20, 1, false), 100).data;
    EXPECT_EQ(status[16 + 9], 0x81);
    EXPECT_EQ(status[16 + 10], 0x01);
    EXPECT_EQ(status[16 + 11], 0x01);
}

TEST_F(changer_move_test, takes_no_tape_from_a_drive_that_holds_it) {
    start();
    ASSERT_EQ(move(slot, drive_element), "ok");
    EXPECT_EQ(result(*drive, {0x1E, 0, 0, 0, 1, 0}), "6/28/00");
    EXPECT_EQ(result(*drive, {0x1E, 0, 0, 0, 1, 0}), "ok");
    EXPECT_EQ(move(drive_element, slot), "5/53/02");
    EXPECT_EQ(library->locate("TRN001L8"), drive_element);
    EXPECT_EQ(result(*drive, {0x1E, 0, 0, 0, 0, 0}), "ok");
    EXPECT_EQ(move(drive_element, slot), "ok");
}

TEST_F(changer_move_test, wants_the_tape_ejected_first_when_the_personality_says_so) {
    personality value = make_personality();
    value.unload_on_move = false;
    start(value);
    ASSERT_EQ(move(slot, drive_element), "ok");
    EXPECT_EQ(move(drive_element, slot), "5/53/02");
    EXPECT_EQ(result(*drive, {0x1B, 0, 0, 0, 0, 0}), "6/28/00");
    EXPECT_EQ(result(*drive, {0x1B, 0, 0, 0, 0, 0}), "ok");
    EXPECT_EQ(move(drive_element, slot), "ok");
}

TEST_F(changer_move_test, exchanges_two_cartridges) {
    start();
    EXPECT_EQ(result(*changer, {0xA6, 0, 0, 0, 0x10, 0x00, 0x10, 0x01, 0x10, 0x00, 0, 0}), "ok");
    EXPECT_EQ(library->locate("TRN001L8"), slot + 1);
    EXPECT_EQ(library->locate("TRN002L8"), slot);
    EXPECT_EQ(result(*changer, {0xA6, 0, 0, 0, 0x10, 0x00, 0x10, 0x01, 0x10, 0x17, 0, 0}), "ok");
    EXPECT_EQ(library->locate("TRN002L8"), slot + 1);
    EXPECT_EQ(library->locate("TRN001L8"), slot + 0x17);
    EXPECT_EQ(result(*changer, {0xA6, 0, 0, 0, 0x10, 0x00, 0x10, 0x01, 0x10, 0x02, 0, 0}), "5/3b/0e");
    EXPECT_EQ(result(*changer, {0xA6, 0, 0, 0, 0x10, 0x01, 0x10, 0x02, 0x10, 0x03, 0, 0}), "5/3b/0d");
    EXPECT_EQ(result(*changer, {0xA6, 0, 0, 0, 0x10, 0x01, 0x10, 0x16, 0x10, 0x01, 0, 0}), "5/3b/0e");
    EXPECT_EQ(result(*changer, {0xA6, 0, 0, 0, 0x10, 0x01, 0x10, 0x01, 0x10, 0x01, 0, 0}), "5/24/00");
    EXPECT_EQ(result(*changer, {0xA6, 0, 0, 0, 0x10, 0x01, 0x20, 0x01, 0x10, 0x01, 0, 0}), "5/21/01");
}

TEST_F(changer_move_test, refuses_an_exchange_that_the_personality_lacks) {
    personality value = make_personality();
    value.exchange = false;
    start(value);
    EXPECT_EQ(result(*changer, {0xA6, 0, 0, 0, 0x10, 0x00, 0x10, 0x01, 0x10, 0x00, 0, 0}), "5/20/00");
}

TEST_F(changer_move_test, takes_the_time_of_the_personality) {
    personality value = make_personality();
    value.timings.move = 9000;
    value.timings.unload = 4000;
    value.timings.load = 12000;
    start(value);
    ASSERT_EQ(move(slot, drive_element), "ok");
    EXPECT_EQ(system.clock.sleeps(), (std::vector<std::int64_t>{9000}));
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/04/01");
    system.clock.advance(11999);
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/04/01");
    system.clock.advance(1);
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "6/28/00");
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "ok");
    system.clock.forget_sleeps();
    ASSERT_EQ(move(drive_element, slot), "ok");
    EXPECT_EQ(system.clock.sleeps(), (std::vector<std::int64_t>{13000}));
}

TEST_F(changer_move_test, ends_at_the_deadline_and_finishes_the_move_all_the_same) {
    personality value = make_personality();
    value.timings.move = 90000;
    start(value);
    EXPECT_EQ(result(*changer, move_cdb(slot, drive_element), 0, 60), "transport 121");
    EXPECT_EQ(system.clock.sleeps(), (std::vector<std::int64_t>{60000}));
    EXPECT_EQ(library->locate("TRN001L8"), drive_element);
}

TEST_F(changer_move_test, leaves_a_move_undone_whose_turn_does_not_come_before_its_deadline) {
    personality value = make_personality();
    value.timings.move = 90000;
    start(value);
    ASSERT_EQ(result(*changer, move_cdb(slot, drive_element), 0, 10), "transport 121");
    system.clock.forget_sleeps();
    EXPECT_EQ(result(*changer, move_cdb(slot + 1, drive_element + 1), 0, 30), "transport 121");
    EXPECT_EQ(library->locate("TRN002L8"), slot + 1);
    // 50 of the first move's 90 seconds are left, and none of the move that was given up.
    EXPECT_EQ(result(*changer, move_cdb(slot + 1, drive_element + 1), 0, 600), "ok");
    EXPECT_EQ(system.clock.sleeps(), (std::vector<std::int64_t>{30000, 50000, 90000}));
}

TEST_F(changer_move_test, answers_status_commands_while_the_robot_works) {
    personality value = make_personality();
    value.timings.move = 5000;
    start(value);
    const auto other = library->connect(0);
    std::string seen;
    system.clock.on_sleep([&](std::int64_t) { seen = result(*other, status_cdb(2, slot, 24), 4000); });
    EXPECT_EQ(move(slot, drive_element), "ok");
    EXPECT_EQ(seen, "ok");
}

TEST_F(changer_move_test, looks_again_when_its_turn_has_come) {
    personality value = make_personality();
    value.timings.move = 5000;
    start(value);
    const auto other = library->connect(0);
    std::string inner;
    system.clock.on_sleep([&](std::int64_t) {
        system.clock.on_sleep({});
        inner = result(*other, move_cdb(slot + 1, drive_element));
    });
    EXPECT_EQ(move(slot, drive_element), "5/3b/0d");
    EXPECT_EQ(inner, "ok");
    EXPECT_EQ(library->locate("TRN001L8"), slot);
}

TEST_F(changer_move_test, needs_a_closed_door) {
    start();
    library->open_door();
    EXPECT_EQ(move(slot, drive_element), "2/04/18");
    EXPECT_EQ(result(*changer, test_unit_ready_cdb), "2/04/18");
    EXPECT_EQ(result(*changer, {0x07, 0, 0, 0, 0, 0}), "2/04/18");
    EXPECT_EQ(result(*changer, {0x2B, 0, 0, 0, 0x10, 0, 0, 0, 0, 0}), "2/04/18");
    EXPECT_EQ(result(*changer, status_cdb(2, slot, 1), 100), "ok");
    library->close_door();
    EXPECT_EQ(move(slot, drive_element), "6/28/00");
    EXPECT_EQ(move(slot, drive_element), "ok");
}

TEST_F(changer_move_test, positions_to_an_element) {
    personality value = make_personality();
    value.timings.position = 700;
    start(value);
    EXPECT_EQ(result(*changer, {0x2B, 0, 0, 0, 0x10, 0, 0, 0, 0, 0}), "ok");
    EXPECT_EQ(system.clock.sleeps(), (std::vector<std::int64_t>{700}));
    EXPECT_EQ(result(*changer, {0x2B, 0, 0, 0, 0, 0, 0, 0, 0, 0}), "5/21/01");
    EXPECT_EQ(result(*changer, {0x2B, 0, 0, 5, 0x10, 0, 0, 0, 0, 0}), "5/21/01");
    EXPECT_EQ(result(*changer, {0x2B, 0, 0, 0, 0x10, 0, 0, 0, 1, 0}), "5/24/00");
}

TEST_F(changer_move_test, keeps_its_inventory_over_a_restart) {
    start();
    ASSERT_EQ(move(slot, drive_element), "ok");
    ASSERT_EQ(move(slot + 1, port), "ok");
    stop();
    open();
    EXPECT_EQ(library->locate("TRN001L8"), drive_element);
    EXPECT_EQ(library->locate("TRN002L8"), port);
    EXPECT_EQ(library->cartridges().size(), 20U);
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "ok");
}

TEST_F(changer_move_test, has_a_move_on_disk_before_it_says_so) {
    start();
    ASSERT_EQ(move(slot, drive_element), "ok");
    system.files.lose_power();
    stop();
    open();
    EXPECT_EQ(library->locate("TRN001L8"), drive_element);
}

TEST_F(changer_move_test, moves_nothing_when_the_state_cannot_be_written) {
    start();
    system.files.set_free_bytes(10);
    EXPECT_EQ(move(slot, drive_element), "4/44/00");
    EXPECT_EQ(library->locate("TRN001L8"), slot);
    EXPECT_EQ(result(*changer, {0xA6, 0, 0, 0, 0x10, 0x00, 0x10, 0x01, 0x10, 0x00, 0, 0}), "4/44/00");
    EXPECT_EQ(library->locate("TRN001L8"), slot);
    EXPECT_EQ(library->locate("TRN002L8"), slot + 1);
    system.files.set_free_bytes(std::nullopt);
    EXPECT_EQ(move(slot, drive_element), "ok");
}

TEST_F(changer_move_test, serves_many_threads_without_losing_a_cartridge) {
    start();
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([this, number] {
            const auto own = library->connect(0);
            for (int turn = 0; turn < 50; ++turn) {
                const auto source = static_cast<std::uint16_t>(slot + (number * 7 + turn * 5) % 24);
                const auto destination = static_cast<std::uint16_t>(slot + (number * 11 + turn * 3) % 24);
                (void)send(*own, move_cdb(source, destination));
                (void)send(*own, status_cdb(0, 0, 100), 8000);
            }
        });
    }
    for (std::thread& each : threads) {
        each.join();
    }
    std::vector<std::string> labels;
    for (const cartridge_place& each : library->cartridges()) {
        labels.push_back(each.barcode);
    }
    std::sort(labels.begin(), labels.end());
    EXPECT_EQ(labels.size(), 20U);
    EXPECT_EQ(std::unique(labels.begin(), labels.end()), labels.end());
}

}  // namespace platform::tape_library
