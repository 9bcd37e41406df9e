#include "foundation/logging/debug_output_log.h"

#include "foundation/exc/exceptions.h"
#include "foundation/win/win_reg_key.h"
#include "platform/errors.h"
#include "platform/system.h"

namespace logging::receiver {

namespace {

constexpr std::u16string_view settings_key = u"SOFTWARE\\TarnO\\Tarno NFS";

win::reg_key_ptr open_settings() {
    win::reg_key_ptr key;
    try {
        key = win::open_reg_key(settings_key, platform::registry_access::read_64);
    } catch (const exc::win_sys_exc_t& e) {
        throw exc::win_sys_exc_t("Failed to open registry key [%1].", text::wide_to_utf8(settings_key), e.code());
    }
    if (key == nullptr) {
        throw exc::win_sys_exc_t("Failed to open registry key [%1].", text::wide_to_utf8(settings_key),
                                 platform::error::file_not_found);
    }
    return key;
}

/// A value that can't be read leaves what it would have set alone.
template <typename Read>
void try_to(Read read) {
    try {
        read();
    } catch (const std::exception&) {
        return;
    }
}

}  // namespace

void COutputDebugStringLog::write(const std::string& text) {
    platform::debug_output* output = platform::system().debug_output;
    if (output == nullptr) {
        return;
    }
    output->write(text);
    if (socket_ == nullptr) {
        socket_ = output->open_datagram_socket();
        if (socket_ != nullptr) {
            load_settings(*output);
        }
    }
    if (socket_ != nullptr && enabled_) {
        socket_->send(endpoint_, text);
    }
}

void COutputDebugStringLog::load_settings(platform::debug_output& output) {
    const win::reg_key_ptr key = open_settings();
    try_to([&] { enabled_ = key->get_dword("ExtLogEnabled") != 0; });
    if (!enabled_) {
        return;
    }
    try_to([&] { endpoint_.address = output.parse_address(key->get_string("ExtLogHost")); });
    try_to([&] { endpoint_.port = static_cast<std::uint16_t>(key->get_dword("ExtLogPort")); });
}

}  // namespace logging::receiver
