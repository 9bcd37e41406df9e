#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/device_stack/device_file.h"
#include "platform/device_stack/device_map.h"
#include "platform/device_stack/dos_names.h"
#include "platform/device_stack/scsi_transport.h"
#include "platform/device_stack/unit_table.h"
#include "platform/devices.h"

namespace platform::device_stack {

/// Devices over SCSI: names what an ordered list of sources finds, resolves link names, keeps the open handles, and puts the
/// class driver that fits on top of each one's transport. Callable from any thread.
class io_manager : public devices {
public:
    /// The sources' order decides the numbers of the devices. `without_driver`: serial numbers of the medium changers that the
    /// changer class leaves alone.
    io_manager(std::vector<std::shared_ptr<scsi_source>> sources, const std::vector<std::string>& without_driver);
    ~io_manager() override;
    io_manager(const io_manager&) = delete;
    io_manager& operator=(const io_manager&) = delete;

    device_handle open_device(const std::string& link_name) override;
    bool close_device(device_handle device) override;
    bool control(device_handle device, std::uint32_t code, std::span<const std::uint8_t> input, std::span<std::uint8_t> output,
                 std::uint32_t& returned) override;
    bool pass_through_direct(device_handle device, std::span<std::uint8_t> block, std::span<std::uint8_t> data,
                             std::uint32_t& returned) override;
    bool query_dos_device(const std::string& name, std::string& target) override;
    bool define_dos_device(std::uint32_t flags, const std::string& name, const std::string& target) override;

    /// What an open handle leads to; null when it isn't open.
    [[nodiscard]] std::shared_ptr<device_file> file_of(device_handle device) const;

    /// Asks all sources anew and names what they found: everything that was plugged in before the call. Calls that come while
    /// a look is under way share the next one. Blocks for as long as the sources do.
    [[nodiscard]] std::shared_ptr<const unit_list> look();

    /// The leaves of the SCSI device map, by a new look.
    [[nodiscard]] std::vector<device_map_leaf> device_map();

private:
    /// What one look found, with the ways to it by folded name.
    struct look_result {
        explicit look_result(unit_list found);
        unit_list units;
        std::unordered_map<std::string, const unit*> by_device_name;
        std::unordered_map<std::string, const unit*> by_class_object;
        std::unordered_map<std::string, const unit*> by_port_object;
    };
    using look_ptr = std::shared_ptr<const look_result>;

    [[nodiscard]] look_ptr new_look();
    [[nodiscard]] look_ptr last_look() const;
    void look_once(std::unique_lock<std::mutex>& lock);
    [[nodiscard]] static std::optional<std::string> built_in_target(const look_result& seen, const std::string& name);
    [[nodiscard]] std::optional<std::string> object_of(const look_result& seen, std::string name) const;
    [[nodiscard]] std::shared_ptr<device_file> open_object(const look_result& seen, const std::string& object,
                                                           std::uint32_t& failure) const;

    const std::vector<std::shared_ptr<scsi_source>> sources_;
    dos_names names_;

    mutable std::mutex look_mutex_;
    std::condition_variable look_done_;
    bool looking_ = false;
    std::uint64_t looks_begun_ = 0;
    std::uint64_t looks_done_ = 0;
    unit_table table_;  ///< used by the one look under way
    look_ptr seen_;     ///< what the last look found

    mutable std::mutex handle_mutex_;
    std::unordered_map<device_handle, std::shared_ptr<device_file>> files_;
    device_handle last_handle_ = 0;
};

}  // namespace platform::device_stack
