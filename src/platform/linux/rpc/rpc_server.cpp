#include "platform/linux/rpc/rpc_server.h"

#include <netdb.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <boost/thread/thread.hpp>

#include <algorithm>
#include <array>
#include <future>
#include <optional>
#include <vector>

#include "platform/errors.h"
#include "platform/linux/rpc/call_pool.h"
#include "platform/linux/rpc/connection.h"
#include "platform/linux/rpc/endpoint_mapper.h"
#include "platform/linux/rpc/listener.h"
#include "platform/linux/rpc/management_interface.h"
#include "platform/linux/rpc/network_loop.h"
#include "platform/linux/rpc/unicode.h"

namespace platform::linux_rpc {

namespace {

constexpr std::uint32_t sequence_not_supported = 1703;
constexpr std::uint32_t invalid_endpoint_format = 1706;
constexpr std::uint32_t no_bindings = 1718;
constexpr std::uint32_t cannot_name_computer = 1210;  // ERROR_INVALID_COMPUTERNAME
constexpr std::size_t network_stack_size = std::size_t{512} * 1024;

std::optional<std::uint16_t> parse_port(const std::string& text) {
    if (text.empty() || text.size() > 5 || text.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    const unsigned long port = std::stoul(text);
    return port <= 65535 ? std::optional(static_cast<std::uint16_t>(port)) : std::nullopt;
}

/// The host's name as its resolver spells it out; the plain name where that knows no more.
std::string qualified_host_name() {
    std::array<char, 256> name{};
    if (gethostname(name.data(), name.size() - 1) != 0) {
        return {};
    }
    addrinfo hints{};
    hints.ai_flags = AI_CANONNAME;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    std::string qualified = name.data();
    if (getaddrinfo(name.data(), nullptr, &hints, &found) == 0) {
        if (found != nullptr && found->ai_canonname != nullptr) {
            qualified = found->ai_canonname;
        }
        freeaddrinfo(found);
    }
    return qualified;
}

class network_thread {
public:
    network_thread(server_core& core, call_pool& pool, connection_census& census) : loop(core, pool, census) {
        boost::thread::attributes attributes;
        attributes.set_stack_size(network_stack_size);
        thread_ = boost::thread(attributes, [this] { loop.events.run(); });
    }
    ~network_thread() {
        loop.events.stop();
        thread_.join();
        loop.live.clear();
    }
    network_thread(const network_thread&) = delete;
    network_thread& operator=(const network_thread&) = delete;

    /// Runs something on the thread and waits for it. Nothing on that thread ever blocks. What the action throws is thrown.
    template <typename Action>
    void run(Action action) {
        // The task goes with the post: this side may be through before the other has let go of it.
        std::packaged_task<void()> task(std::move(action));
        std::future<void> done = task.get_future();
        loop.events.post_action([task = std::move(task)]() mutable { task(); });
        done.get();
    }

    network_loop loop;

private:
    boost::thread thread_;
};

}  // namespace

struct rpc_server::state {
    explicit state(rpc_server_options given) : options(std::move(given)) {
        core.limits = options.limits;
        core.on_event = options.on_event;
        core.interfaces.add({mapper.description(), 0xFFFFFFFF, true});
        core.interfaces.add({management_interface(core), 0xFFFFFFFF, true});
    }

    void limit_connections();
    void start_threads(std::size_t min_threads, std::size_t max_calls);
    void open_local_socket();
    void open_mapper_port();
    void serve_endpoints();
    void stop();

