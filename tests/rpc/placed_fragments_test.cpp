#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <thread>
#include <vector>

#include "platform/linux/rpc/fragment_scatter.h"
#include "rpc/support/raw_pdu.h"
#include "rpc/support/test_server.h"

namespace {

using namespace platform::linux_rpc;
using namespace rpc_test;

constexpr std::size_t head_size = 24;

bytes random_bytes(std::mt19937& random, std::size_t size) {
    bytes made(size);
    std::ranges::generate(made, [&random] { return static_cast<std::uint8_t>(random()); });
    return made;
}

/// Receives what the vectors have room for.
std::size_t receive(fragment_scatter& scatter, std::span<const std::uint8_t> stream) {
    std::size_t done = 0;
    for (const iovec& place : scatter.vectors()) {
        const std::size_t size = std::min(place.iov_len, stream.size() - done);
        std::copy_n(stream.begin() + static_cast<std::ptrdiff_t>(done), size, static_cast<std::uint8_t*>(place.iov_base));
        done += size;
    }
    scatter.received(done);
    return done;
}

TEST(FragmentScatterTest, PutsHeadersAsideAndStubDataTogether) {
    std::mt19937 random(1);
    const bytes stream = random_bytes(random, 3 * (head_size + 100));
    bytes memory(250);
    fragment_scatter scatter(memory, 100, {}, 100'000);
    EXPECT_EQ(scatter.room(), 3 * head_size + 250);
    EXPECT_EQ(receive(scatter, stream), scatter.room());
    const std::vector<std::size_t> sizes{100, 100, 50};
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        const auto fragment = scatter.front();
        const auto begin = stream.begin() + static_cast<std::ptrdiff_t>(i * (head_size + 100));
        EXPECT_TRUE(fragment.whole);
        EXPECT_EQ(bytes(fragment.head.begin(), fragment.head.end()), bytes(begin, begin + head_size));
        EXPECT_EQ(fragment.stub.data(), memory.data() + i * 100);
        EXPECT_EQ(bytes(fragment.stub.begin(), fragment.stub.end()),
                  bytes(begin + head_size, begin + head_size + static_cast<std::ptrdiff_t>(sizes[i])));
        scatter.take_front();
    }
    EXPECT_TRUE(scatter.front().head.empty());
    bytes to(1000);
    EXPECT_TRUE(scatter.behind(0, to).empty());
    EXPECT_TRUE(scatter.behind(1, to).empty());
}

TEST(FragmentScatterTest, ReadsNoMoreThanItMayButTheRestOfTheFirst) {
    bytes memory(10'000);
    EXPECT_EQ(fragment_scatter(memory, 1000, {}, 4000).room(), 3 * (head_size + 1000));
    EXPECT_EQ(fragment_scatter(memory, 1000, bytes(head_size + 400), 4000).room(), 600 + 2 * (head_size + 1000));
    EXPECT_EQ(fragment_scatter(memory, 9000, {}, 4000).room(), head_size + 9000);
    bytes long_memory(1'000'000);
    EXPECT_EQ(fragment_scatter(long_memory, 1000, {}, 1'000'000).vectors().size(), 256U);
}

/// Whatever was kept and received, and wherever it was cut, what is left is what was sent.
TEST(FragmentScatterTest, PutsWhatIsLeftTogetherAsItWasSent) {
    std::mt19937 random(2);
    bytes to(4000);
    for (int round = 0; round < 3000; ++round) {
        const std::size_t fragment_stub = 1 + random() % 300;
        bytes memory(1 + random() % 900);
        const std::size_t first = std::min(fragment_stub, memory.size());
        const std::size_t kept = random() % 2 == 0 ? 0 : head_size + random() % first;
        bytes stream = random_bytes(random, kept + random() % 1500);
        fragment_scatter scatter(memory, fragment_stub, std::span(stream).first(kept), 1 + random() % 2000);
        const std::size_t there = kept + receive(scatter, std::span(stream).subspan(kept));
        ASSERT_LE(there, to.size());
        std::size_t taken = 0;
        for (;;) {
            const auto fragment = scatter.front();
            const bytes expected(stream.begin() + static_cast<std::ptrdiff_t>(taken),
                                 stream.begin() + static_cast<std::ptrdiff_t>(there));
            const auto left = scatter.behind(0, to);
            ASSERT_EQ(bytes(left.begin(), left.end()), expected);
            const std::size_t size = head_size + fragment.stub.size();
            const auto behind = scatter.behind(1, to);
            if (!fragment.whole) {
                ASSERT_TRUE(behind.empty());
                break;
            }
            ASSERT_EQ(bytes(behind.begin(), behind.end()),
                      bytes(expected.begin() + static_cast<std::ptrdiff_t>(size), expected.end()));
            taken += size;
            scatter.take_front();
        }
    }
}

/// A fragment whose header announces as many stub bytes of the whole request as the client likes.
bytes fragment(unsigned flags, std::uint32_t call_id, std::uint32_t hint, std::span<const std::uint8_t> stub, bool little = true) {
    raw_request made;
    made.flags = flags;
    made.call_id = call_id;
    made.stub.assign(stub.begin(), stub.end());
    made.little = little;
    bytes all = request_pdu(made);
    for (std::size_t i = 0; i < 4; ++i) {
        all[16 + i] = static_cast<std::uint8_t>(hint >> 8 * (little ? i : 3 - i));
    }
    return all;
}

void add(bytes& stream, const bytes& more) {
    stream.insert(stream.end(), more.begin(), more.end());
}

/// Long requests from clients that don't say who they are.
rpc_server_options long_requests() {
    rpc_server_options options = loopback_options();
    options.limits.unauthenticated_request_bytes = 1'000'000;
    return options;
}

/// What one client sends, and the answers that are due for it.
struct conversation {
    bytes stream = bind_pdu();
    std::vector<bytes> echoes;
};

/// A long request in fragments that are mostly alike, with now and then something else between them.
void add_request(conversation& all, std::mt19937& random, std::uint32_t call_id) {
    const bytes text = random_bytes(random, 20'000 + random() % 300'000);
    const bool little = random() % 4 != 0;
    const std::size_t usual = 1000 + random() % 4800;
    const std::uint32_t hints[] = {static_cast<std::uint32_t>(text.size()), 0, 0xFFFFFFFF,
                                   static_cast<std::uint32_t>(text.size() / 2)};
    const std::uint32_t hint = hints[random() % 4 == 0 ? random() % 4 : 0];
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t size = std::min(random() % 12 == 0 ? 1 + random() % 5800 : usual, text.size() - at);
        const unsigned flags = (at == 0 ? 1U : 0U) | (at + size == text.size() ? 2U : 0U);
        add(all.stream, fragment(flags, call_id, hint, std::span(text).subspan(at, size), little));
        at += size;
        if (random() % 40 == 0) {
            add(all.stream, pdu(18, 0, call_id, {}));
        }
        if (at < text.size() && random() % 300 == 0) {
            add(all.stream, pdu(19, 0, call_id, {}));
            return;
        }
    }
    all.echoes.push_back(text);
}

/// The stub data of the next answer, which may come in fragments.
bytes answer_of(raw_connection& client) {
    bytes got;
    for (bool last = false; !last;) {
        const bytes part = client.receive();
        if (type_of(part) != 2) {
            ADD_FAILURE() << "no response but type " << type_of(part);
            return {};
        }
        last = (part[3] & 2) != 0;
        got.insert(got.end(), part.begin() + head_size, part.end());
    }
    return got;
}

TEST(PlacedFragmentsTest, LongRequestsArriveHoweverTheyAreCutAndMixed) {
    test_server server(long_requests());
    for (std::uint32_t seed = 1; seed <= 40; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        conversation all;
        for (std::uint32_t call = 0; call < 6; ++call) {
            add_request(all, random, 10 + call);
            if (random() % 2 == 0) {
                all.echoes.push_back(random_bytes(random, 1 + random() % 50));
                raw_request little_one;
                little_one.call_id = 100 + call;
                little_one.stub = all.echoes.back();
                add(all.stream, request_pdu(little_one));
            }
        }
        raw_connection client(server.port());
        std::thread sender([&client, &all, seed] {
            std::mt19937 cuts(seed);
            for (std::size_t at = 0; at < all.stream.size();) {
                const std::size_t longest = cuts() % 3 == 0 ? 40 : 200'000;
                const std::size_t size = std::min(1 + cuts() % longest, all.stream.size() - at);
                client.send(std::span(all.stream).subspan(at, size));
                at += size;
            }
        });
        EXPECT_EQ(type_of(client.receive()), 12U);
        for (const bytes& expected : all.echoes) {
            const bytes got = answer_of(client);
            EXPECT_TRUE(got == expected) << got.size() << " bytes instead of " << expected.size();
        }
        sender.join();
        EXPECT_EQ(client.exchange(request_pdu()).size(), head_size) << "nothing is left over";
    }
}

/// Half a long request, and something that doesn't belong there.
bytes half_a_request(const bytes& what_follows) {
    bytes stream = bind_pdu();
    const bytes stub = pattern(4000);
    for (unsigned i = 0; i < 30; ++i) {
        add(stream, fragment(i == 0 ? 1U : 0U, 7, 400'000, stub));
    }
    add(stream, what_follows);
    return stream;
}

void expect_protocol_error(const bytes& what_follows) {
    test_server server(long_requests());
    raw_connection client(server.port());
    client.send(half_a_request(what_follows));
    EXPECT_EQ(type_of(client.receive()), 12U);
    EXPECT_EQ(fault_of(client.receive()), 0x1C01000BU);
    EXPECT_TRUE(client.ended());
}

TEST(PlacedFragmentsTest, FragmentOfAnotherCallIsAnErrorOfProtocol) {
    expect_protocol_error(fragment(0, 8, 400'000, pattern(4000)));
}

TEST(PlacedFragmentsTest, FragmentInAnotherByteOrderIsAnErrorOfProtocol) {
    expect_protocol_error(fragment(0, 7, 400'000, pattern(4000), false));
}

TEST(PlacedFragmentsTest, FragmentOfAnImpossibleLengthEndsTheConnection) {
    test_server server(long_requests());
    raw_connection client(server.port());
    bytes wrong = fragment(0, 7, 400'000, pattern(4000));
    wrong[8] = 10;
    wrong[9] = 0;
    client.send(half_a_request(wrong));
    EXPECT_EQ(type_of(client.receive()), 12U);
    EXPECT_TRUE(client.ended());
}

TEST(PlacedFragmentsTest, RequestAboveTheLimitIsRefusedAsSoonAsItPassesIt) {
    rpc_server_options options = long_requests();
    options.limits.unauthenticated_request_bytes = 200'000;
    test_server server(options);
    raw_connection client(server.port());
    bytes stream = bind_pdu();
    const bytes stub = pattern(4000);
    for (unsigned i = 0; i < 51; ++i) {
        add(stream, fragment(i == 0 ? 1U : 0U, 7, 400'000, stub));
    }
    client.send(stream);
    EXPECT_EQ(type_of(client.receive()), 12U);
    EXPECT_EQ(fault_of(client.receive()), 5U);
    EXPECT_TRUE(client.ended());
}

TEST(PlacedFragmentsTest, RequestsThatAreGivenUpCountNoLonger) {
    rpc_server_options options = long_requests();
    options.limits.pending_request_bytes = 300'000;
    test_server server(options);
    for (int round = 0; round < 8; ++round) {
        raw_connection client(server.port());
        client.send(half_a_request({}));
        EXPECT_EQ(type_of(client.receive()), 12U);
        client.end_of_output();
        EXPECT_TRUE(client.ended());
    }
    raw_connection client(server.port());
    client.send(half_a_request(fragment(2, 7, 0, pattern(4000))));
    EXPECT_EQ(type_of(client.receive()), 12U);
    EXPECT_EQ(answer_of(client).size(), 31U * 4000);
}

}  // namespace
