// What a remote call costs over the wire alone: the server's transport and the frame of a call, held against a raw TCP echo of the
// same sizes. See README.md.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/measure.h"
#include "console/call_codec.h"
#include "platform/linux/linux_system.h"
#include "rpc/child_process.h"
#include "rpc/echo_server.h"
#include "rpc/hosted_server.h"
#include "rpc/load_client.h"
#include "rpc/samba_server.h"

namespace {

using namespace bench;

constexpr int lives = 5;
constexpr int rounds_a_life = 3;
constexpr std::chrono::milliseconds warm_up_time{150};
constexpr std::chrono::milliseconds small_time{400};
constexpr std::chrono::milliseconds bulk_time{500};
constexpr std::size_t bulk_connections = 2;
constexpr std::size_t idle_connections = 400;
constexpr std::size_t samba_connections = 8;

using platform::linux_rpc::syntax_id;
using platform::linux_rpc::uuid_from_text;

const syntax_id invoker{invoker_uuid, 1, 0};
const syntax_id texts{text_uuid, 1, 0};
const syntax_id endpoint_mapper{uuid_from_text("e1af8308-5d1f-11c9-91a4-08002b14a0fa"), 3, 0};

/// What is measured of one kind of server: one value a round, over all its lives.
struct series {
    std::vector<double> per_second;
    std::vector<double> p99_us;

