#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "console/connection.h"

namespace console {

enum class element_kind : std::uint8_t { slot, port, drive };

/// "slot", "port" or "drive".
[[nodiscard]] const char* name_of(element_kind kind);

struct element_reference {
    element_kind kind = element_kind::slot;
    std::uint32_t number = 0;  ///< zero-based within its kind
};

/// Reads "slot:3", "port:0", "drive:1" (or s3, p0, d1). Throws a usage `failure`.
[[nodiscard]] element_reference parse_element(const std::string& text);
[[nodiscard]] std::string to_text(const element_reference& element);

struct changer_view {
    std::string link;  ///< "\\.\Changer0"
    std::string name;
    std::string error;  ///< the server's text when the changer can't be read; the rest but `link` is empty then
    std::string vendor;
    std::string product;
    std::string revision;
    std::string serial;
    std::uint32_t slots = 0;
    std::uint32_t ports = 0;
    std::uint32_t drives = 0;
};

struct element_view {
    element_reference element;
    bool full = false;
    bool abnormal = false;
    std::uint32_t exception_code = 0;  ///< additional sense code and qualifier, when `abnormal`
    std::string barcode;
    std::string serial;
    bool has_source = false;
    element_reference source;
};

/// The tape libraries as a person thinks of them, over the procedures of the server. All operations throw `failure`.
class library_view {
public:
    /// `owner` goes with every call; `by_scsi` chooses the procedures that speak SCSI to the changer themselves.
    library_view(connection& server, std::string owner, bool by_scsi)
        : server_(server), owner_(std::move(owner)), by_scsi_(by_scsi) {}

    [[nodiscard]] std::vector<changer_view> changers();
    /// Link of a changer: of the one named ("Changer0", a link, a serial number), or of the only one there is. What was learnt of
    /// it on the way is kept for `move`.
    [[nodiscard]] std::string choose_changer(const std::string& name);
    [[nodiscard]] std::vector<element_view> elements(const std::string& link, element_kind kind);
    /// Elements that the changer, as far as it is known, doesn't have are refused here: the server would wait for each as long as
    /// for one that isn't ready.
    void move(const std::string& link, const element_reference& from, const element_reference& to);
    /// Throws what the server says of a changer that can't be opened or read.
    void check(const std::string& link);

private:
    std::string keep(const changer_view& view);
    std::string call(const std::string& procedure, const argument_list& arguments);

    connection& server_;
    std::string owner_;
    bool by_scsi_;
    std::optional<changer_view> chosen_;
};

}  // namespace console
