#pragma once

#include <boost/shared_ptr.hpp>

#include "platform/accounts.h"

namespace win {

/// A security identifier, owned.
class win_sid_t {
public:
    /// Makes a well-known identifier; throws `exc::win_sys_exc_t`.
    [[nodiscard]] static boost::shared_ptr<win_sid_t> create_well_known(std::uint32_t which);

    explicit win_sid_t(platform::sid_bytes bytes) : bytes_(std::move(bytes)) {}
    [[nodiscard]] bool equals(const platform::sid_bytes& other) const { return bytes_ == other; }

private:
    platform::sid_bytes bytes_;
};

namespace rpc {

/// Owns one authorisation context of the RPC runtime. Freed by the destructor; a failure there is only logged.
class CRpcAuthContextHandle {
public:
    explicit CRpcAuthContextHandle(platform::client_context context) : context_(context) {}
    ~CRpcAuthContextHandle();
    CRpcAuthContextHandle(const CRpcAuthContextHandle&) = delete;
    CRpcAuthContextHandle& operator=(const CRpcAuthContextHandle&) = delete;

    [[nodiscard]] platform::client_context get() const { return context_; }

private:
    platform::client_context context_;
};

}  // namespace rpc

}  // namespace win

/// Lets the client of the call that the thread serves pass, or throws `exc::win_sys_exc_t`. The answer is never kept: a
/// client's membership can change between two calls.
void CheckRpcClientAuthorised();

/// Whether that client is an enabled member of this machine's built-in Administrators. Throws when this can't be found out.
[[nodiscard]] bool IsMemberOfBuiltinAdministrators();
