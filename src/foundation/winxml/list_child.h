#pragma once

#include "foundation/winxml/record_stream.h"
#include "foundation/winxml/xml.h"

namespace winxml {

/// Adds a list, in its document form, as a child that is printed as its text stands. The tree doesn't know the list's elements:
/// they can't be found in it. Throws `exc::runtime_exc_t` for an absent parent.
void add_list(const node_t& parent, const record_stream_t& list);

}  // namespace winxml
