#pragma once

#include <string>

namespace tape_account {

/// Reads a new account's password, UTF-8: twice from the terminal without echo when standard input is one, else one line of
/// standard input. Throws `std::runtime_error` with a sentence when there is none, it is too long, or the two differ.
/// The caller wipes it.
[[nodiscard]] std::string read_new_password(const std::string& account);

}  // namespace tape_account
