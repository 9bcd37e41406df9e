#include "platform/linux/scsi/iscsi_setting.h"

#include <charconv>

namespace platform::linux_scsi {

namespace {

constexpr std::string_view scheme = "iscsi://";

std::optional<std::uint32_t> parse_number(std::string_view text, std::uint32_t largest) {
    std::uint32_t number = 0;
    const auto [behind, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (failure != std::errc() || behind != text.data() + text.size() || number > largest) {
        return std::nullopt;
    }
    return number;
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n";
    const std::size_t first = text.find_first_not_of(blanks);
    return first == std::string_view::npos ? std::string_view() : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// The entry as a message may show it: all that stands between the scheme and the last "@" is left out.
std::string shown(std::string_view entry) {
    const std::size_t at = entry.rfind('@');
    if (at == std::string_view::npos) {
        return std::string(entry);
    }
    const bool has_scheme = entry.starts_with(scheme);
    return std::string(has_scheme ? scheme : std::string_view()) + "***" + std::string(entry.substr(at));
}

[[noreturn]] void refuse(std::string_view entry, const std::string& reason) {
    throw iscsi_setting_error("iSCSI setting: entry [" + shown(entry) + "]: " + reason);
}

void parse_credentials(std::string_view entry, std::string_view credentials, iscsi_entry& parsed) {
    const std::size_t separator = credentials.find('%');
    if (separator == std::string_view::npos || separator == 0 || separator + 1 == credentials.size()) {
        refuse(entry, "in front of \"@\" a user and a password separated by \"%\" are expected.");
    }
    parsed.user = credentials.substr(0, separator);
    parsed.password = credentials.substr(separator + 1);
}

void parse_target(std::string_view entry, std::string_view path, iscsi_entry& parsed) {
    const std::size_t slash = path.find('/');
    parsed.target = path.substr(0, slash);
    const std::string_view lun = slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
    if (parsed.target.empty() && !lun.empty()) {
        refuse(entry, "a logical unit number needs a target in front of it.");
    }
    if (!lun.empty()) {
        const auto number = parse_number(lun, 0xFF);
        if (!number) {
            refuse(entry, "the logical unit number must be a number from 0 to 255.");
        }
        parsed.lun = static_cast<std::uint8_t>(*number);
    }
}

iscsi_entry parse_entry(std::string_view entry) {
    if (!entry.starts_with(scheme)) {
        refuse(entry, "\"iscsi://\" is expected at its start.");
    }
    iscsi_entry parsed;
    std::string_view rest = entry.substr(scheme.size());
    // A target's name holds no "@", so that the last one ends the credentials, whatever characters the password has.
    if (const std::size_t at = rest.rfind('@'); at != std::string_view::npos) {
        parse_credentials(entry, rest.substr(0, at), parsed);
        rest.remove_prefix(at + 1);
    }
    const std::size_t slash = rest.find('/');
    const auto portal = parse_iscsi_portal(rest.substr(0, slash));
    if (!portal) {
        refuse(entry, "a host, and a port from 1 to 65535 if any, is expected; an IPv6 address stands in brackets.");
    }
    parsed.portal = *portal;
    if (slash != std::string_view::npos) {
        parse_target(entry, rest.substr(slash + 1), parsed);
    }
    return parsed;
}

}  // namespace

std::string iscsi_portal::text() const {
    const bool is_v6 = host.find(':') != std::string::npos;
    return (is_v6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

std::optional<iscsi_portal> parse_iscsi_portal(std::string_view text) {
    iscsi_portal portal;
    std::string_view port;
    if (text.starts_with('[')) {
        const std::size_t end = text.find(']');
        if (end == std::string_view::npos || (end + 1 < text.size() && text[end + 1] != ':')) {
            return std::nullopt;
        }
        portal.host = text.substr(1, end - 1);
        port = text.substr(end + 1);
    } else {
        const std::size_t colon = text.find(':');
        portal.host = text.substr(0, colon);
        port = colon == std::string_view::npos ? std::string_view() : text.substr(colon);
    }
    if (portal.host.empty()) {
        return std::nullopt;
    }
    if (!port.empty()) {
        const auto number = parse_number(port.substr(1), 0xFFFF);
        if (!number || *number == 0) {
            return std::nullopt;
        }
        portal.port = static_cast<std::uint16_t>(*number);
    }
    return portal;
}

std::vector<iscsi_entry> parse_iscsi_setting(std::string_view setting) {
    std::vector<iscsi_entry> entries;
    while (!setting.empty()) {
        const std::size_t end = setting.find(';');
        const std::string_view entry = trimmed(setting.substr(0, end));
        if (!entry.empty()) {
            entries.push_back(parse_entry(entry));
        }
        setting.remove_prefix(end == std::string_view::npos ? setting.size() : end + 1);
    }
    return entries;
}

}  // namespace platform::linux_scsi
