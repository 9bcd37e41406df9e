#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "platform/linux/rpc/endpoint_mapper.h"
#include "platform/linux/rpc/listener.h"
#include "platform/linux/rpc/rpc_client.h"
#include "rpc/support/test_server.h"

namespace {

using namespace platform::linux_rpc;
using namespace rpc_test;
using namespace std::chrono_literals;

const syntax_id mapper_id{uuid_from_text("e1af8308-5d1f-11c9-91a4-08002b14a0fa"), 3, 0};
const syntax_id management_id{uuid_from_text("afa8bd80-7d8a-11c9-bef4-08002b102989"), 1, 0};
constexpr std::uint32_t not_registered = 0x16C9A0D6;

bytes tower_for(const std::string& interface, unsigned port, const bytes& address, unsigned minor = 0) {
    raw_writer out;
    out.u16(5);
    out.u16(19).u8(0x0D).uuid(interface).u16(1).u16(2).u16(minor);
    out.u16(19).u8(0x0D).uuid(ndr_syntax).u16(2).u16(2).u16(0);
    out.u16(1).u8(0x0B).u16(2).u16(0);
    out.u16(1).u8(0x07).u16(2).u8(port >> 8).u8(port & 255);
    out.u16(1).u8(0x09).u16(4).raw(address);
    return out.data;
}

bytes map_request(const bytes& tower, std::uint32_t max_towers = 4) {
    raw_writer in;
    const auto size = static_cast<std::uint32_t>(tower.size());
    in.u32(1).zeros(16).u32(2).u32(size).u32(size).raw(tower).zeros((4 - size % 4) % 4).zeros(20).u32(max_towers);
    return in.data;
}

class BuiltinInterfacesTest : public testing::Test {
protected:
    bytes ask(const syntax_id& interface, std::uint16_t operation, const bytes& stub) {
        auto client = rpc_client::connect_tcp("127.0.0.1", server.port(), 10s);
        client.bind(interface, 10s);
        return client.call(operation, stub, 10s);
    }
    test_server server;
};

TEST_F(BuiltinInterfacesTest, MapGivesTheTowerWithPortAndAddress) {
    const bytes got = ask(mapper_id, 3, map_request(tower_for(test_interface, 0, bytes(4))));
    const bytes tower = tower_for(test_interface, server.port(), {127, 0, 0, 1});
    ASSERT_EQ(tower.size(), 75U);
    raw_writer expected;
    expected.zeros(20).u32(1).u32(4).u32(0).u32(1).u32(1).u32(75).u32(75).raw(tower).zeros(1).u32(0);
    EXPECT_EQ(got, expected.data);
}

TEST_F(BuiltinInterfacesTest, APortOfItsOwnAnswersWithTheEndpoint) {
    const std::uint16_t free_port = [] {
        listening_socket probe;
        EXPECT_EQ(probe.open_tcp("127.0.0.1", 0), 0U);
        return probe.port();
    }();
    rpc_server_options options = loopback_options();
    options.endpoint_mapper_port = free_port;
    test_server mapped(options);
    auto client = rpc_client::connect_tcp("127.0.0.1", free_port, 10s);
    client.bind(mapper_id, 10s);
    const bytes got = client.call(3, map_request(tower_for(test_interface, 0, bytes(4))), 10s);
    const bytes tower = tower_for(test_interface, mapped.port(), {127, 0, 0, 1});
    ASSERT_GE(got.size(), tower.size());
    EXPECT_NE(std::search(got.begin(), got.end(), tower.begin(), tower.end()), got.end());
}

TEST_F(BuiltinInterfacesTest, AMappersPortThatIsTakenIsToldAndHarmsNothing) {
    rpc_server_options options = loopback_options();
    options.endpoint_mapper_port = server.port();
    test_server other(options);
    EXPECT_THAT(other.events(), testing::Contains("The endpoint mapper's port " + std::to_string(server.port()) +
                                                  " cannot be used: Address already in use (status 1740)."));
    auto client = rpc_client::connect_tcp("127.0.0.1", other.port(), 10s);
    client.bind(mapper_id, 10s);
    EXPECT_FALSE(client.call(3, map_request(tower_for(test_interface, 0, bytes(4))), 10s).empty());
}

TEST_F(BuiltinInterfacesTest, MapOfWhatIsNotHereSaysSo) {
    const bytes none = raw_writer().zeros(20).u32(0).u32(4).u32(0).u32(0).u32(not_registered).data;
    EXPECT_EQ(ask(mapper_id, 3, map_request(tower_for("00000000-1111-2222-3333-444444444444", 0, bytes(4)))), none);
    EXPECT_EQ(ask(mapper_id, 3, map_request(tower_for(test_interface, 0, bytes(4), 1))), none) << "newer minor version";
    EXPECT_EQ(ask(mapper_id, 3, map_request({1, 0, 3})), none) << "not a tower";
    EXPECT_EQ(ask(mapper_id, 3, raw_writer().u32(0).u32(0).zeros(20).u32(4).data), none) << "no tower";
    const bytes no_room = ask(mapper_id, 3, map_request(tower_for(test_interface, 0, bytes(4)), 0));
    EXPECT_EQ(le32(no_room, 20), 0U);
}

TEST_F(BuiltinInterfacesTest, LookupTellsTheAnnotationAndGoesOnWhereItStopped) {
    platform::rpc_interface second = server.offered;
    second.uuid[0] = 0x99;
    EXPECT_EQ(server->register_in_endpoint_mapper(second, u"Second"), 0U);
    const auto lookup = [](const bytes& handle, std::uint32_t max_entries) {
        return raw_writer().u32(0).u32(0).u32(0).u32(1).raw(handle).u32(max_entries).data;
    };
    const bytes first = ask(mapper_id, 2, lookup(bytes(20), 1));
    const bytes tower = tower_for(test_interface, server.port(), {127, 0, 0, 1});
    raw_writer expected;
    expected.raw(std::span(first).first(20)).u32(1).u32(1).u32(0).u32(1);
    expected.zeros(16).u32(1).u32(0).u32(16).text("Test annotation").u8(0).u32(75).u32(75).raw(tower).zeros(1).u32(0);
    EXPECT_EQ(first, expected.data);
    const bytes handle(first.begin(), first.begin() + 20);
    EXPECT_NE(handle, bytes(20)) << "there is more";
    const bytes next = ask(mapper_id, 2, lookup(handle, 10));
    EXPECT_EQ(bytes(next.begin(), next.begin() + 20), bytes(20)) << "there is no more";
    EXPECT_EQ(le32(next, 20), 1U);
    EXPECT_THAT(std::string(next.begin(), next.end()), testing::HasSubstr("Second"));
    const bytes lying = ask(mapper_id, 2, lookup(bytes(20, 0xFF), 10));
    EXPECT_EQ(le32(lying, 20), 0U);
    EXPECT_EQ(le32(lying, lying.size() - 4), not_registered);
}

TEST_F(BuiltinInterfacesTest, LookupFiltersByInterfaceVersionAndObject) {
    const auto found = [&](std::uint32_t kind, unsigned major, unsigned minor, std::uint32_t option, unsigned object = 0) {
        raw_writer in;
        in.u32(kind).u32(1).u8(object).zeros(15).u32(2).uuid(test_interface).u16(major).u16(minor).u32(option).zeros(20).u32(9);
        return le32(ask(mapper_id, 2, in.data), 20);
    };
    EXPECT_EQ(found(1, 9, 9, 1), 1U);
    EXPECT_EQ(found(1, 1, 0, 2), 1U);
    EXPECT_EQ(found(1, 1, 1, 2), 0U);
    EXPECT_EQ(found(1, 1, 0, 3), 1U);
    EXPECT_EQ(found(1, 1, 1, 3), 0U);
    EXPECT_EQ(found(1, 1, 9, 4), 1U);
    EXPECT_EQ(found(1, 2, 0, 4), 0U);
    EXPECT_EQ(found(1, 2, 0, 5), 1U);
    EXPECT_EQ(found(1, 0, 9, 5), 0U);
    EXPECT_EQ(found(0, 7, 7, 3), 1U);
    EXPECT_EQ(found(2, 0, 0, 1, 0), 1U);
    EXPECT_EQ(found(2, 0, 0, 1, 5), 0U);
}

TEST_F(BuiltinInterfacesTest, MapIsNotChangedFromAfar) {
    for (const std::uint16_t operation : {std::uint16_t{0}, std::uint16_t{1}, std::uint16_t{6}}) {
        EXPECT_EQ(ask(mapper_id, operation, bytes(64)), number(0x16C9A0CD)) << operation;
    }
    EXPECT_EQ(ask(mapper_id, 4, bytes(20)), bytes(24));
    EXPECT_EQ(ask(mapper_id, 5, {}), bytes(20));
}

TEST_F(BuiltinInterfacesTest, CutOffArgumentsAreBadStubData) {
    const bytes whole = map_request(tower_for(test_interface, 0, bytes(4)));
    for (std::size_t size = 0; size < whole.size(); size += 7) {
        try {
            (void)ask(mapper_id, 3, bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
            ADD_FAILURE() << size;
        } catch (const rpc_client_error& e) {
            EXPECT_EQ(e.status(), 1783U) << size;
        }
    }
}

TEST_F(BuiltinInterfacesTest, ManagementNamesTheInterfaces) {
    raw_writer expected;
    expected.u32(1).u32(1).u32(1).u32(2).uuid(test_interface).u16(1).u16(0).u32(0);
    EXPECT_EQ(ask(management_id, 0, {}), expected.data);
}

TEST_F(BuiltinInterfacesTest, ManagementCounts) {
    (void)ask(management_id, 2, {});
    const bytes counters = ask(management_id, 1, number(9));
    EXPECT_EQ(le32(counters, 0), 4U);
    EXPECT_EQ(le32(counters, 4), 4U);
    EXPECT_EQ(le32(counters, 8), 2U) << "calls in";
    EXPECT_EQ(le32(counters, 16), 4U) << "PDUs in: two binds, two requests";
    EXPECT_EQ(le32(counters, 24), 0U);
    EXPECT_EQ(ask(management_id, 1, number(1)).size(), 16U);
}

TEST_F(BuiltinInterfacesTest, ManagementSaysItListensAndIsNotStoppedFromAfar) {
    EXPECT_EQ(ask(management_id, 2, {}), raw_writer().u32(0).u32(1).data);
    EXPECT_EQ(ask(management_id, 3, {}), number(5));
    EXPECT_EQ(ask(management_id, 2, {}), raw_writer().u32(0).u32(1).data);
}

TEST_F(BuiltinInterfacesTest, ManagementNamesThePrincipal) {
    const auto principal = [&](std::uint32_t service, std::uint32_t room) {
        return ask(management_id, 4, raw_writer().u32(service).u32(room).data);
    };
    EXPECT_EQ(principal(10, 100), raw_writer().u32(100).u32(0).u32(17).text("svc/host.example").u8(0).zeros(3).u32(0).data);
    EXPECT_EQ(principal(10, 16), raw_writer().u32(16).u32(0).u32(0).u32(122).data);
    EXPECT_EQ(principal(16, 100), raw_writer().u32(100).u32(0).u32(1).u8(0).zeros(3).u32(1747).data);
}

}  // namespace
