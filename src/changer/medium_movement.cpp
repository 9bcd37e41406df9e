#include "changer/medium_movement.h"

#include <exception>

#include "changer/waiting.h"
#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_scope.h"
#include "foundation/logging/log_writer.h"
#include "foundation/text/conversion.h"

namespace {

/// The four texts of a move, as the messages name it.
struct move_texts {
    explicit move_texts(const medium_move& move)
        : source_type(ElementTypeName(move.source_type)),
          source(text::to_string(move.source)),
          destination_type(ElementTypeName(move.destination_type)),
          destination(text::to_string(move.destination)) {}

    std::string source_type;
    std::string source;
    std::string destination_type;
    std::string destination;
};

}  // namespace

CMediumMovement::CMediumMovement(const movement_wording& words, const open_changer_t::wording& device_words,
                                 const std::string& link, std::uint16_t slot_portion,
                                 const boost::shared_ptr<boost::mutex>& device_mutex)
    : words_(words), device_(device_words, link, slot_portion, device_mutex) {}

void CMediumMovement::LoadMedium(std::uint32_t slot, std::uint32_t drive) {
    MoveMedium({slot, ChangerSlot, drive, ChangerDrive});
}

void CMediumMovement::MoveToSlot(std::uint32_t source_slot, std::uint32_t destination_slot) {
    MoveMedium({source_slot, ChangerSlot, destination_slot, ChangerSlot});
}

void CMediumMovement::UnloadMedium(std::uint32_t drive, std::uint32_t slot) {
    logging::log_scope_t scope(g_log, "Unloading medium from drive %1 to slot %2", text::to_string(drive), text::to_string(slot));
    MoveMedium({drive, ChangerDrive, slot, ChangerSlot});
    scope.quiet_end();
}

void CMediumMovement::FromDriveToIEPort(std::uint32_t drive, std::uint32_t port) {
    CheckPort(port, wanted_state::empty, "IEPort '%1' is not empty");
    MoveMedium({drive, ChangerDrive, port, ChangerIEPort});
}

void CMediumMovement::FromSlotToIEPort(std::uint32_t slot, std::uint32_t port) {
    CheckPort(port, wanted_state::empty, "IEPort '%1' is not empty");
    MoveMedium({slot, ChangerSlot, port, ChangerIEPort});
}

void CMediumMovement::FromIEPortToSlot(std::uint32_t port, std::uint32_t slot) {
    CheckPort(port, wanted_state::full, "IEPort '%1' is empty");
    MoveMedium({port, ChangerIEPort, slot, ChangerSlot});
}

/// One look at a port, without waiting: a person has to empty or fill it.
void CMediumMovement::CheckPort(std::uint32_t port, wanted_state wanted, const char* otherwise) {
    if (IsElementFull(port, ChangerIEPort) != (wanted == wanted_state::full)) {
        throw exc::win_sys_exc_t(otherwise, text::to_string(port), exc::last_error());
    }
}

bool CMediumMovement::IsElementFull(std::uint32_t address, ELEMENT_TYPE type) {
    // Addresses have 16 bits. A wider one is refused here rather than cut, which would move another cartridge.
    const ElementStatusList records = GetElementStatus(exc::narrow_to_u16(address), type, false, 1);
    if (records->empty()) {
        const std::uint32_t code = exc::last_error();
        const std::string number = text::to_string(address);
        g_log.LogError("Cannot get status of %1 #%2", ElementTypeName(type), number);
        throw exc::win_sys_exc_t("Cannot get status of %1 #%2", ElementTypeName(type), number, code);
    }
    return (records->front().Flags & platform::ELEMENT_STATUS_FULL) != 0;
}

bool CMediumMovement::WaitElementState(std::uint32_t address, ELEMENT_TYPE type, wanted_state wanted) {
    const bool full = wanted == wanted_state::full;
    const deadline_t deadline(device_.not_ready_timeout());
    const std::string number = text::to_string(address);
    while (IsElementFull(address, type) != full) {
        g_log.LogInfo(full ? "%1 #%2 is not full. Waiting for %3 sec" : "%1 #%2  is not empty. Waiting for %3 sec",
                      ElementTypeName(type), number, text::to_string(changer_retry_pause));
        sleep_seconds(changer_retry_pause);
        if (deadline.passed()) {
            g_log.LogError(full ? "Failed: %1 #%2 is not full more then %3 sec" : "%1 #%2  is not empty more then %3 sec",
                           ElementTypeName(type), number, text::to_string(device_.not_ready_timeout()));
            return false;
        }
    }
    return true;
}

