#include "platform/linux/linux_settings.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <utility>

#include "foundation/text/unicode.h"
#include "platform/errors.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/settings_file.h"
#include "platform/linux/settings_tree.h"

namespace platform::linux_os {

namespace {

/// The values of one key, which may be absent as a whole.
class key_reader {
public:
    key_reader(registry& from, std::u16string_view path, const std::string& file) : from_(from), path_(path), file_(file) {
        const std::uint32_t failure = from_.open_key(std::u16string(path), registry_access::read, key_);
        if (failure != error::success && failure != error::file_not_found && failure != error::path_not_found) {
            throw settings_error(file_, 0, "The key " + text::unicode::encode_utf8(path_) + " can't be opened.");
        }
    }
    ~key_reader() {
        if (key_ != 0) {
            from_.close_key(key_);
        }
    }
    key_reader(const key_reader&) = delete;
    key_reader& operator=(const key_reader&) = delete;

    [[nodiscard]] std::optional<std::string> text(const std::u16string& name) const {
        const std::optional<settings_value> value = query(name);
        if (!value) {
            return std::nullopt;
        }
        if (value->type != registry_type::string && value->type != registry_type::expand_string) {
            refuse(name, "must be a string.");
        }
        return text::unicode::encode_utf8(value_text(*value));
    }

    [[nodiscard]] std::optional<std::uint32_t> number(const std::u16string& name) const {
        const std::optional<settings_value> value = query(name);
        if (!value) {
            return std::nullopt;
        }
        if (value->type != registry_type::dword || value->data.size() != 4) {
            refuse(name, "must be a DWORD.");
        }
        std::uint32_t number = 0;
        for (std::size_t at = 4; at-- > 0;) {
            number = (number << 8) | value->data[at];
        }
        return number;
    }

