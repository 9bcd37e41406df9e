#include "foundation/util/zip_writer.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <limits>

#include "foundation/exc/exceptions.h"
#include "foundation/win/paths.h"
#include "foundation/win/win_file.h"

namespace util {

namespace {

constexpr int level = 9;
constexpr int window_bits = 15;
constexpr int with_gzip_header = 16;  ///< added to the bits of the window
constexpr int memory_level = 8;
constexpr std::size_t output_size = 65536;

std::string text_of(const z_stream& state, int result) {
    return state.msg != nullptr ? state.msg : zError(result);
}

}  // namespace

/// The compressor and the file that its output goes to.
class zip_writer_t::stream {
public:
    explicit stream(const text::wide_string& path) : file_(win::win_file_t::open(path, platform::file_open_mode::create_always)) {
        const int result =
            deflateInit2(&state_, level, Z_DEFLATED, window_bits + with_gzip_header, memory_level, Z_DEFAULT_STRATEGY);
        if (result != Z_OK) {
            throw exc::runtime_exc_t(text_of(state_, result));
        }
    }
    ~stream() { deflateEnd(&state_); }
    stream(const stream&) = delete;
    stream& operator=(const stream&) = delete;

    void add(std::span<const std::uint8_t> bytes) {
        while (!bytes.empty()) {
            const std::size_t turn = std::min<std::size_t>(bytes.size(), std::numeric_limits<uInt>::max());
            state_.next_in = const_cast<Bytef*>(bytes.data());  // zlib only reads it
            state_.avail_in = static_cast<uInt>(turn);
            while (state_.avail_in != 0) {
                run(Z_NO_FLUSH);
            }
            bytes = bytes.subspan(turn);
        }
    }

    void finish() {
        while (run(Z_FINISH) != Z_STREAM_END) {
        }
        file_.flush();
    }

private:
    int run(int mode) {
        state_.next_out = output_.data();
        state_.avail_out = static_cast<uInt>(output_.size());
        const int result = deflate(&state_, mode);
        if (result != Z_OK && result != Z_STREAM_END) {
            throw exc::runtime_exc_t(text_of(state_, result));
        }
        file_.write(std::span<const std::uint8_t>(output_.data(), output_.size() - state_.avail_out));
        return result;
    }

    z_stream state_{};
    std::array<Bytef, output_size> output_{};
    win::win_file_t file_;
};

zip_writer_t::zip_writer_t(const text::wide_string& path, std::function<void()> make_way)
    : path_(text::wide_to_utf8(path)), place_(path), part_(path + u".part"), make_way_(std::move(make_way)) {
    try {
        stream_ = std::make_unique<stream>(part_);
    } catch (std::exception& e) {
        exc::rethrow_with_message("Failed to open GZ archive [%1].", path_, e);
    }
}

zip_writer_t::~zip_writer_t() {
    if (in_place_) {
        return;
    }
    stream_.reset();
    try {
        win::delete_file(part_);
    } catch (const std::exception&) {
        // The next archive of this name takes its place.
        return;
    }
}

void zip_writer_t::append(std::span<const std::uint8_t> bytes) {
    try {
        if (stream_ == nullptr) {
            throw exc::runtime_exc_t(zError(Z_STREAM_ERROR));
        }
        stream_->add(bytes);
    } catch (std::exception& e) {
        exc::rethrow_with_message("Cannot add data to the GZ archive [%1].", path_, e);
    }
}

void zip_writer_t::close() {
    try {
        const std::unique_ptr<stream> finished = std::move(stream_);
        if (finished == nullptr) {
            throw exc::runtime_exc_t("Error code: %1", text::to_string(std::int32_t{Z_STREAM_ERROR}));
        }
        try {
            finished->finish();
        } catch (std::exception& e) {
            exc::rethrow_with_message("Error code: %1", text::to_string(std::int32_t{Z_ERRNO}), e);
        }
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Cannot close GZ archive [%1].", path_, e);
    }
    if (make_way_) {
        make_way_();
    }
    try {
        win::move_file_durably(part_, place_);
        in_place_ = true;
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Cannot close GZ archive [%1].", path_, e);
    }
}

}  // namespace util
