#include "foundation/crash/text_dump.h"

#include <array>
#include <iterator>
#include <string_view>

#include "foundation/text/conversion.h"
#include "foundation/win/paths.h"

namespace crash::text_dump {

namespace {

constexpr std::size_t address_digits = 8;
constexpr std::size_t selector_digits = 4;
constexpr std::string_view rule =
    "/////////////////////////////////////////////////////////////////////////////////////";  // 85 of them

/// Lower case, filled up with zeros.
std::string hex(std::uint64_t value, std::size_t digits) {
    constexpr std::string_view figures = "0123456789abcdef";
    std::string text;
    do {
        text.insert(text.begin(), figures[value & 0xF]);
        value >>= 4;
    } while (value != 0);
    return text.size() < digits ? std::string(digits - text.size(), '0') + text : text;
}

std::string address(std::uint64_t value) {
    return "0x" + hex(value, address_digits);
}

std::string with_sign(std::int64_t value) {
    return (value < 0 ? "" : "+") + text::to_string(value);
}

std::string decimal(std::uint32_t value) {
    return text::to_string(value);
}

std::string two_digits(int value, char fill) {
    const std::string text = text::to_string(static_cast<std::int32_t>(value));
    return text.size() < 2 ? std::string(1, fill) + text : text;
}

/// 0 is Sunday: Zeller's congruence, for the calendar of today.
int weekday_of(const platform::local_time& time) {
    const int month = time.month < 3 ? time.month + 12 : time.month;
    const int year = time.month < 3 ? time.year - 1 : time.year;
    return (time.day + 13 * (month + 1) / 5 + year + year / 4 - year / 100 + year / 400 + 6) % 7;
}

/// As the C library writes a time, its line feed included.
std::string c_time(const platform::local_time& time) {
    if (!time.valid) {
        return "unknown\n";
    }
    constexpr std::string_view days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    constexpr std::string_view months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    std::string text(days[static_cast<std::size_t>(weekday_of(time))]);
    text.append(" ").append(months[static_cast<std::size_t>(time.month - 1)]).append(" ").append(two_digits(time.day, ' '));
    text.append(" ").append(two_digits(time.hour, '0')).append(":").append(two_digits(time.minute, '0'));
    text.append(":").append(two_digits(time.second, '0')).append(" ");
    return text.append(text::to_string(static_cast<std::int32_t>(time.year))).append("\n");
}

/// The four numbers of a file version, with points.
std::string version_text(const platform::module_version& version) {
    const bool known = version.failure == platform::version_failure::none;
    const std::uint32_t high = known ? version.high : 0;
    const std::uint32_t low = known ? version.low : 0;
    return decimal(high >> 16) + "." + decimal(high & 0xFFFF) + "." + decimal(low >> 16) + "." + decimal(low & 0xFFFF);
}

std::string symbols_state(const platform::loaded_module& loaded, bool tells_errors) {
    if (loaded.symbols_loaded) {
        return "symbols loaded";
    }
    if (!tells_errors) {
        return "no symbols are available";
    }
    return "no matching symbolic information found (error code: " + address(loaded.symbols_error) + ")";
}

struct flag_names {
    unsigned bit;
    std::string_view set;
    std::string_view clear;
};

constexpr flag_names flags_shown[] = {
    {20, "vip", "   "}, {19, "vif", "   "}, {11, "ov", "nv"}, {10, "dn", "up"}, {9, "ei", "di"},
    {7, "ng", "pl"},    {6, "zr", "nz"},    {4, "ac", "na"},  {2, "po", "pe"},  {0, "cy", "nc"},
};

constexpr unsigned io_privilege_shift = 12;
constexpr std::uint32_t io_privilege_mask = 3;

std::string flags_text(std::uint32_t flags) {
    std::string text = "iopl=" + hex(flags >> io_privilege_shift & io_privilege_mask, 1);
    for (const flag_names& names : flags_shown) {
        text.append(" ").append((flags >> names.bit & 1U) != 0 ? names.set : names.clear);
    }
    return text;
}

std::string named(std::string_view name, std::uint64_t value) {
    return std::string(name) + "=" + hex(value, address_digits);
}

std::string selector(std::string_view name, std::uint16_t value) {
    return std::string(name) + "=" + hex(value, selector_digits);
}

std::string symbol_type_text(std::uint32_t type) {
    constexpr std::string_view types[] = {"no symbols", "COFF", "CodeView", "PDB", "export table", "deferred", "SYM"};
    return type < std::size(types) ? std::string(types[type]) : decimal(type);
}

std::string displacement_text(std::int64_t displacement) {
    return displacement == 0 ? std::string() : " " + with_sign(displacement) + " bytes";
}

}  // namespace

std::string header(const header_fields& fields) {
    std::string text = "\n" + std::string(rule) + "\n";
    text +=
        "// Exception: " + address(fields.code) + ", Address: " + address(fields.address) + ", Date/Time " + c_time(fields.time);
    text += "// Process " + fields.module_name + " (" + fields.module_path + "), Process ID: " + address(fields.process_id);
    return text + ", Thread ID: " + address(fields.thread_id) + "\n";
}

std::string modules_title() {
    return "\nLoaded modules:\n\n";
}

std::string module_line(const platform::loaded_module& loaded, const platform::module_version& version, bool tells_errors) {
    text::wide_string folder;
    text::wide_string name;
    win::split_path(loaded.path, folder, name);
    return address(loaded.start) + " - " + address(loaded.end) + " " + text::wide_to_utf8(name) + " (" +
           text::wide_to_utf8(loaded.path) + ") " + version_text(version) + ", " + symbols_state(loaded, tells_errors) + "\n";
}

std::string registers(const platform::cpu_registers& values) {
    std::string text = "\n";
    text += named("eax", values.ax) + " " + named("ebx", values.bx) + " " + named("ecx", values.cx) + " " +
            named("edx", values.dx) + " " + named("esi", values.si) + " " + named("edi", values.di) + "\n";
    text += named("eip", values.ip) + " " + named("esp", values.sp) + " " + named("ebp", values.bp) + " " +
            flags_text(values.flags) + "\n";
    text += selector("cs", values.cs) + "  " + selector("ss", values.ss) + "  " + selector("ds", values.ds) + "  " +
            selector("es", values.es) + "  " + selector("fs", values.fs) + "  " + selector("gs", values.gs);
    return text + std::string(13, ' ') + named("efl", values.flags);
}

std::string stack_title() {
    return "\n\nStack frames:\n";
}

std::string frame(const platform::stack_frame& values, const platform::code_address& where) {
    std::string text = "\nFrame address: " + address(values.frame) + "\nReturn address: " + address(values.return_address) + "\n";
    for (std::size_t index = 0; index < values.parameters.size(); ++index) {
        text += "Param" + decimal(static_cast<std::uint32_t>(index + 1)) + ": " + address(values.parameters[index]) + "\n";
    }
    return text + "\n" + address(values.address) + "\t" + symbol_text(where) + "\n\t\t" + line_text(where) + "\n";
}

std::string symbol_text(const platform::code_address& where) {
    if (!where.module && !where.symbol) {
        return "no symbol information was available";
    }
    std::string text = where.module.value_or("<no module>") + "!";
    if (where.symbol) {
        text += where.symbol->name + displacement_text(where.symbol->displacement);
        for (const std::string& name : where.symbol->undecorated) {
            text += ", " + name;
        }
    } else {
        text += "<no symbol>";
    }
    return where.module ? text + ", symbol type: " + symbol_type_text(where.symbol_type) : text;
}

std::string line_text(const platform::code_address& where) {
    if (!where.line) {
        return "no line information was available";
    }
    return where.line->file + "(" + decimal(where.line->number) + ")" + displacement_text(where.line->displacement);
}

}  // namespace crash::text_dump
