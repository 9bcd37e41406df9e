#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/linux/rpc/pdu.h"
#include "platform/rpc_runtime.h"

namespace platform::linux_rpc {

/// An interface that this server serves.
struct offered_interface {
    rpc_interface description;
    std::uint32_t max_request_size = 0xFFFFFFFF;  ///< stub bytes of one request; the server's own limits hold beside it
    bool builtin = false;                         ///< the runtime's own: endpoint mapper and management
};
using offered_interface_ptr = std::shared_ptr<const offered_interface>;

/// The interfaces of the server. Callable from any thread.
class interface_table {
public:
    /// 0, or 1712 when the interface is here already.
    std::uint32_t add(offered_interface offered);
    /// The interface of this UUID and major version with at least this minor version; null when there is none.
    [[nodiscard]] offered_interface_ptr find(const syntax_id& wanted) const;
    /// All that the program registered, in order.
    [[nodiscard]] std::vector<syntax_id> registered() const;

private:
    mutable std::mutex mutex_;
    std::vector<offered_interface_ptr> interfaces_;
};

[[nodiscard]] syntax_id id_of(const rpc_interface& description);

/// The presentation contexts of one connection: what each context id stands for.
class presentation_contexts {
public:
    /// Answers one list of a bind (`binding`) or an alter_context. Contexts that are accepted are kept, up to `limit`.
    std::vector<context_result> negotiate(const std::vector<context_offer>& offers, bool binding, const interface_table& interfaces,
                                          std::size_t limit);
    /// Null when the id was never accepted.
    [[nodiscard]] const offered_interface_ptr& find(std::uint16_t id) const;

private:
    struct accepted_context {
        std::uint16_t id;
        /// Counted for this connection alone: calls of all connections would else fight for one counter.
        offered_interface_ptr target;
    };
    context_result judge(const context_offer& offer, bool binding, const interface_table& interfaces, std::size_t limit);

    std::vector<accepted_context> accepted_;
};

}  // namespace platform::linux_rpc
