// What an inventory costs: the real server process over virtual libraries, held against the bare commands. See README.md.

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "changer/changer_commands.h"
#include "changer/element_status_data.h"
#include "changer/scsi_pass_through.h"
#include "common/measure.h"
#include "common/server_settings.h"
#include "console/console_system.h"
#include "foundation/text/conversion.h"
#include "platform/device_stack/io_manager.h"
#include "platform/linux/linux_system.h"
#include "platform/virtual_library/virtual_library_source.h"
#include "server/server_process.h"

namespace {

namespace fs = std::filesystem;
using bench::fail;
using bench::median;
using bench::server_calls;
using bench::server_process;

constexpr std::uint16_t few_slots = 1000;
constexpr std::uint16_t many_slots = 10000;
constexpr std::uint16_t first_slot = 0x1000;
constexpr std::uint16_t slots_per_command = 50;  ///< what the server asks for at once, by default

constexpr int warm_up_rounds = 3;
constexpr int rounds = 25;
constexpr int idle_starts = 3;

/// A library of `slots` slots, nine of ten with a cartridge, two drives and two ports: the shape of examples/library-24.
void write_library(const fs::path& folder, std::uint16_t slots) {
    fs::create_directories(folder);
    std::ofstream xml(folder / "library.xml");
    xml << "<library vendor=\"TARNO\" product=\"VIRTUAL-LIBRARY\" revision=\"0100\" serial=\"BENCH" << slots
        << "\" state=\"state.xml\"><elements><transports first=\"0\" count=\"1\"/><slots first=\"" << first_slot << "\" count=\""
        << slots << "\"/><ports first=\"0x10\" count=\"2\"/><drives first=\"0x100\" count=\"2\"/></elements>"
        << "<drives><drive serial=\"TRNDRV0001\"/><drive serial=\"TRNDRV0002\"/></drives><cartridges>";
    for (std::uint32_t slot = 0; slot < slots; ++slot) {
        if (slot % 10 != 9) {
            xml << "<cartridge barcode=\"T" << 10000 + slot << "L8\" element=\"" << first_slot + slot << "\"/>";
        }
    }
    xml << "</cartridges></library>\n";
}

std::vector<std::uint8_t> slots_request(const std::string& link) {
    return server_calls::request("GetSlotsStatuses", {{"SymLinkName", link}});
}

void check_slots(const std::vector<std::uint8_t>& reply, std::uint16_t expected) {
    const std::size_t found = bench::occurrences(server_calls::output_of(reply), "&lt;SlotStatus ");
    if (found != expected) {
        fail("The answer holds " + std::to_string(found) + " slots instead of " + std::to_string(expected) + ".");
    }
}

/// The same slots by nothing but READ ELEMENT STATUS, in this process, as the server sends a SCSI command of its own: by the
/// pass-through of a device handle. What comes is not looked at.
class bare_commands {
public:
    explicit bare_commands(const fs::path& folder)
        : system_({folder / "settings.reg", true, folder / "state"}), installed_(system_.set()) {
        std::vector<std::u16string> libraries;
        for (const std::string& library : system_.settings().virtual_libraries) {
            libraries.push_back(text::utf8_to_wide(library));
        }
        devices_ = std::make_unique<platform::device_stack::io_manager>(
            std::vector<std::shared_ptr<platform::device_stack::scsi_source>>{
                std::make_shared<platform::tape_library::virtual_library_source>(std::move(libraries))},
            std::vector<std::string>{});
        system_.set().devices = devices_.get();
        platform::install(system_.set());
        handle_ = devices_->open_device("\\\\.\\Changer0");
        map_.first_addresses = {0, 0, first_slot, 0x10, 0x100};
        map_.counts = {0, 1, many_slots, 2, 2};
    }

    /// Reads all slots.
    void run() {
        for (std::uint16_t slot = 0; slot < many_slots; slot = static_cast<std::uint16_t>(slot + slots_per_command)) {
            CScsiPassThrough request(handle_, data_);
            ReadElementStatus(request, slot, ChangerSlot, slots_per_command, map_, false);
        }
    }

