#include "host/diagnostic_failures.h"

#include <iostream>

namespace diagnostics {

void TellFailure(std::string_view text, const std::exception& failure) {
    std::cerr << "TarnoTapeSvc: " << text << '\n' << failure.what() << std::endl;
}

}  // namespace diagnostics
