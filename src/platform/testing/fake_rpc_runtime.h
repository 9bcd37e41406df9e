#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "platform/rpc_runtime.h"

namespace platform::testing {

/// A runtime that listens nowhere. It records what it is asked in order, answers scripted statuses, refuses what the real ones
/// refuse (a second registration 1712, a second listening 1713), and brings a test's calls to the registered interface.
class fake_rpc_runtime final : public rpc_runtime {
public:
    enum class step {
        use_endpoint,
        use_all_protocol_sequences,
        register_interface,
        register_in_endpoint_mapper,
        inquire_bindings,
        register_authentication,
        listen,
        stop_listening,
        computer_name,
        make_principal_name
    };

    /// One operation with those arguments that it has.
    struct call {
        step what = step::use_endpoint;
        std::string protocol_sequence;
        std::string endpoint;
        std::uint32_t max_requests = 0;
        std::uint32_t flags = 0;
        std::uint32_t min_threads = 0;
        std::uint32_t max_calls = 0;
        std::uint32_t max_request_size = 0;
        std::uint32_t service = 0;
        std::u16string text;  ///< annotation, principal, or service class
        std::u16string computer;
    };

    struct invocation {
        std::uint32_t status = 0;         ///< 0, or what would go to the client as a fault
        std::vector<std::uint8_t> reply;  ///< stub data of the answer; empty with a status
    };

    std::uint32_t use_endpoint(const std::string& protocol_sequence, std::uint32_t max_requests,
                               const std::string& endpoint) override;
    std::uint32_t use_all_protocol_sequences(std::uint32_t max_requests) override;
    std::uint32_t register_interface(const rpc_interface& offered, std::uint32_t flags, std::uint32_t max_calls,
                                     std::uint32_t max_request_size) override;
    std::uint32_t register_in_endpoint_mapper(const rpc_interface& offered, const std::u16string& annotation) override;
    std::uint32_t inquire_bindings() override;
    std::uint32_t register_authentication(const std::u16string& principal, std::uint32_t service) override;
    std::uint32_t listen(std::uint32_t min_threads, std::uint32_t max_calls) override;
    std::uint32_t stop_listening() override;
    std::uint32_t computer_name(std::u16string& name) override;
    std::uint32_t make_principal_name(const std::u16string& service_class, const std::u16string& computer,
                                      std::u16string& principal) override;

    /// The step answers this from now on, without doing anything; 0 lets it work.
    void set_status(step what, std::uint32_t status);
    /// The same for one authentication service only.
    void set_authentication_status(std::uint32_t service, std::uint32_t status);
    /// The same for one endpoint only.
    void set_endpoint_status(const std::string& endpoint, std::uint32_t status);
    void set_computer_name(std::u16string name);

    [[nodiscard]] std::vector<call> calls() const;
    [[nodiscard]] std::vector<call> calls(step what) const;
    [[nodiscard]] std::vector<rpc_interface> interfaces() const;
    [[nodiscard]] bool listening() const;

    /// One call from a client to the first registered interface, on the calling thread: 1722 while nothing listens, 1717 without
    /// an interface, 1745 for an operation that it doesn't have. The stub is copied to an aligned address first.
    [[nodiscard]] invocation invoke(std::uint16_t operation, std::vector<std::uint8_t> stub, bool little_endian = true);

private:
    std::uint32_t record(call entry);

    mutable std::mutex mutex_;
    std::vector<call> calls_;
    std::map<step, std::uint32_t> statuses_;
    std::map<std::uint32_t, std::uint32_t> authentication_statuses_;
    std::map<std::string, std::uint32_t> endpoint_statuses_;
    std::vector<rpc_interface> interfaces_;
    bool listening_ = false;
    std::u16string computer_name_ = u"tape.example.net";
};

}  // namespace platform::testing
