#include "drive/tape_alert_tables.h"

#include <cstddef>
#include <iterator>

namespace {

// How each message begins is agreed with the consoles and stays to the letter, slips of the pen included.

constexpr TapeAlert drive_alerts[] = {
    {0, 0, "Unknown tape alert."},
    {1, 1,
     "The tape drive is having problems reading data.\n"
     "Clean the drive: no data has been lost so far, but reading takes longer than it should.\n"
     "Copy the tape to another one if the alert comes back."},
    {2, 1,
     "The tape drive is having problems writing data.\n"
     "Clean the drive: no data has been lost so far, but the tape holds less than it should.\n"
     "Use another tape if the alert comes back."},
    {3, 1, "The operation has stopped because an error has occurred while reading or writing data that the drive cannot correct."},
    {4, 2,
     "Your data is at risk:\n"
     "Copy any data you require from this tape.\n"
     "Do not use this tape again.\n"
     "Restart the operation with a different tape."},
    {5, 2, "The tape is damaged or the drive is faulty. Call the tape drive supplier helpline."},
    {6, 2,
     "The tape is from a faulty batch or the tape drive is faulty:\n"
     "Try the drive with a tape that is known to be good.\n"
     "If that fails too, ask the supplier of the tape drive for help."},
    {7, 1,
     "The tape cartridge has reached the end of its calculated useful life:\n"
     "Copy what you still need to another tape.\n"
     "Take this cartridge out of use."},
    {8, 1,
     "The tape cartridge is not data-grade. What is written to it may not be readable later.\n"
     "Use a data-grade cartridge instead."},
    {9, 2,
     "You are trying to write to a write-protected cartridge.\n"
     "Remove the write protection, or use another cartridge."},
    {10, 0,
     "You cannot eject the cartridge because the tape drive is in use.\n"
     "Wait for the operation to end, then eject the cartridge."},
    {11, 0, "The tape in the drive is a cleaning cartridge."},
    {12, 0, "You have tried to load a cartridge of a type which is not supported by this drive."},
    {13, 2,
     "The operation has failed because the tape in the drive has suffered mechanical damage:\n"
     "Take this tape out of use.\n"
     "Start the operation again with another tape."},
    {14, 2,
     "The operation has failed because the tape in the drive has suffered mechanical damage and cannot be ejected:\n"
     "Do not pull the cartridge out by force.\n"
     "Ask the supplier of the tape drive for help."},
    {15, 1,
     "The memory in the tape cartridge has failed, which reduces performance.\n"
     "Write no more data to this cartridge."},
    {16, 2, "The operation has failed because the tape cartridge was manually unloaded while the drive was reading or writing."},
    {17, 1,
     "You have loaded a cartridge of a type that is read-only in this drive.\n"
     "Use another type of cartridge for writing."},
    {18, 1,
     "The tape directory on the tape cartridge has been corrupted.\n"
     "Read all of its data once: until then, searching this tape is slow."},
    {19, 0,
     "The tape cartridge is nearing the end of its calculated life:\n"
     "Use another cartridge for the next backup.\n"
     "Keep this one only as long as its data is needed."},
    {20, 2,
     "The tape drive needs cleaning:\n"
     "If the operation has stopped, eject the tape and clean the drive.\n"
     "If it goes on, clean the drive as soon as it has ended."},
    {21, 1, "The tape drive is due for routine cleaning.\nClean the drive when the present operation has ended."},
    {22, 2,
     "The last cleaning cartridge used in the tape drive has worn out:\n"
     "Discard that cleaning cartridge.\n"
     "Clean the drive with a new one when the present operation has ended."},
    {23, 2,
     "The last cleaning cartridge used in the tape drive was an invalid type:\n"
     "Do not use that cleaning cartridge in this drive again.\n"
     "Clean the drive with a cartridge of the right type."},
    {24, 1, "The tape drive has requested a retention operation"},
    {25, 1, "A redundant interface port on the tape drive has failed."},
    {26, 1, "A tape drive cooling fan has failed."},
    {27, 1,
     "A redundant power supply has failed inside the tape drive enclosure.\n"
     "Have it replaced as the enclosure's manual says."},
    {28, 1, "The tape drive power consumption is outside the specified range."},
    {29, 1, "Preventive maintenance of the tape drive is required.\nSee the drive's manual for what is due."},
    {30, 2,
     "The tape drive has a hardware fault:\n"
     "Eject the tape or the magazine.\n"
     "Reset the drive.\n"
     "Start the operation again."},
    {31, 2,
     "The tape drive has a hardware fault:\n"
     "Switch the drive off and on.\n"
     "Start the operation again.\n"
     "If the fault comes back, ask the supplier of the tape drive for help."},
    {32, 1,
     "The tape drive has a problem with the application client interface:\n"
     "Check cables and plugs between the computer and the drive.\n"
     "Start the operation again."},
    {33, 2,
     "The operation has failed:\n"
     "Eject the tape or the magazine.\n"
     "Load it anew.\n"
     "Start the operation again."},
    {34, 1,
     "The firmware download has failed because you have tried to use the firmware of another drive, or a damaged file.\n"
     "Get the firmware that is made for this drive and load it again."},
    {35, 1, "Environmental conditions inside the tape drive are outside the specified humidity range."},
    {36, 1, "Environmental conditions inside the tape drive are outside the specified temperature range."},
    {37, 1, "The voltage supply to the tape drive is outside the specified range."},
    {38, 2, "A hardware failure of the tape drive is predicted.\nAsk the supplier of the tape drive for help before it fails."},
    {39, 1, "The tape drive may have a hardware fault.\nRun the drive's extended diagnostics to make sure."},
    {40, 2,
     "The changer mechanism is having difficulty communicating with the tape drive:\n"
     "Switch the autoloader off and on.\n"
     "Start the operation again.\n"
     "If the fault comes back, ask the supplier of the autoloader for help."},
    {41, 2,
     "A tape has been left in the autoloader by a previous hardware fault:\n"
     "Insert an empty magazine, so that the tape can be put away.\n"
     "If that does not help, switch the autoloader off and on."},
    {42, 1,
     "There is a problem with the autoloader mechanism.\n"
     "If the alert comes back, ask the supplier of the autoloader for help."},
    {43, 2,
     "The operation has failed because the autoloader door is open:\n"
     "Clear whatever keeps the door from closing.\n"
     "Close the door.\n"
     "Start the operation again."},
    {44, 2,
     "The autoloader has a hardware fault:\n"
     "Switch the autoloader off and on.\n"
     "Start the operation again."},
    {45, 2,
     "The autoloader cannot operate without the magazine, which is missing or not fully inserted:\n"
     "Insert the magazine.\n"
     "Start the operation again."},
    {46, 1,
     "A hardware failure of the changer mechanism is predicted.\n"
     "Ask the supplier of the autoloader for help before it fails."},
    {47, 0, "Reserved."},
    {48, 0, "Reserved."},
    {49, 0, "Reserved."},
    {50, 1, "Media statistics have been lost at some time in the past."},
    {51, 1,
     "The tape directory on the tape cartridge just unloaded has been corrupted.\n"
     "Load it again and read all of its data once: until then, searching that tape is slow."},
    {52, 2,
     "The tape just unloaded could not write its system area successfully:\n"
     "Copy its data to another tape.\n"
     "Take that cartridge out of use."},
    {53, 2,
     "The tape system are could not be read successfully at load time:\n"
     "Copy the data of this tape to another one.\n"
     "Take this cartridge out of use."},
    {54, 2,
     "The start or data could not be found on the tape:\n"
     "Check that the tape has a format that this drive reads.\n"
     "Take the tape out of use, or return it to its supplier."},
    {55, 2,
     "The operation has failed because the media cannot be loaded and threaded:\n"
     "Take the cartridge out and look at it for damage.\n"
     "Load it again, or try another cartridge.\n"
     "If other cartridges fail too, ask the supplier of the tape drive for help."},
    {56, 2,
     "The operation has failed because the medium cannot be unloaded:\n"
     "Do not pull the cartridge out by force.\n"
     "Ask the supplier of the tape drive for help."},
    {57, 2,
     "The tape drive has a problem with the automation interface:\n"
     "Check that the library or autoloader is on, and that the drive sits firmly in it.\n"
     "Switch the library off and on if the alert comes back."},
    {58, 1, "The tape drive has reset itself due to a detected firmware fault.\nCheck for newer firmware if the alert comes back."},
    {59, 1,
     "The tape drive has detected an inconsistency while checking the integrity of a WORM tape.\n"
     "Find out whether somebody has tampered with the cartridge."},
    {60, 1,
     "An attempt has been made to overwrite user data on a WORM tape:\n"
     "If no WORM tape was meant, use an ordinary one.\n"
     "If one was meant, check that the backup software supports it and that its bar code marks it as such."},
};

constexpr TapeAlert changer_alerts[] = {
    {0, 0, "Unknown changer alert."},
    {1, 2,
     "The library mechanism is having difficulty communicating with the drive:\n"
     "Switch the library off and on.\n"
     "Start the operation again.\n"
     "If the fault comes back, ask the supplier of the library for help."},
    {2, 1,
     "There is a problem with the library mechanism.\n"
     "If the alert comes back, ask the supplier of the library for help."},
    {3, 2,
     "The library has a hardware fault:\n"
     "Reset the library.\n"
     "Start the operation again."},
    {4, 2,
     "The library has a hardware fault:\n"
     "Switch the library off and on.\n"
     "Start the operation again.\n"
     "If the fault comes back, ask the supplier of the library for help."},
    {5, 1, "The library mechanism may have a hardware fault.\nRun the library's extended diagnostics to make sure."},
    {6, 2,
     "The library has a problem with the host interface:\n"
     "Check cables and plugs between the computer and the library.\n"
     "Start the operation again."},
    {7, 1, "A hardware failure of the library is predicted.\nAsk the supplier of the library for help before it fails."},
    {8, 1, "Preventive maintenance of the library is required.\nSee the library's manual for what is due."},
    {9, 2, "General environmental conditions inside the library are outside the specified humidity range."},
    {10, 2, "General environmental conditions inside the library are outside the specified temperature range."},
    {11, 2,
     "The voltage supply to the library is outside the specified range.\n"
     "Check the mains and the library's power supplies."},
    {12, 2,
     "A cartridge has been left inside the library by a previous hardware fault:\n"
     "Insert an empty magazine, so that the cartridge can be put away.\n"
     "If that does not help, switch the library off and on.\n"
     "If the cartridge stays there, ask the supplier of the library for help."},
    {13, 1,
     "There is a potential problem with the drive ejecting cartridges or with the library mechanism picking them from a slot.\n"
     "If the alert comes back, ask the supplier of the library for help."},
    {14, 1,
     "There is a potential problem with the library mechanism placing a cartridge into a slot.\n"
     "If the alert comes back, ask the supplier of the library for help."},
    {15, 1,
     "There is a potential problem with the drive or the library mechanism loading cartridges.\n"
     "Check that the cartridges are of a type that the drive takes.\n"
     "If the alert comes back, ask the supplier of the library for help."},
    {16, 2,
     "The library has failed because the door is open:\n"
     "Clear whatever keeps the door from closing.\n"
     "Close the door.\n"
     "Start the operation again."},
    {17, 2,
     "There is a mechanical problem with the library media import/export mailslot.\n"
     "Clear the mailslot, and ask the supplier of the library for help if the alert comes back."},
    {18, 2,
     "The library cannot operate without the magazine:\n"
     "Insert the magazine.\n"
     "Start the operation again."},
    {19, 1, "Library security has been compromised."},
    {20, 0, "I: The library security mode has been changed."},
    {21, 0, "I: The library has been manually turned offline and is unavailable for use."},
    {22, 0, "I: A drive inside the library has been taken offline."},
    {23, 1,
     "There is a potential problem with the bar code label or the scanner in the library mechanism.\n"
     "Check the cartridge's label, and clean the scanner if other labels fail too."},
    {24, 2,
     "The library has detected an inconsistency in its inventory:\n"
     "Let the library take its inventory anew.\n"
     "Start the operation again."},
    {25, 1,
     "A library operation has been attempted that is invalid at this time.\n"
     "Check that the element is there, and that it is as full or empty as the operation needs it."},
    {26, 1, "A redundant interface port on the library has failed."},
    {27, 1, "A library cooling fan has failed."},
    {28, 1,
     "A redundant power supply has failed inside the library.\n"
     "Have it replaced as the library's manual says."},
    {29, 1, "The library power consumption is outside the specified range."},
    {30, 2,
     "A failure has occurred in the cartridge pass-through mechanism between two library modules.\n"
     "Ask the supplier of the library for help."},
    {31, 2,
     "A cartridge has been left in the pass-through mechanism from a previous hardware fault.\n"
     "See the library's manual for how to take it out."},
    {32, 0, "The library was unable to read the bar code on a cartridge."},
};

template <std::size_t Rows>
constexpr bool codes_are_indices(const TapeAlert (&table)[Rows]) {
    for (std::size_t index = 0; index < Rows; ++index) {
        if (table[index].code != index) {
            return false;
        }
    }
    return true;
}

static_assert(std::size(drive_alerts) == 61 && codes_are_indices(drive_alerts));
static_assert(std::size(changer_alerts) == 33 && codes_are_indices(changer_alerts));

}  // namespace

std::span<const TapeAlert> TapeAlertTable(bool is_changer) {
    if (is_changer) {
        return changer_alerts;
    }
    return drive_alerts;
}

TapeAlert FindTapeAlert(std::uint16_t code, bool is_changer) {
    const std::span<const TapeAlert> table = TapeAlertTable(is_changer);
    if (code < table.size()) {
        return table[code];
    }
    return {code, table[0].severity, table[0].message};
}
