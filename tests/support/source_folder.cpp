#include "support/source_folder.h"

namespace test_support {

std::filesystem::path source_folder() {
    return TARNO_SOURCE_FOLDER;
}

}  // namespace test_support
