#include "platform/linux/elf_symbols.h"

#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cstring>

#include "platform/linux/descriptor.h"

namespace platform::linux_os {

namespace {

using bytes = std::span<const std::uint8_t>;
using file_header = ElfW(Ehdr);
using section_header = ElfW(Shdr);
using symbol_entry = ElfW(Sym);

/// Nothing where that many bytes don't lie there.
bytes part_of(bytes image, std::uint64_t offset, std::uint64_t size) {
    return offset <= image.size() && size <= image.size() - offset
               ? image.subspan(static_cast<std::size_t>(offset), static_cast<std::size_t>(size))
               : bytes();
}

template <typename Record>
std::optional<Record> record_at(bytes image, std::uint64_t offset) {
    const bytes part = part_of(image, offset, sizeof(Record));
    if (part.empty()) {
        return std::nullopt;
    }
    Record record;
    std::memcpy(&record, part.data(), sizeof(record));
    return record;
}

bytes map_file(const std::string& path) {
    descriptor file;
    struct stat status {};
    if (open_descriptor(path, O_RDONLY, 0, file) != 0 || fstat(file.get(), &status) != 0 || status.st_size <= 0) {
        return {};
    }
    const auto size = static_cast<std::size_t>(status.st_size);
    void* const memory = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file.get(), 0);
    return memory == MAP_FAILED ? bytes() : bytes(static_cast<const std::uint8_t*>(memory), size);
}

unsigned type_of(const symbol_entry& symbol) {
    return symbol.st_info & 0xFU;
}

}  // namespace

elf_symbols::elf_symbols(const std::string& path) : mapped_(map_file(path)), image_(mapped_) {
    read_tables();
}

elf_symbols::elf_symbols(bytes image) : image_(image) {
    read_tables();
}

elf_symbols::~elf_symbols() {
    if (!mapped_.empty()) {
        munmap(const_cast<std::uint8_t*>(mapped_.data()), mapped_.size());
    }
}

void elf_symbols::read_tables() {
    const auto header = record_at<file_header>(image_, 0);
    if (!header || std::memcmp(header->e_ident, ELFMAG, SELFMAG) != 0 || header->e_shentsize != sizeof(section_header)) {
        return;
    }
    for (std::uint64_t index = 0; index < header->e_shnum; ++index) {
        const auto section = record_at<section_header>(image_, header->e_shoff + index * sizeof(section_header));
        if (!section || section->sh_type != SHT_SYMTAB) {
            continue;
        }
        const auto strings = record_at<section_header>(image_, header->e_shoff + section->sh_link * sizeof(section_header));
        if (strings) {
            const bytes names = part_of(image_, strings->sh_offset, strings->sh_size);
            names_ = {reinterpret_cast<const char*>(names.data()), names.size()};
            symbols_ = part_of(image_, section->sh_offset, section->sh_size);
        }
        return;
    }
}

std::optional<elf_symbols::function> elf_symbols::find(std::uint64_t address) const {
    for (std::uint64_t offset = 0; offset + sizeof(symbol_entry) <= symbols_.size(); offset += sizeof(symbol_entry)) {
        const auto symbol = record_at<symbol_entry>(symbols_, offset);
        if (!symbol || type_of(*symbol) != STT_FUNC || address < symbol->st_value ||
            address - symbol->st_value >= symbol->st_size || symbol->st_name >= names_.size()) {
            continue;
        }
        const std::string_view rest = names_.substr(symbol->st_name);
        return function{std::string(rest.substr(0, rest.find('\0'))), symbol->st_value};
    }
    return std::nullopt;
}

}  // namespace platform::linux_os
