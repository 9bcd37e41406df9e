#include "platform/testing/fake_rpc_runtime.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <utility>

namespace platform::testing {

namespace {

constexpr std::uint32_t unknown_interface = 1717;
constexpr std::uint32_t no_endpoint_bound = 1718;
constexpr std::uint32_t server_unavailable = 1722;

/// Memory whose start is aligned to 8.
class aligned_bytes {
public:
    explicit aligned_bytes(std::size_t size)
        : words_((size + 7) / 8, 0xA5A5A5A5A5A5A5A5), size_(size) {}  // any value, but zero least of all
    [[nodiscard]] std::span<std::uint8_t> bytes() { return {reinterpret_cast<std::uint8_t*>(words_.data()), size_}; }

private:
    std::vector<std::uint64_t> words_;
    std::size_t size_;
};

class memory_reply final : public rpc_reply {
public:
    std::span<std::uint8_t> allocate(std::size_t size) override {
        if (buffer_) {
            throw std::logic_error("a reply was allocated twice");
        }
        buffer_ = std::make_unique<aligned_bytes>(size);
        return buffer_->bytes();
    }
    [[nodiscard]] std::vector<std::uint8_t> taken() const {
        if (!buffer_) {
            return {};
        }
        const std::span<std::uint8_t> bytes = buffer_->bytes();
        return {bytes.begin(), bytes.end()};
    }

private:
    std::unique_ptr<aligned_bytes> buffer_;
};

}  // namespace

std::uint32_t fake_rpc_runtime::use_endpoint(const std::string& protocol_sequence, std::uint32_t max_requests,
                                             const std::string& endpoint) {
    call entry;
    entry.what = step::use_endpoint;
    entry.protocol_sequence = protocol_sequence;
    entry.max_requests = max_requests;
    entry.endpoint = endpoint;
    if (const std::uint32_t status = record(std::move(entry))) {
        return status;
    }
    const std::lock_guard lock(mutex_);
    const auto found = endpoint_statuses_.find(endpoint);
    return found != endpoint_statuses_.end() ? found->second : rpc_status::ok;
}

std::uint32_t fake_rpc_runtime::use_all_protocol_sequences(std::uint32_t max_requests) {
    call entry;
    entry.what = step::use_all_protocol_sequences;
    entry.max_requests = max_requests;
    return record(std::move(entry));
}

std::uint32_t fake_rpc_runtime::register_interface(const rpc_interface& offered, std::uint32_t flags, std::uint32_t max_calls,
                                                   std::uint32_t max_request_size) {
    call entry;
    entry.what = step::register_interface;
    entry.flags = flags;
    entry.max_calls = max_calls;
    entry.max_request_size = max_request_size;
    if (const std::uint32_t status = record(std::move(entry))) {
        return status;
    }
    const std::lock_guard lock(mutex_);
    const bool taken = std::any_of(interfaces_.begin(), interfaces_.end(), [&offered](const rpc_interface& other) {
        return other.uuid == offered.uuid && other.major_version == offered.major_version;
    });
    if (taken) {
        return rpc_status::type_already_registered;
    }
    interfaces_.push_back(offered);
    return rpc_status::ok;
}

std::uint32_t fake_rpc_runtime::register_in_endpoint_mapper(const rpc_interface&, const std::u16string& annotation) {
    call entry;
    entry.what = step::register_in_endpoint_mapper;
    entry.text = annotation;
    return record(std::move(entry));
}

std::uint32_t fake_rpc_runtime::inquire_bindings() {
    call entry;
    entry.what = step::inquire_bindings;
    if (const std::uint32_t status = record(std::move(entry))) {
        return status;
    }
    const std::lock_guard lock(mutex_);
    const bool bound = std::any_of(calls_.begin(), calls_.end(), [](const call& made) {
        return made.what == step::use_endpoint || made.what == step::use_all_protocol_sequences;
    });
    return bound ? rpc_status::ok : no_endpoint_bound;
}

std::uint32_t fake_rpc_runtime::register_authentication(const std::u16string& principal, std::uint32_t service) {
    call entry;
    entry.what = step::register_authentication;
    entry.text = principal;
    entry.service = service;
    if (const std::uint32_t status = record(std::move(entry))) {
        return status;
    }
    const std::lock_guard lock(mutex_);
    const auto found = authentication_statuses_.find(service);
    return found != authentication_statuses_.end() ? found->second : rpc_status::ok;
}

std::uint32_t fake_rpc_runtime::listen(std::uint32_t min_threads, std::uint32_t max_calls) {
    call entry;
    entry.what = step::listen;
    entry.min_threads = min_threads;
    entry.max_calls = max_calls;
    if (const std::uint32_t status = record(std::move(entry))) {
        return status;
    }
    const std::lock_guard lock(mutex_);
    return std::exchange(listening_, true) ? rpc_status::already_listening : rpc_status::ok;
}

std::uint32_t fake_rpc_runtime::stop_listening() {
    call entry;
    entry.what = step::stop_listening;
    if (const std::uint32_t status = record(std::move(entry))) {
        return status;
    }
    constexpr std::uint32_t not_listening = 1715;
    const std::lock_guard lock(mutex_);
    return std::exchange(listening_, false) ? rpc_status::ok : not_listening;
}

std::uint32_t fake_rpc_runtime::computer_name(std::u16string& name) {
    call entry;
    entry.what = step::computer_name;
    if (const std::uint32_t status = record(std::move(entry))) {
        return status;
    }
    const std::lock_guard lock(mutex_);
    name = computer_name_;
    return rpc_status::ok;
}

std::uint32_t fake_rpc_runtime::make_principal_name(const std::u16string& service_class, const std::u16string& computer,
                                                    std::u16string& principal) {
    call entry;
    entry.what = step::make_principal_name;
    entry.text = service_class;
    entry.computer = computer;
    if (const std::uint32_t status = record(std::move(entry))) {
        return status;
    }
    principal = service_class + u"/" + computer;
    return rpc_status::ok;
}

void fake_rpc_runtime::set_status(step what, std::uint32_t status) {
    const std::lock_guard lock(mutex_);
    statuses_[what] = status;
}

void fake_rpc_runtime::set_authentication_status(std::uint32_t service, std::uint32_t status) {
    const std::lock_guard lock(mutex_);
    authentication_statuses_[service] = status;
}

void fake_rpc_runtime::set_endpoint_status(const std::string& endpoint, std::uint32_t status) {
    const std::lock_guard lock(mutex_);
    endpoint_statuses_[endpoint] = status;
}

void fake_rpc_runtime::set_computer_name(std::u16string name) {
    const std::lock_guard lock(mutex_);
    computer_name_ = std::move(name);
}

std::vector<fake_rpc_runtime::call> fake_rpc_runtime::calls() const {
    const std::lock_guard lock(mutex_);
    return calls_;
}

std::vector<fake_rpc_runtime::call> fake_rpc_runtime::calls(step what) const {
    const std::lock_guard lock(mutex_);
    std::vector<call> chosen;
    std::copy_if(calls_.begin(), calls_.end(), std::back_inserter(chosen), [what](const call& made) { return made.what == what; });
    return chosen;
}

std::vector<rpc_interface> fake_rpc_runtime::interfaces() const {
    const std::lock_guard lock(mutex_);
    return interfaces_;
}

bool fake_rpc_runtime::listening() const {
    const std::lock_guard lock(mutex_);
    return listening_;
}

fake_rpc_runtime::invocation fake_rpc_runtime::invoke(std::uint16_t operation, std::vector<std::uint8_t> stub, bool little_endian) {
    rpc_interface target;
    {
        const std::lock_guard lock(mutex_);
        if (!listening_) {
            return {server_unavailable, {}};
        }
        if (interfaces_.empty()) {
            return {unknown_interface, {}};
        }
        target = interfaces_.front();
    }
    if (operation >= target.operations) {
        return {rpc_status::procedure_out_of_range, {}};
    }
    aligned_bytes memory(stub.size());
    std::copy(stub.begin(), stub.end(), memory.bytes().begin());
    memory_reply reply;
    const std::uint32_t status = target.dispatch({operation, memory.bytes(), little_endian}, reply);
    return {status, status == 0 ? reply.taken() : std::vector<std::uint8_t>{}};
}

std::uint32_t fake_rpc_runtime::record(call entry) {
    const std::lock_guard lock(mutex_);
    const auto status = statuses_.find(entry.what);
    calls_.push_back(std::move(entry));
    return status != statuses_.end() ? status->second : rpc_status::ok;
}

}  // namespace platform::testing
