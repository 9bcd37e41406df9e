#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/crash.h"
#include "platform/process.h"

/// The pieces of the textual dump, each a text to be appended to the file. Numbers that a system has with more than 32 bits are
/// written in full: eight digits are the least.
namespace crash::text_dump {

struct header_fields {
    std::uint32_t code = 0;
    std::uint64_t address = 0;
    platform::local_time time{};
    std::string module_name{};
    std::string module_path{};
    std::uint32_t process_id = 0;
    std::uint32_t thread_id = 0;
};
[[nodiscard]] std::string header(const header_fields& fields);

[[nodiscard]] std::string modules_title();
/// One line. A module whose version is unknown has zeros.
[[nodiscard]] std::string module_line(const platform::loaded_module& loaded, const platform::module_version& version,
                                      bool tells_errors);

[[nodiscard]] std::string registers(const platform::cpu_registers& values);

[[nodiscard]] std::string stack_title();
[[nodiscard]] std::string frame(const platform::stack_frame& values, const platform::code_address& where);

[[nodiscard]] std::string symbol_text(const platform::code_address& where);
[[nodiscard]] std::string line_text(const platform::code_address& where);

}  // namespace crash::text_dump
