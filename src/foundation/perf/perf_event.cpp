#include "foundation/perf/perf_event.h"

#include "foundation/text/conversion.h"

namespace perf {

void CPerfEventArg::append_to(std::string& line) const {
    for (const std::uint64_t field : std::span(fields_).first(count_)) {
        line += '\t';
        line += text::to_string(field);
    }
}

}  // namespace perf
