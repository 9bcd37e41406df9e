#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/winxml/record_stream.h"
#include "foundation/winxml/xml.h"

/// The arguments of one call: children of `InputArguments`, each with its value in the attribute `value`. Lives for one
/// call on one thread. Every getter throws when the argument is missing or malformed; `find` is for optional ones.
class CInputArguments {
public:
    /// Throws what the parser throws.
    explicit CInputArguments(std::u16string_view text);

    [[nodiscard]] std::u16string get_wstring_argument(std::string_view name) const;
    [[nodiscard]] std::string get_string_argument(std::string_view name) const;  ///< UTF-8
    [[nodiscard]] std::int32_t get_int_argument(std::string_view name) const;
    [[nodiscard]] bool get_bool_argument(std::string_view name) const;
    [[nodiscard]] std::uint64_t get_uint64_argument(std::string_view name) const;
    /// The argument's element; absent when the caller left it out.
    [[nodiscard]] winxml::node_t find_argument(std::string_view name) const;

private:
    winxml::document_t document_;
};

/// The results of one call: children of `OutputArguments` in the order of writing. The same name written twice makes two
/// elements. Lives for one call on one thread.
class COutputArguments {
public:
    COutputArguments();

    void Set(std::string_view name, std::u16string_view value);
    /// UTF-8; throws when it isn't.
    void Set(std::string_view name, std::string_view value);
    void Set(std::string_view name, const char16_t* value) { Set(name, std::u16string_view(value)); }
    void Set(std::string_view name, const char* value) { Set(name, std::string_view(value)); }
    void Set(std::string_view name, std::int32_t value);
    void Set(std::string_view name, bool value);

    /// Sets a text that may hold device bytes: what isn't UTF-8 arrives as U+FFFD, so that one bad label doesn't cost the
    /// caller the whole inventory.
    void SetDeviceText(std::string_view name, std::string_view text);
    /// Sets a record document as such a text.
    void SetRecord(std::string_view name, const winxml::document_t& record);
    /// The same for a long list, made by a stream of the form `winxml::record_form::attribute_value`.
    void SetRecord(std::string_view name, winxml::record_stream_t&& record);

    /// Adds an empty child, for results with structure.
    [[nodiscard]] winxml::node_t AddElement(std::string_view name);

    /// The whole output as it goes out. The streams are used up: their memory is given back on the way.
    [[nodiscard]] std::u16string TakeText();

private:
    /// A stream takes the place of one child, which stands empty in the document.
    struct streamed_child {
        std::size_t position = 0;
        std::string name;
        winxml::record_stream_t record;
    };

    winxml::node_t add_child(std::string_view name);
    [[nodiscard]] std::u16string take_text_with_streams();

    winxml::document_t document_;
    winxml::node_t root_;
    std::size_t children_ = 0;
    std::vector<streamed_child> streams_;
};

/// A job's lock, for the list form of results: backup console, job name.
using job_lock_set = std::set<std::pair<std::u16string, std::u16string>>;

/// Writes one `item` for each entry, in order.
void WriteJobList(const winxml::node_t& parent, const job_lock_set& jobs);
