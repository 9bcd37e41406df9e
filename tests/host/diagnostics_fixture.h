#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "changer/changer_interface.h"
#include "host/diagnostics.h"
#include "platform/errors.h"
#include "support/devices_in_front.h"
#include "support/library_fixture.h"

namespace host_tests {

/// Devices in front of others: a test can make single calls fail before they reach them.
class faulty_devices final : public test_support::devices_in_front {
public:
    using devices_in_front::devices_in_front;

    /// Both answer an error, or 0 to let the call through.
    std::function<std::uint32_t(const std::string& link)> on_open = [](const std::string&) { return 0u; };
    std::function<std::uint32_t(const std::string& link, std::uint32_t code, std::span<const std::uint8_t> input)> on_control =
        [](const std::string&, std::uint32_t, std::span<const std::uint8_t>) { return 0u; };

    platform::device_handle open_device(const std::string& link_name) override {
        if (!passes(on_open(link_name))) {
            return platform::invalid_device;
        }
        const platform::device_handle device = devices_in_front::open_device(link_name);
        links_[device] = link_name;
        return device;
    }
    bool control(platform::device_handle device, std::uint32_t code, std::span<const std::uint8_t> input,
                 std::span<std::uint8_t> output, std::uint32_t& returned) override {
        return passes(on_control(links_[device], code, input)) && devices_in_front::control(device, code, input, output, returned);
    }

private:
    static bool passes(std::uint32_t error) {
        if (error != platform::error::success) {
            platform::system().errors->set_last_error(error);
        }
        return error == platform::error::success;
    }

    std::map<platform::device_handle, std::string> links_;
};

/// The diagnostic actions over virtual libraries, with a current folder in memory.
class DiagnosticsFixture : public test_support::LibraryFixture {
protected:
    DiagnosticsFixture() { system_.files.add_folder("."); }

    /// Runs the program's words; what it printed. What it told on standard error is in `errors_`.
    std::string run(std::vector<std::u16string> words) {
        words.insert(words.begin(), u"TarnoTapeSvc.exe");
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        found_ = false;
        try {
            found_ = RunDiagnosticAction(words);
        } catch (const std::exception&) {
            static_cast<void>(testing::internal::GetCapturedStdout());
            errors_ = testing::internal::GetCapturedStderr();
            throw;
        }
        errors_ = testing::internal::GetCapturedStderr();
        return testing::internal::GetCapturedStdout();
    }

    /// The failure that a run leaves with.
    std::string failure_of(const std::vector<std::u16string>& words) {
        try {
            run(words);
        } catch (const std::exception& e) {
            return e.what();
        }
        return "(none)";
    }

    /// A file of the current folder; "(none)" when it is absent.
    std::string file(const std::string& name) const { return system_.files.content("./" + name).value_or("(none)"); }

    /// Names of the files in the current folder.
    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const std::string& path : system_.files.paths()) {
            if (path.starts_with(".\\")) {
                names.push_back(path.substr(2));
            }
        }
        return names;
    }

    /// A record that a remote procedure returns.
    std::string record(const std::string& procedure, const std::string& name, const std::string& link = "\\\\.\\Changer0") {
        const test_support::call_answer answer = owner_call(procedure, "<SymLinkName value=\"" + link + "\" />");
        EXPECT_TRUE(answer.success) << answer.error;
        const winxml::document_t output = winxml::parse_xml(text::utf8_to_wide(answer.output.value_or("<none />")));
        const winxml::node_t root = winxml::get_element(winxml::document_node(output), "OutputArguments");
        return winxml::get_attribute(winxml::get_element(root, name), "value");
    }

    void move(const std::string& procedure, const std::string& slot, const std::string& other_name, const std::string& other) {
        const test_support::call_answer answer =
            changer_call(procedure, "<SlotNum value=\"" + slot + "\" /><" + other_name + " value=\"" + other + "\" />");
        EXPECT_TRUE(answer.success) << answer.error;
    }

    /// The bar code in an element of the first changer; empty when there is no cartridge.
    static std::string barcode_at(ELEMENT_TYPE type, std::uint16_t number) {
        const auto changer = CreateChangerHandle("\\\\.\\Changer0", false, boost::make_shared<boost::mutex>());
        const ElementStatusList elements = changer->GetElementStatus(number, type, true, 1);
        const std::string field(reinterpret_cast<const char*>(elements->at(0).PrimaryVolumeID), 8);
        return field.substr(0, field.find_first_of(std::string_view(" \0", 2)));
    }

    /// Puts faults in front of the devices, until the test ends.
    faulty_devices& make_faulty() {
        faulty_ = std::make_unique<faulty_devices>(*manager_);
        platform::system_set set = platform::system();
        set.devices = faulty_.get();
        faulty_scope_ = std::make_unique<platform::scoped_system>(set);
        return *faulty_;
    }

    std::size_t count_of(const std::string& line) const {
        const std::vector<std::string> lines = system_.log.lines();
        return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), line));
    }

    bool found_ = false;
    std::string errors_;

private:
    std::unique_ptr<faulty_devices> faulty_;
    std::unique_ptr<platform::scoped_system> faulty_scope_;
};

}  // namespace host_tests
