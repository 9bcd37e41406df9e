#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <boost/make_shared.hpp>

#include "changer/changer_interface.h"

namespace test_support {

/// Fills a fixed text field; what the text doesn't reach stays as it is.
template <std::size_t Size>
void fill(std::uint8_t (&field)[Size], std::string_view text) {
    std::memcpy(field, text.data(), std::min(Size, text.size()));
}

/// A changer that says what a test gave it. Records what it was asked.
class fake_changer final : public IChangerHandle {
public:
    struct status_request {
        std::uint16_t first;
        ELEMENT_TYPE type;
        bool read_volume_tag;
        std::uint16_t count;
        bool operator==(const status_request&) const = default;
    };

    std::u16string GetSerialNumber() override { return serial_number; }
    std::u16string GetDeviceName() override { return device_name; }
    SCSI_ADDRESS GetScsiAddress() override { return address; }
    GET_CHANGER_PARAMETERS GetParameters() override { return parameters; }
    bool GetProductData(CHANGER_PRODUCT_DATA& data) override {
        if (has_product_data) {
            data = product_data;
        }
        return has_product_data;
    }
    std::u16string GetSymbolicLink() override { return symbolic_link; }
    ElementStatusList GetElementStatus(std::uint16_t first, ELEMENT_TYPE type, bool read_volume_tag, std::uint16_t count) override {
        requests.push_back({first, type, read_volume_tag, count});
        return boost::make_shared<std::vector<CHANGER_ELEMENT_STATUS_EX>>(elements);
    }
    SerialNameList GetSerialNames(const ElementStatusList& /*records*/, ELEMENT_TYPE /*type*/) override {
        return boost::make_shared<std::vector<std::string>>(serials);
    }
    void LoadMedium(std::uint32_t /*slot*/, std::uint32_t /*drive*/) override {}
    void MoveToSlot(std::uint32_t /*source*/, std::uint32_t /*destination*/) override {}
    void UnloadMedium(std::uint32_t /*drive*/, std::uint32_t /*slot*/) override {}
    void FromDriveToIEPort(std::uint32_t /*drive*/, std::uint32_t /*port*/) override {}
    void FromSlotToIEPort(std::uint32_t /*slot*/, std::uint32_t /*port*/) override {}
    void FromIEPortToSlot(std::uint32_t /*port*/, std::uint32_t /*slot*/) override {}

    std::u16string serial_number = u"LIB00001";
    std::u16string device_name = u"Changer0";
    std::u16string symbolic_link = u"\\\\.\\Changer0";
    SCSI_ADDRESS address{8, 2, 1, 4, 3};
    GET_CHANGER_PARAMETERS parameters;
    bool has_product_data = true;
    CHANGER_PRODUCT_DATA product_data;
    std::vector<CHANGER_ELEMENT_STATUS_EX> elements;
    std::vector<std::string> serials;
    std::vector<status_request> requests;
};

}  // namespace test_support
