#include "foundation/win/win_log_file.h"

#include <boost/make_shared.hpp>
#include <span>
#include <utility>
#include <vector>

#include "foundation/exc/exceptions.h"
#include "foundation/util/common_lib_ctx.h"
#include "foundation/util/zip_writer.h"
#include "foundation/win/paths.h"
#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/system.h"

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

/// A number for each second of a month, by the wall clock: each line asks for that one anyway, so it costs next to nothing here.
/// Only changes count, so that a clock that is set does no harm.
std::int64_t current_second() {
    const platform::local_time now = platform::system().clock->now_local();
    return ((now.day * 24 + now.hour) * 60 + now.minute) * 60 + now.second;
}

/// Stands at the end of the file.
boost::shared_ptr<win_file_t> open_log(const text::wide_string& path) {
    common_lib_ctx().files_access_permissions().check(path);
    std::unique_ptr<platform::file> handle;
    const std::uint32_t code = platform::system().files->open_file(
        path, platform::file_access::read | platform::file_access::write | platform::file_access::append,
        platform::file_share::read, platform::file_open_mode::open_always, handle);
    if (code == platform::error::sharing_violation || code == platform::error::lock_violation) {
        throw exc::file_locked_exc_t(text::wide_to_utf8(path));
    }
    if (code != platform::error::success) {
        throw exc::win_sys_exc_t("Failed to create or open file [%1].", text::wide_to_utf8(path), code);
    }
    auto file = boost::make_shared<win_file_t>(std::move(handle), lazy_path_t(path));
    file->seek_to_end();
    return file;
}

}  // namespace

win_log_file_t::win_log_file_t(const text::wide_string& path) : path_(path), file_(open_log(path)), last_look_(current_second()) {}

void win_log_file_t::write(const std::string& text) {
    if (busy_) {
        if (waiting_.size() + text.size() <= most_waiting) {
            waiting_ += text;
        }
        return;
    }
    if (const std::int64_t now = current_second(); now != last_look_) {
        last_look_ = now;
        return_to_place();
    }
    if (store(text)) {
        store_waiting();
    }
}

/// False when the text is lost.
bool win_log_file_t::store(const std::string& text) {
    const flag_over_scope busy(busy_);
    const std::uint64_t start = file_->position();
    try {
        file_->write(text);
    } catch (const std::exception&) {
        take_back(file_->position() - start);
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
void win_log_file_t::take_back(std::uint64_t written) {
    if (written == 0) {
        return;
    }
    try {
        file_->set_size(file_->size() - written);
    } catch (const std::exception&) {
        return;
    }
}

/// Whoever removed or moved the log may have taken its folder, too. If there is no way to a new file, the old one serves on.
void win_log_file_t::return_to_place() {
    const flag_over_scope busy(busy_);
    if (file_->is_in_place()) {
        return;
    }
    try {
        if (!parent_path(path_.wide()).empty()) {
            ensure_parent_folder(path_.wide());
        }
        file_ = open_log(path_.wide());
    } catch (const std::exception&) {
        return;
    }
}

/// What is asked for before a rotation, which the log's folder is needed for.
std::uint64_t win_log_file_t::size() {
    if (!busy_) {
        return_to_place();
    }
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
