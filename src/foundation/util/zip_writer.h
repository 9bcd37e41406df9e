#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "foundation/text/conversion.h"

namespace util {

/// Writes a gzip archive at the strongest level. Until the archive is whole it stands beside its place, under the path and ".part":
/// what bears the archive's own name is never broken, whatever happens on the way. It goes through the port like all other files:
/// sharing, permissions and a full disk are the same for it.
class zip_writer_t {
public:
    /// `make_way`, if any, runs when the archive is whole, before it takes its place, which has to be free then. Throws when the
    /// archive can't be opened.
    explicit zip_writer_t(const text::wide_string& path, std::function<void()> make_way = {});
    /// An archive that wasn't closed is given up: nothing of it stays.
    ~zip_writer_t();
    zip_writer_t(const zip_writer_t&) = delete;
    zip_writer_t& operator=(const zip_writer_t&) = delete;

    void append(std::span<const std::uint8_t> bytes);
    /// Completes the archive, forces it to stable storage and puts it in its place. Throws when one of these fails; nothing can be
    /// appended afterwards in either case.
    void close();

    /// UTF-8.
    [[nodiscard]] const std::string& path() const { return path_; }

private:
    class stream;

    const std::string path_;
    const text::wide_string place_;
    const text::wide_string part_;
    std::function<void()> make_way_;
    std::unique_ptr<stream> stream_;
    bool in_place_ = false;
};

}  // namespace util
