#include "foundation/security/client_check.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <new>

#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "platform/errors.h"
#include "platform/system.h"

namespace win {

boost::shared_ptr<win_sid_t> win_sid_t::create_well_known(std::uint32_t which) {
    try {
        platform::sid_bytes bytes;
        if (!platform::system().accounts->create_well_known_sid(which, bytes)) {
            throw exc::win_sys_exc_t("Failed to create SID for the specified security alias.", exc::last_error());
        }
        return boost::make_shared<win_sid_t>(std::move(bytes));
    } catch (const std::bad_alloc&) {
        throw exc::win_sys_exc_t("Failed to allocate SID buffer.", platform::error::not_enough_memory);
    }
}

namespace rpc {

CRpcAuthContextHandle::~CRpcAuthContextHandle() {
    if (context_ == 0) {
        return;
    }
    const std::uint32_t status = platform::system().accounts->free_client_context(context_);
    if (status != 0) {
        try {
            g_libraryLog.LogError(exc::win_sys_exc_t("Failed to release auth context handle", status));
        } catch (const std::exception&) {  // nobody is left to tell
        }
    }
}

}  // namespace rpc

}  // namespace win

namespace {

/// HRESULT form of "access denied", the code that a refused client is told.
constexpr std::uint32_t access_denied_result = 0x80070005;

boost::shared_ptr<win::rpc::CRpcAuthContextHandle> open_current_client() {
    platform::client_context context = 0;
    const std::uint32_t status = platform::system().accounts->open_client_context(context);
    if (status != 0) {
        throw exc::win_sys_exc_t("Auth context not available", status);
    }
    return boost::make_shared<win::rpc::CRpcAuthContextHandle>(context);
}

bool walk_client_groups() {
    platform::accounts& accounts = *platform::system().accounts;
    const boost::shared_ptr<win::rpc::CRpcAuthContextHandle> client = open_current_client();
    if (accounts.client_groups_size(client->get()) == 0) {
        return false;
    }
    std::vector<platform::group_entry> groups;
    if (!accounts.client_groups(client->get(), groups)) {
        throw exc::win_sys_exc_t("Client security group list retrieval failed", exc::last_error());
    }
    const boost::shared_ptr<win::win_sid_t> administrators =
        win::win_sid_t::create_well_known(platform::well_known_builtin_administrators);
    const auto found = std::find_if(groups.begin(), groups.end(),
                                    [&](const platform::group_entry& group) { return administrators->equals(group.sid); });
    // A filtered token bears the group for denial only, with neither of these bits: such a client is no administrator.
    return found != groups.end() &&
           (found->attributes & (platform::group_attribute::enabled_by_default | platform::group_attribute::enabled)) != 0;
}

}  // namespace

bool IsMemberOfBuiltinAdministrators() {
    try {
        return walk_client_groups();
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Failed to check whether RPC client is a member of the specified built-in group.", e);
    }
}

void CheckRpcClientAuthorised() {
    if (!IsMemberOfBuiltinAdministrators()) {
        throw exc::win_sys_exc_t("RPC client is not a member of built-in Administrators group.", access_denied_result);
    }
}
