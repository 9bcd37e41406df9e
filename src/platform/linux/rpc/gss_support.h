#pragma once

#include <gssapi/gssapi.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Owners of what the Kerberos library hands out, and its words about failures.
namespace platform::linux_rpc::gss {

/// An object of the library that goes with this one. `Handle` is a pointer, null for none.
template <typename Handle, OM_uint32 (*Release)(OM_uint32*, Handle*)>
class owned {
public:
    owned() = default;
    owned(const owned&) = delete;
    owned& operator=(const owned&) = delete;
    ~owned() {
        if (handle_ != nullptr) {
            OM_uint32 minor = 0;
            (void)Release(&minor, &handle_);
        }
    }

    [[nodiscard]] Handle get() const { return handle_; }
    /// For the library to fill in or to change.
    [[nodiscard]] Handle* place() { return &handle_; }
    [[nodiscard]] explicit operator bool() const { return handle_ != nullptr; }

private:
    Handle handle_ = nullptr;
};

using name = owned<gss_name_t, gss_release_name>;
using credential = owned<gss_cred_id_t, gss_release_cred>;

inline OM_uint32 delete_context(OM_uint32* minor, gss_ctx_id_t* context) {
    return gss_delete_sec_context(minor, context, GSS_C_NO_BUFFER);
}
using context = owned<gss_ctx_id_t, delete_context>;

/// Bytes that the library has allocated.
class buffer {
public:
    buffer() = default;
    buffer(const buffer&) = delete;
    buffer& operator=(const buffer&) = delete;
    ~buffer() {
        OM_uint32 minor = 0;
        (void)gss_release_buffer(&minor, &described_);
    }

    [[nodiscard]] gss_buffer_t place() { return &described_; }
    [[nodiscard]] std::span<const std::uint8_t> view() const {
        return {static_cast<const std::uint8_t*>(described_.value), described_.length};
    }
    [[nodiscard]] std::vector<std::uint8_t> bytes() const { return {view().begin(), view().end()}; }
    [[nodiscard]] std::string text() const { return {view().begin(), view().end()}; }

private:
    gss_buffer_desc described_ = GSS_C_EMPTY_BUFFER;
};

/// Describes bytes of somebody else's that the library only reads.
[[nodiscard]] gss_buffer_desc describe(std::span<const std::uint8_t> bytes);
[[nodiscard]] gss_buffer_desc describe(std::string_view text);

/// The Kerberos mechanism, 1.2.840.113554.1.2.2.
[[nodiscard]] gss_OID kerberos();

/// What the library says about a failure, without a stop at the end. Control characters are replaced: parts of the text can
/// come from the peer.
[[nodiscard]] std::string failure_text(OM_uint32 major, OM_uint32 minor);

}  // namespace platform::linux_rpc::gss
