#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace platform {

/// Value types, numbered as in the Windows registry.
namespace registry_type {
inline constexpr std::uint32_t string = 1;         ///< REG_SZ: UTF-16LE with terminator
inline constexpr std::uint32_t expand_string = 2;  ///< REG_EXPAND_SZ: the same, never expanded here
inline constexpr std::uint32_t binary = 3;
inline constexpr std::uint32_t dword = 4;  ///< 4 bytes, little-endian
inline constexpr std::uint32_t multi_string = 7;
inline constexpr std::uint32_t qword = 11;  ///< 8 bytes, little-endian
}  // namespace registry_type

/// Access masks in use.
namespace registry_access {
inline constexpr std::uint32_t read = 0x20019;
inline constexpr std::uint32_t read_64 = 0x20119;
inline constexpr std::uint32_t write = 0x20006;
}  // namespace registry_access

/// An open key. 0 is no key.
using registry_key = std::uintptr_t;

/// Named values in a tree of keys below the local machine's root. Paths are separated by backslashes and carry no root;
/// names of keys and values compare without regard to case. Every operation returns a system error number (errors.h),
/// 0 for success, and leaves its outputs alone on failure. Callable from any thread; one key is used by one thread at a
/// time. Nothing here blocks beyond a local file operation.
class registry {
public:
    virtual ~registry() = default;

    /// Opens an existing key. 2 or 3: there is none.
    virtual std::uint32_t open_key(const std::u16string& path, std::uint32_t access, registry_key& key) = 0;

    /// Opens a key, making it and its parents when absent. 5: this registry takes no new keys there.
    virtual std::uint32_t create_key(const std::u16string& path, std::uint32_t access, registry_key& key) = 0;

    virtual void close_key(registry_key key) = 0;

    /// Reads one value with its raw bytes. 2: no such value.
    virtual std::uint32_t query_value(registry_key key, const std::u16string& name, std::uint32_t& type,
                                      std::vector<std::uint8_t>& data) = 0;

    /// Stores one value durably: when it returns 0, a crash or power failure does not lose it. 5: read-only.
    virtual std::uint32_t set_value(registry_key key, const std::u16string& name, std::uint32_t type,
                                    const std::vector<std::uint8_t>& data) = 0;

    /// Length in units of the longest name among the subkeys, without a terminator; 0 when there are none.
    virtual std::uint32_t longest_subkey(registry_key key, std::size_t& units) = 0;

    /// Name of the subkey at an index, in the registry's own order. 259: the index is behind the last.
    virtual std::uint32_t enumerate_subkey(registry_key key, std::uint32_t index, std::u16string& name) = 0;
};

}  // namespace platform
