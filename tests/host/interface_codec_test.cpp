#include "host/interface_codec.h"

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include "foundation/logging/log_writer.h"
#include "host/invoker_interface.h"
#include "support/service_fixture.h"
#include "support/stub_builder.h"

namespace {

using interface_codec::bad_stub_data;
using interface_codec::request_reader;
using test_support::stub_builder;

/// A copy of stub bytes at an aligned address.
class aligned_stub {
public:
    explicit aligned_stub(const std::vector<std::uint8_t>& bytes) : words_(bytes.size() / 8 + 1), size_(bytes.size()) {
        std::copy(bytes.begin(), bytes.end(), reinterpret_cast<std::uint8_t*>(words_.data()));
    }
    [[nodiscard]] std::span<const std::uint8_t> bytes() const {
        return {reinterpret_cast<const std::uint8_t*>(words_.data()), size_};
    }

private:
    std::vector<std::uint64_t> words_;
    std::size_t size_;
};

std::u16string read_one(const std::vector<std::uint8_t>& bytes, bool little_endian = true) {
    const aligned_stub stub(bytes);
    request_reader reader(stub.bytes(), little_endian);
    return reader.read_string().c_str();
}

TEST(RequestReader, ReadsAStringInBothByteOrders) {
    for (const bool little_endian : {true, false}) {
        for (const std::u16string text : {u"", u"a", u"ab", u"abc", u"\u00E4\U0001F4FC"}) {
            stub_builder stub(little_endian);
            stub.string(text);
            EXPECT_EQ(read_one(stub.bytes(), little_endian), text);
        }
    }
}

TEST(RequestReader, AlignsEachParameter) {
    for (const bool little_endian : {true, false}) {
        stub_builder built(little_endian);
        built.string(u"ab").string(u"c").u32(0xFFFFFFFE);
        const aligned_stub stub(built.bytes());
        request_reader reader(stub.bytes(), little_endian);
        EXPECT_EQ(std::u16string(reader.read_string().c_str()), u"ab");
        EXPECT_EQ(std::u16string(reader.read_string().c_str()), u"c");
        EXPECT_EQ(reader.read_long(), 0xFFFFFFFEu);
    }
}

TEST(RequestReader, AStringEndsAtItsFirstNul) {
    stub_builder stub;
    stub.u32(6).u32(0).u32(6).units(std::u16string(u"ab\0cd\0", 6));
    EXPECT_EQ(read_one(stub.bytes()), u"ab");
}

TEST(RequestReader, AMaximumAboveTheCountIsFine) {
    stub_builder stub;
    stub.u32(0xFFFFFFFF).u32(0).u32(2).units(std::u16string(u"a\0", 2));
    EXPECT_EQ(read_one(stub.bytes()), u"a");
}

TEST(RequestReader, CountsThatLieAreBadData) {
    const std::array<std::uint32_t, 3> heads[] = {
        {2, 1, 2},                    // an offset
        {1, 0, 2},                    // more than the maximum
        {2, 0, 0},                    // no room for a terminator
        {3, 0, 3},                    // more than there is
        {0xFFFFFFFF, 0, 0x7FFFFFFF},  // twice it is a large number
        {0xFFFFFFFF, 0, 0x80000001},  // twice it wraps to a small one
        {0xFFFFFFFF, 0, 0xFFFFFFFF},
    };
    for (const auto& [maximum, offset, count] : heads) {
        stub_builder stub;
        stub.u32(maximum).u32(offset).u32(count).units(std::u16string(u"a\0", 2));
        EXPECT_THROW(read_one(stub.bytes()), bad_stub_data) << maximum << " " << offset << " " << count;
    }
}

TEST(RequestReader, AStringNeedsItsTerminator) {
    stub_builder stub;
    stub.u32(2).u32(0).u32(2).units(u"ab");
    EXPECT_THROW(read_one(stub.bytes()), bad_stub_data);
    stub_builder earlier;
    earlier.u32(3).u32(0).u32(3).units(std::u16string(u"a\0b", 3));
    EXPECT_THROW(read_one(earlier.bytes()), bad_stub_data);
}

TEST(RequestReader, EveryCutIsBadData) {
    stub_builder built;
    built.string(u"procedure").string(u"in").u32(3).u32(3).raw({1, 2, 3});
    for (std::size_t size = 0; size < built.bytes().size(); ++size) {
        const aligned_stub stub({built.bytes().begin(), built.bytes().begin() + static_cast<std::ptrdiff_t>(size)});
        const auto read_all = [&] {
            request_reader reader(stub.bytes(), true);
            static_cast<void>(reader.read_string());
            static_cast<void>(reader.read_string());
            static_cast<void>(reader.read_bytes(reader.read_long()));
        };
        EXPECT_THROW(read_all(), bad_stub_data) << size;
    }
}

TEST(RequestReader, ABlocksSizeHasToAgree) {
    for (const std::uint32_t size : {0u, 2u, 4u, 0xFFFFFFFFu}) {
        stub_builder built;
        built.u32(size).u32(3).raw({1, 2, 3});
        const aligned_stub stub(built.bytes());
        request_reader reader(stub.bytes(), true);
        const std::uint32_t claimed = reader.read_long();
        EXPECT_THROW(static_cast<void>(reader.read_bytes(claimed)), bad_stub_data) << size;
    }
}

class no_check : public logging::size_check_t {
public:
    void check(logging::receiver::log_file_t& /*receiver*/) override {}
};

/// The interface as the runtime calls it.
class InvokerInterfaceCalls : public test_support::ServiceFixture {
protected:
    class reply_buffer : public platform::rpc_reply {
    public:
        [[nodiscard]] std::span<std::uint8_t> allocate(std::size_t size) override {
            bytes.assign(size, 0xA5);  // what the codec doesn't write shows
            ++allocations;
            return bytes;
        }
        std::vector<std::uint8_t> bytes;
        int allocations = 0;
    };

