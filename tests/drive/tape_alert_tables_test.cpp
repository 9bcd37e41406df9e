#include "drive/tape_alert_tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>
#include <string_view>

namespace {

/// What may follow the agreed start of a message: its end or its steps, or more words of the same sentence.
enum class ending { closed, open };

struct expected_row {
    std::uint16_t severity;
    std::string_view start;
    ending how;
};

constexpr expected_row expected_drive_rows[] = {
    {0, "Unknown tape alert", ending::closed},
    {1, "The tape drive is having problems reading data", ending::closed},
    {1, "The tape drive is having problems writing data", ending::closed},
    {1, "The operation has stopped because an error has occurred while ", ending::open},
    {2, "Your data is at risk", ending::closed},
    {2, "The tape is damaged or the drive is faulty", ending::closed},
    {2, "The tape is from a faulty batch or the tape drive is faulty", ending::closed},
    {1, "The tape cartridge has reached the end of its calculated useful life", ending::closed},
    {1, "The tape cartridge is not data-grade", ending::closed},
    {2, "You are trying to write to a write-protected cartridge", ending::closed},
    {0, "You cannot eject the cartridge because the tape drive is in use", ending::closed},
    {0, "The tape in the drive is a cleaning cartridge", ending::closed},
    {0, "You have tried to load a cartridge of a type which is not ", ending::open},
    {2, "The operation has failed because the tape in the drive has ", ending::open},
    {2, "The operation has failed because the tape in the drive has ", ending::open},
    {1, "The memory in the tape cartridge has failed, which reduces performance", ending::closed},
    {2, "The operation has failed because the tape cartridge was manually ", ending::open},
    {1, "You have loaded a cartridge of a type that is read-only in this drive", ending::closed},
    {1, "The tape directory on the tape cartridge has been corrupted", ending::closed},
    {0, "The tape cartridge is nearing the end of its calculated life", ending::closed},
    {2, "The tape drive needs cleaning", ending::closed},
    {1, "The tape drive is due for routine cleaning", ending::closed},
    {2, "The last cleaning cartridge used in the tape drive has worn out", ending::closed},
    {2, "The last cleaning cartridge used in the tape drive was an invalid type", ending::closed},
    {1, "The tape drive has requested a retention operation", ending::closed},
    {1, "A redundant interface port on the tape drive has failed", ending::closed},
    {1, "A tape drive cooling fan has failed", ending::closed},
    {1, "A redundant power supply has failed inside the tape drive enclosure", ending::closed},
    {1, "The tape drive power consumption is outside the specified range", ending::closed},
    {1, "Preventive maintenance of the tape drive is required", ending::closed},
    {2, "The tape drive has a hardware fault", ending::closed},
    {2, "The tape drive has a hardware fault", ending::closed},
    {1, "The tape drive has a problem with the application client interface", ending::closed},
    {2, "The operation has failed", ending::closed},
    {1, "The firmware download has failed because you have tried to use the ", ending::open},
    {1, "Environmental conditions inside the tape drive are outside the ", ending::open},
    {1, "Environmental conditions inside the tape drive are outside the ", ending::open},
    {1, "The voltage supply to the tape drive is outside the specified range", ending::closed},
    {2, "A hardware failure of the tape drive is predicted", ending::closed},
    {1, "The tape drive may have a hardware fault", ending::closed},
    {2, "The changer mechanism is having difficulty communicating with the ", ending::open},
    {2, "A tape has been left in the autoloader by a previous hardware fault", ending::closed},
    {1, "There is a problem with the autoloader mechanism", ending::closed},
    {2, "The operation has failed because the autoloader door is open", ending::closed},
    {2, "The autoloader has a hardware fault", ending::closed},
    {2, "The autoloader cannot operate without the magazine,", ending::open},
    {1, "A hardware failure of the changer mechanism is predicted", ending::closed},
    {0, "Reserved", ending::closed},
    {0, "Reserved", ending::closed},
    {0, "Reserved", ending::closed},
    {1, "Media statistics have been lost at some time in the past", ending::closed},
    {1, "The tape directory on the tape cartridge just unloaded has been ", ending::open},
    {2, "The tape just unloaded could not write its system area successfully", ending::closed},
    {2, "The tape system are could not be read successfully at load time", ending::closed},
    {2, "The start or data could not be found on the tape", ending::closed},
    {2, "The operation has failed because the media cannot be loaded and ", ending::open},
    {2, "The operation has failed because the medium cannot be unloaded", ending::closed},
    {2, "The tape drive has a problem with the automation interface", ending::closed},
    {1, "The tape drive has reset itself due to a detected firmware fault", ending::closed},
    {1, "The tape drive has detected an inconsistency while checking the ", ending::open},
    {1, "An attempt has been made to overwrite user data on a WORM tape", ending::closed},
};

constexpr expected_row expected_changer_rows[] = {
    {0, "Unknown changer alert", ending::closed},
    {2, "The library mechanism is having difficulty communicating with the ", ending::open},
    {1, "There is a problem with the library mechanism", ending::closed},
    {2, "The library has a hardware fault", ending::closed},
    {2, "The library has a hardware fault", ending::closed},
    {1, "The library mechanism may have a hardware fault", ending::closed},
    {2, "The library has a problem with the host interface", ending::closed},
    {1, "A hardware failure of the library is predicted", ending::closed},
    {1, "Preventive maintenance of the library is required", ending::closed},
    {2, "General environmental conditions inside the library are outside ", ending::open},
    {2, "General environmental conditions inside the library are outside ", ending::open},
    {2, "The voltage supply to the library is outside the specified range", ending::closed},
    {2, "A cartridge has been left inside the library by a previous ", ending::open},
    {1, "There is a potential problem with the drive ejecting cartridges or ", ending::open},
    {1, "There is a potential problem with the library mechanism placing a ", ending::open},
    {1, "There is a potential problem with the drive or the library ", ending::open},
    {2, "The library has failed because the door is open", ending::closed},
    {2, "There is a mechanical problem with the library media import/export ", ending::open},
    {2, "The library cannot operate without the magazine", ending::closed},
    {1, "Library security has been compromised", ending::closed},
    {0, "I: The library security mode has been changed", ending::closed},
    {0, "I: The library has been manually turned offline and is unavailable for use", ending::closed},
    {0, "I: A drive inside the library has been taken offline", ending::closed},
    {1, "There is a potential problem with the bar code label or the ", ending::open},
    {2, "The library has detected an inconsistency in its inventory", ending::closed},
    {1, "A library operation has been attempted that is invalid at this time", ending::closed},
    {1, "A redundant interface port on the library has failed", ending::closed},
    {1, "A library cooling fan has failed", ending::closed},
    {1, "A redundant power supply has failed inside the library", ending::closed},
    {1, "The library power consumption is outside the specified range", ending::closed},
    {2, "A failure has occurred in the cartridge pass-through mechanism ", ending::open},
    {2, "A cartridge has been left in the pass-through mechanism from a ", ending::open},
    {0, "The library was unable to read the bar code on a cartridge", ending::closed},
};

/// Whether the message begins as agreed, and a closed start is a whole sentence there.
bool begins_as_agreed(std::string_view message, const expected_row& expected) {
    if (!message.starts_with(expected.start)) {
        return false;
    }
    const std::string_view rest = message.substr(expected.start.size());
    return expected.how == ending::open ? !rest.empty() : rest.empty() || rest.starts_with(".") || rest.starts_with(":\n");
}

void expect_rows(std::span<const TapeAlert> table, std::span<const expected_row> expected) {
    ASSERT_EQ(table.size(), expected.size());
    for (std::size_t index = 0; index < table.size(); ++index) {
        SCOPED_TRACE(index);
        EXPECT_EQ(table[index].code, index);
        EXPECT_EQ(table[index].severity, expected[index].severity);
        EXPECT_TRUE(begins_as_agreed(table[index].message, expected[index])) << table[index].message;
    }
}

TEST(TapeAlertTables, TheDriveTableIsComplete) {
    expect_rows(TapeAlertTable(false), expected_drive_rows);
}

TEST(TapeAlertTables, TheChangerTableIsComplete) {
    expect_rows(TapeAlertTable(true), expected_changer_rows);
}

TEST(TapeAlertTables, TheAgreedMessagesStandToTheLetter) {
    const struct {
        bool is_changer;
        std::uint16_t code;
        std::string_view message;
    } agreed[] = {
        {false, 0, "Unknown tape alert."},
        {false, 3,
         "The operation has stopped because an error has occurred while reading or writing data that the drive cannot correct."},
        {false, 4,
         "Your data is at risk:\nCopy any data you require from this tape.\nDo not use this tape again.\n"
         "Restart the operation with a different tape."},
        {false, 5, "The tape is damaged or the drive is faulty. Call the tape drive supplier helpline."},
        {false, 11, "The tape in the drive is a cleaning cartridge."},
        {false, 24, "The tape drive has requested a retention operation"},
        {false, 47, "Reserved."},
        {false, 48, "Reserved."},
        {false, 49, "Reserved."},
        {true, 0, "Unknown changer alert."},
        {true, 19, "Library security has been compromised."},
        {true, 21, "I: The library has been manually turned offline and is unavailable for use."},
    };
    for (const auto& row : agreed) {
        EXPECT_EQ(FindTapeAlert(row.code, row.is_changer).message, row.message);
    }
}

TEST(TapeAlertTables, MessagesAreSentencesOfPlainText) {
    for (const bool is_changer : {false, true}) {
        for (const TapeAlert& row : TapeAlertTable(is_changer)) {
            SCOPED_TRACE(row.message);
            std::string_view rest = row.message;
            while (!rest.empty()) {
                const std::size_t end = std::min(rest.find('\n'), rest.size());
                const std::string_view line = rest.substr(0, end);
                ASSERT_FALSE(line.empty());
                EXPECT_TRUE(line.front() >= 'A' && line.front() <= 'Z');
                EXPECT_NE(line.back(), ' ');
                EXPECT_EQ(std::count_if(line.begin(), line.end(), [](char each) { return each < ' ' || each > '~'; }), 0);
                rest.remove_prefix(std::min(end + 1, rest.size()));
            }
            EXPECT_NE(std::string_view(row.message).back(), '\n');
        }
    }
}

/// What the first word of a step may be: it tells what to do, or when to do it.
constexpr std::string_view openings[] = {"Ask",    "Check", "Clean",  "Clear", "Close",   "Copy",   "Discard", "Do",
                                         "Eject",  "Find",  "Get",    "Have",  "If",      "Insert", "Keep",    "Let",
                                         "Load",   "Read",  "Remove", "Reset", "Restart", "Run",    "See",     "Start",
                                         "Switch", "Take",  "Try",    "Use",   "Wait",    "Write"};

TEST(TapeAlertTables, EveryStepTellsWhatToDo) {
    for (const bool is_changer : {false, true}) {
        for (const TapeAlert& row : TapeAlertTable(is_changer)) {
            const std::string_view message(row.message);
            for (std::size_t end = message.find('\n'); end != std::string_view::npos; end = message.find('\n', end + 1)) {
                const std::string_view step = message.substr(end + 1);
                const std::string_view first_word = step.substr(0, step.find(' '));
                EXPECT_NE(std::find(std::begin(openings), std::end(openings), first_word), std::end(openings)) << step;
            }
        }
    }
}

TEST(TapeAlertTables, ACodeBeyondTheTableKeepsItsNumberAndIsUnknown) {
    const auto expect_unknown = [](std::uint16_t code, bool is_changer, std::string_view message) {
        const TapeAlert alert = FindTapeAlert(code, is_changer);
        EXPECT_EQ(alert.code, code);
        EXPECT_EQ(alert.severity, 0);
        EXPECT_EQ(alert.message, message);
    };
    expect_unknown(61, false, "Unknown tape alert.");
    expect_unknown(0xFFFF, false, "Unknown tape alert.");
    expect_unknown(33, true, "Unknown changer alert.");
    expect_unknown(61, true, "Unknown changer alert.");
}

TEST(TapeAlertTables, TheLastRowsAreKnown) {
    EXPECT_EQ(FindTapeAlert(60, false).severity, 1);
    EXPECT_EQ(FindTapeAlert(60, false).message, TapeAlertTable(false)[60].message);
    EXPECT_EQ(FindTapeAlert(32, true).message, TapeAlertTable(true)[32].message);
}

}  // namespace
