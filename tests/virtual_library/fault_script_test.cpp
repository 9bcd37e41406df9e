#include "foundation/util/bytes.h"
#include "virtual_library/library_fixture.h"

namespace platform::tape_library {

class fault_script_test : public library_test {
protected:
    static constexpr const char* fault_path = "C:\\library\\faults.xml";

    static fault of_moves(fault_kind kind) {
        fault one;
        one.kind = kind;
        one.opcodes = {0xA5};
        return one;
    }
};

TEST_F(fault_script_test, strikes_the_nth_command_of_a_kind) {
    start();
    fault one = of_moves(fault_kind::sense);
    one.sense = {4, 0x15, 0x01};
    one.skip = 2;
    one.times = 2;
    library->faults().add(one);
    EXPECT_EQ(move(slot, slot + 20), "ok");
    EXPECT_EQ(result(*changer, test_unit_ready_cdb), "ok");
    EXPECT_EQ(move(slot + 1, slot + 21), "ok");
    EXPECT_EQ(move(slot + 2, slot + 22), "4/15/01");
    EXPECT_EQ(move(slot + 2, slot + 22), "4/15/01");
    EXPECT_EQ(library->locate("TRN003L8"), slot + 2);
    EXPECT_EQ(move(slot + 2, slot + 22), "ok");
}

TEST_F(fault_script_test, loses_the_reply_of_a_move_that_was_made) {
    start();
    library->faults().add(faults::lost_move_reply());
    EXPECT_EQ(move(slot, slot + 20), "transport 121");
    EXPECT_EQ(library->locate("TRN001L8"), slot + 20);
    EXPECT_EQ(move(slot + 20, slot), "ok");
}

TEST_F(fault_script_test, fails_before_anything_is_done) {
    start();
    fault one = of_moves(fault_kind::fail_before);
    one.error = error::io_device;
    library->faults().add(one);
    EXPECT_EQ(move(slot, slot + 20), "transport 1117");
    EXPECT_EQ(library->locate("TRN001L8"), slot);
}

TEST_F(fault_script_test, reports_an_error_of_a_move_that_was_made) {
    start();
    fault one = of_moves(fault_kind::sense_after);
    one.sense = sense::mechanical_error;
    library->faults().add(one);
    EXPECT_EQ(move(slot, slot + 20), "4/15/01");
    EXPECT_EQ(library->locate("TRN001L8"), slot + 20);
}

TEST_F(fault_script_test, stops_a_move_half_way) {
    start();
    library->faults().add(faults::half_move(false));
    EXPECT_EQ(move(slot, slot + 20), "4/15/01");
    EXPECT_EQ(library->locate("TRN001L8"), slot);
    library->faults().add(faults::half_move(true));
    EXPECT_EQ(move(slot, slot + 20), "4/15/01");
    EXPECT_EQ(library->locate("TRN001L8"), 0);
    EXPECT_EQ(send(*changer, status_cdb(1, 0, 1), 100).data[18], 0x01);
    // With a full hand the robot can do nothing else, until it stows what it holds or is told where to put it.
    EXPECT_EQ(move(slot + 1, slot + 20), "4/15/01");
    EXPECT_EQ(result(*changer, {0x07, 0, 0, 0, 0, 0}), "ok");
    EXPECT_EQ(library->locate("TRN001L8"), slot);
    library->faults().add(faults::half_move(true));
    EXPECT_EQ(move(slot, slot + 20), "4/15/01");
    stop();
    open();
    EXPECT_EQ(library->locate("TRN001L8"), 0);
    EXPECT_EQ(move(0, slot + 20), "ok");
    EXPECT_EQ(library->locate("TRN001L8"), slot + 20);
}

TEST_F(fault_script_test, answers_busy_and_reservation_conflict) {
    start();
    library->faults().add(of_moves(fault_kind::busy));
    library->faults().add(of_moves(fault_kind::reservation_conflict));
    EXPECT_EQ(move(slot, slot + 20), "status 08");
    EXPECT_EQ(move(slot, slot + 20), "status 18");
    EXPECT_EQ(move(slot, slot + 20), "ok");
}

TEST_F(fault_script_test, slows_the_robot_and_nothing_else) {
    start();
    library->faults().add(faults::slow_robot(45000));
    EXPECT_EQ(move(slot, slot + 20), "ok");
    EXPECT_EQ(result(*changer, status_cdb(2, slot, 1), 100), "ok");
    EXPECT_EQ(system.clock.sleeps(), (std::vector<std::int64_t>{45000}));
}

TEST_F(fault_script_test, delays_an_answer_up_to_its_deadline) {
    start();
    fault one;
    one.kind = fault_kind::delay;
    one.opcodes = {0x00};
    one.milliseconds = 20000;
    library->faults().add(one);
    library->faults().add(one);
    EXPECT_EQ(result(*changer, test_unit_ready_cdb), "ok");
    library->faults().add(one);
    EXPECT_EQ(result(*changer, test_unit_ready_cdb, 0, 10), "transport 121");
    EXPECT_EQ(system.clock.sleeps(), (std::vector<std::int64_t>{40000, 10000}));
}

TEST_F(fault_script_test, has_a_door_that_is_open_until_cleared) {
    start();
    library->faults().add(faults::door_open());
    EXPECT_EQ(move(slot, slot + 20), "2/04/18");
    EXPECT_EQ(result(*changer, test_unit_ready_cdb), "2/04/18");
    EXPECT_EQ(result(*changer, status_cdb(2, slot, 1), 100), "ok");
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/3a/00");
    library->faults().clear();
    EXPECT_EQ(move(slot, slot + 20), "ok");
}

TEST_F(fault_script_test, reports_an_accessed_port_for_some_commands) {
    start();
    library->faults().add(faults::port_accessed(2));
    EXPECT_EQ(result(*changer, {0x12, 0, 0, 0, 36, 0}, 36), "ok");
    EXPECT_EQ(result(*changer, {0x1A, 8, 0x1D, 0, 0x18, 0}, 32), "6/28/01");
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/3a/00");
    EXPECT_EQ(result(*changer, {0x1A, 8, 0x1D, 0, 0x18, 0}, 32), "6/28/01");
    EXPECT_EQ(result(*changer, {0x1A, 8, 0x1D, 0, 0x18, 0}, 32), "ok");
}

TEST_F(fault_script_test, has_a_drive_that_is_not_ready_for_a_while) {
    start();
    library->faults().add(faults::drive_not_ready(1, 30000));
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/04/01");
    system.clock.advance(29999);
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/04/01");
    EXPECT_EQ(result(*library->connect(2), test_unit_ready_cdb), "2/3a/00");
    system.clock.advance(1);
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/3a/00");
}

TEST_F(fault_script_test, refuses_device_identifiers) {
    start();
    library->faults().add(faults::no_device_identifiers());
    EXPECT_EQ(result(*changer, status_cdb(4, 0x100, 1, true, true), 200), "5/24/00");
    EXPECT_EQ(result(*changer, status_cdb(4, 0x100, 1, true, false), 200), "ok");
}

TEST_F(fault_script_test, lies_about_lengths) {
    start();
    library->faults().add(faults::descriptor_length(0));
    byte_vector report = send(*changer, status_cdb(2, slot, 2), 200).data;
    EXPECT_EQ(util::load_be16(report, 10), 0);
    EXPECT_EQ(report.size(), 120U);
    library->faults().clear();
    fault cut = of_moves(fault_kind::cut_reply);
    cut.opcodes = {0xB8};
    cut.offset = 13;
    library->faults().add(cut);
    EXPECT_EQ(send(*changer, status_cdb(2, slot, 2), 200).outcome.transferred, 13U);
    fault patch = of_moves(fault_kind::patch_reply);
    patch.opcodes = {0xB8};
    patch.offset = 119;
    patch.bytes = {0xAA, 0xBB};
    library->faults().add(patch);
    EXPECT_EQ(send(*changer, status_cdb(2, slot, 2), 200).data.back(), 0xAA);
}

TEST_F(fault_script_test, replaces_the_replies_of_one_page) {
    start();
    fault lie;
    lie.kind = fault_kind::replace_reply;
    lie.opcodes = {0x12};
    lie.page = std::uint8_t{0x80};
    lie.unit = std::uint8_t{1};
    lie.times = 0;
    lie.bytes = {1, 0x80, 0xFF, 0xFF, 'X'};
    library->faults().add(lie);
    EXPECT_EQ(send(*drive, {0x12, 1, 0x80, 0, 255, 0}, 255).data, lie.bytes);
    // The transfer ends with the host's buffer even then.
    EXPECT_EQ(send(*drive, {0x12, 1, 0x80, 0, 255, 0}, 2).data, (byte_vector{1, 0x80}));
    EXPECT_EQ(send(*drive, {0x12, 1, 0xB0, 0, 255, 0}, 255).data, (byte_vector{1, 0xB0, 0, 2, 1, 0}));
    EXPECT_EQ(send(*drive, {0x12, 0, 0, 0, 96, 0}, 96).data.size(), 96U);
    EXPECT_EQ(send(*library->connect(2), {0x12, 1, 0x80, 0, 255, 0}, 255).data.size(), 14U);
    lie.opcodes = {0x4D, 0x1A, 0x5A};
    lie.page = std::uint8_t{0x11};
    lie.bytes = {};
    library->faults().add(lie);
    EXPECT_TRUE(send(*drive, {0x4D, 0, 0x51, 0, 0, 0, 0, 0, 255, 0}, 255).data.empty());
    EXPECT_TRUE(send(*drive, {0x1A, 8, 0x11, 0, 255, 0}, 255).data.empty());
    EXPECT_TRUE(send(*drive, {0x5A, 8, 0x51, 0, 0, 0, 0, 0, 255, 0}, 255).data.empty());
    EXPECT_FALSE(send(*drive, {0x4D, 0, 0x52, 0, 0, 0, 0, 0, 255, 0}, 255).data.empty());
    // What is refused stays refused.
    lie.opcodes = {0x8C};
    lie.page.reset();
    lie.bytes = {1, 2, 3};
    library->faults().add(lie);
    EXPECT_EQ(result(*drive, {0x8C, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0}, 255), "2/3a/00");
}

TEST_F(fault_script_test, raises_and_clears_alerts) {
    start();
    const auto alerts = [this](std::uint8_t unit, std::uint8_t flag) {
        const byte_vector read{0x4D, 0, 0x6E, 0, 0, 0, flag, 0x01, 0x44, 0};
        return send(*library->connect(unit), read, 324).data.at(8);
    };
    library->faults().add(faults::alert(1, 20, true));
    library->faults().add(faults::alert(1, 4, true));
    EXPECT_EQ(alerts(2, 20), 0);
    EXPECT_EQ(alerts(1, 20), 1);
    EXPECT_EQ(alerts(1, 4), 1);
    library->faults().add(faults::alert(1, 20, false));
    EXPECT_EQ(alerts(1, 20), 0);
    EXPECT_EQ(alerts(1, 4), 1);
    system.files.put(fault_path,
                     "<faults><fault kind=\"alert\" unit=\"0\" flag=\"16\" opcodes=\"0xA5\"/>"
                     "<fault kind=\"busy\" unit=\"0\" opcodes=\"0xA5\"/></faults>");
    EXPECT_EQ(alerts(0, 16), 0);
    EXPECT_EQ(move(slot, slot + 20), "status 08");
    EXPECT_EQ(alerts(0, 16), 1);
    system.files.put(fault_path, "<faults><fault kind=\"alert\" unit=\"0\" flag=\"16\" raised=\"false\"/></faults>");
    EXPECT_EQ(alerts(0, 16), 0);
}

TEST_F(fault_script_test, keeps_a_drive_from_every_use_of_its_tape_while_it_is_not_ready) {
    personality value = make_personality();
    value.cartridges[0].element = drive_element;
    start(value);
    library->faults().add(faults::drive_not_ready(1, 1000));
    for (const std::uint8_t code : byte_vector{0x00, 0x01, 0x04, 0x19, 0x34, 0x8C}) {
        byte_vector cdb(16);
        cdb[0] = code;
        EXPECT_EQ(result(*drive, cdb), "2/04/01") << int{code};
        system.clock.advance(1);
    }
    EXPECT_EQ(result(*drive, {0x4D, 0, 0x6E, 0, 0, 0, 0, 1, 0x44, 0}, 324), "ok");
    system.clock.advance(994);
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "ok");
}

