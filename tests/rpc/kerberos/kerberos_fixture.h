#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "rpc/kerberos/kerberos_realm.h"

namespace rpc_test {

/// Tests over a realm that lives as long as their suite, with tickets for "anna". They are skipped where no KDC is installed: a
/// fixture that has more to set up does so only when `realm` is there.
class kerberos_fixture : public testing::Test {
protected:
    static void SetUpTestSuite() {
        if (kerberos_realm::available()) {
            realm = std::make_unique<kerberos_realm>();
        }
    }
    static void TearDownTestSuite() { realm.reset(); }

    void SetUp() override {
        if (!realm) {
            GTEST_SKIP() << "the packages krb5-kdc, krb5-admin-server and krb5-user are not installed";
        }
        realm->log_in("anna");
    }

    static inline std::unique_ptr<kerberos_realm> realm;
};

}  // namespace rpc_test
