#include <algorithm>
#include <array>

#include "platform/linux/rpc/accounts_file.h"
#include "platform/linux/rpc/unicode.h"

namespace platform::linux_rpc {

namespace {

constexpr std::string_view version_line = "tarno-tape-accounts 1";
constexpr std::string_view administrator_flag = "administrator";
constexpr std::string_view disabled_flag = "disabled";
constexpr std::size_t longest_name = 104;

std::string_view next_line(std::string_view& rest) {
    const std::size_t end = rest.find('\n');
    std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    return line;
}

int hexadecimal_value(char digit) {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    if (digit >= 'a' && digit <= 'f') {
        return digit - 'a' + 10;
    }
    return digit >= 'A' && digit <= 'F' ? digit - 'A' + 10 : -1;
}

bool parse_hash(std::string_view text, secret_key& hash) {
    if (text.size() != secret_key::length * 2) {
        return false;
    }
    for (std::size_t i = 0; i < secret_key::length; ++i) {
        const int high = hexadecimal_value(text[2 * i]);
        const int low = hexadecimal_value(text[2 * i + 1]);
        if (high < 0 || low < 0) {
            return false;
        }
        hash.writable()[i] = static_cast<std::uint8_t>(high * 16 + low);
    }
    return true;
}

std::string format_hash(const secret_key& hash) {
    static constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : hash.view()) {
        text.push_back(digits[byte >> 4]);
        text.push_back(digits[byte & 0xF]);
    }
    return text;
}

bool parse_flags(std::string_view text, account& parsed) {
    while (!text.empty()) {
        const std::size_t end = text.find(',');
        const std::string_view flag = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (flag == administrator_flag) {
            parsed.administrator = true;
        } else if (flag == disabled_flag) {
            parsed.disabled = true;
        } else {
            return false;
        }
    }
    return true;
}

std::string format_flags(const account& shown) {
    std::string text;
    if (shown.administrator) {
        text = administrator_flag;
    }
    if (shown.disabled) {
        text += text.empty() ? "" : ",";
        text += disabled_flag;
    }
    return text;
}

[[noreturn]] void refuse_line(std::size_t number, const std::string& reason) {
    throw accounts_file_error("line " + std::to_string(number) + ": " + reason);
}

account parse_account(std::string_view line, std::size_t number) {
    const std::size_t name_end = line.find(':');
    const std::size_t flags_end = name_end == std::string_view::npos ? name_end : line.find(':', name_end + 1);
    if (flags_end == std::string_view::npos) {
        refuse_line(number, "an account has the form name:flags:hash.");
    }
    account parsed;
    parsed.name = line.substr(0, name_end);
    if (const std::string fault = name_fault(parsed.name); !fault.empty()) {
        refuse_line(number, fault);
    }
    if (!parse_flags(line.substr(name_end + 1, flags_end - name_end - 1), parsed)) {
        refuse_line(number, "the flags are \"administrator\" and \"disabled\", separated by commas.");
    }
    if (!parse_hash(line.substr(flags_end + 1), parsed.hash)) {
        refuse_line(number, "the hash has 32 hexadecimal digits.");
    }
    return parsed;
}

/// The key of a name in the table; the name has been checked.
std::u16string key_of(const std::string& name) {
    std::u16string wide;
    return utf8_to_utf16(name, wide) ? upper_case(wide) : std::u16string();
}

}  // namespace

std::string name_fault(std::string_view name) {
    std::u16string wide;
    if (!utf8_to_utf16(name, wide)) {
        return "a name has to be well-formed UTF-8.";
    }
    if (wide.empty() || wide.size() > longest_name) {
        return "a name has 1 to 104 characters.";
    }
    // What Windows refuses in account names, too; the colon separates the fields of the file, '@' and '\' a name from its realm.
    constexpr std::u16string_view forbidden = u"\"/\\[]:;|=,+*?<>@";
    const auto is_forbidden = [&](char16_t unit) {
        return unit < 0x20 || (unit >= 0x7F && unit < 0xA0) || forbidden.find(unit) != std::u16string_view::npos;
    };
    if (std::any_of(wide.begin(), wide.end(), is_forbidden)) {
        return "a name has no control characters and none of \"/\\[]:;|=,+*?<>@.";
    }
    if (wide.front() == u' ' || wide.back() == u' ' || wide.back() == u'.' || wide.front() == u'#') {
        return "a name neither begins with a blank or '#' nor ends with a blank or a full stop.";
    }
    return {};
}

account_table account_table::parse(std::string_view text) {
    account_table table;
    std::size_t number = 1;
    if (next_line(text) != version_line) {
        refuse_line(number, "this is no accounts file of this version, which begins with \"" + std::string(version_line) + "\".");
    }
    while (!text.empty()) {
        ++number;
        const std::string_view line = next_line(text);
        if (line.empty() || line.front() == '#') {
            continue;
        }
        if (const account parsed = parse_account(line, number); table.put(parsed)) {
            refuse_line(number, "the account '" + parsed.name + "' is there twice.");
        }
    }
    return table;
}

std::string account_table::format() const {
    std::string text(version_line);
    text += "\n# name:flags:hash, kept by tarno-tape-account. A hash is as good as its password.\n";
    for (const auto& [key, kept] : accounts_) {
        text += kept.name + ":" + format_flags(kept) + ":" + format_hash(kept.hash) + "\n";
    }
    return text;
}

const account* account_table::find(std::u16string_view name) const {
    const auto found = accounts_.find(upper_case(name));
    return found == accounts_.end() ? nullptr : &found->second;
}

bool account_table::put(const account& added) {
    return !accounts_.insert_or_assign(key_of(added.name), added).second;
}

bool account_table::remove(std::u16string_view name) {
    return accounts_.erase(upper_case(name)) != 0;
}

}  // namespace platform::linux_rpc
