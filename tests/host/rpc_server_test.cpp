#include "host/rpc_server.h"

#include <gtest/gtest.h>

#include "foundation/exc/exceptions.h"
#include "host/server_lifetime.h"
#include "support/service_fixture.h"
#include "support/stub_builder.h"

namespace {

using platform::testing::fake_rpc_runtime;
using step = fake_rpc_runtime::step;
using test_support::stub_builder;
using test_support::tape_key;

class RpcSettings : public test_support::ServiceFixture {
protected:
    static std::uint32_t port_with(const util::command_line_t& words) { return LoadRpcServerSettings(tape_key_path, words).port; }
};

TEST_F(RpcSettings, TheDefaultIsOnePort) {
    const RpcServerSettings settings = LoadRpcServerSettings(tape_key_path, {u"S.exe"});
    EXPECT_TRUE(settings.usePort);
    EXPECT_EQ(settings.port, 6166u);
    EXPECT_FALSE(settings.useSecondPort);
    EXPECT_EQ(settings.secondPort, 0xFFFFFFFFu);
    EXPECT_TRUE(system_.log.lines().empty());
}

TEST_F(RpcSettings, AValidRegistryValueWins) {
    system_.registry.set_dword(tape_key, "Port", 7000);
    EXPECT_EQ(port_with({u"S.exe", u"-port", u"8000"}), 7000u);
    EXPECT_EQ(system_.log.lines(), std::vector<std::string>{"Port settings were read from registry. Port: '7000'."});
    system_.registry.set_dword(tape_key, "Port", 65535);
    EXPECT_EQ(port_with({}), 65535u);
    system_.registry.set_dword(tape_key, "Port", 0);
    EXPECT_EQ(port_with({}), 0u);
}

TEST_F(RpcSettings, AnInvalidRegistryValueIsSkipped) {
    system_.registry.set_dword(tape_key, "Port", 70000);
    EXPECT_EQ(port_with({u"S.exe", u"-PORT", u"7000"}), 7000u);
    EXPECT_EQ(system_.log.lines(),
              (std::vector<std::string>{"Invalid port value was read from registry, setting '70000' is skipped.",
                                        "Port settings were obtained from command line. Port: '7000'."}));
    system_.registry.set_dword(tape_key, "Port", 65536);
    EXPECT_EQ(port_with({}), 6166u);
}

TEST_F(RpcSettings, AnInvalidSwitchIsSkipped) {
    EXPECT_EQ(port_with({u"S.exe", u"-port", u"65536"}), 6166u);
    EXPECT_EQ(port_with({u"S.exe", u"-port", u"-1"}), 6166u);
    EXPECT_EQ(port_with({u"S.exe", u"-port"}), 6166u);
    EXPECT_EQ(system_.log.lines(),
              (std::vector<std::string>{"Invalid port value was read from command line, setting '65536' is skipped.",
                                        "Invalid port value was read from command line, setting '-1' is skipped."}));
}

TEST_F(RpcSettings, FailuresNameTheKey) {
    constexpr char context[] = "\n--tr:Failed to initialize RPC server settings. Key name: [SOFTWARE\\Tarno\\Tarno Backup Tape].";
    try {
        port_with({u"S.exe", u"-port", u"x"});
        FAIL();
    } catch (const exc::runtime_exc_t& e) {
        EXPECT_EQ(std::string(e.what()),
                  std::string("Cannot convert string value to signed integer. Given string: [x].") + context);
    }
    system_.registry.set_string(tape_key, "Port", "7000");
    try {
        port_with({});
        FAIL();
    } catch (const exc::runtime_exc_t& e) {
        EXPECT_EQ(e.messages().front().text, "Unexpected registry type: [1].");
        EXPECT_TRUE(std::string(e.what()).ends_with(context)) << e.what();
    }
}

class RpcStart : public test_support::ServiceFixture {
protected:
    ~RpcStart() override { gServiceContext.reset(); }

    /// Starts and gives the failure's text, empty on success.
    std::string start(const RpcServerSettings& settings = {}) {
        try {
            StartRpcServer(settings, context_);
            return {};
        } catch (const std::exception& e) {
            return e.what();
        }
    }

    std::vector<step> steps() {
        std::vector<step> result;
        for (const fake_rpc_runtime::call& call : system_.rpc_runtime.calls()) {
            result.push_back(call.what);
        }
        return result;
    }