TEST_F(fault_script_test, gives_all_drives_one_serial_number) {
    start();
    library->faults().set_drive_serial("SAME");
    for (const std::uint8_t unit : std::initializer_list<std::uint8_t>{1, 2}) {
        const byte_vector page = send(*library->connect(unit), {0x12, 1, 0x80, 0, 0xFF, 0}, 255).data;
        EXPECT_EQ(page, (byte_vector{1, 0x80, 0, 4, 'S', 'A', 'M', 'E'}));
    }
    const byte_vector report = send(*changer, status_cdb(4, 0x100, 2, false, true), 200).data;
    EXPECT_EQ(report[31], 28);
    EXPECT_EQ(util::to_text(util::slice(report, 56, 4)), "SAME");
    EXPECT_EQ(util::to_text(util::slice(report, 56 + 50, 4)), "SAME");
}

TEST_F(fault_script_test, cuts_a_serial_number_that_the_descriptor_has_no_room_for) {
    start();
    library->faults().set_drive_serial("A-SERIAL-OF-TWENTY-FIVE-XX");
    const byte_vector report = send(*changer, status_cdb(4, 0x100, 1, false, true), 200).data;
    EXPECT_EQ(report[31], 34);
    EXPECT_EQ(report.size(), 16U + 50U);
    EXPECT_EQ(util::to_text(util::slice(report, 56, 10)), "A-SERIAL-O");
}

