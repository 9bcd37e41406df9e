#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "console/connection.h"
#include "console/library_view.h"
#include "console/output.h"

namespace console {

/// The commands that work on libraries, and the general ones. Each prints its answer and throws `failure` when it has none.
void list_changers(library_view& library, const output& out);
void show_inventory(library_view& library, const std::string& link, bool with_empty_slots, const output& out);
void load(library_view& library, const std::string& link, std::uint32_t slot, std::uint32_t drive, const output& out);
/// Without a slot the cartridge goes back to where it came from.
void unload(library_view& library, const std::string& link, std::uint32_t drive, std::optional<std::uint32_t> slot,
            const output& out);
void move(library_view& library, const std::string& link, const element_reference& from, const element_reference& to,
          const output& out);
void show_owner(connection& server, const output& out);
void set_owner(connection& server, const std::string& name, const output& out);
/// Prints the output XML as it came. Each of `words` is Name=value.
void call_procedure(connection& server, const std::string& procedure, const std::vector<std::string>& words,
                    const std::string& owner, const output& out);

}  // namespace console
