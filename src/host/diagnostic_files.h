#pragma once

#include <string>
#include <string_view>

#include "foundation/winxml/xml.h"

/// Files of the diagnostic actions.
namespace diagnostics {

/// Puts the text in the place of what the file held. The file bears its name only when it is whole and on the disk: a failure, or
/// a process that ends on the way, leaves the former one. Throws `exc::exc_base_t`'s kin.
void SaveText(const std::u16string& path, std::string_view text);
void SaveDocument(const std::u16string& path, const winxml::document_t& document);

}  // namespace diagnostics