TEST_F(fault_script_test, is_gone_when_dead) {
    start();
    fault dead = faults::target_dead();
    library->faults().add(dead);
    EXPECT_EQ(result(*changer, {0x12, 0, 0, 0, 36, 0}, 36), "transport 1167");
    library->faults().clear();
    dead.error = error::semaphore_timeout;
    dead.milliseconds = 3'600'000;
    library->faults().add(dead);
    EXPECT_EQ(result(*drive, test_unit_ready_cdb, 0, 10), "transport 121");
    EXPECT_EQ(system.clock.sleeps(), (std::vector<std::int64_t>{10000}));
}

TEST_F(fault_script_test, follows_the_file_when_it_changes) {
    start();
    system.files.put(fault_path,
                     "<?xml version=\"1.0\"?><!-- a bad day --><faults>"
                     "<fault kind=\"busy\" opcodes=\"0xA5\" times=\"2\"/><!-- more --></faults>");
    EXPECT_EQ(move(slot, slot + 20), "status 08");
    system.files.put(fault_path, "<faults><fault kind=\"sense\" key=\"2\" asc=\"4\" ascq=\"0x03\" unit=\"1\"/></faults>");
    EXPECT_EQ(move(slot, slot + 20), "ok");
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/04/03");
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/3a/00");
    system.files.put(fault_path, "<faults><fault kind=\"dead\"/></faults>");
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "transport 1167");
    ASSERT_EQ(system.files.remove_file(u"C:\\library\\faults.xml"), 0U);
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/3a/00");
}

