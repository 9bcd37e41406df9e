#pragma once

#include <cstdint>
#include <string>

#include "changer/changer_interface.h"
#include "changer/open_changer.h"

/// From where to where a cartridge goes. Addresses are zero-based within their type.
struct medium_move {
    std::uint32_t source = 0;
    ELEMENT_TYPE source_type = AllElements;
    std::uint32_t destination = 0;
    ELEMENT_TYPE destination_type = AllElements;
};

/// The lines in which the backends' moves differ.
struct movement_wording {
    const char* execute;        ///< of source type, source, destination type, destination
    const char* sleep;          ///< of the seconds and the failure's text
    const char* timed_out;      ///< as `execute`
    const char* silent_reason;  ///< why a command without an error code has failed; null: the system's text of code 0
};

/// How a cartridge is moved, the same for both backends: wait for a full source and an empty destination, send the command,
/// and believe the elements rather than the command about what has become of it. A command that failed is sent again for as
/// long as the device may still be coming ready.
///
/// A move returns when the cartridge has arrived and throws when it hasn't, as far as the elements tell. It blocks: with a
/// time-out of 60 seconds up to 60 for the source, 60 for the destination and 60 for the command, and each status read among
/// these may take as long again.
class CMediumMovement : public IChangerHandle {
public:
    std::u16string GetSerialNumber() override { return device_.SerialNumber(); }
    std::u16string GetSymbolicLink() override { return device_.SymbolicLink(); }

    void LoadMedium(std::uint32_t slot, std::uint32_t drive) override;
    void MoveToSlot(std::uint32_t source_slot, std::uint32_t destination_slot) override;
    void UnloadMedium(std::uint32_t drive, std::uint32_t slot) override;
    void FromDriveToIEPort(std::uint32_t drive, std::uint32_t port) override;
    void FromSlotToIEPort(std::uint32_t slot, std::uint32_t port) override;
    void FromIEPortToSlot(std::uint32_t port, std::uint32_t slot) override;

protected:
    CMediumMovement(const movement_wording& words, const open_changer_t::wording& device_words, const std::string& link,
                    std::uint16_t slot_portion, const boost::shared_ptr<boost::mutex>& device_mutex);

    /// Sends the command once. Throws when it failed, unless the cartridge has arrived.
    virtual void MoveMediumImpl(const medium_move& move) = 0;

    /// After a command that failed without an error code: whether the destination becomes full all the same.
    bool ArrivedAfterSilentFailure(const medium_move& move);
    /// Reports a command that failed with this code.
    [[noreturn]] void ThrowFailedCommand(const medium_move& move, std::uint32_t code);

    [[nodiscard]] open_changer_t& device() { return device_; }

private:
    enum class wanted_state : bool { empty, full };

    void MoveMedium(const medium_move& move);
    void CheckElementsBeforeMove(const medium_move& move);
    [[nodiscard]] bool IsMoveComplete(const medium_move& move);
    [[nodiscard]] bool IsElementFull(std::uint32_t address, ELEMENT_TYPE type);
    [[nodiscard]] bool WaitElementState(std::uint32_t address, ELEMENT_TYPE type, wanted_state wanted);
    void CheckPort(std::uint32_t port, wanted_state wanted, const char* otherwise);
    void SendOnce(const medium_move& move);

    movement_wording words_;
    open_changer_t device_;
};
