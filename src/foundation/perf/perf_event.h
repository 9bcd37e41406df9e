#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

namespace perf {

/// What a performance event tells of a file. The numbers are those of the record. A write has no end of its own, and neither the
/// end of a failed operation is told.
enum class file_event : std::uint32_t {
    seek_start = 257,   ///< distance, seek method
    seek_end = 258,     ///< position
    read_start = 259,   ///< position, bytes asked for
    read_end = 260,     ///< bytes read
    write_start = 261,  ///< position, bytes
    flush_start = 263,
    flush_end = 264,
    truncate_start = 265,  ///< size asked for
    truncate_end = 266,    ///< size
    close_start = 517,
    close_end = 518
};

/// What an event is about.
class CPerfEventArgBase {
public:
    virtual ~CPerfEventArgBase() = default;

    /// Appends the fields to a record's line, a tab before each.
    virtual void append_to(std::string& line) const = 0;

protected:
    CPerfEventArgBase() = default;
    CPerfEventArgBase(const CPerfEventArgBase&) = default;
    CPerfEventArgBase& operator=(const CPerfEventArgBase&) = default;
};

/// An open file, by the number that the system has for it, and up to two values.
class CPerfEventArg final : public CPerfEventArgBase {
public:
    explicit CPerfEventArg(std::uint64_t handle) : fields_{handle}, count_(1) {}
    CPerfEventArg(std::uint64_t handle, std::uint64_t first) : fields_{handle, first}, count_(2) {}
    CPerfEventArg(std::uint64_t handle, std::uint64_t first, std::uint64_t second) : fields_{handle, first, second}, count_(3) {}

    void append_to(std::string& line) const override;
    [[nodiscard]] std::uint64_t handle() const { return fields_[0]; }
    [[nodiscard]] std::span<const std::uint64_t> values() const { return std::span(fields_).subspan(1, count_ - 1); }

private:
    std::array<std::uint64_t, 3> fields_{};
    std::size_t count_;
};

}  // namespace perf