    static std::string wrapped(const std::string& cause) {
        return cause + "\n--tr:Failed to start RPC listening.\n--tr:Failed to initialize RPC runtime for 'Transport' service.";
    }
};

TEST_F(RpcStart, TakesEachStepInOrder) {
    EXPECT_EQ(start(), "");
    EXPECT_EQ(steps(), (std::vector<step>{step::use_endpoint, step::computer_name, step::make_principal_name,
                                          step::register_authentication, step::register_interface, step::inquire_bindings,
                                          step::register_in_endpoint_mapper, step::listen}));
    EXPECT_EQ(gServiceContext.get(), context_);
    EXPECT_TRUE(system_.rpc_runtime.listening());
    EXPECT_EQ(system_.log.lines(),
              (std::vector<std::string>{"rpc| Starting RPC listening.", "rpc|   Specified port for listening: [6166].",
                                        "rpc|   FQDN of the computer: [tape.example.net].",
                                        "rpc|   Service SPN: [TarnoTapeSvc/tape.example.net]",
                                        "rpc|   RPC authentication records were initialized.", "rpc| RPC server is initialized."}));
}

TEST_F(RpcStart, PassesTheInterfacesNumbers) {
    EXPECT_EQ(start(), "");
    const fake_rpc_runtime::call endpoint = system_.rpc_runtime.calls(step::use_endpoint).at(0);
    EXPECT_EQ(endpoint.protocol_sequence, "ncacn_ip_tcp");
    EXPECT_EQ(endpoint.endpoint, "6166");
    EXPECT_EQ(endpoint.max_requests, 10u);
    const fake_rpc_runtime::call registered = system_.rpc_runtime.calls(step::register_interface).at(0);
    EXPECT_EQ(registered.flags, 0u);
    EXPECT_EQ(registered.max_calls, 1234u);
    EXPECT_EQ(registered.max_request_size, 0xFFFFFFFFu);
    EXPECT_EQ(system_.rpc_runtime.calls(step::register_in_endpoint_mapper).at(0).text, u"Tarno Invoker");
    const fake_rpc_runtime::call listening = system_.rpc_runtime.calls(step::listen).at(0);
    EXPECT_EQ(listening.min_threads, 2u);
    EXPECT_EQ(listening.max_calls, 1234u);
    EXPECT_EQ(system_.rpc_runtime.calls(step::register_authentication).at(0).service, 9u);
}

TEST_F(RpcStart, CallsReachTheDispatcher) {
    EXPECT_EQ(start(), "");
    const fake_rpc_runtime::invocation answer =
        system_.rpc_runtime.invoke(0, stub_builder().string(u"EnumLocks").string(u"<InputArguments />").bytes());
    EXPECT_EQ(answer.status, 0u);
    EXPECT_EQ(answer.reply,
              stub_builder().u32(0x20000).string(u"<OutputArguments><locks /></OutputArguments>").u32(1).u32(0).bytes());
}

TEST_F(RpcStart, APortThatIsReleasedIsTakenAtALaterAttempt) {
    system_.rpc_runtime.set_status(step::use_endpoint, 1740);
    int sleeps = 0;
    system_.clock.on_sleep([&](std::int64_t) {
        if (++sleeps == 3) {
            system_.rpc_runtime.set_status(step::use_endpoint, 0);
        }
    });
    EXPECT_EQ(start(), "");
    EXPECT_EQ(system_.clock.sleeps(), (std::vector<std::int64_t>{1000, 1000, 1000}));
    const std::vector<std::string> lines = system_.log.lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "rpc| WARN|Waiting for endpoint to be released"), 1);
}

TEST_F(RpcStart, APortThatStaysTakenFailsTheStart) {
    system_.rpc_runtime.set_status(step::use_endpoint, 1740);
    EXPECT_EQ(start(), wrapped("Failed to register TCP/IP RPC endpoint."));
    EXPECT_EQ(system_.rpc_runtime.calls(step::use_endpoint).size(), 5u);
    EXPECT_EQ(system_.clock.sleeps(), (std::vector<std::int64_t>{1000, 1000, 1000, 1000}));
    const std::vector<std::string> lines = system_.log.lines();
    EXPECT_EQ(lines.back(), "rpc| Starting RPC listening. Failed.");
    EXPECT_NE(std::find(lines.begin(), lines.end(), "WARN|" + exc::win_error_text(1740)), lines.end());
    EXPECT_TRUE(system_.log.has_line(">>  |Failed to register TCP/IP RPC endpoint. Port: [6166]."));
}