void CMediumMovement::CheckElementsBeforeMove(const medium_move& move) {
    const move_texts texts(move);
    {
        logging::log_scope_t scope(g_log, "Checking if %1 #%2 is full", texts.source_type, texts.source);
        if (!WaitElementState(move.source, move.source_type, wanted_state::full)) {
            throw exc::win_sys_exc_t("Unable to move tape from %1 #%2: changer element is empty", texts.source_type, texts.source,
                                     exc::last_error());
        }
        scope.quiet_end();
    }
    logging::log_scope_t scope(g_log, "Checking if %1 #%2 is empty", texts.destination_type, texts.destination);
    if (!WaitElementState(move.destination, move.destination_type, wanted_state::empty)) {
        throw exc::win_sys_exc_t("Unable to move tape to %1 #%2: changer element in not empty", texts.destination_type,
                                 texts.destination, exc::last_error());
    }
    scope.quiet_end();
}

bool CMediumMovement::IsMoveComplete(const medium_move& move) {
    return !IsElementFull(move.source, move.source_type) && IsElementFull(move.destination, move.destination_type);
}

void CMediumMovement::SendOnce(const medium_move& move) {
    const move_texts texts(move);
    logging::log_scope_t scope(g_log, words_.execute, texts.source_type, texts.source, texts.destination_type, texts.destination);
    MoveMediumImpl(move);
    scope.ok();
}

void CMediumMovement::MoveMedium(const medium_move& move) {
    CheckElementsBeforeMove(move);
    g_log.LogInfo("Begin to move tape.");
    const deadline_t deadline(device_.not_ready_timeout());
    const move_texts texts(move);
    for (;;) {
        try {
            SendOnce(move);
            return;
        } catch (std::exception& e) {
            g_log.LogInfo(words_.sleep, text::to_string(changer_retry_pause), e.what());
            sleep_seconds(changer_retry_pause);
            // What the elements show counts: the command may have failed after the cartridge had arrived.
            if (IsMoveComplete(move)) {
                g_log.LogInfo("Complete move medium from %1 #%2 to %3 #%4", texts.source_type, texts.source, texts.destination_type,
                              texts.destination);
                return;
            }
            if (deadline.passed()) {
                g_log.LogError("Cannot move medium implementation from %1 #%2 to %3 #%4", texts.source_type, texts.source,
                               texts.destination_type, texts.destination, e);
                exc::rethrow_with_trace(words_.timed_out, texts.source_type, texts.source, texts.destination_type,
                                        texts.destination, e);
            }
        }
    }
}

bool CMediumMovement::ArrivedAfterSilentFailure(const medium_move& move) {
    g_log.LogInfo("Problem with IOControl status, but LastError = 0. Try to check for full of %1 #%2",
                  ElementTypeName(move.destination_type), text::to_string(move.destination));
    return WaitElementState(move.destination, move.destination_type, wanted_state::full);
}

void CMediumMovement::ThrowFailedCommand(const medium_move& move, std::uint32_t code) {
    const std::uint32_t pending = code != 0 ? code : exc::last_error();
    const bool silent = code == 0 && words_.silent_reason != nullptr;
    const std::string reason = silent ? words_.silent_reason : exc::win_error_text(code);
    const std::string source = text::to_string(move.source);
    const std::string destination = text::to_string(move.destination);
    g_log.LogError("Failed to move medium. Returned win error: " + text::to_string(code) + ": " + reason +
                   ". Parameters: MoveMediumImpl(uint sourceElementAddress='" + source + "', ELEMENT_TYPE sourceElementType ='" +
                   text::to_string(std::uint32_t{move.source_type}) + "', uint destinationElementAddress ='" + destination +
                   "', ELEMENT_TYPE destinationElementType ='" + text::to_string(std::uint32_t{move.destination_type}) + "')");
    // The sentence names the status request, whichever request has failed.
    throw exc::win_sys_exc_t(
        "DeviceIoControl(ChangerGetElementStatus) with sourceAddress = '%1', destAddress = '%2', symLink = '%3'", source,
        destination, device_.link(), pending);
}
