#include "foundation/logging/log_rotation.h"

#include <boost/make_shared.hpp>
#include <optional>

#include "foundation/exc/exceptions.h"
#include "foundation/util/product_options.h"
#include "foundation/util/zip_writer.h"
#include "foundation/win/paths.h"
#include "foundation/win/win_reg_key.h"

namespace logging {

namespace {

constexpr std::u16string_view size_value = u"AgentMaxLogSize";
constexpr std::u16string_view count_value = u"AgentMaxLogCount";
constexpr std::int32_t most_archives = 1000;
constexpr std::u16string_view archive_suffix = u".gz";
constexpr std::u16string_view archive_extension = u".log.gz";
constexpr std::u16string_view aside_suffix = u".old";

/// The size fits either type.
bool read_size(const win::win_reg_key_t& key, std::uint64_t& size) {
    try {
        std::uint32_t small = 0;
        if (!key.try_get_dword(size_value, small)) {
            return false;
        }
        size = small;
        return true;
    } catch (const exc::runtime_exc_t&) {
        return key.try_get_qword(size_value, size);
    }
}

}  // namespace

log_limits_t read_log_limits() {
    try {
        const win::reg_key_ptr key = win::open_reg_key(product_options().key_path, platform::registry_access::read_64);
        log_limits_t limits;
        std::uint32_t count = 0;
        if (key == nullptr || !read_size(*key, limits.size) || !key->try_get_dword(count_value, count)) {
            return {};
        }
        limits.count = static_cast<std::int32_t>(count);
        if (limits.count < 0 || limits.count > most_archives) {
            limits.count = most_archives;
        }
        return limits;
    } catch (const std::exception&) {
        return {};
    }
}

text::wide_string aged_path(const text::wide_string& path, std::u16string_view extension, std::int32_t age) {
    if (age == 0) {
        return path;
    }
    const text::wide_string number = u"." + text::to_wstring(age);
    if (!path.ends_with(extension)) {
        return path + number;
    }
    return path.substr(0, path.size() - extension.size()).append(number).append(extension);
}

ageing_t::ageing_t(text::wide_string path, std::u16string_view extension, std::int32_t limit)
    : path_(std::move(path)), extension_(extension), limit_(limit) {
    try {
        put_oldest_aside();
        shift();
    } catch (std::exception& e) {
        undo();
        rethrow(e);
    }
}

ageing_t::~ageing_t() {
    undo();
}

void ageing_t::put_oldest_aside() {
    const text::wide_string oldest = aged_path(path_, extension_, limit_);
    if (!win::file_exists(oldest)) {
        return;
    }
    const text::wide_string aside = text::wide_string(oldest).append(aside_suffix);
    if (win::file_exists(aside)) {
        // Left over from a process that ended in the middle of this.
        win::delete_file(aside);
    }
    move(oldest, aside);
    aside_ = aside;
}

void ageing_t::shift() {
    for (std::int32_t age = limit_ - 1; age >= 0; --age) {
        const text::wide_string name = aged_path(path_, extension_, age);
        if (win::file_exists(name)) {
            move(name, aged_path(path_, extension_, age + 1));
        }
    }
}

void ageing_t::move(const text::wide_string& from, const text::wide_string& to) {
    moves_.emplace_back(from, to);
    try {
        win::move_file(from, to);
    } catch (const std::exception&) {
        moves_.pop_back();
        throw;
    }
}

void ageing_t::undo() {
    for (; !moves_.empty(); moves_.pop_back()) {
        try {
            win::move_file(moves_.back().second, moves_.back().first);
        } catch (const std::exception&) {
            // It stays under the other name: none is overwritten for it.
            continue;
        }
    }
}

void ageing_t::complete() {
    moves_.clear();
    try {
        if (!aside_.empty()) {
            win::delete_file(aside_);
        }
    } catch (std::exception& e) {
        rethrow(e);
    }
}

void ageing_t::rethrow(std::exception& e) const {
    exc::rethrow_with_trace("Cannot age file. File path: [%1]. Extension: [%2]. Ages limit: [%3].", text::wide_to_utf8(path_),
                            text::wide_to_utf8(extension_), text::to_string(limit_), e);
}

void age_file(const text::wide_string& path, std::u16string_view extension, std::int32_t limit) {
    ageing_t ageing(path, extension, limit);
    ageing.complete();
}

void check_log_size(receiver::log_file_t& receiver, const log_limits_t& limits) {
    try {
        if (limits.size == 0 || receiver.size() < limits.size) {
            return;
        }
        const text::wide_string archive = text::utf8_to_wide(receiver.path()).append(archive_suffix);
        // The older archives move on only when the new one is whole: with a full disk they would else leave one by one.
        std::optional<ageing_t> ageing;
        const auto writer =
            boost::make_shared<util::zip_writer_t>(archive, [&] { ageing.emplace(archive, archive_extension, limits.count); });
        receiver.compress(writer);
        if (ageing) {
            ageing->complete();
        }
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Unable to validate log size limit. Log path: [%1].", receiver.path(), e);
    }
}

log_rotation_t::log_rotation_t() : limits_(read_log_limits()) {}

void log_rotation_t::check(receiver::log_file_t& receiver) {
    check_log_size(receiver, limits_);
}

}  // namespace logging
