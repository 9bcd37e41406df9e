#pragma once

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <exception>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/exc/buffer.h"
#include "foundation/text/conversion.h"
#include "foundation/text/format_message.h"

namespace exc {

/// One record of an exception's chain. A trace record is rendered behind "--tr:".
struct message_t {
    std::string text;
    bool trace = false;
};

struct trace_event_t {
    std::int32_t event = 0;  ///< 1 to 7
    std::string info;
};

struct trace_info_t {
    std::map<std::string, std::string> parameters;
    std::vector<trace_event_t> events;

    /// Parameters that are new are added, events are appended.
    void merge(const trace_info_t& other);
};

/// Passes each sentence of a chain through one operation, for instance into another language.
class translator_t {
public:
    virtual ~translator_t() = default;
    virtual std::string translate(const std::string& text) = 0;
};

/// Root of the family: an ordered chain of sentences, the lowest layer's first. All text is UTF-8. An object belongs to one
/// thread at a time.
class exc_base_t : public std::exception {
public:
    exc_base_t();
    explicit exc_base_t(std::string_view text);

    /// The chain, one line a record, trace records behind "--tr:". Empty for an empty chain.
    [[nodiscard]] const char* what() const noexcept override { return what_text_.c_str(); }
    [[nodiscard]] virtual boost::shared_ptr<exc_base_t> clone() const;
    [[noreturn]] virtual void rethrow() const;
    /// Appends the image's records to the chain and replaces the trace information.
    virtual void load(CBufReader& reader);
    virtual void save(CBufWriter& writer) const;
    virtual void translate(translator_t& translator);

    void add_message(std::string_view text);
    void add_trace_message(std::string_view text);

    [[nodiscard]] const std::vector<message_t>& messages() const { return messages_; }
    [[nodiscard]] const std::string& plain_text() const { return plain_text_; }
    [[nodiscard]] trace_info_t& trace_info() { return trace_info_; }
    [[nodiscard]] const trace_info_t& trace_info() const { return trace_info_; }
    /// The thread that made the object; a copy keeps the original's.
    [[nodiscard]] std::uint32_t thread_id() const { return thread_id_; }

private:
    void append(message_t message);
    void render();
    void render_record(std::size_t index);

    std::vector<message_t> messages_;
    std::string what_text_;
    std::string plain_text_;
    trace_info_t trace_info_;
    std::uint32_t thread_id_ = 0;
};

class runtime_exc_t : public exc_base_t {
public:
    explicit runtime_exc_t(std::string_view text);
    template <typename... Arguments>
    requires(sizeof...(Arguments) >= 1) runtime_exc_t(std::string_view pattern, const Arguments&... arguments)
        : runtime_exc_t(text::format_message(pattern, arguments...)) {}

    [[nodiscard]] boost::shared_ptr<exc_base_t> clone() const override;
    [[noreturn]] void rethrow() const override;
    void load(CBufReader& reader) override;
    void save(CBufWriter& writer) const override;

    [[nodiscard]] std::int32_t code() const { return code_; }
    void set_code(std::int32_t code) { code_ = code; }

private:
    std::int32_t code_ = 0;
};

/// A failed system call. The chain starts with the system's own sentence for the code; the code itself is the last record,
/// a trace.
class win_sys_exc_t : public exc_base_t {
public:
    explicit win_sys_exc_t(std::uint32_t code);
    win_sys_exc_t(std::string_view text, std::uint32_t code);
    win_sys_exc_t(std::string_view pattern, std::string_view a1, std::uint32_t code);
    win_sys_exc_t(std::string_view pattern, std::string_view a1, std::string_view a2, std::uint32_t code);
    win_sys_exc_t(std::string_view pattern, std::string_view a1, std::string_view a2, std::string_view a3, std::uint32_t code);

    [[nodiscard]] boost::shared_ptr<exc_base_t> clone() const override;
    [[noreturn]] void rethrow() const override;
    void load(CBufReader& reader) override;
    void save(CBufWriter& writer) const override;

    [[nodiscard]] std::uint32_t code() const { return code_; }

private:
    std::uint32_t code_ = 0;
};

class com_exc_t : public exc_base_t {
public:
    com_exc_t(std::uint32_t hr, std::string_view text);

