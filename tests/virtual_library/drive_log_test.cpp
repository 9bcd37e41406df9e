#include <algorithm>

#include "foundation/util/bytes.h"
#include "virtual_library/library_fixture.h"

namespace platform::tape_library {

namespace {

constexpr std::uint8_t threshold = 0x00;
constexpr std::uint8_t cumulative = 0x40;
constexpr std::uint8_t default_threshold = 0x80;
constexpr std::uint8_t default_cumulative = 0xC0;

/// "TRN001L8" in 32 bytes.
const byte_vector barcode{'T', 'R', 'N', '0', '0', '1', 'L', '8', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ',
                          ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '};

byte_vector joined(std::initializer_list<byte_vector> parts) {
    byte_vector whole;
    for (const byte_vector& part : parts) {
        whole.insert(whole.end(), part.begin(), part.end());
    }
    return whole;
}

/// The end of the volume statistics, from parameter 0x16: the capacities in MB, four bytes each, whole and partition by partition.
byte_vector capacity_parameters(const byte_vector& nominal, const byte_vector& used, const byte_vector& remaining) {
    return joined({{0x00, 0x16, 3, 4},
                   nominal,
                   {0x00, 0x17, 3, 4},
                   used,
                   {0x00, 0x42, 1, 32},
                   barcode,
                   {0x00, 0x80, 3, 1, 0},
                   {0x00, 0x81, 3, 1, 0},
                   {0x02, 0x02, 3, 8, 7, 0, 0, 0},
                   nominal,
                   {0x02, 0x03, 3, 8, 7, 0, 0, 0},
                   used,
                   {0x02, 0x04, 3, 8, 7, 0, 0, 0},
                   remaining});
}

}  // namespace

/// The first drive holds a tape of 12,000,000 MB (11,444,092 MiB) of which 5,722,046 MiB are used.
class drive_log_test : public library_test {
protected:
    static personality loaded_drive() {
        personality value = make_personality();
        value.cartridges[0].element = drive_element;
        value.cartridges[0].used = 5'722'046;
        value.cartridges[0].written = 0x123456789A;
        value.cartridges[0].read = 0x21;
        return value;
    }

    static byte_vector cdb(std::uint8_t control, std::uint8_t page, std::uint16_t pointer = 0, std::uint16_t allocation = 0x400) {
        return {0x4D,
                0,
                static_cast<std::uint8_t>(control | page),
                0,
                0,
                static_cast<std::uint8_t>(pointer >> 8),
                static_cast<std::uint8_t>(pointer & 0xFF),
                static_cast<std::uint8_t>(allocation >> 8),
                static_cast<std::uint8_t>(allocation & 0xFF),
                0};
    }

