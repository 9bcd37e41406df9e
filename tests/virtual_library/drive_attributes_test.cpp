#include "foundation/util/bytes.h"
#include "virtual_library/library_fixture.h"

namespace platform::tape_library {

class drive_attributes_test : public library_test {
protected:
    static personality loaded_drive() {
        personality value = make_personality();
        value.cartridges[0].element = drive_element;
        value.cartridges[0].capacity = 0x1000;
        value.cartridges[0].used = 0x234;
        value.cartridges[0].written = 0x8000000000000001;
        value.cartridges[0].read = 0x80000000;
        return value;
    }

    static byte_vector cdb(std::uint8_t action, std::uint16_t first, std::uint32_t allocation = 0x400) {
        return {0x8C,
                action,
                0,
                0,
                0,
                0,
                0,
                0,
                static_cast<std::uint8_t>(first >> 8),
                static_cast<std::uint8_t>(first & 0xFF),
                static_cast<std::uint8_t>(allocation >> 24),
                static_cast<std::uint8_t>((allocation >> 16) & 0xFF),
                static_cast<std::uint8_t>((allocation >> 8) & 0xFF),
                static_cast<std::uint8_t>(allocation & 0xFF),
                0,
                0};
    }

    [[nodiscard]] byte_vector values(std::uint16_t first, std::uint32_t allocation = 0x400) {
        return send(*drive, cdb(0, first, allocation), 0x400).data;
    }
};

TEST_F(drive_attributes_test, tells_all_values) {
    start(loaded_drive());
    EXPECT_EQ(values(0x0000), (byte_vector{
                                  0,    0,    0,    71,                                         // what follows
                                  0x00, 0x00, 0x80, 0,  8, 0,    0, 0, 0, 0,    0, 0x0D, 0xCC,  // remaining capacity
                                  0x00, 0x01, 0x80, 0,  8, 0,    0, 0, 0, 0,    0, 0x10, 0x00,  // maximum capacity
                                  0x00, 0x03, 0x80, 0,  8, 0,    0, 0, 0, 0,    0, 0,    0,     // loads
                                  0x02, 0x20, 0x80, 0,  8, 0x80, 0, 0, 0, 0,    0, 0,    1,     // MB written
                                  0x02, 0x21, 0x80, 0,  8, 0,    0, 0, 0, 0x80, 0, 0,    0,     // MB read
                                  0x04, 0x08, 0x80, 0,  1, 0,                                   // data medium
                              }));
}

TEST_F(drive_attributes_test, begins_with_the_attribute_that_is_asked_for) {
    start(loaded_drive());
    EXPECT_EQ(values(0x0221), (byte_vector{0,    0,    0,    19,                                //
                                           0x02, 0x21, 0x80, 0,  8, 0, 0, 0, 0, 0x80, 0, 0, 0,  //
                                           0x04, 0x08, 0x80, 0,  1, 0}));
    EXPECT_EQ(values(0x0408), (byte_vector{0, 0, 0, 6, 0x04, 0x08, 0x80, 0, 1, 0}));
    for (const std::uint16_t first : std::vector<std::uint16_t>{0x0002, 0x0222, 0x0407, 0x0409, 0x0806, 0xFFFF}) {
        EXPECT_EQ(result(*drive, cdb(0, first), 64), "5/24/00") << first;
    }
}

TEST_F(drive_attributes_test, takes_the_allocation_length_as_32_bits) {
    start(loaded_drive());
    const byte_vector whole = values(0x0220);
    ASSERT_EQ(whole.size(), 4U + 13 + 13 + 6);
    // A host that asks for 240 MiB gets what there is, and one byte of room holds one byte.
    EXPECT_EQ(values(0x0220, 0x0F000000), whole);
    EXPECT_EQ(values(0x0220, 0xFFFFFFFF), whole);
    EXPECT_EQ(values(0x0220, 0x00010000), whole);
    EXPECT_EQ(values(0x0220, 5), byte_vector(whole.begin(), whole.begin() + 5));
    EXPECT_TRUE(values(0x0220, 0).empty());
    EXPECT_EQ(send(*drive, cdb(0, 0x0220), 7).outcome.transferred, 7U);
}

TEST_F(drive_attributes_test, lists_attributes_volumes_and_partitions) {
    start(loaded_drive());
    EXPECT_EQ(send(*drive, cdb(1, 0), 64).data, (byte_vector{0, 0, 0, 12, 0, 0, 0, 1, 0, 3, 2, 0x20, 2, 0x21, 4, 8}));
    EXPECT_EQ(send(*drive, cdb(1, 0x0222), 64).data, (byte_vector{0, 0, 0, 2, 4, 8}));
    EXPECT_EQ(send(*drive, cdb(1, 0x0500), 64).data, (byte_vector{0, 0, 0, 0}));
    EXPECT_EQ(send(*drive, cdb(2, 0), 64).data, (byte_vector{0, 2, 0, 1}));
    EXPECT_EQ(send(*drive, cdb(3, 0), 64).data, (byte_vector{0, 2, 0, 1}));
    EXPECT_EQ(send(*drive, cdb(3, 0, 2), 64).data, (byte_vector{0, 2}));
}

TEST_F(drive_attributes_test, refuses_other_volumes_partitions_and_actions) {
    start(loaded_drive());
    byte_vector other = cdb(0, 0);
    other[5] = 1;
    EXPECT_EQ(result(*drive, other, 64), "5/24/00");
    other = cdb(0, 0);
    other[7] = 1;
    EXPECT_EQ(result(*drive, other, 64), "5/24/00");
    for (const std::uint8_t action : byte_vector{4, 5, 0x1F}) {
        EXPECT_EQ(result(*drive, cdb(action, 0), 64), "5/24/00") << int{action};
    }
    EXPECT_EQ(result(*drive, {0x8C, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 64), "5/24/00");
    EXPECT_EQ(result(*changer, cdb(0, 0), 64), "5/20/00");
}

TEST_F(drive_attributes_test, tells_the_kinds_of_medium) {
    personality value = loaded_drive();
    value.cartridges[0].worm = true;
    start(value);
    EXPECT_EQ(values(0x0408), (byte_vector{0, 0, 0, 6, 0x04, 0x08, 0x80, 0, 1, 0x80}));
    value.cartridges[0].worm = false;
    value.cartridges[0].cleaning = true;
    start(value);
    EXPECT_EQ(values(0x0408), (byte_vector{0, 0, 0, 6, 0x04, 0x08, 0x80, 0, 1, 0x01}));
    // A cleaning cartridge has no capacity.
    EXPECT_EQ(result(*drive, cdb(0, 0x0000), 64), "5/24/00");
    EXPECT_EQ(send(*drive, cdb(1, 0), 64).data, (byte_vector{0, 0, 0, 4, 0, 3, 4, 8}));
}

TEST_F(drive_attributes_test, counts_the_loads_of_a_cartridge) {
    personality value = loaded_drive();
    value.cartridges[0].element = slot;
    start(value);
    for (int turn = 0; turn < 3; ++turn) {
        ASSERT_EQ(move(slot, drive_element), "ok");
        ASSERT_EQ(move(drive_element, slot), "ok");
    }
    stop();
    open();
    ASSERT_EQ(move(slot, drive_element), "ok");
    ASSERT_EQ(result(*drive, test_unit_ready_cdb), "6/28/00");
    EXPECT_EQ(util::load_be64(values(0x0003), 9), 4U);
}

TEST_F(drive_attributes_test, is_unknown_to_a_drive_that_the_personality_lets_refuse_it) {
    personality value = loaded_drive();
    value.refused = {0x8C};
    start(value);
    EXPECT_EQ(result(*drive, cdb(0, 0), 64), "5/20/00");
}

TEST_F(drive_attributes_test, has_what_an_operators_cartridge_brings) {
    personality value = make_personality();
    value.capacity = 5000;
    start(value);
    ASSERT_TRUE(library->insert(port, "NEW001L8"));
    ASSERT_EQ(result(*changer, test_unit_ready_cdb), "6/28/01");
    ASSERT_EQ(move(port, drive_element), "ok");
    ASSERT_EQ(result(*drive, test_unit_ready_cdb), "6/28/00");
    EXPECT_EQ(util::load_be64(values(0x0000), 9), 5000U);
}

}  // namespace platform::tape_library
