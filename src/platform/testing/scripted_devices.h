#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "platform/devices.h"

namespace platform::testing {

/// One call of the device interface, byte for byte.
struct device_request {
    enum class kind { open, close, control, direct, query_dos_device, define_dos_device };

    kind what = kind::open;
    std::string link_name;  ///< the name that the handle was opened by, or that `open` asks for
    device_handle handle = 0;
    std::uint32_t code = 0;           ///< device control code; flags of `define_dos_device`
    std::vector<std::uint8_t> input;  ///< control: input; direct: the block
    std::vector<std::uint8_t> data;   ///< direct: the data area as it came in
    std::size_t output_size = 0;      ///< room for output; direct: size of the data area
    std::string name;                 ///< DOS device name
    std::string target;               ///< its target
};

/// What a device says to a control.
struct device_answer {
    std::uint32_t error = 0;                ///< not 0: the control fails with it, and outputs stay as they are
    std::vector<std::uint8_t> output;       ///< overwrites the start of the output, or of the direct form's block
    std::optional<std::uint32_t> returned;  ///< returned byte count; without it the size of `output`
    std::vector<std::uint8_t> data;         ///< direct: overwrites the start of the data area
};

/// Answer to a pass-through of either form: this SCSI status with these sense bytes and data in the places that the request's
/// block names, counts set to what fits, and the returned count as the storage port gives it.
[[nodiscard]] device_answer answer_scsi(const device_request& request, std::uint8_t scsi_status,
                                        std::span<const std::uint8_t> sense, std::span<const std::uint8_t> data = {});
/// The CDB in a pass-through request's block, its length cut to what the block says.
[[nodiscard]] std::vector<std::uint8_t> cdb_of(const device_request& request);

/// Devices that do what a test says. Every request is recorded. A queued answer is used up first, then the handler is asked; with
/// neither, a control fails with 1. Unknown names fail with 2, closed handles with 6, an answer too long for the output with
/// 122. Failures set the last error of the current system; successes leave it.
class scripted_devices final : public devices {
public:
    using open_handler = std::function<std::uint32_t(const std::string& link_name)>;
    using control_handler = std::function<device_answer(const device_request& request)>;

    [[nodiscard]] device_handle open_device(const std::string& link_name) override;
    bool close_device(device_handle device) override;
    bool control(device_handle device, std::uint32_t code, std::span<const std::uint8_t> input, std::span<std::uint8_t> output,
                 std::uint32_t& returned) override;
    bool pass_through_direct(device_handle device, std::span<std::uint8_t> block, std::span<std::uint8_t> data,
                             std::uint32_t& returned) override;
    bool query_dos_device(const std::string& name, std::string& target) override;
    bool define_dos_device(std::uint32_t flags, const std::string& name, const std::string& target) override;

    /// A device that a link name opens, for instance "\\.\Changer0". Case doesn't count.
    void add_device(const std::string& link_name);
    /// A device without a link name: it opens through a DOS name whose target this is.
    void add_object(const std::string& object_name);
    void remove_device(const std::string& link_name);
    /// Decides on each open of a known device: 0 or the error.
    void on_open(open_handler handler);
    void on_control(control_handler handler);
    void on_direct(control_handler handler);
    /// Answers for the next controls of this code, in order.
    void queue_control(std::uint32_t code, device_answer answer);
    void queue_direct(device_answer answer);
    void set_dos_device(const std::string& name, const std::string& target);
    /// `define_dos_device` fails with this from now on; 0 lets it work.
    void fail_define(std::uint32_t error);

    [[nodiscard]] std::vector<device_request> requests() const;
    [[nodiscard]] std::vector<device_request> requests(device_request::kind what) const;
    void forget_requests();
    [[nodiscard]] std::size_t open_handles() const;
    /// How many queued answers nobody has asked for.
    [[nodiscard]] std::size_t unused_answers() const;

private:
    bool refuse(std::uint32_t error);
    [[nodiscard]] bool is_known(std::string link) const;
    std::optional<std::string> link_of(device_handle device) const;
    device_answer next_answer(const device_request& request, std::deque<device_answer>* queue, const control_handler& handler);

    mutable std::mutex mutex_;
    std::set<std::string> devices_;                              ///< folded link names
    std::set<std::string> objects_;                              ///< folded object names
    std::map<std::string, std::vector<std::string>> dos_names_;  ///< folded name, definitions with the present one last
    std::map<device_handle, std::string> handles_;
    device_handle next_ = 0x40;
    open_handler open_handler_;
    control_handler control_handler_;
    control_handler direct_handler_;
    std::map<std::uint32_t, std::deque<device_answer>> control_queue_;
    std::deque<device_answer> direct_queue_;
    std::uint32_t define_error_ = 0;
    std::vector<device_request> requests_;
};

}  // namespace platform::testing
