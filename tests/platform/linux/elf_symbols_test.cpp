#include "platform/linux/elf_symbols.h"

#include <elf.h>
#include <gtest/gtest.h>
#include <link.h>

#include <cstring>
#include <vector>

namespace {

using platform::linux_os::elf_symbols;

/// A file with one table of two functions and a variable: "alpha" from 0x1000, "beta" from 0x1010, 16 bytes each.
struct small_file {
    small_file() {
        header.e_ident[0] = 0x7F;
        std::memcpy(header.e_ident + 1, "ELF", 3);
        header.e_shentsize = sizeof(ElfW(Shdr));
        header.e_shnum = 3;
        header.e_shoff = sizeof(header);
        sections[1].sh_type = SHT_SYMTAB;
        sections[1].sh_offset = sizeof(header) + sizeof(sections);
        sections[1].sh_size = sizeof(symbols);
        sections[1].sh_link = 2;
        sections[2].sh_type = SHT_STRTAB;
        sections[2].sh_offset = sections[1].sh_offset + sizeof(symbols);
        sections[2].sh_size = sizeof(names);
        symbols[0] = {1, STT_OBJECT, 0, 1, 0x1000, 0x100};
        symbols[1] = {1, STT_FUNC, 0, 1, 0x1000, 16};
        symbols[2] = {7, STT_FUNC, 0, 1, 0x1010, 16};
    }

    [[nodiscard]] std::vector<std::uint8_t> image() const {
        std::vector<std::uint8_t> bytes;
        const auto add = [&bytes](const auto& part) {
            const auto* const first = reinterpret_cast<const std::uint8_t*>(&part);
            bytes.insert(bytes.end(), first, first + sizeof(part));
        };
        add(header);
        add(sections);
        add(symbols);
        add(names);
        return bytes;
    }

    ElfW(Ehdr) header{};
    ElfW(Shdr) sections[3]{};
    ElfW(Sym) symbols[3]{};
    char names[12] = {'\0', 'a', 'l', 'p', 'h', 'a', '\0', 'b', 'e', 't', 'a', '\0'};
};

std::string name_at(const std::vector<std::uint8_t>& image, std::uint64_t address) {
    const elf_symbols symbols{std::span<const std::uint8_t>(image)};
    const auto found = symbols.find(address);
    return found ? found->name : "none";
}

TEST(ElfSymbols, FindsTheFunctionAroundAnAddress) {
    const std::vector<std::uint8_t> image = small_file{}.image();
    EXPECT_EQ(name_at(image, 0x0FFF), "none");
    EXPECT_EQ(name_at(image, 0x1000), "alpha");
    EXPECT_EQ(name_at(image, 0x100F), "alpha");
    EXPECT_EQ(name_at(image, 0x1010), "beta");
    EXPECT_EQ(name_at(image, 0x101F), "beta");
    EXPECT_EQ(name_at(image, 0x1020), "none");
    EXPECT_EQ(elf_symbols(std::span<const std::uint8_t>(image)).find(0x1018)->start, 0x1010U);
}

TEST(ElfSymbols, AFileCutAnywhereHarmsNobody) {
    const std::vector<std::uint8_t> image = small_file{}.image();
    for (std::size_t size = 0; size < image.size(); ++size) {
        EXPECT_EQ(name_at({image.begin(), image.begin() + static_cast<std::ptrdiff_t>(size)}, 0x1010), "none") << size;
    }
}

TEST(ElfSymbols, HeadersThatLieFindNothing) {
    small_file file;
    file.sections[2].sh_offset = ~std::uint64_t{0};
    EXPECT_EQ(name_at(file.image(), 0x1010), "none");
    file = {};
    file.sections[1].sh_size = ~std::uint64_t{0};
    EXPECT_EQ(name_at(file.image(), 0x1010), "none");
    file = {};
    file.sections[1].sh_link = 0xFFFFFFFF;
    EXPECT_EQ(name_at(file.image(), 0x1010), "none");
    file = {};
    file.header.e_shoff = ~std::uint64_t{0} - 8;
    EXPECT_EQ(name_at(file.image(), 0x1010), "none");
    file = {};
    file.header.e_shentsize = 1;
    EXPECT_EQ(name_at(file.image(), 0x1010), "none");
    file = {};
    file.symbols[2].st_name = 12;
    EXPECT_EQ(name_at(file.image(), 0x1010), "none");
    file = {};
    std::memset(file.names, 'x', sizeof(file.names));
    EXPECT_EQ(name_at(file.image(), 0x1010), "xxxxx") << "a name without an end ends with the table";
}

TEST(ElfSymbols, AFileThatIsNotThereIsEmpty) {
    EXPECT_TRUE(elf_symbols("/there/is/no/such.file").empty());
    EXPECT_TRUE(elf_symbols("/dev/null").empty());
    EXPECT_FALSE(elf_symbols("/there/is/no/such.file").find(0x1000));
}

}  // namespace