    /// Fails unless the last command brought its slots.
    void check() const {
        if (ElementsAvailable(data_) != slots_per_command) {
            fail("The bare commands don't bring the slots.");
        }
    }

private:
    platform::linux_os::linux_system system_;
    platform::scoped_system installed_;
    std::unique_ptr<platform::device_stack::io_manager> devices_;
    platform::device_handle handle_ = platform::invalid_device;
    element_map_t map_;
    std::vector<std::uint8_t> data_ = std::vector<std::uint8_t>(element_status_allocation);
};

struct figures {
    std::vector<double> few_wall;   ///< seconds of a call for the small library
    std::vector<double> many_wall;  ///< seconds of a call for the large one
    std::vector<double> many_cpu;   ///< the server's CPU seconds of the same call
    std::vector<double> bare_cpu;   ///< CPU seconds of the bare commands
    std::vector<double> idle_mib;   ///< resident memory after each start
    double round_cpu = 0;           ///< the server's CPU seconds for a round, all that it did in it
};

/// One round takes each of the measures once, so that a change of the machine's mood hits all of them.
void measure_round(const server_process& server, server_calls& calls, bare_commands& bare, figures& into) {
    static const std::vector<std::uint8_t> few = slots_request("\\\\.\\Changer0");
    static const std::vector<std::uint8_t> many = slots_request("\\\\.\\Changer1");
    std::vector<std::uint8_t> reply;
    server.empty_log();
    into.few_wall.push_back(calls.timed(few, reply));
    check_slots(reply, few_slots);
    const double before = server.settled_cpu_seconds();
    into.many_wall.push_back(calls.timed(many, reply));
    into.many_cpu.push_back(server.settled_cpu_seconds() - before);
    check_slots(reply, many_slots);
    const double bare_before = bench::seconds_of(CLOCK_PROCESS_CPUTIME_ID);
    bare.run();
    into.bare_cpu.push_back(bench::seconds_of(CLOCK_PROCESS_CPUTIME_ID) - bare_before);
    bare.check();
}

void measure_inventory(const fs::path& program, const fs::path& folder, figures& result) {
    const fs::path served = folder / "served";
    const fs::path alone = folder / "alone";
    write_library(served / "few", few_slots);
    write_library(served / "many", many_slots);
    bench::write_settings(served / "settings.reg", "few;many");
    write_library(alone / "many", many_slots);
    bench::write_settings(alone / "settings.reg", "many");
    const server_process server(program, served);
    bare_commands bare(alone);
    server_calls calls(server);
    figures warm_up;
    for (int round = 0; round < warm_up_rounds; ++round) {
        measure_round(server, calls, bare, warm_up);
    }
    const double before = server.settled_cpu_seconds();
    for (int round = 0; round < rounds; ++round) {
        measure_round(server, calls, bare, result);
    }
    result.round_cpu = (server.settled_cpu_seconds() - before) / rounds;
}

void measure_idle(const fs::path& program, const fs::path& example, const fs::path& folder, figures& result) {
    for (int start = 0; start < idle_starts; ++start) {
        const fs::path place = folder / ("idle" + std::to_string(start));
        fs::create_directories(place / "library-24");
        fs::copy_file(example / "library.xml", place / "library-24" / "library.xml");
        bench::write_settings(place / "settings.reg", "library-24");
        const server_process server(program, place);
        (void)server.settled_cpu_seconds();
        result.idle_mib.push_back(server.resident_mib());
    }
}

void report(const figures& result, const fs::path& json) {
    const double few = median(result.few_wall);
    const double many = median(result.many_wall);
    const double cpu = median(result.many_cpu);
    const double bare = median(result.bare_cpu);
    const double idle = median(result.idle_mib);
    std::cerr << "wall, " << few_slots << " slots: " << few * 1e3 << " ms\n"
              << "wall, " << many_slots << " slots: " << many * 1e3 << " ms\n"
              << "server CPU, " << many_slots << " slots: " << cpu * 1e3 << " ms\n"
              << "server CPU, a whole round with both calls and everything between: " << result.round_cpu * 1e3 << " ms\n"
              << "bare commands CPU, " << many_slots << " slots: " << bare * 1e3 << " ms\n";
    std::cout << "inventory_growth " << many / few << "\ninventory_overhead " << cpu / bare << "\nrss_mib_idle " << idle << '\n';
    std::ofstream file(json);
    file << "{\n  \"inventory_growth\": " << many / few << ",\n  \"inventory_overhead\": " << cpu / bare
         << ",\n  \"rss_mib_idle\": " << idle << ",\n  \"rounds\": " << rounds << ",\n  \"wall_ms_1000_slots\": " << few * 1e3
         << ",\n  \"wall_ms_10000_slots\": " << many * 1e3 << ",\n  \"server_cpu_ms_10000_slots\": " << cpu * 1e3
         << ",\n  \"bare_cpu_ms_10000_slots\": " << bare * 1e3 << "\n}\n";
    if (!file.flush()) {
        fail("The results can't be written to " + json.string() + ".");
    }
}

}  // namespace

int main(int argc, char** argv) {
    bench::keep_freed_memory();
    if (argc != 5) {
        std::cerr << "usage: bench_inventory SERVER-PROGRAM EXAMPLE-LIBRARY EMPTY-FOLDER RESULTS.json\n";
        return 2;
    }
    try {
        const console::console_system system;
        figures result;
        measure_idle(argv[1], argv[2], argv[3], result);
        measure_inventory(argv[1], argv[3], result);
        report(result, argv[4]);
        return EXIT_SUCCESS;
    } catch (const std::exception& e) {
        std::cerr << "bench_inventory: " << e.what() << '\n';
        return EXIT_FAILURE;
    }
}