TEST_F(fault_script_test, knows_every_kind_in_the_file) {
    start();
    struct {
        const char* fault;
        byte_vector cdb;
        const char* expected;
    } const rows[] = {
        {"kind=\"sense-after\" key=\"4\" asc=\"0x15\" ascq=\"1\" opcodes=\"0xA5\"", move_cdb(slot, slot + 20), "4/15/01"},
        {"kind=\"reservation-conflict\"", test_unit_ready_cdb, "status 18"},
        {"kind=\"fail-before\" error=\"1117\"", test_unit_ready_cdb, "transport 1117"},
        {"kind=\"lost-reply\"", test_unit_ready_cdb, "transport 121"},
        {"kind=\"half-move\" in-transport=\"false\"", move_cdb(slot + 1, slot + 21), "4/15/01"},
        {"kind=\"slow-robot\" milliseconds=\"1000\"", move_cdb(slot + 1, slot + 21), "ok"},
        {"kind=\"patch-reply\" offset=\"0\" bytes=\"1 2\"", status_cdb(2, slot, 1), "ok"},
        {"kind=\"cut-reply\" length=\"3\"", status_cdb(2, slot, 1), "ok"},
        {"kind=\"replace-reply\" bytes=\"0 0 0 1\"", status_cdb(2, slot, 1), "ok"},
        {"kind=\"alert\" unit=\"0\" flag=\"64\"", test_unit_ready_cdb, "ok"},
        {"kind=\"busy\" page=\"0x2E\"", {0x4D, 0, 0x6E, 0, 0, 0, 0, 1, 0x44, 0}, "status 08"},
        {"kind=\"busy\" page=\"0x80\"", {0x12, 1, 0x80, 0, 255, 0}, "status 08"},
        {"kind=\"descriptor-length\" length=\"3\"", status_cdb(2, slot, 1), "ok"},
        {"kind=\"door-open\"", test_unit_ready_cdb, "2/04/18"},
        {"kind=\"port-accessed\"", test_unit_ready_cdb, "6/28/01"},
        {"kind=\"drive-not-ready\" unit=\"0\" milliseconds=\"5\"", test_unit_ready_cdb, "2/04/01"},
        {"kind=\"no-device-identifiers\"", status_cdb(4, 0x100, 1, true, true), "5/24/00"},
        {"kind=\"dead\" error=\"21\" milliseconds=\"5\"", test_unit_ready_cdb, "transport 21"},
    };
    for (const auto& row : rows) {
        system.files.put(fault_path, std::string("<faults><fault ") + row.fault + "/></faults>");
        EXPECT_EQ(result(*changer, row.cdb, 200), row.expected) << row.fault;
    }
    EXPECT_TRUE(system.log.lines().empty());
}