TEST_F(RpcStart, AnotherFailureOfAPortIsNotRetried) {
    system_.rpc_runtime.set_status(step::use_endpoint, 5);
    EXPECT_EQ(start(), wrapped("Failed to register TCP/IP RPC endpoint."));
    EXPECT_TRUE(system_.clock.sleeps().empty());
    EXPECT_EQ(system_.rpc_runtime.calls(step::use_endpoint).size(), 1u);
}

TEST_F(RpcStart, ASecondPortIsTriedToo) {
    RpcServerSettings settings;
    settings.useSecondPort = true;
    settings.secondPort = 7000;
    EXPECT_EQ(start(settings), "");
    ASSERT_EQ(system_.rpc_runtime.calls(step::use_endpoint).size(), 2u);
    EXPECT_EQ(system_.rpc_runtime.calls(step::use_endpoint)[1].endpoint, "7000");
}

TEST_F(RpcStart, OnePortOfTwoIsEnough) {
    for (const char* taken : {"6166", "7000"}) {
        system_.rpc_runtime.set_endpoint_status(taken, 5);
        RpcServerSettings settings;
        settings.useSecondPort = true;
        settings.secondPort = 7000;
        EXPECT_EQ(start(settings), "") << taken;
        EXPECT_TRUE(system_.log.has_line(std::string(">>  |Failed to register TCP/IP RPC endpoint. Port: [") + taken + "]."));
        system_.rpc_runtime.set_endpoint_status(taken, 0);
    }
    EXPECT_EQ(system_.rpc_runtime.calls(step::use_endpoint).size(), 4u);
    system_.rpc_runtime.set_status(step::use_endpoint, 5);
    RpcServerSettings settings;
    settings.useSecondPort = true;
    EXPECT_EQ(start(settings), wrapped("Failed to register TCP/IP RPC endpoint."));
    EXPECT_EQ(system_.rpc_runtime.calls(step::use_endpoint).back().endpoint, "4294967295");
}

TEST_F(RpcStart, WithoutAPortAllProtocolsAreUsed) {
    RpcServerSettings settings;
    settings.usePort = false;
    EXPECT_EQ(start(settings), "");
    EXPECT_EQ(steps().front(), step::use_all_protocol_sequences);
    EXPECT_EQ(system_.rpc_runtime.calls().front().max_requests, 10u);
}

TEST_F(RpcStart, WithoutNegotiateTheOthersAreOffered) {
    system_.rpc_runtime.set_authentication_status(9, 1747);
    EXPECT_EQ(start(), "");
    std::vector<std::uint32_t> services;
    for (const fake_rpc_runtime::call& call : system_.rpc_runtime.calls(step::register_authentication)) {
        services.push_back(call.service);
        EXPECT_EQ(call.text, u"TarnoTapeSvc/tape.example.net");
    }
    EXPECT_EQ(services, (std::vector<std::uint32_t>{9, 10, 16}));
    EXPECT_TRUE(
        system_.log.has_line("rpc| WARN|Unable to register service authentication records with Negotiate security provider."));
    EXPECT_FALSE(system_.log.has_line("Unable to register service authentication records with WinNT security provider."));
}

TEST_F(RpcStart, AServerWithoutAnyProviderStarts) {
    system_.rpc_runtime.set_status(step::register_authentication, 1747);
    EXPECT_EQ(start(), "");
    EXPECT_TRUE(system_.log.has_line("rpc| WARN|Unable to register service authentication records with WinNT security provider."));
    EXPECT_TRUE(
        system_.log.has_line("rpc| WARN|Unable to register service authentication records with Kerberos security provider."));
    EXPECT_TRUE(system_.log.has_line("RPC authentication records were initialized."));
}

TEST_F(RpcStart, ARepeatedStartIsNoFailure) {
    EXPECT_EQ(start(), "");
    EXPECT_EQ(start(), "");
    EXPECT_TRUE(system_.log.has_line("RPC interface 'Tarno Invoker' already registered in RPC runtime."));
    EXPECT_TRUE(system_.log.has_line("RPC server listening is already launched."));
}

struct fatal_step {
    step what;
    const char* text;
};