    // In the order of dependence: the pool's tasks post to the threads' loops, so it goes first at the end.
    rpc_server_options options;
    server_core core;
    endpoint_mapper mapper;
    connection_census census;
    std::vector<listening_socket> endpoints;  ///< bound, and not served before `listen`
    std::vector<std::uint16_t> ports;
    std::uint32_t local_status = 0;
    std::vector<std::shared_ptr<listener>> listeners;
    std::unique_ptr<call_pool> pool;
    std::vector<std::unique_ptr<network_thread>> threads;
};

/// Strangers who connect must not take the descriptors away that the calls of the others need for their files and devices.
void rpc_server::state::limit_connections() {
    rlimit allowed{};
    if (getrlimit(RLIMIT_NOFILE, &allowed) != 0) {
        return;
    }
    core.limits.connections = connections_within(options.limits.connections, allowed.rlim_cur);
    if (core.limits.connections < options.limits.connections) {
        core.report("Only " + std::to_string(core.limits.connections) +
                    " connections are served at a time, because the process may open " + std::to_string(allowed.rlim_cur) +
                    " files only.");
    }
}

void rpc_server::state::start_threads(std::size_t min_threads, std::size_t max_calls) {
    if (pool) {
        return;
    }
    pool = std::make_unique<call_pool>(min_threads, max_calls, options.limits.thread_idle_time);
    const std::size_t count = std::max<std::size_t>(options.network_threads, 1);
    for (std::size_t i = 0; i < count; ++i) {
        threads.push_back(std::make_unique<network_thread>(core, *pool, census));
    }
}

void rpc_server::state::open_local_socket() {
    if (options.local_socket.empty()) {
        return;
    }
    listening_socket socket;
    local_status = socket.open_local(options.local_socket, options.local_socket_mode);
    if (local_status == rpc_status::ok) {
        endpoints.push_back(std::move(socket));
    } else {
        core.report("The local socket '" + options.local_socket + "' cannot be used: " + socket.reason() + " (status " +
                    std::to_string(local_status) + ").");
    }
}

/// Where clients ask that know the interface and not its port. Another program may serve there already, and the machine's rules may
/// forbid it.
void rpc_server::state::open_mapper_port() {
    const std::uint16_t port = options.endpoint_mapper_port;
    if (port == 0 || ports.empty() || std::find(ports.begin(), ports.end(), port) != ports.end()) {
        return;
    }
    listening_socket socket;
    const std::uint32_t status = socket.open_tcp(options.listen_address, port);
    if (status == rpc_status::ok) {
        endpoints.push_back(std::move(socket));
    } else {
        core.report("The endpoint mapper's port " + std::to_string(port) + " cannot be used: " + socket.reason() + " (status " +
                    std::to_string(status) + ").");
    }
}

void rpc_server::state::serve_endpoints() {
    std::vector<network_loop*> loops;
    for (const auto& thread : threads) {
        loops.push_back(&thread->loop);
    }
    threads.front()->run([&] {
        for (listening_socket& endpoint : endpoints) {
            listeners.push_back(std::make_shared<listener>(*loops.front(), loops, std::move(endpoint)));
            listeners.back()->start();
        }
    });
    endpoints.clear();
}

void rpc_server::state::stop() {
    core.listening = false;
    mapper.clear();
    endpoints.clear();
    ports.clear();
    if (threads.empty()) {
        return;
    }
    threads.front()->run([this] {
        for (const auto& served : listeners) {
            served->stop();
        }
        listeners.clear();
    });
    for (const auto& thread : threads) {
        thread->run([&thread] {
            const auto present = thread->loop.live;
            for (const auto& one : present) {
                one->retire();
            }
        });
    }
}

rpc_server::rpc_server(rpc_server_options options) : state_(std::make_unique<state>(std::move(options))) {}

rpc_server::~rpc_server() {
    state_->stop();
    state_->pool.reset();
    for (const auto& thread : state_->threads) {
        thread->run([] {});  // the answers of the last calls go out first
    }
}

void rpc_server::add_security_provider(std::shared_ptr<security_provider> provider) {
    state_->core.security.add(std::move(provider));
}

std::uint32_t rpc_server::use_endpoint(const std::string& protocol_sequence, std::uint32_t, const std::string& endpoint) {
    if (protocol_sequence != "ncacn_ip_tcp") {
        return sequence_not_supported;
    }
    const auto port = parse_port(endpoint);
    if (!port) {
        return invalid_endpoint_format;
    }
    listening_socket socket;
    const std::uint32_t status = socket.open_tcp(state_->options.listen_address, *port);
    if (status == rpc_status::ok) {
        state_->ports.push_back(socket.port());
        state_->endpoints.push_back(std::move(socket));
    }
    return status;
}

std::uint32_t rpc_server::use_all_protocol_sequences(std::uint32_t max_requests) {
    return use_endpoint("ncacn_ip_tcp", max_requests, "0");
}

std::uint32_t rpc_server::register_interface(const rpc_interface& offered, std::uint32_t, std::uint32_t,
                                             std::uint32_t max_request_size) {
    return state_->core.interfaces.add({offered, max_request_size, false});
}

std::uint32_t rpc_server::register_in_endpoint_mapper(const rpc_interface& offered, const std::u16string& annotation) {
    if (state_->ports.empty()) {
        return no_bindings;
    }
    std::string text;
    if (!utf16_to_utf8(annotation, text)) {
        return error::no_unicode_translation;
    }
    state_->mapper.enter(id_of(offered), text, state_->ports);
    return rpc_status::ok;
}

std::uint32_t rpc_server::inquire_bindings() {
    return state_->ports.empty() ? no_bindings : rpc_status::ok;
}

std::uint32_t rpc_server::register_authentication(const std::u16string& principal, std::uint32_t service) {
    std::string text;
    return utf16_to_utf8(principal, text) ? state_->core.security.enable(service, text) : error::no_unicode_translation;
}

std::uint32_t rpc_server::listen(std::uint32_t min_threads, std::uint32_t max_calls) {
    if (state_->core.listening) {
        return rpc_status::already_listening;
    }
    state_->limit_connections();
    state_->start_threads(min_threads, std::min<std::size_t>(max_calls, state_->options.limits.calls));
    state_->open_local_socket();
    state_->open_mapper_port();
    state_->core.secondary_address = state_->ports.empty() ? std::string() : std::to_string(state_->ports.front());
    state_->core.listening = true;
    state_->serve_endpoints();
    return rpc_status::ok;
}

std::uint32_t rpc_server::stop_listening() {
    state_->stop();
    return rpc_status::ok;
}

std::uint32_t rpc_server::computer_name(std::u16string& name) {
    const std::string qualified = qualified_host_name();
    return !qualified.empty() && utf8_to_utf16(qualified, name) ? rpc_status::ok : cannot_name_computer;
}

std::uint32_t rpc_server::make_principal_name(const std::u16string& service_class, const std::u16string& computer,
                                              std::u16string& principal) {
    principal = service_class + u'/' + computer;
    return rpc_status::ok;
}

bool rpc_server::at_rest() const {
    return !state_->pool || state_->pool->busy() == 0;
}

std::uint16_t rpc_server::tcp_port() const {
    return state_->ports.empty() ? std::uint16_t{0} : state_->ports.front();
}

std::uint32_t rpc_server::local_socket_status() const {
    return state_->local_status;
}

}  // namespace platform::linux_rpc