    InvokerInterfaceCalls() { gServiceContext.set(context_); }
    ~InvokerInterfaceCalls() override { gServiceContext.reset(); }

    std::uint32_t dispatch(std::uint16_t operation, const stub_builder& built, bool little_endian = true) {
        const aligned_stub stub(built.bytes());
        reply_.bytes.clear();
        reply_.allocations = 0;
        return DispatchInvokerCall({operation, stub.bytes(), little_endian}, reply_);
    }

    reply_buffer reply_;
};

TEST_F(InvokerInterfaceCalls, TheInterfaceIsWhatClientsAskFor) {
    const platform::rpc_interface offered = InvokerInterface();
    const std::array<std::uint8_t, 16> uuid = {0xd1, 0xc2, 0xc0, 0x7a, 0xd9, 0x89, 0x48, 0xcc,
                                               0xa4, 0x23, 0xb7, 0x3e, 0xcd, 0x51, 0x8d, 0x40};
    EXPECT_EQ(offered.uuid, uuid);
    EXPECT_EQ(offered.major_version, 1);
    EXPECT_EQ(offered.minor_version, 0);
    EXPECT_EQ(offered.operations, 3);
}

TEST_F(InvokerInterfaceCalls, OnlyWhatLooksAtNothingButMemoryCannotWait) {
    const auto may_wait = [](std::uint16_t operation, const stub_builder& built, bool little_endian = true) {
        const aligned_stub stub(built.bytes());
        return InvokerInterface().may_wait({operation, stub.bytes(), little_endian});
    };
    for (const char16_t* name : {u"IInvokeDispatcher.IsSerialInvokerEnabled", u"EnumLocks", u"GetOwnerName"}) {
        EXPECT_FALSE(may_wait(0, stub_builder().string(name).string(u"<InputArguments />")));
        EXPECT_FALSE(may_wait(0, stub_builder(false).string(name).string(u"<InputArguments />"), false));
    }
    for (const char16_t* name :
         {u"SetOwnerName", u"GetChangers", u"WaitForResult", u"TestCompatible", u"Unknown", u"", u"enumlocks"}) {
        EXPECT_TRUE(may_wait(0, stub_builder().string(name).string(u"<InputArguments />")));
    }
    EXPECT_FALSE(may_wait(0, stub_builder())) << "bad stub data is refused at once";
    EXPECT_FALSE(may_wait(1, stub_builder()));
    EXPECT_FALSE(may_wait(2, stub_builder().string(u"hello")));
}

TEST_F(InvokerInterfaceCalls, ACallThatMayHaveToPackTheLogMayWait) {
    stub_builder request;
    request.string(u"EnumLocks").string(u"<InputArguments />");
    const aligned_stub stub(request.bytes());
    const platform::rpc_request asked{0, stub.bytes(), true};
    g_rpcLog.log().set_check_size(boost::make_shared<no_check>());
    EXPECT_FALSE(InvokerInterface().may_wait(asked));
    while (!g_rpcLog.log().may_take_long()) {
        g_rpcLog.LogMessage("x");
    }
    EXPECT_TRUE(InvokerInterface().may_wait(asked));
    g_rpcLog.log().set_check_size({});
}

TEST_F(InvokerInterfaceCalls, DoRpcAnswersByteForByte) {
    stub_builder request;
    request.string(u"EnumLocks").string(u"<InputArguments />");
    ASSERT_EQ(dispatch(0, request), 0u);
    stub_builder expected;
    expected.u32(0x20000).string(u"<OutputArguments><locks /></OutputArguments>").u32(1).u32(0);
    EXPECT_EQ(reply_.bytes, expected.bytes());
    EXPECT_EQ(reply_.allocations, 1);
}

TEST_F(InvokerInterfaceCalls, DoRpcPadsBehindAnOddText) {
    LoadOwner(tape_key_path, u"AB", false);
    for (const std::u16string name : {u"AB", u"ABC"}) {
        LoadOwner(tape_key_path, name, false);
        stub_builder request;
        request.string(u"GetOwnerName").string(u"<InputArguments />");
        ASSERT_EQ(dispatch(0, request), 0u);
        stub_builder expected;
        expected.u32(0x20000).string(u"<OutputArguments><OwnerName value=\"" + name + u"\" /></OutputArguments>").u32(1).u32(0);
        EXPECT_EQ(reply_.bytes, expected.bytes());
    }
}

TEST_F(InvokerInterfaceCalls, AFailedDoRpcHasANullOutputAndADeferredMessage) {
    stub_builder request(false);
    request.string(u"GetLogFolder").string(u"<InputArguments />");
    ASSERT_EQ(dispatch(0, request, false), 0u);
    stub_builder expected;
    expected.u32(0).u32(0).u32(0x20004).string(u"Unknown command: 'GetLogFolder'");
    EXPECT_EQ(reply_.bytes, expected.bytes());
}

TEST_F(InvokerInterfaceCalls, TrailingBytesAreTolerated) {
    stub_builder request;
    request.string(u"EnumLocks").string(u"<InputArguments />").raw({1, 2, 3, 4, 5});
    EXPECT_EQ(dispatch(0, request), 0u);
}

TEST_F(InvokerInterfaceCalls, BadDataIsTheClientsFault) {
    stub_builder request;
    request.string(u"EnumLocks");
    EXPECT_EQ(dispatch(0, request), 1783u);
    EXPECT_EQ(dispatch(1, request), 1783u);
    EXPECT_EQ(dispatch(2, stub_builder()), 1783u);
    EXPECT_EQ(reply_.allocations, 0);
    EXPECT_TRUE(system_.log.lines().empty());
}

TEST_F(InvokerInterfaceCalls, AnOperationBehindTheLastIsOutOfRange) {
    EXPECT_EQ(dispatch(3, stub_builder()), 1745u);
}

TEST_F(InvokerInterfaceCalls, TheOtherTwoSucceedForAnybody) {
    system_.accounts.set_no_caller(1746);
    gServiceContext.reset();
    stub_builder binary;
    binary.string(u"x").string(u"y").u32(3).u32(3).raw({1, 2, 3});
    ASSERT_EQ(dispatch(1, binary), 0u);
    EXPECT_EQ(reply_.bytes, stub_builder().u32(0).u32(0).u32(0).u32(1).u32(0).bytes());
    stub_builder test;
    test.string(u"hello");
    ASSERT_EQ(dispatch(2, test), 0u);
    EXPECT_EQ(reply_.bytes, stub_builder().u32(1).u32(0).bytes());
    EXPECT_EQ(system_.accounts.open_calls(), 0u);
}

TEST_F(InvokerInterfaceCalls, DoRpcWithoutAContextSaysSo) {
    gServiceContext.reset();
    std::optional<std::u16string> output;
    const InvokeResult result = DoRpc(u"EnumLocks", u"<InputArguments />", output);
    EXPECT_FALSE(result.success);
    EXPECT_EQ(result.errorMessage, u"Service context is not available.");
    EXPECT_FALSE(output);
    const std::vector<std::string> lines = system_.log.lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], "tap| ERR |RPC: DoRpc function call failed.");
    EXPECT_EQ(lines[1], "tap| >>  |Service context is not available.");
}

TEST_F(InvokerInterfaceCalls, MemoryThatCannotBeHadIsAFault) {
    class poor_reply : public platform::rpc_reply {
    public:
        [[nodiscard]] std::span<std::uint8_t> allocate(std::size_t /*size*/) override { throw std::bad_alloc(); }
    } poor;
    stub_builder request;
    request.string(u"hello");
    const aligned_stub stub(request.bytes());
    EXPECT_EQ(DispatchInvokerCall({2, stub.bytes(), true}, poor), 14u);
}

TEST_F(InvokerInterfaceCalls, AnExceptionOfAnotherKindIsTheClientsToo) {
    class odd_reply : public platform::rpc_reply {
    public:
        [[nodiscard]] std::span<std::uint8_t> allocate(std::size_t /*size*/) override { throw 42; }
    } odd;
    stub_builder request;
    request.string(u"hello");
    const aligned_stub stub(request.bytes());
    EXPECT_EQ(DispatchInvokerCall({2, stub.bytes(), true}, odd), 1726u);
}

}  // namespace
