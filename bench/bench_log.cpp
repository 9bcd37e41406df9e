/// Lines per second of the log in a file, over those of spdlog's basic file sink.
///
/// Both write the same texts in the same form (stamp, thread, prefix, text, CR LF), an entry a line, each line handed to the
/// system before the call returns. Rounds alternate; the figures are ratios of medians of one run.

#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <atomic>
#include <boost/make_shared.hpp>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <thread>
#include <vector>

#include "common/measure.h"
#include "foundation/logging/log_rotation.h"
#include "foundation/logging/log_writer.h"
#include "foundation/win/win_log_file.h"
#include "platform/linux/linux_system.h"

namespace {

using bench::median;

constexpr int rounds = 15;
constexpr int warm_up_rounds = 2;
constexpr std::size_t lines = 100'000;
constexpr std::size_t thread_counts[] = {1, 8};

/// Texts as the server writes them: short steps, and now and then a record.
std::vector<std::string> make_texts() {
    std::vector<std::string> texts;
    for (std::size_t number = 0; number < lines; ++number) {
        std::string text = "Step " + std::to_string(number) + " of a move from slot to drive.";
        if (number % 10 == 0) {
            text += " [SoapEnter] MoveFromSlotToDrive:<InputArguments><SymLinkName value=\"Changer0\" /><SourceSlotNum value=\"" +
                    std::to_string(number % 24) + "\" /></InputArguments>";
        }
        texts.push_back(std::move(text));
    }
    return texts;
}

/// Looks at the size as the server does, and never finds the log full.
class endless_rotation final : public logging::size_check_t {
public:
    void check(logging::receiver::log_file_t& receiver) override {
        logging::check_log_size(receiver, {std::uint64_t{1} << 40, 10});
    }
};

class own_log {
public:
    explicit own_log(const std::string& path) {
        log_->set_receiver(boost::make_shared<win::win_log_file_t>(text::utf8_to_wide(path)));
        log_->set_check_size(boost::make_shared<endless_rotation>());
    }
    void write(const std::string& text) { writer_.LogInfo(text); }

private:
    boost::shared_ptr<logging::log_t> log_ = boost::make_shared<logging::log_t>();
    logging::log_writer_t writer_{"tap", log_};
};

class other_log {
public:
    explicit other_log(const std::string& path) : logger_("log", std::make_shared<spdlog::sinks::basic_file_sink_mt>(path)) {
        logger_.set_formatter(std::make_unique<spdlog::pattern_formatter>("[%d.%m.%Y %H:%M:%S] <%6t> tap| %v",
                                                                          spdlog::pattern_time_type::local, "\r\n"));
        logger_.flush_on(spdlog::level::trace);
    }
    void write(const std::string& text) { logger_.info(std::string_view(text)); }

private:
    spdlog::logger logger_;
};

void check_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const auto found = static_cast<std::size_t>(std::count(std::istreambuf_iterator<char>(file), {}, '\n'));
    if (found != lines) {
        throw std::runtime_error(path + " has " + std::to_string(found) + " lines");
    }
}

/// Lines per second of one log in a new file.
template <typename Log>
double measure(const std::vector<std::string>& texts, std::size_t threads, const std::string& path) {
    std::filesystem::remove(path);
    double seconds = 0;
    {
        Log log(path);
        std::atomic<bool> go{false};
        std::vector<std::thread> all;
        for (std::size_t thread = 0; thread < threads; ++thread) {
            all.emplace_back([&, thread] {
                while (!go) {
                    std::this_thread::yield();
                }
                for (std::size_t at = thread; at < texts.size(); at += threads) {
                    log.write(texts[at]);
                }
            });
        }
        const auto start = std::chrono::steady_clock::now();
        go = true;
        for (std::thread& each : all) {
            each.join();
        }
        seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    check_file(path);
    return static_cast<double>(texts.size()) / seconds;
}

/// The ratio for so many threads.
double compare(const std::vector<std::string>& texts, std::size_t threads, const std::string& folder, nlohmann::json& result) {
    std::vector<double> own;
    std::vector<double> other;
    for (int round = -warm_up_rounds; round < rounds; ++round) {
        const double own_rate = measure<own_log>(texts, threads, folder + "/own.log");
        const double other_rate = measure<other_log>(texts, threads, folder + "/other.log");
        if (round >= 0) {
            own.push_back(own_rate);
            other.push_back(other_rate);
        }
    }
    const double ratio = median(own) / median(other);
    const std::string name = std::to_string(threads);
    result["lines_per_second"][name] = {{"own", median(own)}, {"spdlog", median(other)}};
    std::cerr << threads << " thread(s): " << static_cast<long>(median(own)) << " lines a second, spdlog "
              << static_cast<long>(median(other)) << '\n';
    return ratio;
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 3) {
        std::cerr << "usage: bench_log FOLDER RESULT\n";
        return 2;
    }
    try {
        const std::string folder = arguments[1];
        platform::linux_os::system_paths paths;
        paths.settings_file = folder + "/settings.reg";
        paths.state_folder = folder + "/state";
        platform::linux_os::linux_system system(paths);
        platform::install(system.set());
        const std::vector<std::string> texts = make_texts();
        nlohmann::json result;
        double lowest = 0;
        for (const std::size_t threads : thread_counts) {
            const double ratio = compare(texts, threads, folder, result);
            const std::string name = "log_lines_vs_spdlog_" + std::to_string(threads);
            result["figures"][name] = ratio;
            std::cout << name << ' ' << ratio << '\n';
            lowest = lowest == 0 ? ratio : std::min(lowest, ratio);
        }
        result["figures"]["log_lines_vs_spdlog"] = lowest;
        std::cout << "log_lines_vs_spdlog " << lowest << std::endl;
        std::ofstream(arguments[2]) << result.dump(4) << '\n';
        return 0;
    } catch (const std::exception& e) {
        std::cerr << "bench_log: " << e.what() << '\n';
        return 1;
    }
}
