#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/device_stack/device_map.h"
#include "platform/linux/watched_settings.h"
#include "platform/registry.h"

namespace platform::linux_os {

/// The registry's stand-in, three trees seen as one:
/// - the settings file, which the administrator writes and this only reads;
/// - `state.reg` in the state folder, which holds what the service writes and counts before the settings;
/// - "HARDWARE\DEVICEMAP\Scsi", made from the devices at each look.
///
/// The 64-bit view of an access mask is the same tree. Subkeys come in the order of their names, numbers by value. An open key is
/// its path: it follows the files' changes, and answers 1018 once the key is gone. Writing takes effect in memory only when it is
/// on stable storage.
class linux_registry final : public registry {
public:
    struct options {
        std::string settings_file;       ///< empty: none
        bool settings_required = false;  ///< whether an absent settings file is an error
        std::string state_folder;        ///< empty: nothing can be written
    };
    using device_map_source = std::function<std::vector<device_stack::device_map_leaf>()>;
    using warning_handler = std::function<void(const std::string& text)>;

    /// Reads both files. Throws `settings_error`.
    explicit linux_registry(const options& from);

    /// Where the device map comes from; called without a lock held, and may use the registry. Without one the map's root is empty.
    void set_device_map(device_map_source source);
    /// Takes the warnings about the files: those that gathered so far at once, others as they come, on the thread that looks.
    void set_warning_handler(warning_handler handler);

    std::uint32_t open_key(const std::u16string& path, std::uint32_t access, registry_key& key) override;
    std::uint32_t create_key(const std::u16string& path, std::uint32_t access, registry_key& key) override;
    void close_key(registry_key key) override;
    std::uint32_t query_value(registry_key key, const std::u16string& name, std::uint32_t& type,
                              std::vector<std::uint8_t>& data) override;
    std::uint32_t set_value(registry_key key, const std::u16string& name, std::uint32_t type,
                            const std::vector<std::uint8_t>& data) override;
    std::uint32_t longest_subkey(registry_key key, std::size_t& units) override;
    std::uint32_t enumerate_subkey(registry_key key, std::uint32_t index, std::u16string& name) override;

    /// How often the settings file was read so far.
    [[nodiscard]] std::uint64_t settings_loads() const;

private:
    using path_type = std::vector<std::u16string>;
    /// One look at the devices; a thread's whole walk of the map sees the same one.
    using device_look = std::shared_ptr<const settings_key>;

    struct open_handle {
        path_type path;
        std::uint32_t access = 0;
        device_look devices;  ///< null for keys outside the device map
        /// The subkeys within `devices`, once they were asked for: a key of the map stays as it was when it was opened.
        std::shared_ptr<const std::vector<std::u16string>> device_names{};
    };

    [[nodiscard]] device_look look_at_devices(const path_type& path);
    std::uint32_t take_handle(open_handle handle, registry_key& key);
    std::uint32_t find_handle(registry_key key, std::uint32_t right, open_handle& handle) const;
    [[nodiscard]] bool exists(const path_type& path) const;
    [[nodiscard]] std::vector<const settings_key*> trees_of(const open_handle& handle) const;
    /// In the order of the enumeration.
    [[nodiscard]] std::vector<std::u16string> subkeys_of(const open_handle& handle) const;
    void refresh();
    void check_secret();
    std::uint32_t change_state(const std::function<bool(settings_key& state)>& change);
    void deliver_warnings();

    const std::string state_folder_;
    mutable std::mutex mutex_;
    watched_settings settings_;
    watched_settings state_;
    std::uint64_t secret_checked_at_ = 0;
    std::map<registry_key, open_handle> handles_;
    registry_key next_ = 0x100;
    device_map_source device_map_;
    std::map<std::thread::id, std::weak_ptr<const settings_key>> looks_;  ///< the last one of each thread that is at a walk
    warning_handler warning_handler_;
    std::vector<std::string> warnings_;
};

}  // namespace platform::linux_os
