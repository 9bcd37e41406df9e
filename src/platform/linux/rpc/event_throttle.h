#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace platform::linux_rpc {

/// What strangers make a server say, within bounds, so that nobody can fill a log by being refused again and again. A sentence
/// that was said a short while ago is counted instead of said, and so are all of them while there are too many; the counts are
/// told with the next sentences that are said. Callable from any thread.
class event_throttle {
public:
    using sink = std::function<void(const std::string& sentence)>;
    using time_point = std::chrono::steady_clock::time_point;

    struct bounds {
        std::chrono::milliseconds same_sentence{10'000};  ///< between two of the same sentence
        std::size_t burst = 50;                           ///< sentences of all kinds in a row
        std::chrono::milliseconds refill{2'000};          ///< after which one more may follow
        std::chrono::milliseconds count_kept{600'000};    ///< how long a sentence waits for being said again with its count
    };

    event_throttle(sink out, bounds allowed, std::function<time_point()> now = std::chrono::steady_clock::now);

    void say(const std::string& sentence);

private:
    struct recent {
        time_point said;
        std::size_t repeated = 0;
    };
    std::string admit(const std::string& sentence);
    void refill(time_point now);
    void forget_old(time_point now);

    const sink out_;
    const bounds bounds_;
    const std::function<time_point()> now_;
    std::mutex mutex_;
    std::map<std::string, recent> recent_;  ///< bounded by what may be said while one is kept
    std::size_t left_;
    time_point refilled_;
    std::size_t unsaid_ = 0;  ///< counted without their sentences
};

/// A sink in front of another one that holds what passes within the usual bounds.
[[nodiscard]] event_throttle::sink throttled(event_throttle::sink out);

}  // namespace platform::linux_rpc
