/// Where the tests find the files of the project that are not compiled into them.

#pragma once

#include <filesystem>

namespace test_support {

/// The project's top folder, as an absolute path: __FILE__ does not serve, since the compile cache makes it relative.
std::filesystem::path source_folder();

}  // namespace test_support
