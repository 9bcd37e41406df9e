#pragma once

#include "foundation/text/conversion.h"

namespace security {

/// Decides which paths this process may touch. Asked before every operation that opens, makes, tests, moves or deletes a path.
class IFilesAccessPermissions {
public:
    /// Throws when the path is out of bounds. Called from any thread.
    virtual void check(const text::wide_string& path) = 0;
    virtual ~IFilesAccessPermissions() = default;
};

/// Leaves the decision to the operating system.
class CUnrestrictedFilesAccessPermissions final : public IFilesAccessPermissions {
public:
    void check(const text::wide_string& path) override;
};

}  // namespace security
