#include "platform/linux/rpc/verification_trailer.h"

#include <gtest/gtest.h>

#include <string>

#include "rpc/support/raw_pdu.h"

namespace {

using namespace platform::linux_rpc;
using namespace rpc_test;

constexpr unsigned end = 0x4000;
constexpr unsigned must_be_known = 0x8000;

/// A request whose client signs headers, called in the byte order that the tests are told.
verified_request expected(bool little = true) {
    verified_request request;
    request.header_signing = true;
    request.little_endian = little;
    request.call_id = 0x01020304;
    request.context_id = 5;
    request.operation = 6;
    request.interface = {uuid_from_text(test_interface), 1, 2};
    return request;
}

class trailer_writer {
public:
    explicit trailer_writer(std::size_t stub_size, bool little = true) : out_(little) {
        out_.data = bytes(stub_size, 0xEE);
        out_.zeros((4 - stub_size % 4) % 4);
        out_.raw(bytes{0x8A, 0xE3, 0x13, 0x71, 0x02, 0xF4, 0x36, 0x71});
    }
    trailer_writer& bitmask(unsigned more, std::uint32_t bits) {
        out_.u16(1 | more).u16(4).u32(bits);
        return *this;
    }
    trailer_writer& contexts(unsigned more, const std::string& interface = test_interface, std::uint32_t version = 1 | 2 << 16,
                             const std::string& syntax = ndr_syntax, std::uint32_t syntax_version = 2) {
        out_.u16(2 | more).u16(40).uuid(interface).u32(version).uuid(syntax).u32(syntax_version);
        return *this;
    }
    trailer_writer& header(unsigned more, unsigned type = 0, unsigned integers = 0x10, std::uint32_t call_id = 0x01020304,
                           unsigned context = 5, unsigned operation = 6) {
        out_.u16(3 | more).u16(16).u8(type).zeros(3).u8(integers).zeros(3).u32(call_id).u16(context).u16(operation);
        return *this;
    }
    trailer_writer& other(unsigned command, std::size_t size) {
        out_.u16(command).u16(static_cast<unsigned>(size)).zeros(size);
        return *this;
    }
    [[nodiscard]] const bytes& data() const { return out_.data; }

private:
    raw_writer out_;
};

trailer_verdict verdict_of(const trailer_writer& written, const verified_request& request = expected()) {
    return check_verification_trailer(written.data(), request).verdict;
}

TEST(VerificationTrailerTest, StubDataWithoutOneIsLeftAlone) {
    for (const std::size_t size : {0, 1, 7, 8, 9, 5000}) {
        const trailer_finding found = check_verification_trailer(bytes(size, 0x8A), expected());
        EXPECT_EQ(found.verdict, trailer_verdict::absent);
        EXPECT_EQ(found.stub_size, size);
    }
}

TEST(VerificationTrailerTest, OneThatAgreesIsCutOff) {
    for (const std::size_t size : {0, 3, 16, 5001}) {
        const bytes stub = trailer_writer(size).bitmask(0, 1).contexts(0).header(end | must_be_known).data();
        const trailer_finding found = check_verification_trailer(stub, expected());
        EXPECT_EQ(found.verdict, trailer_verdict::agrees) << size;
        EXPECT_EQ(found.stub_size, (size + 3) / 4 * 4) << size;
    }
}

TEST(VerificationTrailerTest, NumbersFollowTheRequestsByteOrder) {
    const trailer_writer big = trailer_writer(4, false).bitmask(0, 1).contexts(0).header(end, 0, 0);
    EXPECT_EQ(verdict_of(big, expected(false)), trailer_verdict::agrees);
    EXPECT_EQ(verdict_of(big, expected(true)), trailer_verdict::wrong);
}

TEST(VerificationTrailerTest, AClientThatSignsHeadersIsBelievedOnlyWhenThatWasAgreed) {
    verified_request without = expected();
    without.header_signing = false;
    EXPECT_EQ(verdict_of(trailer_writer(4).bitmask(end, 1), without), trailer_verdict::wrong);
    EXPECT_EQ(verdict_of(trailer_writer(4).bitmask(end, 0xFFFFFFFE), without), trailer_verdict::agrees);
    EXPECT_EQ(verdict_of(trailer_writer(4).bitmask(end, 0)), trailer_verdict::agrees);
}

TEST(VerificationTrailerTest, ContextsHaveToBeThoseOfTheCall) {
    const std::string other = "00000000-1111-2222-3333-444444444444";
    EXPECT_EQ(verdict_of(trailer_writer(4).contexts(end, test_interface, 1)), trailer_verdict::agrees) << "an older minor version";
    EXPECT_EQ(verdict_of(trailer_writer(4).contexts(end, other)), trailer_verdict::wrong);
    EXPECT_EQ(verdict_of(trailer_writer(4).contexts(end, test_interface, 2)), trailer_verdict::wrong);
    EXPECT_EQ(verdict_of(trailer_writer(4).contexts(end, test_interface, 1 | 3 << 16)), trailer_verdict::wrong);
    EXPECT_EQ(verdict_of(trailer_writer(4).contexts(end, test_interface, 1, other)), trailer_verdict::wrong);
    EXPECT_EQ(verdict_of(trailer_writer(4).contexts(end, test_interface, 1, ndr_syntax, 1)), trailer_verdict::wrong);
}

TEST(VerificationTrailerTest, EveryFieldOfTheHeaderHasToAgree) {
    EXPECT_EQ(verdict_of(trailer_writer(4).header(end, 2)), trailer_verdict::wrong);
    EXPECT_EQ(verdict_of(trailer_writer(4).header(end, 0, 0)), trailer_verdict::wrong);
    EXPECT_EQ(verdict_of(trailer_writer(4).header(end, 0, 0x10, 7)), trailer_verdict::wrong);
    EXPECT_EQ(verdict_of(trailer_writer(4).header(end, 0, 0x10, 0x01020304, 6)), trailer_verdict::wrong);
    EXPECT_EQ(verdict_of(trailer_writer(4).header(end, 0, 0x10, 0x01020304, 5, 7)), trailer_verdict::wrong);
}

TEST(VerificationTrailerTest, OneWrongCommandAmongRightOnesIsEnough) {
    EXPECT_EQ(verdict_of(trailer_writer(4).bitmask(0, 1).header(0, 2).contexts(end)), trailer_verdict::wrong);
}

TEST(VerificationTrailerTest, UnknownCommandsArePassedOverUnlessTheyMustBeKnown) {
    EXPECT_EQ(verdict_of(trailer_writer(4).other(9, 7).bitmask(end, 1)), trailer_verdict::agrees);
    EXPECT_EQ(verdict_of(trailer_writer(4).other(9 | must_be_known, 7).bitmask(end, 1)), trailer_verdict::wrong);
}

TEST(VerificationTrailerTest, MalformedOnesAreWrong) {
    EXPECT_EQ(verdict_of(trailer_writer(4)), trailer_verdict::wrong) << "no command";
    EXPECT_EQ(verdict_of(trailer_writer(4).bitmask(0, 1)), trailer_verdict::wrong) << "no end";
    EXPECT_EQ(verdict_of(trailer_writer(4).other(1 | end, 3)), trailer_verdict::wrong) << "short value";
    EXPECT_EQ(verdict_of(trailer_writer(4).other(2 | end, 44)), trailer_verdict::wrong) << "long value";
    const bytes whole = trailer_writer(4).bitmask(0, 1).contexts(0).header(end).data();
    for (std::size_t size = 12; size < whole.size(); ++size) {
        EXPECT_EQ(check_verification_trailer(std::span(whole).first(size), expected()).verdict, trailer_verdict::wrong) << size;
    }
    bytes more = whole;
    more.push_back(0);
    EXPECT_EQ(check_verification_trailer(more, expected()).verdict, trailer_verdict::wrong) << "something behind the end";
}

TEST(VerificationTrailerTest, OnlyTheEndOfTheStubDataIsLookedAt) {
    bytes stub = trailer_writer(4).bitmask(0, 1).header(end, 2).data();
    stub.resize(stub.size() + 2000);
    EXPECT_EQ(check_verification_trailer(stub, expected()).verdict, trailer_verdict::absent);
    EXPECT_EQ(check_verification_trailer(std::span(stub).subspan(1, 80), expected()).verdict, trailer_verdict::absent)
        << "not at a multiple of 4";
}

}  // namespace
