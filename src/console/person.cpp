#include "console/person.h"

#include "console/connection.h"
#include "foundation/text/conversion.h"

namespace console {

void confirm(person& who, const std::string& question) {
    if (!who.can_be_asked()) {
        throw failure(exit_code::usage, "There is no terminal to ask on whether this is meant. Say --yes to do it unasked.");
    }
    const std::optional<std::string> answer = who.ask(question + " [y/N] ");
    if (!answer || (text::compare_no_case(*answer, "y") != 0 && text::compare_no_case(*answer, "yes") != 0)) {
        throw failure(exit_code::usage, "Nothing was done.");
    }
}

}  // namespace console
