#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/exc/exceptions.h"

namespace platform::tape_library {

/// A library file that can't be used. The text names the file and the reason.
class library_error : public exc::runtime_exc_t {
public:
    explicit library_error(const std::string& text) : exc::runtime_exc_t(text) {}
};

/// Addresses of one element type: `count` of them from `first`.
struct element_range {
    std::uint16_t first = 0;
    std::uint16_t count = 0;
};

/// One cartridge at the library's first start.
struct cartridge_definition {
    std::string barcode;        ///< up to 32 printable characters; empty: no label
    std::uint16_t element = 0;  ///< absolute address
    bool write_protected = false;
    bool worm = false;
    bool cleaning = false;
    std::optional<std::uint32_t> capacity{};  ///< MiB; nothing: what the library's cartridges have
    std::uint32_t used = 0;                   ///< MiB, at most the capacity
    std::uint64_t written = 0;                ///< MB written in the cartridge's life
    std::uint64_t read = 0;                   ///< MB read in the cartridge's life
};

struct drive_definition {
    std::string vendor = "TARNO";
    std::string product = "VIRTUAL-LTO8";
    std::string revision = "0100";
    std::string serial;
};

/// What all drives of a library have in common.
struct drive_type {
    bool worm_capable = true;
    std::uint8_t density_code = 0x5E;
    std::uint8_t medium_type = 0x88;
    std::uint8_t worm_medium_type = 0x8C;
    std::uint32_t maximum_block = 0x800000;  ///< bytes, 24 bits
    std::uint16_t minimum_block = 1;         ///< bytes
};

/// Designators of the device identification page (SPC-4), in the order in which they are answered.
enum class designator : std::uint8_t { vendor_specific, t10_vendor, naa, scsi_name };

/// How a drive element tells which drive it is when DVCID is asked for (SMC-3, identifier type of the element descriptor).
enum class drive_identifier : std::uint8_t {
    none,           ///< an empty identifier
    t10_vendor,     ///< type 1: vendor 8, product 16, serial number
    vendor_serial,  ///< type 0: serial number in 32 bytes
    vendor_full,    ///< type 0: vendor 8, product 16, serial number in 32 bytes
    tail,           ///< an empty identifier, and the serial number in the descriptor's last 32 bytes
    naa             ///< type 3: 8 bytes
};

/// All in milliseconds, by the clock of the port.
struct timings {
    std::int64_t move = 0;
    std::int64_t position = 0;
    std::int64_t inventory = 0;
    std::int64_t load = 0;
    std::int64_t unload = 0;
    std::int64_t rewind = 0;
    std::int64_t ready = 0;  ///< from the end of a load until the drive is ready
    std::int64_t erase_short = 0;
    std::int64_t erase_long = 0;
    std::int64_t tension = 0;
    std::int64_t format = 0;
};

/// What a library is: everything that its file `library.xml` says.
struct personality {
    std::string vendor = "TARNO";
    std::string product = "VIRTUAL-LIBRARY";
    std::string revision = "0100";
    std::string serial = "TRNLIB0001";
    std::string state = "state.xml";  ///< path of the state file; a relative one counts from the library's folder

    element_range transports{0x0000, 1};
    element_range slots{0x1000, 24};
    element_range ports{0x0010, 2};
    element_range drives{0x0100, 2};  ///< `count` is the size of `drive_units`

    std::vector<drive_definition> drive_units;
    drive_type drive;
    std::vector<cartridge_definition> cartridges;
    std::uint32_t capacity = 11'444'092;  ///< MiB of a cartridge of which nothing else is said
    tape_library::timings timings;

    std::vector<designator> designators{designator::t10_vendor, designator::naa};  ///< empty: no such page
    drive_identifier identifier = drive_identifier::t10_vendor;
    std::uint16_t extra_bytes = 0;      ///< zero bytes behind every element descriptor
    bool volume_tags = true;            ///< false: VOLTAG is refused
    bool blank_empty_tags = false;      ///< the tag of an empty element holds blanks, not zeros
    bool medium_types = true;           ///< descriptors say data, cleaning or WORM medium
    bool device_identifiers = true;     ///< false: DVCID is refused
    bool power_on_attention = false;    ///< a new initiator starts with 29/00
    bool unload_on_move = true;         ///< a move from a loaded drive ejects the tape first; false: it is refused
    bool track_storage_only = true;     ///< the source element is the last storage slot; false: the last element of any kind
    bool exchange = true;               ///< EXCHANGE MEDIUM is answered and announced
    bool clear_alerts_on_read = true;   ///< a TapeAlert flag is shown to each initiator once; false: until it is cleared
    std::vector<std::uint8_t> refused;  ///< operation codes answered as unknown
    std::vector<std::uint8_t> log_pages{0x0C, 0x11, 0x12, 0x14, 0x17, 0x2E, 0x31};  ///< of the drives, ascending
};

/// Reads `library.xml`. `path` is for messages. Throws `library_error`.
[[nodiscard]] personality parse_personality(std::string_view xml, const std::string& path);

/// The text of a `library.xml` that reads back as the same personality.
[[nodiscard]] std::string personality_text(const personality& value);

/// Throws `library_error` unless the personality is one that can exist: no two elements on one address, texts that fit their
/// fields, cartridges in elements that exist, no more than one in each.
void check_personality(const personality& value, const std::string& path);

}  // namespace platform::tape_library
