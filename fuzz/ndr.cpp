// Stub data of the interface's procedures: any bytes as a request, in both byte orders, and any text there and back.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/interface_codec.h"
#include "support/stub_builder.h"

namespace {

using bytes = std::vector<std::uint8_t>;

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

/// Decodes bytes as each procedure's request. What comes out lies within them.
void decode(const bytes& stub, bool little_endian, bool second_text, bool block) {
    try {
        interface_codec::request_reader reader(stub, little_endian);
        const interface_codec::request_text first = reader.read_string();
        require(first.all().size() < stub.size() && first.c_str()[first.all().size()] == u'\0');
        if (second_text) {
            const interface_codec::request_text second = reader.read_string();
            require(first.all().size() + second.all().size() < stub.size() && second.c_str()[second.all().size()] == u'\0');
        }
        if (block) {
            const std::uint32_t size = reader.read_long();
            const std::span<const std::uint8_t> taken = reader.read_bytes(size);
            require(taken.size() == size && size < stub.size());
            require(bytes(taken.begin(), taken.end()).size() == size);
        }
    } catch (const interface_codec::bad_stub_data&) {
        return;
    }
}

/// A text reaches the procedure as the client sent it, and an answer is exactly as long as its size was told.
void there_and_back(const std::u16string& text, bool little_endian) {
    const bytes stub = test_support::stub_builder(little_endian).string(text).string(text).u32(7).bytes();
    interface_codec::request_reader reader(stub, little_endian);
    require(reader.read_string().all() == text);
    require(reader.read_string().all() == text);
    require(reader.read_long() == 7);

    InvokeResult result;
    result.errorMessage = text;
    const std::optional<std::u16string> output(text);
    bytes reply(interface_codec::DoRpcReplySize(output, result), 0xA5);
    interface_codec::WriteDoRpcReply(reply, output, result);
    // The answer begins with a pointer's referent; behind it the text is laid out as in a request.
    interface_codec::request_reader answer(reply, true);
    require(answer.read_long() != 0);
    require(answer.read_string().all() == text);
}

}  // namespace

/// The first byte chooses; the rest is the stub data, or a text's units.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const bool little_endian = (data[0] & 1) != 0;
    // A copy of the exact size and at an aligned address, so that a read past its end is seen.
    const bytes rest(data + 1, data + size);
    if ((data[0] & 8) == 0) {
        decode(rest, little_endian, (data[0] & 2) != 0, (data[0] & 4) != 0);
        return 0;
    }
    std::u16string text;
    for (std::size_t at = 0; at + 1 < rest.size(); at += 2) {
        text.push_back(static_cast<char16_t>(rest[at] | rest[at + 1] << 8));
    }
    there_and_back(text, little_endian);
    return 0;
}