    [[nodiscard]] byte_vector page(std::uint8_t code, std::uint8_t control = cumulative, std::uint16_t pointer = 0) {
        return send(*drive, cdb(control, code, pointer), 0x400).data;
    }
};

TEST_F(drive_log_test, lists_its_pages) {
    start();
    EXPECT_EQ(page(0x00), (byte_vector{0x00, 0, 0, 8, 0x00, 0x0C, 0x11, 0x12, 0x14, 0x17, 0x2E, 0x31}));
    // To this page the parameter pointer means nothing.
    EXPECT_EQ(page(0x00, cumulative, 5), page(0x00));
    EXPECT_EQ(send(*drive, cdb(cumulative, 0x00, 0, 6), 64).data, (byte_vector{0x00, 0, 0, 8, 0x00, 0x0C}));
    EXPECT_TRUE(send(*drive, cdb(cumulative, 0x00, 0, 0), 64).data.empty());
    EXPECT_EQ(send(*changer, cdb(cumulative, 0x00), 64).data, (byte_vector{0x00, 0, 0, 2, 0x00, 0x2E}));
}

TEST_F(drive_log_test, refuses_what_it_does_not_have) {
    start(loaded_drive());
    const byte_vector known = page(0x00);
    for (std::uint8_t code = 0; code < 0x40; ++code) {
        const bool listed = std::find(known.begin() + 4, known.end(), code) != known.end();
        EXPECT_EQ(result(*drive, cdb(cumulative, code), 0x400), listed ? "ok" : "5/24/00") << int{code};
    }
    EXPECT_EQ(result(*changer, cdb(cumulative, 0x0C), 64), "5/24/00");
    // Saving, comparing, subpages.
    EXPECT_EQ(result(*drive, {0x4D, 1, 0x6E, 0, 0, 0, 0, 1, 0x44, 0}, 324), "5/24/00");
    EXPECT_EQ(result(*drive, {0x4D, 2, 0x6E, 0, 0, 0, 0, 1, 0x44, 0}, 324), "5/24/00");
    EXPECT_EQ(result(*drive, {0x4D, 0, 0x6E, 1, 0, 0, 0, 1, 0x44, 0}, 324), "5/24/00");
    EXPECT_EQ(result(*drive, {0x4D, 0, 0x40, 0xFF, 0, 0, 0, 1, 0x44, 0}, 324), "5/24/00");
    // Pointers behind the last parameter.
    EXPECT_EQ(result(*drive, cdb(cumulative, 0x2E, 65), 324), "5/24/00");
    EXPECT_EQ(result(*drive, cdb(cumulative, 0x31, 5), 324), "5/24/00");
    EXPECT_EQ(result(*drive, cdb(cumulative, 0x0C, 0x0101), 324), "5/24/00");
}

TEST_F(drive_log_test, shows_only_the_pages_of_the_personality) {
    personality value = make_personality();
    value.log_pages = {0x17, 0x2E};
    start(value);
    EXPECT_EQ(page(0x00), (byte_vector{0x00, 0, 0, 3, 0x00, 0x17, 0x2E}));
    EXPECT_EQ(result(*drive, cdb(cumulative, 0x31), 64), "5/24/00");
    value.log_pages.clear();
    start(value);
    EXPECT_EQ(page(0x00), (byte_vector{0x00, 0, 0, 1, 0x00}));
    EXPECT_EQ(result(*drive, cdb(cumulative, 0x2E), 324), "5/24/00");
    EXPECT_EQ(result(*changer, cdb(cumulative, 0x2E), 324), "ok");
}

TEST_F(drive_log_test, tells_the_access_counters) {
    start(loaded_drive());
    library->set_alert(1, 20, true);
    const byte_vector counters = joined({{0, 0, 2, 8, 0, 0, 0, 0, 0, 0, 0, 0},
                                         {0, 1, 2, 8, 0, 0, 0, 0, 0, 0, 0, 0},
                                         {0, 2, 2, 8, 0, 0, 0, 0, 0, 0, 0, 0},
                                         {0, 3, 2, 8, 0, 0, 0, 0, 0, 0, 0, 0}});
    // 6,000,000 MB to the end of data, 12,000,000 MB in all.
    const byte_vector facts = joined({{0, 4, 3, 4, 0, 0x5B, 0x8D, 0x80},
                                      {0, 5, 3, 4, 0, 0xB7, 0x1B, 0x00},
                                      {0, 6, 3, 4, 0, 0, 0, 0},
                                      {0, 7, 3, 4, 0, 0, 0, 0},
                                      {0, 8, 3, 4, 0, 0, 0, 0},
                                      {1, 0, 3, 4, 0, 0, 0, 1}});
    EXPECT_EQ(page(0x0C), joined({{0x0C, 0, 0, 96}, counters, facts}));
    EXPECT_EQ(page(0x0C, cumulative, 6), (byte_vector{0x0C, 0, 0, 32, 0, 6, 3, 4, 0, 0, 0, 0, 0, 7, 3, 4, 0, 0,
                                                      0,    0, 0, 8,  3, 4, 0, 0, 0, 0, 1, 0, 3, 4, 0, 0, 0, 1}));
    // A pointer between two parameters: those behind it.
    EXPECT_EQ(page(0x0C, cumulative, 9), (byte_vector{0x0C, 0, 0, 8, 1, 0, 3, 4, 0, 0, 0, 1}));
}

TEST_F(drive_log_test, knows_no_capacity_of_an_empty_drive) {
    start();
    EXPECT_EQ(page(0x0C, cumulative, 4), joined({{0x0C, 0, 0, 48},
                                                 {0, 4, 3, 4, 0xFF, 0xFF, 0xFF, 0xFF},
                                                 {0, 5, 3, 4, 0xFF, 0xFF, 0xFF, 0xFF},
                                                 {0, 6, 3, 4, 0xFF, 0xFF, 0xFF, 0xFF},
                                                 {0, 7, 3, 4, 0xFF, 0xFF, 0xFF, 0xFF},
                                                 {0, 8, 3, 4, 0, 0, 0, 0},
                                                 {1, 0, 3, 4, 0, 0, 0, 0}}));
    EXPECT_EQ(page(0x31), (byte_vector{0x31, 0, 0, 32, 0, 1, 3, 4, 0, 0, 0, 0, 0, 2, 3, 4, 0, 0,
                                       0,    0, 0, 3,  3, 4, 0, 0, 0, 0, 0, 4, 3, 4, 0, 0, 0, 0}));
}

TEST_F(drive_log_test, tells_the_drives_status) {
    personality value = loaded_drive();
    value.cartridges[0].element = slot;
    value.cartridges[0].write_protected = true;
    value.timings.load = 1000;
    value.timings.erase_long = 1000;
    value.timings.rewind = 1000;
    value.timings.tension = 1000;
    value.timings.unload = 1000;
    start(value);
    const auto status = [this] { return page(0x11); };
    const auto with = [](byte_vector four) { return joined({{0x11, 0, 0, 14, 0, 0, 3, 4}, four, {0, 1, 3, 2, 0x03, 0xE8}}); };
    EXPECT_EQ(status(), with({0x11, 0x20, 0x00, 0}));  // empty, open to the robot
    ASSERT_EQ(move(slot, drive_element), "ok");
    EXPECT_EQ(status(), with({0x19, 0x96, 0x02, 0}));  // loading a write-protected tape
    system.clock.advance(1000);
    ASSERT_EQ(result(*drive, test_unit_ready_cdb), "6/28/00");
    EXPECT_EQ(status(), with({0x39, 0x17, 0x00, 0}));  // mounted
    ASSERT_EQ(result(*drive, {0x01, 1, 0, 0, 0, 0}), "ok");
    EXPECT_EQ(status(), with({0x39, 0x17, 0x08, 0}));  // rewinding
    system.clock.advance(1000);
    ASSERT_EQ(result(*drive, {0x1B, 1, 0, 0, 3, 0}), "ok");
    EXPECT_EQ(status(), with({0x39, 0x17, 0x04, 0}));  // tensioning
    system.clock.advance(1000);
    ASSERT_EQ(result(*drive, {0x1E, 0, 0, 0, 1, 0}), "ok");
    library->set_alert(1, 20, true);
    library->set_alert(1, 21, true);
    EXPECT_EQ(status(), with({0xBF, 0x17, 0x00, 1}));  // removal prevented, to be cleaned, news among the alerts
    EXPECT_EQ(result(*drive, cdb(cumulative, 0x2E), 324), "ok");
    EXPECT_EQ(status(), with({0xBF, 0x17, 0x00, 0}));
    ASSERT_EQ(result(*drive, {0x1E, 0, 0, 0, 0, 0}), "ok");
    ASSERT_EQ(result(*drive, {0x1B, 1, 0, 0, 0, 0}), "ok");
    EXPECT_EQ(status(), with({0x3F, 0x97, 0x03, 0}));  // unloading
    system.clock.advance(1000);
    EXPECT_EQ(status(), with({0x17, 0x34, 0x00, 0}));  // ejected
}

TEST_F(drive_log_test, tells_what_it_does_with_a_tape) {
    personality value = loaded_drive();
    value.timings.erase_long = 1000;
    value.timings.format = 1000;
    start(value);
    ASSERT_EQ(result(*drive, {0x19, 3, 0, 0, 0, 0}), "ok");
    EXPECT_EQ(page(0x11).at(10), 0x09);
    system.clock.advance(1000);
    ASSERT_EQ(result(*drive, {0x04, 1, 0, 0, 0, 0}), "ok");
    EXPECT_EQ(page(0x11).at(10), 0x0A);
}

TEST_F(drive_log_test, answers_the_alert_flags_as_bits) {
    start();
    library->set_alert(1, 1, true);
    library->set_alert(1, 8, true);
    library->set_alert(1, 9, true);
    library->set_alert(1, 64, true);
    const byte_vector expected{0x12, 0, 0, 12, 0, 0, 3, 8, 0x81, 0x80, 0, 0, 0, 0, 0, 0x01};
    EXPECT_EQ(page(0x12), expected);
    // Looking at the flags, here or there, clears none here.
    EXPECT_EQ(result(*drive, cdb(cumulative, 0x2E), 324), "ok");
    EXPECT_EQ(page(0x12), expected);
}

TEST_F(drive_log_test, shows_alerts_from_a_pointer_on) {
    start();
    library->set_alert(1, 63, true);
    EXPECT_EQ(page(0x2E, cumulative, 63), (byte_vector{0x2E, 0, 0, 10, 0, 63, 3, 1, 1, 0, 64, 3, 1, 0}));
    library->set_alert(1, 63, true);
    // Flags are no counters: whichever values are asked for, these are the ones there are.
    for (const std::uint8_t control : {threshold, cumulative, default_threshold, default_cumulative}) {
        EXPECT_EQ(page(0x2E, control, 63).at(8), control == threshold ? 1 : 0) << int{control};
    }
}

TEST_F(drive_log_test, keeps_alerts_until_they_are_cleared_when_the_personality_says_so) {
    personality value = make_personality();
    value.clear_alerts_on_read = false;
    start(value);
    library->set_alert(1, 30, true);
    for (int turn = 0; turn < 3; ++turn) {
        EXPECT_EQ(page(0x2E, cumulative, 30).at(8), 1);
    }
    library->set_alert(1, 30, false);
    EXPECT_EQ(page(0x2E, cumulative, 30).at(8), 0);
}

TEST_F(drive_log_test, counts_loads_and_cleanings) {
    personality value = make_personality();
    value.cartridges[0].cleaning = true;
    start(value);
    ASSERT_EQ(move(slot, drive_element), "ok");
    ASSERT_EQ(move(drive_element, slot), "ok");
    ASSERT_EQ(move(slot + 1, drive_element), "ok");
    stop();
    open();
    ASSERT_EQ(move(drive_element, slot + 1), "ok");
    ASSERT_EQ(move(slot + 2, drive_element), "ok");
    const byte_vector serial{'T', 'R', 'N', 'D', 'R', 'V', '0', '0', '0', '1'};
    ASSERT_EQ(result(*drive, test_unit_ready_cdb), "6/28/00");
    EXPECT_EQ(page(0x14), joined({{0x14, 0, 0, 57},
                                  {0, 0x00, 2, 4, 0, 0, 0, 3},
                                  {0, 0x01, 2, 4, 0, 0, 0, 1},
                                  {0, 0x0D, 2, 4, 0, 0, 0, 1},
                                  {0, 0x40, 1, 10},
                                  serial,
                                  {0, 0x41, 1, 10},
                                  serial,
                                  {0, 0x80, 3, 1, 0}}));
}

TEST_F(drive_log_test, tells_the_volumes_statistics) {
    personality value = loaded_drive();
    value.cartridges[0].element = slot;
    start(value);
    ASSERT_EQ(move(slot, drive_element), "ok");
    ASSERT_EQ(result(*drive, test_unit_ready_cdb), "6/28/00");
    const byte_vector capacity{0, 0xB7, 0x1B, 0x00};
    const byte_vector half{0, 0x5B, 0x8D, 0x80};
    EXPECT_EQ(page(0x17), joined({{0x17, 0, 0, 135},
                                  {0x00, 0x00, 3, 1, 1},
                                  {0x00, 0x01, 2, 4, 0, 0, 0, 1},
                                  {0x00, 0x10, 2, 8, 0, 0, 0, 0x12, 0x34, 0x56, 0x78, 0x9A},
                                  {0x00, 0x11, 2, 8, 0, 0, 0, 0, 0, 0, 0, 0x21},
                                  capacity_parameters(capacity, half, half)}));
    ASSERT_EQ(result(*drive, {0x1B, 0, 0, 0, 0, 0}), "ok");
    const byte_vector without = page(0x17);
    ASSERT_EQ(without.size(), 139U);
    EXPECT_EQ(without[8], 0);
    EXPECT_EQ(util::to_text(util::slice(without, 61, 32)), std::string(32, ' '));
}

/// The largest cartridge that a library file can ask for has more MB than four bytes can tell.
TEST_F(drive_log_test, does_not_wrap_a_capacity_that_is_too_large) {
    personality value = loaded_drive();
    value.cartridges[0].capacity = 0xFFFFFFFF;
    start(value);
    const byte_vector too_much{0xFF, 0xFF, 0xFF, 0xFF};
    const byte_vector used{0, 0x5B, 0x8D, 0x80};
    EXPECT_EQ(page(0x17, cumulative, 0x16), joined({{0x17, 0, 0, 98}, capacity_parameters(too_much, used, too_much)}));
    EXPECT_EQ(page(0x0C, cumulative, 5).at(8), 0xFF);
}

TEST_F(drive_log_test, tells_what_a_tape_is) {
    personality value = loaded_drive();
    value.cartridges[0].write_protected = true;
    value.cartridges[0].worm = true;
    start(value);
    EXPECT_EQ(page(0x17, cumulative, 0x80).at(8), 1);
    EXPECT_EQ(page(0x17, cumulative, 0x81).at(8), 1);
}

TEST_F(drive_log_test, tells_the_capacity_in_mebibytes) {
    start(loaded_drive());
    // 11,444,092 MiB, and half of them.
    EXPECT_EQ(page(0x31), joined({{0x31, 0, 0, 32},
                                  {0, 1, 3, 4, 0x00, 0x57, 0x4F, 0xBE},
                                  {0, 2, 3, 4, 0, 0, 0, 0},
                                  {0, 3, 3, 4, 0x00, 0xAE, 0x9F, 0x7C},
                                  {0, 4, 3, 4, 0, 0, 0, 0}}));
}

TEST_F(drive_log_test, has_thresholds_and_defaults_for_counters) {
    start(loaded_drive());
    const byte_vector ones(8, 0xFF);
    for (const std::uint8_t control : {threshold, default_threshold}) {
        EXPECT_EQ(page(0x17, control, 0x11).at(4 + 1), 0x11);
        EXPECT_EQ(util::to_text(util::slice(page(0x17, control, 0x11), 8, 8)), util::to_text(ones));
    }
    EXPECT_EQ(util::load_be64(page(0x17, default_cumulative, 0x11), 8), 0U);
    EXPECT_EQ(util::load_be64(page(0x17, cumulative, 0x11), 8), 0x21U);
    // A barcode is no counter.
    EXPECT_EQ(util::to_text(util::slice(page(0x17, default_threshold, 0x42), 8, 8)), "TRN001L8");
}

TEST_F(drive_log_test, has_a_page_of_its_one_partition) {
    start(loaded_drive());
    EXPECT_EQ(send(*drive, {0x1A, 8, 0x11, 0, 255, 0}, 255).data,
              (byte_vector{13, 0x88, 0x10, 0, 0x11, 8, 0, 0, 0x18, 0x03, 0x09, 0, 0x2E, 0xE0}));
    ASSERT_EQ(result(*drive, {0x1B, 0, 0, 0, 0, 0}), "ok");
    EXPECT_EQ(send(*drive, {0x1A, 8, 0x11, 0, 255, 0}, 255).data,
              (byte_vector{13, 0, 0x10, 0, 0x11, 8, 0, 0, 0x18, 0x03, 0x09, 0, 0, 0}));
}

}  // namespace platform::tape_library
