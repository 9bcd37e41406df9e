#include "platform/linux/crash.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/file.h>
#include <sys/random.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "foundation/text/unicode.h"
#include "platform/errors.h"
#include "platform/linux/crash_signals.h"
#include "platform/linux/crash_stack.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/errors.h"
#include "platform/linux/process.h"

namespace platform::linux_os {

namespace {

constexpr std::uint32_t export_table = 4;
constexpr std::uint32_t symbol_table = 6;

/// The loader knows the program itself by no name.
std::u16string path_of_module(const char* name) {
    return *name == '\0' ? linux_process{}.module_path() : text::unicode::decode_utf8_lenient(name);
}

int add_module(dl_phdr_info* info, std::size_t /*size*/, void* argument) {
    loaded_module found;
    found.path = path_of_module(info->dlpi_name);
    found.symbols_loaded = true;
    for (int index = 0; index < info->dlpi_phnum; ++index) {
        const ElfW(Phdr)& segment = info->dlpi_phdr[index];
        if (segment.p_type == PT_LOAD) {
            const std::uint64_t start = info->dlpi_addr + segment.p_vaddr;
            found.start = found.start == 0 ? start : std::min(found.start, start);
            found.end = std::max(found.end, start + segment.p_memsz);
        }
    }
    static_cast<std::vector<loaded_module>*>(argument)->push_back(std::move(found));
    return 0;
}

std::string without_folders(const std::u16string& path) {
    return text::unicode::encode_utf8(path.substr(path.rfind(u'/') + 1));
}

code_address::symbol_part named(std::string name, std::uint64_t displacement) {
    code_address::symbol_part symbol;
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> readable(abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status), std::free);
    if (readable != nullptr) {
        symbol.undecorated.emplace_back(readable.get());
    }
    symbol.name = std::move(name);
    symbol.displacement = static_cast<std::int64_t>(displacement);
    return symbol;
}

/// A lock on the folder: it needs no file of its own, and dies with the process.
class folder_lock final : public dump_guard {
public:
    explicit folder_lock(descriptor folder) : folder_(std::move(folder)) {}

private:
    descriptor folder_;
};

}  // namespace

linux_crash::linux_crash() {
    handle_uncaught_exceptions();
}

linux_crash::~linux_crash() {
    stop_handling_crashes();
}

void linux_crash::set_hooks(crash_hooks hooks) {
    set_crash_hooks(std::move(hooks));
}

std::uint32_t linux_crash::set_filter(crash_filter filter, crash_filter& former) {
    return from_errno(set_crash_filter(filter, former));
}

loaded_modules linux_crash::modules() {
    loaded_modules loaded;
    dl_iterate_phdr(add_module, &loaded.modules);
    return loaded;
}

code_address linux_crash::describe(std::uint64_t address) {
    code_address where;
    Dl_info exported{};
    link_map* module = nullptr;
    if (dladdr1(std::bit_cast<void*>(static_cast<std::uintptr_t>(address)), &exported, reinterpret_cast<void**>(&module),
                RTLD_DL_LINKMAP) == 0) {
        return where;
    }
    where.module = without_folders(path_of_module(module->l_name));
    where.symbol_type = export_table;
    // The program's file is what runs, even if an update has put another one in its place. That doesn't go for libraries.
    if (*module->l_name == '\0') {
        if (program_ == nullptr) {
            program_ = std::make_unique<const elf_symbols>("/proc/self/exe");
        }
        where.symbol_type = program_->empty() ? export_table : symbol_table;
        if (auto function = program_->find(address - module->l_addr)) {
            where.symbol = named(std::move(function->name), address - module->l_addr - function->start);
            return where;
        }
    }
    if (exported.dli_sname != nullptr) {
        where.symbol = named(exported.dli_sname, address - reinterpret_cast<std::uintptr_t>(exported.dli_saddr));
    }
    return where;
}

std::vector<stack_frame> linux_crash::walk_stack(const crash_record& record, std::size_t limit) {
    return walk_crashed_stack(static_cast<const native_crash*>(record.native), limit);
}

std::unique_ptr<dump_guard> linux_crash::guard_dump(const std::u16string& path) {
    descriptor folder;
    if (open_descriptor(folder_of(text::unicode::encode_utf8(path)), O_RDONLY | O_DIRECTORY, 0, folder) != 0) {
        return nullptr;
    }
    int outcome = 0;
    do {
        outcome = flock(folder.get(), LOCK_EX);
    } while (outcome != 0 && errno == EINTR);
    return outcome == 0 ? std::make_unique<folder_lock>(std::move(folder)) : nullptr;
}

std::uint32_t linux_crash::load_minidump_writer(minidump_step& failed) {
    failed = minidump_step::load_library;
    return error::not_supported;
}

std::uint32_t linux_crash::write_minidump(const std::u16string& /*path*/, std::uint32_t /*flags*/, const crash_record* /*record*/,
                                          minidump_step& failed) {
    failed = minidump_step::write;
    return error::not_supported;
}

std::uint32_t linux_crash::inheritable_process(std::int64_t& /*handle*/) {
    return error::not_supported;
}

/// A random UUID (RFC 4122, version 4) in braces.
std::u16string linux_crash::unique_text() {
    std::array<std::uint8_t, 16> random{};
    static_cast<void>(!getrandom(random.data(), random.size(), 0));
    random[6] = static_cast<std::uint8_t>((random[6] & 0x0F) | 0x40);
    random[8] = static_cast<std::uint8_t>((random[8] & 0x3F) | 0x80);
    constexpr std::u16string_view figures = u"0123456789ABCDEF";
    std::u16string text = u"{";
    for (std::size_t index = 0; index < random.size(); ++index) {
        if (index == 4 || index == 6 || index == 8 || index == 10) {
            text += u'-';
        }
        text += figures[random[index] >> 4];
        text += figures[random[index] & 0x0F];
    }
    return text + u"}";
}

std::uint32_t linux_crash::place_recorder(const std::u16string& /*path*/, recorder_step& failed,
                                          std::unique_ptr<placed_recorder>& /*placed*/) {
    failed = recorder_step::create;
    return error::not_supported;
}

std::uint32_t linux_crash::start_recorder(const std::u16string& /*path*/, const std::u16string& /*command_line*/,
                                          std::unique_ptr<running_recorder>& /*started*/) {
    return error::not_supported;
}

}  // namespace platform::linux_os
