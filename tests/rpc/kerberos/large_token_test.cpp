#include <gtest/gtest.h>

#include "platform/linux/rpc/call.h"
#include "platform/linux/rpc/session.h"
#include "platform/rpc_runtime.h"
#include "rpc/support/raw_pdu.h"
#include "rpc/support/toy_security.h"

namespace {

using namespace platform::linux_rpc;

/// Whether a PDU of this kind and length is taken at all.
bool is_taken(std::uint8_t type, std::uint16_t length, std::uint16_t token) {
    server_core core;
    const session tested(core, {});
    pdu_header header;
    header.type = type;
    header.fragment_length = length;
    header.auth_length = token;
    return !tested.judge_header(header);
}

TEST(LargeTokens, OnlyPdusThatBearATokenMayBeAsLongAsItTakes) {
    for (const std::uint8_t type : {pdu_type::bind, pdu_type::alter_context, pdu_type::auth3}) {
        EXPECT_TRUE(is_taken(type, 65535, 65000)) << int{type};
        EXPECT_TRUE(is_taken(type, 5841, 1)) << int{type};
        EXPECT_FALSE(is_taken(type, 5841, 0)) << int{type};
    }
    EXPECT_TRUE(is_taken(pdu_type::request, 5840, 16));
    EXPECT_FALSE(is_taken(pdu_type::request, 5841, 16));
    EXPECT_FALSE(is_taken(pdu_type::orphaned, 5841, 16));
}

class unready_provider final : public security_provider {
public:
    std::uint8_t auth_type() const override { return 16; }
    bool ready() const override { return false; }
    bool supports(auth_level) const override { return true; }
    std::unique_ptr<security_context> create(auth_level) override { return nullptr; }
};

TEST(SecurityOffer, DoesNotOfferWhatIsNotReady) {
    security_offer offer;
    offer.add(std::make_shared<unready_provider>());
    EXPECT_EQ(offer.enable(platform::rpc_authn::kerberos, "svc/host"), 1747U);
    offer.add(std::make_shared<rpc_test::toy_provider>(std::uint8_t{9}));
    EXPECT_EQ(offer.enable(platform::rpc_authn::negotiate, "svc/host"), 0U);
    EXPECT_NE(offer.find(9), nullptr);
    EXPECT_EQ(offer.find(16), nullptr) << "Negotiate opens only what there is";
}

}  // namespace