TEST_F(fault_script_test, keeps_the_last_good_file_and_says_why) {
    start();
    system.files.put(fault_path, "<faults><fault kind=\"busy\" times=\"0\"/><same-serial value=\"ONE\"/></faults>");
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "status 08");
    for (const char* bad :
         {"<faults><fault kind=\"storm\"/></faults>", "<faults><fault kind=\"sense\"/></faults>", "<faults>",
          "<faults><flood/></faults>", "<faults><fault kind=\"alert\" unit=\"1\" flag=\"0\"/></faults>",
          "<faults><fault kind=\"alert\" unit=\"1\" flag=\"65\"/></faults>", "<faults><fault kind=\"alert\" flag=\"1\"/></faults>",
          "<faults>text</faults>", "<faults><seeded seed=\"1\" per-mille=\"1001\"/></faults>"}) {
        system.files.put(fault_path, bad);
        EXPECT_EQ(result(*drive, test_unit_ready_cdb), "status 08") << bad;
    }
    ASSERT_EQ(system.log.lines().size(), 9U);
    EXPECT_NE(system.log.lines()[0].find("Library file 'C:\\library\\faults.xml': there is no fault of the kind 'storm' The faults "
                                         "stay as they were."),
              std::string::npos)
        << system.log.lines()[0];
}

TEST_F(fault_script_test, draws_the_same_faults_from_the_same_seed) {
    const auto run = [this](std::uint64_t seed, std::uint32_t per_mille) {
        stop();
        (void)system.files.remove_file(u"C:\\library\\state.xml");
        start();
        library->faults().seed({seed, per_mille, true});
        std::string story;
        for (std::uint16_t turn = 0; turn < 200; ++turn) {
            story += move(static_cast<std::uint16_t>(slot + turn % 24), static_cast<std::uint16_t>(slot + turn * 7 % 24)) + ";";
            story += result(*changer, {0x12, 0, 0, 0, 36, 0}, 36) + ";";
        }
        return story;
    };
    const std::string first = run(1, 300);
    EXPECT_EQ(run(1, 300), first);
    EXPECT_NE(run(2, 300), first);
    const std::string calm = run(1, 0);
    EXPECT_EQ(calm.find("transport"), std::string::npos);
    EXPECT_NE(first.find("transport 121"), std::string::npos);
    EXPECT_NE(first.find("4/15/01"), std::string::npos);
    EXPECT_NE(first.find("status 08"), std::string::npos);
    EXPECT_EQ(library->cartridges().size(), 20U);
}

}  // namespace platform::tape_library