    /// The text's entries, or the default.
    void list(const std::u16string& name, std::vector<std::string>& entries) const {
        const std::optional<std::string> joined = text(name);
        if (!joined) {
            return;
        }
        entries.clear();
        std::string_view rest = *joined;
        while (!rest.empty()) {
            const std::size_t end = std::min(rest.find(';'), rest.size());
            const std::string_view entry = rest.substr(0, end);
            const std::size_t first = entry.find_first_not_of(" \t");
            if (first != std::string_view::npos) {
                entries.emplace_back(entry.substr(first, entry.find_last_not_of(" \t") - first + 1));
            }
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
    }

    [[noreturn]] void refuse(const std::u16string& name, const std::string& reason) const {
        throw settings_error(
            file_, 0, "The value " + text::unicode::encode_utf8(path_) + "\\" + text::unicode::encode_utf8(name) + " " + reason);
    }

private:
    [[nodiscard]] std::optional<settings_value> query(const std::u16string& name) const {
        settings_value value;
        if (key_ == 0) {
            return std::nullopt;
        }
        const std::uint32_t failure = from_.query_value(key_, name, value.type, value.data);
        if (failure == error::file_not_found) {
            return std::nullopt;
        }
        if (failure != error::success) {
            refuse(name, "can't be read.");
        }
        return value;
    }

    registry& from_;
    const std::u16string_view path_;
    const std::string& file_;
    registry_key key_ = 0;
};

/// Relative paths count from the settings file's folder, so that a file and what it speaks of can be moved together.
std::string beside(const std::string& file, const std::string& path) {
    return path.empty() || path.starts_with('/') ? path : folder_of(file) + "/" + path;
}

/// A limit in its unit, with the least and the most that make sense.
struct limit_row {
    const char16_t* name;
    std::uint32_t least;
    std::uint32_t most;
    void (*set)(linux_rpc::rpc_limits& limits, std::uint32_t value);
};

constexpr std::uint32_t most_bytes = 1024 * 1024 * 1024;
constexpr std::uint32_t most_seconds = 7 * 24 * 3600;

constexpr std::array limit_rows{
    limit_row{u"MaxConnections", 1, 65536, [](auto& limits, auto value) { limits.connections = value; }},
    limit_row{u"MaxConnectionsPerAddress", 1, 65536, [](auto& limits, auto value) { limits.connections_per_address = value; }},
    limit_row{u"MaxCalls", 1, 1234, [](auto& limits, auto value) { limits.calls = value; }},
    limit_row{u"MaxRequestBytes", 4096, most_bytes, [](auto& limits, auto value) { limits.request_bytes = value; }},
    limit_row{u"MaxRequestBytesBeforeAuthentication", 0, most_bytes,
              [](auto& limits, auto value) { limits.unauthenticated_request_bytes = value; }},
    limit_row{u"MaxIncompleteBytes", 4096, 2 * most_bytes, [](auto& limits, auto value) { limits.pending_request_bytes = value; }},
    limit_row{u"BindTimeoutSec", 1, most_seconds, [](auto& limits, auto value) { limits.bind_time = std::chrono::seconds(value); }},
    limit_row{u"FragmentTimeoutSec", 1, most_seconds,
              [](auto& limits, auto value) { limits.fragment_time = std::chrono::seconds(value); }},
    limit_row{u"IdleTimeoutSec", 1, most_seconds, [](auto& limits, auto value) { limits.idle_time = std::chrono::seconds(value); }},
    limit_row{u"AnswerTimeoutSec", 1, most_seconds,
              [](auto& limits, auto value) { limits.write_time = std::chrono::seconds(value); }},
};

void read_limits(const key_reader& access, linux_rpc::rpc_limits& limits) {
    for (const limit_row& row : limit_rows) {
        const std::optional<std::uint32_t> value = access.number(row.name);
        if (value && (*value < row.least || *value > row.most)) {
            access.refuse(row.name, "must be between " + std::to_string(row.least) + " and " + std::to_string(row.most) + ".");
        }
        if (value) {
            row.set(limits, *value);
        }
    }
}

}  // namespace

linux_settings read_linux_settings(registry& from, const std::string& file) {
    linux_settings settings;
    const key_reader devices(from, devices_key, file);
    settings.scsi_generic = devices.number(u"ScsiGeneric").value_or(1) != 0;
    devices.list(u"Iscsi", settings.iscsi);
    devices.list(u"VirtualLibrary", settings.virtual_libraries);
    devices.list(u"WithoutDriver", settings.without_driver);
    for (std::string& folder : settings.virtual_libraries) {
        folder = beside(file, folder);
    }

    const key_reader access(from, access_key, file);
    settings.listen_address = access.text(u"ListenAddress").value_or(settings.listen_address);
    settings.local_socket = beside(file, access.text(u"LocalSocket").value_or(settings.local_socket));
    const std::uint32_t mapper_port = access.number(u"EndpointMapperPort").value_or(settings.endpoint_mapper_port);
    if (mapper_port > 65535) {
        access.refuse(u"EndpointMapperPort", "must be between 0 and 65535.");
    }
    settings.endpoint_mapper_port = static_cast<std::uint16_t>(mapper_port);
    access.list(u"AdministratorGroups", settings.administrator_groups);
    settings.accounts = beside(file, access.text(u"Accounts").value_or(settings.accounts));
    settings.keytab = beside(file, access.text(u"Keytab").value_or(settings.keytab));
    access.list(u"AdministratorPrincipals", settings.administrator_principals);
    read_limits(access, settings.limits);
    return settings;
}

bool holds_iscsi_secret(std::string_view iscsi) {
    while (!iscsi.empty()) {
        const std::size_t end = std::min(iscsi.find(';'), iscsi.size());
        std::string_view url = iscsi.substr(0, end);
        iscsi.remove_prefix(std::min(end + 1, iscsi.size()));
        const std::size_t authority = url.find("://");
        if (authority == std::string_view::npos) {
            continue;
        }
        url = url.substr(authority + 3);
        const std::size_t user_end = url.substr(0, url.find('/')).rfind('@');
        if (user_end != std::string_view::npos && url.substr(0, user_end).find('%') != std::string_view::npos) {
            return true;
        }
    }
    return false;
}

}  // namespace platform::linux_os
