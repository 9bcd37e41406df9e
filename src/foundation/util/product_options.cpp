#include "foundation/util/product_options.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <type_traits>

#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_scope.h"
#include "foundation/logging/log_writer.h"
#include "foundation/text/conversion.h"
#include "foundation/text/format_message.h"
#include "foundation/win/win_reg_key.h"
#include "platform/registry.h"

namespace {

/// Null, with a line in the log, when there is no such key or it can't be opened.
win::reg_key_ptr open_key(std::u16string_view path) {
    const std::string text =
        text::format_message("Unable to open registry key with product options. Registry path: %1", text::wide_to_utf8(path));
    try {
        win::reg_key_ptr key = win::open_reg_key(path, platform::registry_access::read_64);
        if (!key) {
            g_libraryLog.LogWarning(text);
        }
        return key;
    } catch (const std::exception& e) {
        g_libraryLog.LogWarning(text, e);
        return {};
    }
}

/// Reads a value of the member's registry type; false when it isn't there.
bool read_value(const win::win_reg_key_t& key, std::u16string_view name, std::uint32_t& value) {
    return key.try_get_dword(name, value);
}

bool read_value(const win::win_reg_key_t& key, std::u16string_view name, std::int32_t& value) {
    std::uint32_t number = 0;
    if (!key.try_get_dword(name, number)) {
        return false;
    }
    value = std::bit_cast<std::int32_t>(number);
    return true;
}

bool read_value(const win::win_reg_key_t& key, std::u16string_view name, bool& value) {
    std::uint32_t number = 0;
    if (!key.try_get_dword(name, number)) {
        return false;
    }
    value = number != 0;
    return true;
}

/// Whoever sets a number by hand may well take the narrow type for a wide one.
bool read_value(const win::win_reg_key_t& key, std::u16string_view name, std::uint64_t& value) {
    try {
        return key.try_get_qword(name, value);
    } catch (const exc::runtime_exc_t&) {
        std::uint32_t number = 0;
        const bool found = key.try_get_dword(name, number);
        value = number;
        return found;
    }
}

bool read_value(const win::win_reg_key_t& key, std::u16string_view name, std::string& value) {
    text::wide_string wide;
    if (!key.try_get_string(name, wide)) {
        return false;
    }
    value = text::wide_to_utf8(wide);
    return true;
}

std::string shown(bool value) {
    return value ? "true" : "false";
}

std::string shown(const std::string& value) {
    return value;
}

template <typename Number>
std::string shown(Number value) {
    return text::to_string(value);
}

/// What a value that is set comes to in the record.
template <typename Value>
Value in_effect(const product_option_row& row, const Value& value) {
    if constexpr (std::is_unsigned_v<Value> && !std::is_same_v<Value, bool>) {
        constexpr Value most = std::numeric_limits<Value>::max();
        const Value scaled = value > most / row.unit ? most : static_cast<Value>(value * row.unit);
        return std::max(scaled, Value{row.minimum});
    } else {
        return value;
    }
}

/// A value that can't be read counts as one that is there: whoever wrote it meant this option and not its alternative.
bool exists(const win::win_reg_key_t& key, std::u16string_view name) {
    try {
        std::uint64_t ignored = 0;
        return read_value(key, name, ignored);
    } catch (const std::exception&) {
        return true;
    }
}

/// Takes over one row; the log shows the value as it is set, in the unit of its name. Throws when the value can't be read.
void load_row(const win::win_reg_key_t& key, const product_option_row& row, product_options_t& options) {
    if (!row.unless.empty() && exists(key, row.unless)) {
        return;
    }
    const auto load_member = [&](auto member) {
        std::remove_reference_t<decltype(options.*member)> value{};
        if (!read_value(key, row.name, value)) {
            return;
        }
        options.*member = in_effect(row, value);
        if (row.found != nullptr) {
            options.*row.found = true;
        }
        if (row.title.empty()) {
            g_libraryLog.LogInfo("Non-default option '%1': %2", text::wide_to_utf8(row.name), shown(value));
        } else {
            g_libraryLog.LogInfo("%1: %2", row.title, shown(value));
        }
    };
    std::visit(load_member, row.member);
}

void report_row(const product_option_row& row, const std::exception& e) {
    const bool is_text = std::holds_alternative<std::string product_options_t::*>(row.member);
    const std::string name = text::wide_to_utf8(row.name);
    g_libraryLog.LogWarning(text::format_message(is_text ? "Unable to retrieve registry option value, option '%1', type 'string'."
                                                         : "Unable to retrieve registry option '%1'",
                                                 name),
                            e);
}

}  // namespace

void product_options_t::load() {
    try {
        logging::log_scope_t scope(g_libraryLog, "Loading options.");
        const win::reg_key_ptr key = open_key(key_path);
        if (key) {
            for (const product_option_row& row : product_option_rows()) {
                try {
                    load_row(*key, row, *this);
                } catch (const std::exception& e) {
                    report_row(row, e);
                }
            }
        }
        scope.ok();
    } catch (const std::exception& e) {
        g_libraryLog.LogError("Failed to load registry options.", e);
    }
}

product_options_t& product_options() {
    static product_options_t options;
    return options;
}
