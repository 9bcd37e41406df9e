#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace platform::linux_os {

/// The functions in an executable file's own symbol table, which names those that nobody else can link to, too. A stripped file has
/// none. Reads only what the file holds, whatever its headers say.
class elf_symbols {
public:
    struct function {
        std::string name;
        std::uint64_t start = 0;  ///< as the file counts, without what it was moved by
    };

    /// A file that can't be read has no symbols.
    explicit elf_symbols(const std::string& path);
    /// The same over a file's content, which is not copied.
    explicit elf_symbols(std::span<const std::uint8_t> image);
    ~elf_symbols();
    elf_symbols(const elf_symbols&) = delete;
    elf_symbols& operator=(const elf_symbols&) = delete;

    [[nodiscard]] bool empty() const { return symbols_.empty(); }
    /// The function that the address lies in.
    [[nodiscard]] std::optional<function> find(std::uint64_t address) const;

private:
    void read_tables();

    std::span<const std::uint8_t> mapped_;  ///< to be given back
    std::span<const std::uint8_t> image_;
    std::span<const std::uint8_t> symbols_;
    std::string_view names_;
};

}  // namespace platform::linux_os
