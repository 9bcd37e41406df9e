#pragma once

#include <string>

namespace platform::linux_os {

/// Both read a password, UTF-8: from the terminal without echo when standard input is one, else one line of standard input. A
/// signal that ends the process finds the terminal with its echo back. They throw `std::runtime_error` with a sentence when there
/// is no password or it is too long. The caller wipes what it got.

/// The password of an account that there is.
[[nodiscard]] std::string read_password(const std::string& account);

/// A new account's password: twice from a terminal, and a failure when the two differ.
[[nodiscard]] std::string read_new_password(const std::string& account);

}  // namespace platform::linux_os
