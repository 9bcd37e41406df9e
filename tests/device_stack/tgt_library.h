#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

/// An emulated library behind a tgtd of its own, for the life of the object (see tests/support/README.md).
class tgt_library {
public:
    explicit tgt_library(const std::vector<std::string>& arguments = {});
    ~tgt_library();
    tgt_library(const tgt_library&) = delete;
    tgt_library& operator=(const tgt_library&) = delete;

    /// False when tgt isn't installed.
    [[nodiscard]] bool is_available() const { return available_; }
    [[nodiscard]] const std::string& portal() const { return values_.at("portal"); }
    [[nodiscard]] const std::string& target() const { return values_.at("target"); }
    [[nodiscard]] int changer_lun() const { return std::stoi(values_.at("changer_lun")); }
    [[nodiscard]] pid_t daemon() const { return static_cast<pid_t>(std::stol(values_.at("pid"))); }

    /// Sends a signal to the daemon: stopped, it is a target that says nothing any more; killed, one that is gone.
    void signal_daemon(int number) const;

private:
    pid_t script_ = -1;
    int keep_alive_ = -1;  ///< the script's standard input
    bool available_ = false;
    std::map<std::string, std::string> values_;
};
