#include <thread>

#include "platform/conformance/implementations.h"
#include "platform/overlapped_file.h"

namespace {

using namespace platform;

constexpr std::uint32_t read_write = file_access::read | file_access::write;
constexpr std::uint32_t share_all = file_share::read | file_share::write;

template <typename Implementation>
class OverlappedConformance : public conformance::suite<Implementation> {
protected:
    OverlappedConformance() { EXPECT_EQ(events_().create_event(event_reset::automatic, done_), 0U); }
    ~OverlappedConformance() override { EXPECT_EQ(events_().close(done_), 0U); }

    files& under_test() { return this->under_test_.files; }
    std::u16string path(const std::u16string& name) { return this->under_test_.folder + under_test().separator() + name; }

    std::unique_ptr<overlapped_file> open(std::uint32_t access = read_write) {
        std::unique_ptr<overlapped_file> opened;
        EXPECT_EQ(under_test().open_overlapped(path(u"a"), access, share_all, file_open_mode::open_always, opened), 0U);
        return opened;
    }

    static std::uint32_t read(overlapped_file& from, std::uint64_t offset, std::size_t size, std::string& text) {
        std::vector<std::uint8_t> data(size, '?');
        std::unique_ptr<file_operation> begun;
        std::size_t count = 99;
        const std::uint32_t outcome = finish(from.begin_read(offset, data, begun), begun, count);
        text.assign(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(std::min(count, size)));
        return outcome;
    }
    static std::string read(overlapped_file& from, std::uint64_t offset, std::size_t size) {
        std::string text;
        EXPECT_EQ(read(from, offset, size, text), 0U);
        return text;
    }
    std::uint32_t write_result(overlapped_file& to, std::uint64_t offset, std::string_view text, std::size_t& count) {
        std::unique_ptr<file_operation> begun;
        return finish(to.begin_write(offset, {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}, done_, begun),
                      begun, count);
    }
    void write(overlapped_file& to, std::uint64_t offset, std::string_view text) {
        std::size_t count = 99;
        EXPECT_EQ(write_result(to, offset, text, count), 0U);
        EXPECT_EQ(count, text.size());
    }
    static std::uint64_t size(file& of) {
        std::uint64_t bytes = 0;
        EXPECT_EQ(of.size(bytes), 0U);
        return bytes;
    }

    static bool has_begun(std::uint32_t answer) { return answer == error::success || answer == error::io_pending; }

    wait_handle done_ = no_wait_object;

private:
    events& events_() { return this->under_test_.events; }

    /// What has begun is given out, whether it is under way or not; what hasn't is a failure.
    static std::uint32_t finish(std::uint32_t answer, const std::unique_ptr<file_operation>& begun, std::size_t& count) {
        EXPECT_EQ(begun != nullptr, has_begun(answer));
        return has_begun(answer) ? begun->wait(count) : answer;
    }
};

/// The fakes with every operation under way until it is waited for.
struct pending_fakes : conformance::fakes {
    static constexpr const char* name = "PendingFakes";

