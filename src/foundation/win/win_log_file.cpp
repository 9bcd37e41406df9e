#include "foundation/win/win_log_file.h"

#include <boost/make_shared.hpp>
#include <span>
#include <utility>
#include <vector>

#include "foundation/exc/exceptions.h"
#include "foundation/util/zip_writer.h"
#include "platform/errors.h"

namespace win {

namespace {

constexpr std::size_t block_size = std::size_t{1} << 20;
constexpr std::size_t most_waiting = std::size_t{1} << 20;

class flag_over_scope {
public:
    explicit flag_over_scope(bool& flag) : flag_(flag) { flag_ = true; }
    ~flag_over_scope() { flag_ = false; }
    flag_over_scope(const flag_over_scope&) = delete;
    flag_over_scope& operator=(const flag_over_scope&) = delete;

private:
    bool& flag_;
};

boost::shared_ptr<win_file_t> open_log(const text::wide_string& path) {
    try {
        return boost::make_shared<win_file_t>(win_file_t::open(path, platform::file_open_mode::open_always));
    } catch (const exc::win_sys_exc_t& e) {
        if (e.code() == platform::error::sharing_violation || e.code() == platform::error::lock_violation) {
            throw exc::file_locked_exc_t(text::wide_to_utf8(path));
        }
        throw;
    }
}

}  // namespace

win_log_file_t::win_log_file_t(const text::wide_string& path) : file_(open_log(path)) {
    file_->seek_to_end();
}

void win_log_file_t::write(const std::string& text) {
    if (busy_) {
        if (waiting_.size() + text.size() <= most_waiting) {
            waiting_ += text;
        }
        return;
    }
    if (store(text)) {
        store_waiting();
    }
}

/// False when the text is lost.
bool win_log_file_t::store(const std::string& text) {
    const flag_over_scope busy(busy_);
    const std::uint64_t end = file_->position();
    try {
        file_->write(text);
    } catch (const std::exception&) {
        take_back(end);
        return false;
    }
    try {
        if (flush_each_write) {
            file_->flush();
        }
    } catch (const std::exception&) {
        return true;  // the text is in the file, if not on the disk yet
    }
    return true;
}

void win_log_file_t::store_waiting() {
    if (!waiting_.empty()) {
        store(std::exchange(waiting_, {}));
    }
}

/// Cuts what a failed write left: the next entry is to begin a line.
void win_log_file_t::take_back(std::uint64_t end) {
    if (file_->position() == end) {
        return;
    }
    try {
        file_->set_size(end);
    } catch (const std::exception&) {
        return;
    }
}

std::uint64_t win_log_file_t::size() {
    return file_->size();
}

void win_log_file_t::compress(const boost::shared_ptr<util::zip_writer_t>& zip_writer) {
    if (busy_) {
        return;
    }
    try {
        try {
            const flag_over_scope busy(busy_);
            copy_into(*zip_writer);
            zip_writer->close();
            file_->set_size(0);
        } catch (const std::exception&) {
            file_->seek_to_end();
            store_waiting();
            throw;
        }
        store_waiting();
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Cannot compress log file. Log: [%1].", path(), e);
    }
}

void win_log_file_t::copy_into(util::zip_writer_t& zip_writer) {
    file_->seek_to_begin();
    std::vector<std::uint8_t> block(block_size);
    while (const std::size_t count = file_->read(block)) {
        zip_writer.append(std::span(block).first(count));
    }
}

}  // namespace win
