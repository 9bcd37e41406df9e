#pragma once

#include <boost/shared_ptr.hpp>

#include "foundation/security/files_access_permissions.h"

/// What the general library keeps for the whole process.
class CCommonLibCtx {
public:
    CCommonLibCtx();

    [[nodiscard]] security::IFilesAccessPermissions& files_access_permissions() const { return *files_access_permissions_; }
    /// Only while no other thread uses files. Null brings the unrestricted ones back.
    void set_files_access_permissions(boost::shared_ptr<security::IFilesAccessPermissions> permissions);

private:
    boost::shared_ptr<security::IFilesAccessPermissions> files_access_permissions_;
};

[[nodiscard]] CCommonLibCtx& common_lib_ctx();
