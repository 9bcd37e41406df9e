// What the list of drives costs: the real server process over virtual libraries of few and of many drives. See README.md.

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "common/measure.h"
#include "common/server_settings.h"
#include "console/console_system.h"
#include "server/server_process.h"

namespace {

namespace fs = std::filesystem;
using bench::server_calls;
using bench::server_process;

constexpr std::size_t few_drives = 20;
constexpr std::size_t many_drives = 200;
constexpr int warm_up_rounds = 3;
constexpr int rounds = 25;

/// A library of that many drives, every other one with a cartridge in it.
void write_library(const fs::path& folder, std::size_t drives) {
    fs::create_directories(folder);
    std::ofstream xml(folder / "library.xml");
    xml << "<library vendor=\"TARNO\" product=\"VIRTUAL-LIBRARY\" revision=\"0100\" serial=\"BENCH" << drives
        << "\" state=\"state.xml\"><elements><transports first=\"0\" count=\"1\"/><slots first=\"4096\" count=\"" << drives
        << "\"/><ports first=\"16\" count=\"2\"/><drives first=\"256\" count=\"" << drives << "\"/></elements><drives>";
    for (std::size_t drive = 0; drive < drives; ++drive) {
        xml << "<drive serial=\"TRNDRV" << 10000 + drive << "\"/>";
    }
    xml << "</drives><cartridges>";
    for (std::size_t drive = 0; drive < drives; drive += 2) {
        xml << "<cartridge barcode=\"T" << 10000 + drive << "L8\" element=\"" << 256 + drive << "\"/>";
    }
    xml << "</cartridges></library>\n";
}

/// A server with a library of its own, and what its list of drives takes.
class measured_server {
public:
    measured_server(const fs::path& program, const fs::path& folder, std::size_t drives)
        : drives_(drives), server_(program, prepared(folder, drives)), calls_(server_) {}

    void measure() {
        static const std::vector<std::uint8_t> request = server_calls::request("GetDrives", {});
        std::vector<std::uint8_t> reply;
        server_.empty_log();
        wall_.push_back(calls_.timed(request, reply));
        const std::size_t found = bench::occurrences(server_calls::output_of(reply), "&lt;BlockSizes DefaultBlockSize");
        if (found != drives_) {
            bench::fail("The answer holds " + std::to_string(found) + " whole drives instead of " + std::to_string(drives_) + ".");
        }
    }

    void forget() { wall_.clear(); }
    [[nodiscard]] double seconds() const { return bench::median(wall_); }

private:
    static const fs::path& prepared(const fs::path& folder, std::size_t drives) {
        write_library(folder / "library", drives);
        bench::write_settings(folder / "settings.reg", "library");
        return folder;
    }

    std::size_t drives_;
    server_process server_;
    server_calls calls_;
    std::vector<double> wall_;
};

/// One round takes each of the measures once, so that a change of the machine's mood hits both of them.
void measure_rounds(measured_server& few, measured_server& many, int count) {
    for (int round = 0; round < count; ++round) {
        few.measure();
        many.measure();
    }
}

void report(double few, double many, const fs::path& json) {
    std::cerr << "wall, " << few_drives << " drives: " << few * 1e3 << " ms\n"
              << "wall, " << many_drives << " drives: " << many * 1e3 << " ms\n";
    std::cout << "drives_growth " << many / few << '\n';
    std::ofstream file(json);
    file << "{\n  \"drives_growth\": " << many / few << ",\n  \"rounds\": " << rounds << ",\n  \"wall_ms_20_drives\": " << few * 1e3
         << ",\n  \"wall_ms_200_drives\": " << many * 1e3 << "\n}\n";
    if (!file.flush()) {
        bench::fail("The results can't be written to " + json.string() + ".");
    }
}

}  // namespace

int main(int argc, char** argv) {
    bench::keep_freed_memory();
    if (argc != 4) {
        std::cerr << "usage: bench_drives SERVER-PROGRAM EMPTY-FOLDER RESULTS.json\n";
        return 2;
    }
    try {
        const console::console_system system;
        const fs::path folder = argv[2];
        measured_server few(argv[1], folder / "few", few_drives);
        measured_server many(argv[1], folder / "many", many_drives);
        measure_rounds(few, many, warm_up_rounds);
        few.forget();
        many.forget();
        measure_rounds(few, many, rounds);
        report(few.seconds(), many.seconds(), argv[3]);
        return EXIT_SUCCESS;
    } catch (const std::exception& e) {
        std::cerr << "bench_drives: " << e.what() << '\n';
        return EXIT_FAILURE;
    }
}