    [[nodiscard]] boost::shared_ptr<exc_base_t> clone() const override;
    [[noreturn]] void rethrow() const override;
    void load(CBufReader& reader) override;
    void save(CBufWriter& writer) const override;

    [[nodiscard]] std::uint32_t hr() const { return hr_; }

private:
    std::uint32_t hr_ = 0;
};

/// A failed system call of a device operation, with a ready-made `<Error>` record. Reads the last error before anything
/// else and leaves it pending, so that a second object can be made for the same failure. `clone` and `rethrow` are the base's:
/// they lose the record.
class xml_type_exc_t : public exc_base_t {
public:
    xml_type_exc_t(std::string_view api_name, std::string_view service_message);
    [[nodiscard]] std::string xml() const { return xml_; }

private:
    xml_type_exc_t(std::string_view api_name, std::string_view service_message, std::uint32_t code);

    std::string xml_;
};

/// `rethrow` is the base's: it loses the type.
class file_locked_exc_t : public exc_base_t {
public:
    explicit file_locked_exc_t(std::string_view path);
    [[nodiscard]] boost::shared_ptr<exc_base_t> clone() const override;
    [[nodiscard]] const std::string& path() const { return path_; }

private:
    std::string path_;
};

/// Thrown to leave a dispatch loop; carries nothing.
struct term_exc_t {};

/// The system's sentence for an error number, UTF-8, with one line end cut off.
[[nodiscard]] std::string win_error_text(std::uint32_t code);
/// The pending COM error object's description, then " Error code: " and the number.
[[nodiscard]] std::string com_error_text(std::uint32_t hr);
/// "with error " and the system's sentence; empty for 0. The form in which device messages name a code.
[[nodiscard]] std::string with_error_text(std::uint32_t code);
/// The calling thread's last error.
[[nodiscard]] std::uint32_t last_error();

/// Adding a sentence to the exception in flight, from a catch block; none of these returns. An exception of the family keeps
/// its type and thread; any other becomes a `runtime_exc_t`.
[[noreturn]] void rethrow_with(const message_t& message, const trace_info_t& info, std::exception& e);
[[noreturn]] void rethrow_with_trace_text(const std::string& text, std::exception& e);
[[noreturn]] void rethrow_with_message_text(const std::string& text, std::exception& e);

[[noreturn]] inline void rethrow_with_trace(std::string_view text, std::exception& e) {
    rethrow_with_trace_text(std::string(text), e);
}
[[noreturn]] inline void rethrow_with_trace(std::string_view pattern, std::string_view a1, std::exception& e) {
    rethrow_with_trace_text(text::format_message(pattern, a1), e);
}
[[noreturn]] inline void rethrow_with_trace(std::string_view pattern, std::string_view a1, std::string_view a2, std::exception& e) {
    rethrow_with_trace_text(text::format_message(pattern, a1, a2), e);
}
[[noreturn]] inline void rethrow_with_trace(std::string_view pattern, std::string_view a1, std::string_view a2, std::string_view a3,
                                            std::exception& e) {
    rethrow_with_trace_text(text::format_message(pattern, a1, a2, a3), e);
}
[[noreturn]] inline void rethrow_with_trace(std::string_view pattern, std::string_view a1, std::string_view a2, std::string_view a3,
                                            std::string_view a4, std::exception& e) {
    rethrow_with_trace_text(text::format_message(pattern, a1, a2, a3, a4), e);
}
[[noreturn]] inline void rethrow_with_message(std::string_view text, std::exception& e) {
    rethrow_with_message_text(std::string(text), e);
}
[[noreturn]] inline void rethrow_with_message(std::string_view pattern, std::string_view a1, std::exception& e) {
    rethrow_with_message_text(text::format_message(pattern, a1), e);
}
[[noreturn]] inline void rethrow_with_message(std::string_view pattern, std::string_view a1, std::string_view a2,
                                              std::exception& e) {
    rethrow_with_message_text(text::format_message(pattern, a1, a2), e);
}

/// The exception as a shared object for another thread.
[[nodiscard]] boost::shared_ptr<exc_base_t> clone_current(const std::exception& e);

/// Checked indexing of the library's arrays; throws `runtime_exc_t`.
void check_array_bound(std::size_t index, std::size_t size);
/// A 32-bit number that must fit 16 bits; throws `runtime_exc_t`.
[[nodiscard]] std::uint16_t narrow_to_u16(std::uint32_t value);

}  // namespace exc
