#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>

#include "changer/library_world.h"

namespace {

using namespace changer_tests;
namespace tape_library = platform::tape_library;

/// One seed's own run. Set TARNO_MOVEMENT_SEED to run a single one again.
constexpr std::uint64_t seeds = 60;
constexpr int moves_per_seed = 60;

constexpr std::uint8_t move_medium = 0xA5;
constexpr std::uint8_t read_element_status = 0xB8;

/// What happened, so that the faults can be seen to have done harm.
struct tally {
    int arrived = 0;     ///< the cartridge was claimed to have arrived
    int refused = 0;     ///< the move was said to have failed
    int resent = 0;      ///< arrived after more than one command
    int believed = 0;    ///< arrived though the last command had failed
    int stranded = 0;    ///< refused, and the cartridge is stuck in the robot
    int unreadable = 0;  ///< refused because the elements couldn't be read, though the cartridge had arrived
};

struct operation {
    std::uint16_t source = 0;  ///< element addresses of the library
    std::uint16_t destination = 0;
    std::string name;
    std::function<void(IChangerHandle&)> run;
};

std::vector<std::uint64_t> chosen_seeds() {
    if (const char* replay = std::getenv("TARNO_MOVEMENT_SEED")) {
        return {std::strtoull(replay, nullptr, 10)};
    }
    std::vector<std::uint64_t> all(seeds);
    for (std::uint64_t seed = 0; seed < seeds; ++seed) {
        all[seed] = seed + 1;
    }
    return all;
}

/// Moves by chance in a library with faults by chance. What each move claims is held against where the cartridge is.
class simulation {
public:
    simulation(bool scsi, std::uint64_t seed) : scsi_(scsi), chance_(seed) {
        world_.set_timeout(static_cast<std::uint32_t>(below(4)) * 10);
        const auto hit = static_cast<std::uint32_t>(50 + below(5) * 75);
        world_.library->faults().seed({seed, hit, below(2) == 0});
    }

    void run() {
        for (int number = 0; number < moves_per_seed && !::testing::Test::HasFailure(); ++number) {
            try_move(number);
            // Somebody looks after what got stuck in the robot, or no later move would find a free one.
            free_transport();
        }
    }

    [[nodiscard]] const tally& counted() const { return counted_; }

private:
    std::uint64_t below(std::uint64_t limit) { return chance_() % limit; }

    operation draw() {
        const auto slot = static_cast<std::uint16_t>(below(24));
        const auto other = static_cast<std::uint16_t>(below(24));
        const auto drive = static_cast<std::uint16_t>(below(2));
        const auto port = static_cast<std::uint16_t>(below(2));
        const auto in_slot = [](std::uint16_t at) { return static_cast<std::uint16_t>(library_world::slots_from + at); };
        const auto in_drive = [](std::uint16_t at) { return static_cast<std::uint16_t>(library_world::drives_from + at); };
        const auto in_port = [](std::uint16_t at) { return static_cast<std::uint16_t>(library_world::ports_from + at); };
        switch (below(6)) {
            case 0:
                return {in_slot(slot), in_drive(drive), "load", [=](IChangerHandle& at) { at.LoadMedium(slot, drive); }};
            case 1:
                return {in_slot(slot), in_slot(other), "move", [=](IChangerHandle& at) { at.MoveToSlot(slot, other); }};
            case 2:
                return {in_drive(drive), in_slot(slot), "unload", [=](IChangerHandle& at) { at.UnloadMedium(drive, slot); }};
            case 3:
                return {in_drive(drive), in_port(port), "drive to port",
                        [=](IChangerHandle& at) { at.FromDriveToIEPort(drive, port); }};
            case 4:
                return {in_slot(slot), in_port(port), "slot to port", [=](IChangerHandle& at) { at.FromSlotToIEPort(slot, port); }};
            default:
                return {in_port(port), in_slot(slot), "port to slot", [=](IChangerHandle& at) { at.FromIEPortToSlot(port, slot); }};
        }
    }

    using inventory = std::map<std::uint16_t, std::string>;

    inventory look() {
        inventory found;
        for (const tape_library::cartridge_place& place : world_.library->cartridges()) {
            found[place.element] = place.barcode;
        }
        return found;
    }