    void add(const load_result& result) {
        per_second.push_back(result.per_second);
        p99_us.push_back(result.p99_us);
    }
    [[nodiscard]] double rate() const { return median(per_second); }
    [[nodiscard]] double p99() const { return median(p99_us); }
};

/// A server with connections to it, ready to be put under load.
struct contender {
    std::string name;
    std::unique_ptr<child_process> server;
    std::vector<client_socket> connections;
    exchange what;
};

/// What a contender has brought.
struct standing {
    std::string name;
    series result;
};

const caller administrator{account_name, account_password};

std::vector<std::uint8_t> small_stub() {
    return console::encode_call(u"IInvokeDispatcher.IsSerialInvokerEnabled", u"<InputArguments />");
}

/// The tape server with so many connections, all proved and used once.
contender hosted(const std::string& name, const std::string& folder, bool logged, bool one_cpu, std::size_t connections,
                 const syntax_id& interface, std::vector<std::uint8_t> request) {
    const std::string log = logged ? folder + "/" + name + ".log" : std::string();
    contender made{
        name, std::make_unique<child_process>(std::vector<std::string>{"server", folder + "/" + name, log}, one_cpu), {}, {}};
    made.what.request = std::move(request);
    for (std::size_t i = 0; i < connections; ++i) {
        made.connections.push_back(bind_to(made.server->port(), interface, &administrator));
        made.what.answer = call_once(made.connections.back(), made.what.request).size();
    }
    return made;
}

/// The echo that moves the same bytes as another contender.
contender echo_of(const contender& other, bool one_cpu) {
    contender made{"echo", nullptr, {}, other.what};
    made.server = std::make_unique<child_process>(
        std::vector<std::string>{"echo", std::to_string(made.what.request.size()), std::to_string(made.what.answer)}, one_cpu);
    for (std::size_t i = 0; i < other.connections.size(); ++i) {
        made.connections.emplace_back(made.server->port());
    }
    return made;
}

/// Takes turns, so that a change of the machine's mood hits all alike. How threads, CPUs and memory fall together lasts as long as
/// a process and can double a rate, so that the servers are made anew several times.
std::vector<standing> race(const std::function<std::vector<contender>()>& line_up, std::chrono::milliseconds time) {
    std::vector<standing> standings;
    for (int life = 0; life < lives; ++life) {
        const std::vector<contender> contenders = line_up();
        standings.resize(contenders.size());
        for (const contender& one : contenders) {
            (void)run_load(one.connections, one.what, warm_up_time);
        }
        for (int round = 0; round < rounds_a_life; ++round) {
            for (std::size_t i = 0; i < contenders.size(); ++i) {
                standings[i].name = contenders[i].name;
                standings[i].result.add(run_load(contenders[i].connections, contenders[i].what, time));
            }
        }
    }
    return standings;
}

class report {
public:
    void figure(const std::string& name, double value) {
        std::cout << name << ' ' << value << std::endl;
        detail(name, value);
    }
    void detail(const std::string& name, double value) { values_.emplace_back(name, value); }
    void note(const std::string& name, const std::string& text) { notes_.emplace_back(name, text); }
    void write(const std::filesystem::path& path) const {
        std::ofstream file(path);
        file << "{\n";
        for (const auto& [name, value] : values_) {
            file << "  \"" << name << "\": " << value << ",\n";
        }
        for (const auto& [name, text] : notes_) {
            file << "  \"" << name << "\": \"" << text << "\",\n";
        }
        file << "  \"rounds\": " << lives * rounds_a_life << "\n}\n";
        if (!file.flush()) {
            fail("The results can't be written to " + path.string() + ".");
        }
    }

private:
    std::vector<std::pair<std::string, double>> values_;
    std::vector<std::pair<std::string, std::string>> notes_;
};

void tell(report& results, const std::string& figure, const standing& one) {
    std::cerr << figure << ", " << one.name << ": " << one.result.rate() << " calls per second, 99% within " << one.result.p99()
              << " us\n";
    results.detail(figure + "_" + one.name + "_per_second", one.result.rate());
    results.detail(figure + "_" + one.name + "_p99_us", one.result.p99());
}

void measure_small(const std::string& folder, std::size_t connections, bool one_cpu, report& results) {
    const std::string figure = "rpc_small_" + std::to_string(connections) + (one_cpu ? "_pinned" : "");
    const std::vector<std::uint8_t> request = request_pdus(0, small_stub());
    const auto standings = race(
        [&] {
            std::vector<contender> contenders;
            contenders.push_back(hosted(figure + "_quiet", folder, false, one_cpu, connections, invoker, request));
            contenders.push_back(hosted(figure + "_logged", folder, true, one_cpu, connections, invoker, request));
            contenders.push_back(echo_of(contenders.front(), one_cpu));
            return contenders;
        },
        small_time);
    const series& quiet = standings[0].result;
    const series& logged = standings[1].result;
    const series& floor = standings[2].result;
    for (const standing& one : standings) {
        tell(results, figure, one);
    }
    results.figure(figure + "_vs_floor", quiet.rate() / floor.rate());
    results.figure(figure + "_vs_floor_logged", logged.rate() / floor.rate());
    results.figure("rpc_p99_" + std::to_string(connections) + "_vs_floor", quiet.p99() / floor.p99());
    results.figure("rpc_p99_" + std::to_string(connections) + "_vs_floor_logged", logged.p99() / floor.p99());
}

void measure_bulk(const std::string& folder, const std::string& figure, const std::vector<std::uint8_t>& request, report& results) {
    const auto standings = race(
        [&] {
            std::vector<contender> contenders;
            contenders.push_back(hosted(figure, folder, false, false, bulk_connections, texts, request));
            contenders.push_back(echo_of(contenders.front(), false));
            return contenders;
        },
        bulk_time);
    for (const standing& one : standings) {
        tell(results, figure, one);
    }
    results.figure(figure + "_vs_floor", standings[0].result.rate() / standings[1].result.rate());
}

/// Asks the endpoint mapper for the endpoints of an interface that nobody has: `ept_lookup`, answered alike by everybody.
std::vector<std::uint8_t> look_up_request() {
    std::vector<std::uint8_t> stub;
    platform::linux_rpc::wire_writer writer(stub);
    writer.u32(1);  // by interface
    writer.u32(0);  // no object
    writer.u32(1);
    writer.syntax({text_uuid, 9, 0});
    writer.u32(1);  // of any version
    writer.zeros(20);
    writer.u32(10);
    return request_pdus(2, stub);
}

void measure_against_samba(const std::string& folder, report& results) {
    const std::string figure = "rpc_vs_samba_" + std::to_string(samba_connections);
    if (const std::string lack = samba_server::lack(); !lack.empty()) {
        std::cerr << figure << ": skipped, " << lack << '\n';
        results.note(figure, "skipped: " + lack);
        return;
    }
    const samba_server samba(folder + "/samba");
    const auto standings = race(
        [&] {
            std::vector<contender> contenders;
            contenders.push_back(hosted("tarno", folder, false, false, samba_connections, endpoint_mapper, look_up_request()));
            contender& other = contenders.emplace_back();
            other.name = "samba";
            other.what.request = look_up_request();
            for (std::size_t i = 0; i < samba_connections; ++i) {
                other.connections.push_back(bind_to(samba_server::port, endpoint_mapper, nullptr));
                other.what.answer = call_once(other.connections.back(), other.what.request).size();
            }
            return contenders;
        },
        small_time);
    for (const standing& one : standings) {
        tell(results, figure, one);
    }
    results.figure(figure, standings[0].result.rate() / standings[1].result.rate());
}

/// Memory that idle connections take, each of which has proved who calls and has made a call.
void measure_memory(const std::string& folder, report& results) {
    const std::vector<std::uint8_t> request = request_pdus(0, small_stub());
    contender server = hosted("memory", folder, false, false, 8, invoker, request);
    const double before = server.server->resident_kib();
    for (std::size_t i = 0; i < idle_connections; ++i) {
        server.connections.push_back(bind_to(server.server->port(), invoker, &administrator));
        (void)call_once(server.connections.back(), request);
    }
    results.figure("rpc_kib_per_connection", (server.server->resident_kib() - before) / idle_connections);
}

void measure(const std::string& folder, const std::filesystem::path& json, const std::string& only) {
    report results;
    const auto wanted = [&only](const std::string& name) { return only.empty() || name.starts_with(only); };
    if (wanted("rpc_small_1_pinned")) {
        measure_small(folder, 1, true, results);
    }
    if (wanted("rpc_small_8")) {
        measure_small(folder, 8, false, results);
    }
    if (wanted("rpc_small_64")) {
        measure_small(folder, 64, false, results);
    }
    if (wanted("rpc_bulk_out")) {
        measure_bulk(folder, "rpc_bulk_out", request_pdus(give_text, {}), results);
    }
    if (wanted("rpc_bulk_in")) {
        measure_bulk(folder, "rpc_bulk_in", request_pdus(take_text, console::encode_call(u"", long_text())), results);
    }
    if (wanted("rpc_vs_samba")) {
        measure_against_samba(folder, results);
    }
    if (wanted("rpc_kib_per_connection")) {
        measure_memory(folder, results);
    }
    results.write(json);
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    try {
        if (words.size() == 3 && words[0] == "echo") {
            run_echo_server(std::stoul(words[1]), std::stoul(words[2]));
        }
        if (words.size() == 3 && words[0] == "server") {
            run_hosted_server(words[1], words[2]);
        }
        if (words.size() != 3 && words.size() != 2) {
            std::cerr << "usage: bench_rpc EMPTY-FOLDER RESULTS.json [FIGURE]\n";
            return 2;
        }
        // Texts of the protocol are converted here, too.
        platform::linux_os::linux_system system({words[0] + "/settings.reg", false, words[0] + "/state"});
        platform::install(system.set());
        measure(words[0], words[1], words.size() == 3 ? words[2] : std::string());
        return EXIT_SUCCESS;
    } catch (const std::exception& e) {
        std::cerr << "bench_rpc: " << e.what() << '\n';
        return EXIT_FAILURE;
    }
}