TEST_F(RpcStart, EachFatalStepHasItsText) {
    const fatal_step cases[] = {
        {step::computer_name, "\nFailed to retrieve fully qualified computer name (FQDN).\n--tr:Error code: 0x00000005"},
        {step::make_principal_name,
         "\nFailed to construct a service principal name (SPN) that identifies a service instance. Computer FQDN: "
         "[tape.example.net].\n"
         "--tr:Error code: 0x00000005"},
        {step::register_interface,
         "\nFailed to process interface [Tarno Invoker].\n--tr:Error code: 0x00000005\n--tr:Failed to register RPC interfaces with "
         "runtime "
         "library."},
        {step::inquire_bindings,
         "\nFailed to enumerate the binding handles over which remote procedure calls can be received.\n--tr:Error code: "
         "0x00000005"},
        {step::register_in_endpoint_mapper,
         "\nFailed to process interface [Tarno Invoker].\n--tr:Error code: 0x00000005\n--tr:Failed to register endpoints used by "
         "RPC "
         "interfaces in the endpoint mapper database."},
        {step::listen, "\nFailed to signal RPC runtime to listen for remote function calls.\n--tr:Error code: 0x00000005"},
    };
    for (const fatal_step& fatal : cases) {
        system_.rpc_runtime.set_status(fatal.what, 5);
        EXPECT_EQ(start(), wrapped("Access is denied." + std::string(fatal.text)));
        system_.rpc_runtime.set_status(fatal.what, 0);
    }
    RpcServerSettings settings;
    settings.usePort = false;
    system_.rpc_runtime.set_status(step::use_all_protocol_sequences, 5);
    EXPECT_EQ(
        start(settings),
        wrapped(
            "Access is denied.\nFailed to register RPC protocol sequences enabled for receiving remote calls.\n--tr:Error code: "
            "0x00000005"));
}

TEST_F(RpcStart, TheStopTellsItsStepsInOrder) {
    EXPECT_EQ(start(), "");
    system_.log.clear();
    StopTapeServer();
    EXPECT_EQ(system_.log.lines(),
              (std::vector<std::string>{"tap| ", "tap| SCM: Processing request to stop service.", "rpc| Stopping RPC server.",
                                        "rpc| Server was successfully stopped.", "tap| Shutting down service context.",
                                        "tap| Context was cleared.", "tap| Tape service is stopped."}));
    EXPECT_FALSE(gServiceContext.get());
    EXPECT_FALSE(system_.rpc_runtime.listening());
}

TEST_F(RpcStart, AStopThatThrowsIsLoggedAndEndsThere) {
    class broken_runtime final : public platform::rpc_runtime {
    public:
        std::uint32_t use_endpoint(const std::string&, std::uint32_t, const std::string&) override { return 0; }
        std::uint32_t use_all_protocol_sequences(std::uint32_t) override { return 0; }
        std::uint32_t register_interface(const platform::rpc_interface&, std::uint32_t, std::uint32_t, std::uint32_t) override {
            return 0;
        }
        std::uint32_t register_in_endpoint_mapper(const platform::rpc_interface&, const std::u16string&) override { return 0; }
        std::uint32_t inquire_bindings() override { return 0; }
        std::uint32_t register_authentication(const std::u16string&, std::uint32_t) override { return 0; }
        std::uint32_t listen(std::uint32_t, std::uint32_t) override { return 0; }
        std::uint32_t stop_listening() override { throw exc::runtime_exc_t("The network is gone."); }
        std::uint32_t computer_name(std::u16string&) override { return 0; }
        std::uint32_t make_principal_name(const std::u16string&, const std::u16string&, std::u16string&) override { return 0; }
    } broken;
    platform::system_set set = platform::system();
    set.rpc_runtime = &broken;
    const platform::scoped_system scope(set);
    EXPECT_EQ(start(), "");
    system_.log.clear();
    StopTapeServer();
    EXPECT_TRUE(system_.log.has_line("tap| ERR |Failed to stop tape service."));
    EXPECT_TRUE(system_.log.has_line("The network is gone."));
    EXPECT_TRUE(system_.log.has_line("--tr:Failed to stop RPC server."));
    EXPECT_FALSE(system_.log.has_line("Tape service is stopped."));
    EXPECT_TRUE(gServiceContext.get());
}

TEST_F(RpcStart, AStopThatTheRuntimeRefusesIsAStop) {
    system_.rpc_runtime.set_status(step::stop_listening, 5);
    StopTapeServer();
    EXPECT_TRUE(system_.log.has_line("Tape service is stopped."));
}

}  // namespace