    void try_move(int number) {
        const inventory before = look();
        operation move = draw();
        // Three moves of four are ones that can succeed.
        const bool sensible = below(4) != 0;
        while (sensible && (!before.contains(move.source) || before.contains(move.destination))) {
            move = draw();
        }
        std::string failure;
        bool claimed = false;
        world_.sent.clear();
        try {
            move.run(*world_.open(scsi_));
            claimed = true;
        } catch (const std::exception& e) {
            failure = e.what();
        }
        const inventory after = look();
        SCOPED_TRACE("move " + std::to_string(number) + ": " + move.name + " from " + std::to_string(move.source) + " to " +
                     std::to_string(move.destination) + (claimed ? ", claimed" : ", failed: " + failure));
        const std::size_t commands = check_that_outcomes_were_read();
        (claimed ? counted_.arrived : counted_.refused) += 1;

        const auto source = before.find(move.source);
        inventory expected = before;
        if (claimed) {
            ASSERT_TRUE(source != before.end()) << "nothing was there to be moved";
            ASSERT_FALSE(before.contains(move.destination)) << "the destination was full";
            expected.erase(move.source);
            expected[move.destination] = source->second;
            EXPECT_EQ(after, expected);
            counted_.resent += commands > 1 ? 1 : 0;
            counted_.believed += last_move_failed() ? 1 : 0;
            return;
        }
        ASSERT_EQ(after.size(), before.size());
        if (after == before) {
            return;
        }
        // It has left its place: stuck in the robot, or arrived while the elements couldn't be read any more.
        ASSERT_TRUE(source != before.end());
        expected.erase(move.source);
        const bool unreadable = failure.find("on ChangerGetElementStatus operation") != std::string::npos;
        const std::uint16_t ended = unreadable && after.contains(move.destination) ? move.destination : transport;
        expected[ended] = source->second;
        EXPECT_EQ(after, expected);
        (ended == transport ? counted_.stranded : counted_.unreadable) += 1;
    }

    /// A move command whose outcome isn't known is never followed by another one before the elements were read. The number of
    /// move commands.
    std::size_t check_that_outcomes_were_read() {
        std::size_t moves = 0;
        bool unread = false;
        for (const sent_command& command : world_.sent) {
            if (command.opcode == read_element_status && command.succeeded()) {
                unread = false;
            } else if (command.opcode == move_medium) {
                ++moves;
                EXPECT_FALSE(unread) << "move command " << moves << " was sent without knowing what became of the one before";
                unread = !command.succeeded() && !is_sent_again_at_once(command);
            }
        }
        return moves;
    }

    /// By SCSI, a command that met the attention of a changed medium hasn't been carried out, and is sent again at once.
    [[nodiscard]] bool is_sent_again_at_once(const sent_command& command) const {
        const std::vector<std::uint8_t>& sense = command.outcome.sense;
        return scsi_ && sense.size() > 13 && (sense[2] & 0x0F) == 6 && sense[12] == 0x28 && sense[13] == 0;
    }

    [[nodiscard]] bool last_move_failed() const {
        const auto last = std::find_if(world_.sent.rbegin(), world_.sent.rend(),
                                       [](const sent_command& command) { return command.opcode == move_medium; });
        return last != world_.sent.rend() && !last->succeeded();
    }

    void free_transport() {
        const inventory now = look();
        if (!now.contains(transport)) {
            return;
        }
        for (std::uint16_t slot = 0; slot < 24; ++slot) {
            const auto target = static_cast<std::uint16_t>(library_world::slots_from + slot);
            if (!now.contains(target)) {
                put_back(target);
                return;
            }
        }
    }

    void put_back(std::uint16_t target) {
        const std::shared_ptr<platform::device_stack::scsi_transport> robot = world_.library->connect(0);
        for (int attempt = 0; attempt < 100 && look().contains(transport); ++attempt) {
            platform::device_stack::scsi_command command;
            command.cdb = {0xA5, 0, 0, 0, 0, transport, static_cast<std::uint8_t>(target >> 8), static_cast<std::uint8_t>(target)};
            command.cdb_length = 12;
            static_cast<void>(robot->execute(command));
        }
        ASSERT_FALSE(look().contains(transport));
    }

    static constexpr std::uint16_t transport = 0;

    bool scsi_;
    std::mt19937_64 chance_;
    library_world world_;
    tally counted_;
};

class MovementSimulation : public ::testing::TestWithParam<bool> {};

TEST_P(MovementSimulation, ClaimsWhatIsTrue) {
    tally all;
    for (const std::uint64_t seed : chosen_seeds()) {
        SCOPED_TRACE("run again with TARNO_MOVEMENT_SEED=" + std::to_string(seed));
        simulation one(GetParam(), seed);
        one.run();
        all.arrived += one.counted().arrived;
        all.refused += one.counted().refused;
        all.resent += one.counted().resent;
        all.believed += one.counted().believed;
        all.stranded += one.counted().stranded;
        all.unreadable += one.counted().unreadable;
        if (HasFailure()) {
            return;
        }
    }
    // The faults must leave something to be moved, and each way of going wrong must have been met.
    if (std::getenv("TARNO_MOVEMENT_SEED") == nullptr) {
        EXPECT_GT(all.arrived, 1000);
        EXPECT_GT(all.refused, 500);
        EXPECT_GT(all.resent, 100);
        EXPECT_GT(all.believed, 100);
        EXPECT_GT(all.stranded, 10);
        EXPECT_GT(all.unreadable, 0);
    }
}

INSTANTIATE_TEST_SUITE_P(BothBackends, MovementSimulation, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& tested) { return tested.param ? "Scsi" : "Driver"; });

}  // namespace
