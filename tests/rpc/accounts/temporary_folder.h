#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>

namespace accounts_testing {

/// A folder of its own for each test, gone with it.
class temporary_folder {
public:
    temporary_folder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "tarno-accounts-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("no temporary folder");
        }
        path_ = pattern;
    }
    ~temporary_folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    temporary_folder(const temporary_folder&) = delete;
    temporary_folder& operator=(const temporary_folder&) = delete;

    [[nodiscard]] std::string operator/(const std::string& name) const { return (path_ / name).string(); }
    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

inline void write_file(const std::string& path, const std::string& text, unsigned int mode = 0600) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
    std::filesystem::permissions(path, static_cast<std::filesystem::perms>(mode));
}

inline std::string read_file(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

inline unsigned int mode_of(const std::string& path) {
    return static_cast<unsigned int>(std::filesystem::status(path).permissions());
}

}  // namespace accounts_testing
