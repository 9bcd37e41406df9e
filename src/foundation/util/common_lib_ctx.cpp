#include "foundation/util/common_lib_ctx.h"

#include <boost/make_shared.hpp>

namespace security {

void CUnrestrictedFilesAccessPermissions::check(const text::wide_string&) {}

}  // namespace security

CCommonLibCtx::CCommonLibCtx() {
    set_files_access_permissions({});
}

void CCommonLibCtx::set_files_access_permissions(boost::shared_ptr<security::IFilesAccessPermissions> permissions) {
    if (permissions == nullptr) {
        permissions = boost::make_shared<security::CUnrestrictedFilesAccessPermissions>();
    }
    files_access_permissions_ = std::move(permissions);
}

CCommonLibCtx& common_lib_ctx() {
    static CCommonLibCtx context;
    return context;
}
