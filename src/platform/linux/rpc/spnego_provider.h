#pragma once

#include <memory>

#include "platform/linux/rpc/spnego_acceptor.h"

namespace platform::linux_rpc {

/// Offers Negotiate (auth_type 9) over other kinds of authentication, at each level that one of them serves.
class spnego_provider : public security_provider {
public:
    explicit spnego_provider(spnego_settings settings);

    [[nodiscard]] std::uint8_t auth_type() const override;
    /// Whether there is anything to choose.
    [[nodiscard]] bool ready() const override;
    [[nodiscard]] bool supports(auth_level level) const override;
    [[nodiscard]] std::unique_ptr<security_context> create(auth_level level) override;

private:
    std::shared_ptr<const spnego_settings> settings_;
};

}  // namespace platform::linux_rpc
