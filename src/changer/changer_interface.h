#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/changer_records.h"
#include "platform/scsi_records.h"

using platform::AllElements;
using platform::CHANGER_ELEMENT;
using platform::CHANGER_ELEMENT_STATUS_EX;
using platform::CHANGER_PRODUCT_DATA;
using platform::ChangerDrive;
using platform::ChangerIEPort;
using platform::ChangerSlot;
using platform::ChangerTransport;
using platform::ELEMENT_TYPE;
using platform::GET_CHANGER_PARAMETERS;
using platform::SCSI_ADDRESS;

using ElementStatusList = boost::shared_ptr<std::vector<CHANGER_ELEMENT_STATUS_EX>>;
using SerialNameList = boost::shared_ptr<std::vector<std::string>>;

/// Name of an element type as it stands in messages; empty for a number beyond the five.
[[nodiscard]] const char* ElementTypeName(ELEMENT_TYPE type);

/// One open changer for the length of one request. Holds the device's mutex from construction to destruction. Element
/// addresses are zero-based within their type. All operations but the destructor and `GetProductData` throw on failure
/// (`exc::exc_base_t` and its kin). Used by one thread.
class IChangerHandle {
public:
    virtual ~IChangerHandle() = default;

    virtual std::u16string GetSerialNumber() = 0;
    /// "Changer" and a number.
    virtual std::u16string GetDeviceName() = 0;
    virtual SCSI_ADDRESS GetScsiAddress() = 0;
    virtual GET_CHANGER_PARAMETERS GetParameters() = 0;
    /// False: nothing filled.
    virtual bool GetProductData(CHANGER_PRODUCT_DATA& data) = 0;
    /// The name that was opened.
    virtual std::u16string GetSymbolicLink() = 0;
    /// Status of `count` elements of a type. Retries any failure every 5 seconds up to the not-ready time-out.
    virtual ElementStatusList GetElementStatus(std::uint16_t first, ELEMENT_TYPE type, bool read_volume_tag,
                                               std::uint16_t count) = 0;
    /// A serial number for each record, in record order.
    virtual SerialNameList GetSerialNames(const ElementStatusList& records, ELEMENT_TYPE type) = 0;

    /// Moves. Return when the cartridge has arrived; throw when it has not.
    virtual void LoadMedium(std::uint32_t slot, std::uint32_t drive) = 0;
    virtual void MoveToSlot(std::uint32_t source_slot, std::uint32_t destination_slot) = 0;
    virtual void UnloadMedium(std::uint32_t drive, std::uint32_t slot) = 0;
    virtual void FromDriveToIEPort(std::uint32_t drive, std::uint32_t port) = 0;
    virtual void FromSlotToIEPort(std::uint32_t slot, std::uint32_t port) = 0;
    virtual void FromIEPortToSlot(std::uint32_t port, std::uint32_t slot) = 0;
};

/// Opens a changer: by SCSI commands when `byScsi` is true or `gEnableScsiChanger` is set, else by the class driver. Waits
/// for the device's mutex without limit. Throws when the device can't be opened.
[[nodiscard]] boost::shared_ptr<IChangerHandle> CreateChangerHandle(const std::string& symbolic_link, bool byScsi,
                                                                    const boost::shared_ptr<boost::mutex>& device_mutex);
