#include "foundation/exc/buffer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/exc/exceptions.h"
#include "platform/testing/fakes.h"
#include "support/failure_text.h"

namespace {

using test_support::failure_of;
using bytes_t = std::vector<std::uint8_t>;

constexpr std::size_t mebibyte = 1024 * 1024;

class BinaryImage : public ::testing::Test {
protected:
    platform::testing::test_system system_;
};

TEST_F(BinaryImage, HasTheLayoutOfItsRecords) {
    exc::runtime_exc_t e("ab");
    e.add_trace_message("c");
    e.trace_info().parameters = {{"k", "v"}};
    e.trace_info().events = {{7, "i"}};
    e.set_code(-2);
    bytes_t bytes;
    exc::CBufWriter writer(bytes);
    e.save(writer);
    const bytes_t expected{2,    0,    0,    0,   2, 0, 0, 0, 'a', 'b', 0, 1, 0,   0,   0, 'c', 1,  // records
                           1,    0,    0,    0,   1, 0, 0, 0, 'k', 1,   0, 0, 0,   'v',             // parameters
                           1,    0,    0,    0,   7, 0, 0, 0, 1,   0,   0, 0, 'i',                  // events
                           0xFE, 0xFF, 0xFF, 0xFF};                                                 // code
    ASSERT_EQ(writer.cursor(), expected.size());
    EXPECT_EQ(bytes_t(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(expected.size())), expected);
}

TEST_F(BinaryImage, SurvivesSavingAndLoading) {
    exc::win_sys_exc_t e("Sentence.", 5);
    e.add_trace_message("");
    bytes_t bytes;
    exc::CBufWriter writer(bytes);
    e.save(writer);
    exc::CBufReader reader(&bytes);
    exc::win_sys_exc_t loaded(0);
    const std::string before = loaded.what();
    loaded.load(reader);
    EXPECT_EQ(loaded.what(), before + "\n" + e.what());
    EXPECT_EQ(loaded.code(), 5U);

    exc::CBufReader again(&bytes);
    exc::exc_base_t plain;
    plain.load(again);
    EXPECT_STREQ(plain.what(), e.what());
    EXPECT_EQ(plain.plain_text(), e.plain_text());

    exc::com_exc_t com(0x80004005U, "a");
    bytes_t com_bytes;
    exc::CBufWriter com_writer(com_bytes);
    com.save(com_writer);
    exc::CBufReader com_reader(&com_bytes);
    exc::com_exc_t com_loaded(0, "b");
    com_loaded.load(com_reader);
    EXPECT_EQ(com_loaded.hr(), 0x80004005U);
}

TEST_F(BinaryImage, LoadingReplacesTraceInformationAndDropsUnknownEvents) {
    exc::exc_base_t source("a");
    source.trace_info().events = {{0, "below"}, {1, "first"}, {7, "last"}, {8, "above"}};
    bytes_t bytes;
    exc::CBufWriter writer(bytes);
    source.save(writer);
    exc::exc_base_t target;
    target.trace_info().parameters = {{"k", "v"}};
    exc::CBufReader reader(&bytes);
    target.load(reader);
    EXPECT_TRUE(target.trace_info().parameters.empty());
    ASSERT_EQ(target.trace_info().events.size(), 2U);
    EXPECT_EQ(target.trace_info().events[0].event, 1);
    EXPECT_EQ(target.trace_info().events[1].event, 7);
    EXPECT_THAT(system_.log.lines(), ::testing::ElementsAre("WARN|Unexpected trace event: [0]. Info: below.",
                                                            "WARN|Unexpected trace event: [8]. Info: above."));
}

TEST_F(BinaryImage, GrowsByWholeMebibytes) {
    bytes_t bytes;
    exc::CBufWriter writer(bytes);
    writer.write_bool(true);
    EXPECT_EQ(bytes.size(), mebibyte);
    writer.write_string(std::string(mebibyte - 5, 'x'));
    EXPECT_EQ(writer.cursor(), mebibyte);
    EXPECT_EQ(bytes.size(), mebibyte);
    writer.write_bool(false);
    EXPECT_EQ(bytes.size(), 2 * mebibyte);
}

TEST_F(BinaryImage, ReadingReportsWhatIsMissing) {
    exc::CBufReader none(nullptr);
    EXPECT_EQ(failure_of([&] { (void)none.read_int32(); }),
              "CBufReader buffer not initialized.\n--tr:Failed to extract integer value from buffer.");

    const bytes_t two{1, 0};
    exc::CBufReader reader(&two);
    EXPECT_TRUE(reader.read_bool());
    EXPECT_FALSE(reader.read_bool());
    EXPECT_EQ(failure_of([&] { (void)reader.read_bool(); }),
              "Out of the buffer, buffer size '2', struct size '1', buffer pointer '2'.\n"
              "--tr:Failed to extract boolean value from buffer.");
    exc::CBufReader from_start(&two);
    EXPECT_EQ(failure_of([&] { (void)from_start.read_int32(); }),
              "Out of the buffer, buffer size '2', struct size '4', buffer pointer '0'.\n"
              "--tr:Failed to extract integer value from buffer.");
}

TEST_F(BinaryImage, ReadingATextChecksItsLength) {
    const bytes_t cut{3, 0, 0, 0, 'a', 'b'};
    exc::CBufReader reader(&cut);
    EXPECT_EQ(failure_of([&] { (void)reader.read_string(); }),
              "Out of the buffer, buffer size '6', struct size '3', buffer pointer '4'.\n"
              "--tr:Failed to extract multi-byte string from buffer .");
    exc::CBufReader limited(&cut, 2);
    EXPECT_EQ(failure_of([&] { (void)limited.read_string(); }), "Invalid length of the string '3'.");
    const bytes_t negative{0xFF, 0xFF, 0xFF, 0xFF};
    exc::CBufReader below(&negative);
    EXPECT_EQ(failure_of([&] { (void)below.read_string(); }), "Invalid length of the string '-1'.");
    const bytes_t short_length{1};
    exc::CBufReader no_length(&short_length);
    EXPECT_EQ(failure_of([&] { (void)no_length.read_string(); }),
              "Out of the buffer, buffer size '1', struct size '4', buffer pointer '0'.\n"
              "--tr:Failed to extract integer value from buffer.\n--tr:Failed to extract multi-byte string from buffer .");
}

TEST_F(BinaryImage, TextsEndAtTheirFirstZeroByte) {
    const bytes_t bytes{3, 0, 0, 0, 'a', 0, 'b', 9};
    exc::CBufReader reader(&bytes);
    EXPECT_EQ(reader.read_string(), "a");
    EXPECT_TRUE(reader.read_bool());
    const bytes_t empty{0, 0, 0, 0};
    exc::CBufReader nothing(&empty);
    EXPECT_EQ(nothing.read_string(), "");
}

}  // namespace