    pending_fakes() { files.set_pending(true); }
};

using implementations = ::testing::Types<conformance::fakes, pending_fakes, conformance::linux_machine>;

TYPED_TEST_SUITE(OverlappedConformance, implementations, conformance::implementation_names);

TYPED_TEST(OverlappedConformance, ReadsAndWritesWhereItIsTold) {
    const std::unique_ptr<overlapped_file> opened = this->open();
    this->write(*opened, 0, "0123456789");
    EXPECT_EQ(this->read(*opened, 4, 3), "456");
    this->write(*opened, 2, "xy");
    EXPECT_EQ(this->read(*opened, 0, 10), "01xy456789");
    EXPECT_EQ(this->read(*opened, 8, 10), "89");
    EXPECT_EQ(this->read(*opened, 0, 0), "");
    this->write(*opened, 3, "");
    EXPECT_EQ(this->size(*opened), 10U);
}

TYPED_TEST(OverlappedConformance, ReadsNothingAtTheEndAndBehindIt) {
    const std::unique_ptr<overlapped_file> opened = this->open();
    this->write(*opened, 0, "ab");
    EXPECT_EQ(this->read(*opened, 2, 5), "");
    EXPECT_EQ(this->read(*opened, 1000, 5), "");
}

TYPED_TEST(OverlappedConformance, FillsAGapWithZeros) {
    const std::unique_ptr<overlapped_file> opened = this->open();
    this->write(*opened, 3, "d");
    EXPECT_EQ(this->read(*opened, 0, 10), std::string("\0\0\0d", 4));
}

TYPED_TEST(OverlappedConformance, RefusesAPlaceThatNoFileHas) {
    const std::unique_ptr<overlapped_file> opened = this->open();
    std::string text;
    std::size_t count = 0;
    EXPECT_EQ(this->read(*opened, std::uint64_t{1} << 63, 1, text), error::invalid_parameter);
    EXPECT_EQ(this->write_result(*opened, std::uint64_t{1} << 63, "x", count), error::invalid_parameter);
    EXPECT_EQ(this->write_result(*opened, (std::uint64_t{1} << 63) - 1, "x", count), error::invalid_parameter);
    EXPECT_EQ(this->size(*opened), 0U);
}

TYPED_TEST(OverlappedConformance, HasNoReadingAndWritingAtAPosition) {
    const std::unique_ptr<overlapped_file> opened = this->open();
    std::vector<std::uint8_t> data(4);
    std::size_t count = 99;
    EXPECT_EQ(opened->read(data, count), error::invalid_parameter);
    EXPECT_EQ(count, 0U);
    count = 99;
    EXPECT_EQ(opened->write(data, count), error::invalid_parameter);
    EXPECT_EQ(count, 0U);
}

TYPED_TEST(OverlappedConformance, CutsFillsAndFlushesLikeAnyFile) {
    const std::unique_ptr<overlapped_file> opened = this->open();
    this->write(*opened, 0, "0123456789");
    EXPECT_EQ(opened->seek(4), 0U);
    EXPECT_EQ(opened->truncate_here(), 0U);
    EXPECT_EQ(this->read(*opened, 0, 10), "0123");
    EXPECT_EQ(opened->seek(6), 0U);
    EXPECT_EQ(opened->truncate_here(), 0U);
    EXPECT_EQ(this->read(*opened, 0, 10), std::string("0123\0\0", 6));
    EXPECT_EQ(opened->flush(), 0U);
}

TYPED_TEST(OverlappedConformance, KeepsToTheAccessThatWasAskedFor) {
    this->write(*this->open(), 0, "content");
    std::size_t count = 0;
    std::string text;
    EXPECT_EQ(this->write_result(*this->open(file_access::read), 0, "x", count), error::access_denied);
    EXPECT_EQ(this->read(*this->open(file_access::write), 0, 1, text), error::access_denied);
    EXPECT_EQ(this->read(*this->open(file_access::read), 0, 10), "content");
}

TYPED_TEST(OverlappedConformance, OpensAndSharesLikeAnyFile) {
    std::unique_ptr<overlapped_file> opened;
    const auto result = [&](std::uint32_t share, file_open_mode mode) {
        return this->under_test().open_overlapped(this->path(u"a"), read_write, share, mode, opened);
    };
    EXPECT_EQ(result(share_all, file_open_mode::open_existing), error::file_not_found);
    EXPECT_EQ(opened, nullptr);
    EXPECT_EQ(result(share_all, file_open_mode::create_new), 0U);
    std::unique_ptr<file> other;
    EXPECT_EQ(this->under_test().open_file(this->path(u"a"), read_write, file_share::none, file_open_mode::open_always, other),
              error::sharing_violation);
    opened.reset();
    EXPECT_EQ(this->under_test().open_file(this->path(u"a"), read_write, file_share::none, file_open_mode::open_always, other), 0U);
    EXPECT_EQ(result(share_all, file_open_mode::open_existing), error::sharing_violation);
}

TYPED_TEST(OverlappedConformance, AppendsNothing) {
    std::unique_ptr<overlapped_file> opened;
    EXPECT_EQ(this->under_test().open_overlapped(this->path(u"a"), read_write | file_access::append, share_all,
                                                 file_open_mode::open_always, opened),
              error::invalid_parameter);
    EXPECT_EQ(opened, nullptr);
    EXPECT_FALSE(this->under_test().exists(this->path(u"a")));
}

TYPED_TEST(OverlappedConformance, SeveralReadsAreUnderWayAtOnce) {
    const std::unique_ptr<overlapped_file> opened = this->open();
    this->write(*opened, 0, "0123456789");
    std::vector<std::string> parts(5);
    {
        std::vector<std::jthread> readers;
        for (std::size_t i = 0; i < parts.size(); ++i) {
            readers.emplace_back([&, i] { parts[i] = this->read(*opened, 2 * i, 2); });
        }
    }
    EXPECT_EQ(parts, (std::vector<std::string>{"01", "23", "45", "67", "89"}));
    std::vector<std::uint8_t> first(2);
    std::vector<std::uint8_t> second(2);
    std::unique_ptr<file_operation> one;
    std::unique_ptr<file_operation> other;
    EXPECT_TRUE(this->has_begun(opened->begin_read(0, first, one)));
    EXPECT_TRUE(this->has_begun(opened->begin_read(8, second, other)));
    std::size_t count = 0;
    EXPECT_EQ(other->wait(count), 0U);
    EXPECT_EQ(second, (std::vector<std::uint8_t>{'8', '9'}));
    EXPECT_EQ(one->wait(count), 0U);
    EXPECT_EQ(first, (std::vector<std::uint8_t>{'0', '1'}));
}

TYPED_TEST(OverlappedConformance, AnOperationThatNobodyWaitsForEndsWithItsObject) {
    const std::unique_ptr<overlapped_file> opened = this->open();
    this->write(*opened, 0, "0123456789");
    {
        std::vector<std::uint8_t> data(4);
        std::unique_ptr<file_operation> begun;
        EXPECT_TRUE(this->has_begun(opened->begin_read(0, data, begun)));
        begun.reset();
    }
    EXPECT_EQ(this->read(*opened, 0, 10), "0123456789");
}

}  // namespace
