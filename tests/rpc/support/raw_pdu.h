#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace rpc_test {

using bytes = std::vector<std::uint8_t>;

/// PDUs written by hand in either byte order, independent of the code under test.
class raw_writer {
public:
    explicit raw_writer(bool little = true) : little_(little) {}

    raw_writer& u8(unsigned value);
    raw_writer& u16(unsigned value);
    raw_writer& u32(std::uint32_t value);
    /// Hexadecimal UUID text; the first three fields in the byte order.
    raw_writer& uuid(const std::string& text);
    raw_writer& raw(std::span<const std::uint8_t> value);
    raw_writer& text(const std::string& value);
    raw_writer& zeros(std::size_t count);

    bytes data;

private:
    bool little_;
};

inline const std::string test_interface = "12345678-9abc-def0-1122-334455667788";
inline const std::string ndr_syntax = "8a885d04-1ceb-11c9-9fe8-08002b104860";

/// What a verifier at the end of a PDU says.
struct raw_auth {
    unsigned type = 10;
    unsigned level = 2;
    std::uint32_t context_id = 1;
    unsigned pad = 0;
    bytes token;
};

/// A header and a body, lengths filled in; a verifier when `auth` is given.
bytes pdu(unsigned type, unsigned flags, std::uint32_t call_id, const bytes& body, bool little = true,
          const raw_auth* auth = nullptr);

struct raw_context {
    unsigned id = 0;
    std::string interface = test_interface;
    unsigned major = 1;
    unsigned minor = 0;
    std::string syntax = ndr_syntax;
    std::uint32_t syntax_version = 2;
};
struct raw_bind {
    unsigned type = 11;
    unsigned flags = 3;
    std::uint32_t call_id = 1;
    unsigned max_transmit = 5840;
    unsigned max_receive = 5840;
    std::uint32_t group = 0;
    std::vector<raw_context> contexts{raw_context{}};
    bool little = true;
    const raw_auth* auth = nullptr;
};
bytes bind_pdu(const raw_bind& bind = {});

struct raw_request {
    unsigned flags = 3;
    std::uint32_t call_id = 2;
    unsigned context = 0;
    unsigned operation = 0;
    bytes stub;
    bool little = true;
    const raw_auth* auth = nullptr;
};
bytes request_pdu(const raw_request& request = {});

bytes text_bytes(const std::string& text);

/// Fields of a PDU of the server, which writes little-endian.
unsigned le16(std::span<const std::uint8_t> data, std::size_t at);
std::uint32_t le32(std::span<const std::uint8_t> data, std::size_t at);
inline unsigned type_of(std::span<const std::uint8_t> data) {
    return data.size() < 16 ? 255U : data[2];
}
inline std::uint32_t fault_of(std::span<const std::uint8_t> data) {
    return type_of(data) == 3 ? le32(data, 24) : 0;
}

}  // namespace rpc_test
