// What an inventory costs: the real server process over virtual libraries, held against the bare commands. See README.md.

#include <malloc.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>

#include "changer/changer_commands.h"
#include "changer/element_status_data.h"
#include "changer/scsi_pass_through.h"
#include "console/call_codec.h"
#include "console/connection.h"
#include "console/console_system.h"
#include "foundation/text/conversion.h"
#include "platform/device_stack/io_manager.h"
#include "platform/linux/linux_system.h"
#include "platform/linux/rpc/rpc_client.h"
#include "platform/virtual_library/virtual_library_source.h"

namespace {

namespace fs = std::filesystem;
using clock_type = std::chrono::steady_clock;
using platform::linux_rpc::rpc_client;

constexpr std::uint16_t few_slots = 1000;
constexpr std::uint16_t many_slots = 10000;
constexpr std::uint16_t first_slot = 0x1000;
constexpr std::uint16_t slots_per_command = 50;  ///< what the server asks for at once, by default

constexpr int warm_up_rounds = 3;
constexpr int rounds = 25;
constexpr int idle_starts = 3;

constexpr std::chrono::seconds call_time_out{60};
constexpr char owner[] = "BENCH";

[[noreturn]] void fail(const std::string& reason) {
    throw std::runtime_error(reason);
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

double seconds_of(clockid_t clock) {
    timespec time{};
    if (clock_gettime(clock, &time) != 0) {
        fail("The clock of the process can't be read.");
    }
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

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

/// The settings of examples/virtual-library.reg for other libraries, on a socket in the same folder.
void write_settings(const fs::path& file, const std::string& libraries) {
    std::ofstream reg(file);
    reg << "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarno\\Tarno Backup Tape]\n\n"
        << "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarno\\Tarno Backup "
           "Tape\\Devices]\n\"ScsiGeneric\"=dword:00000000\n\"VirtualLibrary\"=\""
        << libraries << "\"\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarno\\Tarno Backup Tape\\Access]\n"
        << "\"ListenAddress\"=\"127.0.0.1\"\n\"LocalSocket\"=\"rpc.sock\"\n\"Accounts\"=\"accounts\"\n";
}

std::uint16_t free_port() {
    const int probe = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    const bool bound = bind(probe, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
                       getsockname(probe, reinterpret_cast<sockaddr*>(&address), &size) == 0;
    close(probe);
    if (!bound) {
        fail("There is no free port.");
    }
    return ntohs(address.sin_port);
}

/// A server process, listening when the constructor is through; ends with the object.
class server_process {
public:
    server_process(const fs::path& program, const fs::path& folder) : socket_(folder / "rpc.sock"), log_(folder / "server.log") {
        const std::vector<std::string> words = {
            program, "-debug", "-settings", folder / "settings.reg",    "-state", folder / "state",
            "-log",  log_,     "-port",     std::to_string(free_port())};
        process_ = fork();
        if (process_ == 0) {
            std::vector<char*> arguments;
            for (const std::string& word : words) {
                arguments.push_back(const_cast<char*>(word.c_str()));
            }
            arguments.push_back(nullptr);
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            dup2(STDERR_FILENO, STDOUT_FILENO);
            execv(program.c_str(), arguments.data());
            _exit(127);
        }
        if (process_ < 0) {
            fail("The server can't be started.");
        }
        wait_until_listening();
        if (clock_getcpuclockid(process_, &cpu_clock_) != 0) {
            fail("The server's clock can't be had.");
        }
    }
    ~server_process() {
        kill(process_, SIGTERM);
        waitpid(process_, nullptr, 0);
    }
    server_process(const server_process&) = delete;
    server_process& operator=(const server_process&) = delete;

    [[nodiscard]] rpc_client connect() const { return rpc_client::connect_local(socket_, call_time_out); }

    /// Empties the log, which grows by several megabytes with each call. Its pages are then there for the next lines: on a virtual
    /// machine the first touch of memory that its guest never used costs many times the write itself, in the host.
    void empty_log() const { fs::resize_file(log_, 0); }

    /// CPU time of all threads so far, user and system, as soon as none of them is at work.
    [[nodiscard]] double settled_cpu_seconds() const {
        double last = seconds_of(cpu_clock_);
        for (int look = 0; look < 1000; ++look) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            const double now = seconds_of(cpu_clock_);
            if (now == last) {
                return now;
            }
            last = now;
        }
        fail("The server doesn't come to rest.");
    }

    [[nodiscard]] double resident_mib() const {
        std::ifstream status("/proc/" + std::to_string(process_) + "/status");
        std::string line;
        while (std::getline(status, line)) {
            if (line.starts_with("VmRSS:")) {
                return std::stod(line.substr(6)) / 1024;
            }
        }
        fail("The server's resident memory isn't told.");
    }

private:
    void wait_until_listening() const {
        for (int look = 0; look < 3000; ++look) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            try {
                (void)connect();
                return;
            } catch (const platform::linux_rpc::rpc_client_error&) {
                if (waitpid(process_, nullptr, WNOHANG) != 0) {
                    fail("The server ended instead of listening.");
                }
            }
        }
        fail("The server doesn't listen.");
    }

    pid_t process_ = -1;
    std::string socket_;
    fs::path log_;
    clockid_t cpu_clock_ = 0;
};

/// The calls of one connection.
class server_calls {
public:
    explicit server_calls(const server_process& server) : client_(server.connect()) {
        client_.bind({platform::linux_rpc::uuid_from_text("d1c2c07a-d989-48cc-a423-b73ecd518d40"), 1, 0}, call_time_out);
        (void)output_of(client_.call(0, request("SetOwnerName", {{"NewOwnerName", owner}}), call_time_out));
    }

    static std::vector<std::uint8_t> request(const std::string& procedure, const console::argument_list& arguments) {
        return console::encode_call(text::utf8_to_wide(procedure), text::utf8_to_wide(console::input_xml(arguments)));
    }
    static std::vector<std::uint8_t> slots_request(const std::string& link) {
        return request("GetSlotsStatuses", {{"SymLinkName", link}, {"OwnerName", owner}});
    }

    /// The output of an answer that has to be a success.
    static std::string output_of(const std::vector<std::uint8_t>& reply) {
        const auto answer = console::decode_answer(reply);
        if (!answer || !answer->success) {
            fail("A call failed: " + (answer ? text::wide_to_utf8(answer->error_message.value_or(u"")) : std::string("no answer")));
        }
        return text::wide_to_utf8(answer->output.value_or(u""));
    }

    std::vector<std::uint8_t> send(const std::vector<std::uint8_t>& stub) { return client_.call(0, stub, call_time_out); }

private:
    rpc_client client_;
};

void check_slots(const std::vector<std::uint8_t>& reply, std::uint16_t expected) {
    const std::string output = server_calls::output_of(reply);
    constexpr std::string_view mark = "&lt;SlotStatus ";
    std::size_t found = 0;
    for (std::size_t at = output.find(mark); at != std::string::npos; at = output.find(mark, at + mark.size())) {
        ++found;
    }
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

double wall_seconds(server_calls& calls, const std::vector<std::uint8_t>& stub, std::vector<std::uint8_t>& reply) {
    const auto began = clock_type::now();
    reply = calls.send(stub);
    return std::chrono::duration<double>(clock_type::now() - began).count();
}

/// One round takes each of the measures once, so that a change of the machine's mood hits all of them.
void measure_round(const server_process& server, server_calls& calls, bare_commands& bare, figures& into) {
    static const std::vector<std::uint8_t> few = server_calls::slots_request("\\\\.\\Changer0");
    static const std::vector<std::uint8_t> many = server_calls::slots_request("\\\\.\\Changer1");
    std::vector<std::uint8_t> reply;
    server.empty_log();
    into.few_wall.push_back(wall_seconds(calls, few, reply));
    check_slots(reply, few_slots);
    const double before = server.settled_cpu_seconds();
    into.many_wall.push_back(wall_seconds(calls, many, reply));
    into.many_cpu.push_back(server.settled_cpu_seconds() - before);
    check_slots(reply, many_slots);
    const double bare_before = seconds_of(CLOCK_PROCESS_CPUTIME_ID);
    bare.run();
    into.bare_cpu.push_back(seconds_of(CLOCK_PROCESS_CPUTIME_ID) - bare_before);
    bare.check();
}

void measure_inventory(const fs::path& program, const fs::path& folder, figures& result) {
    const fs::path served = folder / "served";
    const fs::path alone = folder / "alone";
    write_library(served / "few", few_slots);
    write_library(served / "many", many_slots);
    write_settings(served / "settings.reg", "few;many");
    write_library(alone / "many", many_slots);
    write_settings(alone / "settings.reg", "many");
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
        write_settings(place / "settings.reg", "library-24");
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
    // Answers of many megabytes come and go here: what getting their memory from the system costs is the caller's affair, and
    // doesn't belong to the server's time.
    mallopt(M_MMAP_THRESHOLD, 32 * 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 512 * 1024 * 1024);
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
