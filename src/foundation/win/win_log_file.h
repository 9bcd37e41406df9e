#pragma once

#include <boost/shared_ptr.hpp>

#include "foundation/logging/log.h"
#include "foundation/text/conversion.h"
#include "foundation/win/win_file.h"

namespace win {

/// A log in a file: what is there is kept, and others may read it meanwhile but not write.
///
/// Where the system lets others move, remove or cut the file all the same, the log copes: it appends to what is there, and looks
/// once a second, when there is something to write, and whenever it is asked for its size, whether the file is still in its place;
/// if it isn't, the log goes on in a new one there.
class win_log_file_t final : public logging::receiver::log_file_t {
public:
    /// Makes the file when it is absent. Throws `exc::file_locked_exc_t` when another process holds it, and
    /// `exc::win_sys_exc_t` for every other failure.
    explicit win_log_file_t(const text::wide_string& path);

    /// One write to the file. A failure loses the text, silently: there is nowhere to report it. Half an entry doesn't stay.
    void write(const std::string& text) override;
    [[nodiscard]] const std::string& path() const override { return path_.narrow(); }
    [[nodiscard]] const std::string& line_end() const override { return line_end_; }
    [[nodiscard]] std::uint64_t size() override;
    /// Completes the archive and only then cuts the log, which keeps its name and its handle. Throws; the log is as it was then.
    void compress(const boost::shared_ptr<util::zip_writer_t>& zip_writer) override;

private:
    bool store(const std::string& text);
    void store_waiting();
    void take_back(std::uint64_t written);
    void return_to_place();
    void copy_into(util::zip_writer_t& zip_writer);

    std::string line_end_ = "\r\n";
    lazy_path_t path_;
    boost::shared_ptr<win_file_t> file_;
    std::int64_t last_look_;  ///< as `current_second` tells it
    /// While the file is being written or read, entries about that very work come in; they wait until it is done.
    bool busy_ = false;
    std::string waiting_;
};

}  // namespace win
