#include "foundation/perf/perf_log.h"

#include <boost/shared_ptr.hpp>
#include <boost/thread/lock_guard.hpp>

#include <memory>
#include <span>
#include <utility>

#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "foundation/logging/quietly.h"
#include "foundation/util/common_lib_ctx.h"
#include "foundation/util/product_options.h"
#include "foundation/win/paths.h"
#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "platform/process.h"
#include "platform/system.h"

namespace perf {

namespace {

using lock_t = boost::lock_guard<boost::mutex>;

constexpr std::string_view no_folder = "Performance logger failed to create directory.";
constexpr std::string_view lost = "Unable to flush performance log data. Perflog buffer will be erased, data will be lost.";

/// What went wrong, to be told when no mutex is held any more.
struct failure_t {
    std::string_view text;
    boost::shared_ptr<exc::exc_base_t> reason;
};

void require(std::uint32_t code, std::string_view pattern, const text::wide_string& path) {
    if (code != platform::error::success) {
        throw exc::win_sys_exc_t(pattern, text::wide_to_utf8(path), code);
    }
}

/// By the port's file, not by one that tries again: that one logs.
void append_to_file(const text::wide_string& path, const std::string& block) {
    common_lib_ctx().files_access_permissions().check(path);
    std::unique_ptr<platform::file> file;
    require(platform::system().files->open_file(path, platform::file_access::write, platform::file_share::read,
                                                platform::file_open_mode::open_always, file),
            "Failed to create or open file [%1].", path);
    std::uint64_t end = 0;
    require(file->size(end), "WINAPI: Cannot get file size. File: [%1].", path);
    require(file->seek(end), "Failed to write data to the file [%1].", path);
    std::size_t count = 0;
    require(file->write(std::span(reinterpret_cast<const std::uint8_t*>(block.data()), block.size()), count),
            "Failed to write data to the file [%1].", path);
    if (count != block.size()) {
        throw exc::runtime_exc_t("Failed to write %1 bytes to the file '%2': %3 bytes were written instead",
                                 text::to_string(std::uint64_t{block.size()}), text::wide_to_utf8(path),
                                 text::to_string(std::uint64_t{count}));
    }
}

failure_t write_block(const text::wide_string& folder, const std::string& block) {
    std::string_view text = no_folder;
    try {
        win::create_folder(folder);
        text = lost;
        const std::string name = "perf." + text::to_string(platform::system().process->process_id()) + ".txt";
        append_to_file(win::join_path(folder, text::utf8_to_wide(name)), block);
        return {};
    } catch (const std::exception& e) {
        return {text, exc::clone_current(e)};
    }
}

}  // namespace

perf_log_t& perf_log_t::instance() {
    static auto& log = *new perf_log_t;  // never gone: a thread may outlive the process's main function
    return log;
}

void perf_log_t::start(const text::wide_string& folder) {
    const lock_t lock(mutex_);
    folder_ = folder;
    on_ = true;
}

void perf_log_t::stop() {
    {
        const lock_t lock(mutex_);
        on_ = false;
    }
    flush();
}

void perf_log_t::add(file_event event, const CPerfEventArgBase& argument) {
    bool full = false;
    {
        const lock_t lock(mutex_);
        if (!on_) {
            return;
        }
        buffer_ += text::to_string(platform::system().clock->milliseconds());
        buffer_ += '\t';
        buffer_ += text::to_string(platform::system().process->current_thread_id());
        buffer_ += '\t';
        buffer_ += text::to_string(static_cast<std::uint32_t>(event));
        argument.append_to(buffer_);
        buffer_ += '\n';
        full = buffer_.size() >= product_options().perf_buf_size;
    }
    if (full) {
        flush();
    }
}

void perf_log_t::flush() {
    failure_t failure;
    {
        const lock_t writing(writing_);
        std::string block;
        text::wide_string folder;
        {
            const lock_t lock(mutex_);
            block = std::exchange(buffer_, {});
            folder = folder_;
        }
        if (!block.empty()) {
            failure = write_block(folder, block);
        }
    }
    if (failure.reason != nullptr) {
        logging::quietly([&failure] { g_libraryLog.LogError(failure.text, *failure.reason); });
    }
}

}  // namespace perf
