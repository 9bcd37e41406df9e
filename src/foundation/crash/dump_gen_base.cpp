#include "foundation/crash/dump_gen_base.h"

#include "foundation/util/product_options.h"

namespace crash {

namespace {

constexpr std::uint32_t normal_dump = 0;

/// Data segments, all memory, handles, data of process and threads, the memory's map, times and states of threads; what can't be
/// read is left out.
constexpr std::uint32_t full_dump = 0x1 | 0x2 | 0x4 | 0x100 | 0x800 | 0x1000 | 0x20000;
static_assert(full_dump == 137479);

}  // namespace

std::uint32_t minidump_flags(dump_mode mode) {
    switch (mode) {
        case dump_mode::normal:
            return normal_dump;
        case dump_mode::full:
            return full_dump;
        case dump_mode::by_settings:
            break;
    }
    const product_options_t& options = product_options();
    if (options.mini_dump_mode_mask != 0) {
        return options.mini_dump_mode_mask;
    }
    return options.mini_dump_mode_type == "Full" ? full_dump : normal_dump;
}

}  // namespace crash
