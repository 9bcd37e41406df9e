#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "foundation/text/unicode.h"
#include "platform/linux/clock.h"
#include "platform/linux/crash.h"
#include "platform/linux/errors.h"
#include "platform/linux/events.h"
#include "platform/linux/files.h"
#include "platform/linux/process.h"
#include "platform/linux/registry.h"
#include "platform/linux/text_encoding.h"
#include "platform/linux/threads.h"
#include "platform/system.h"

#include "platform/testing/fake_crash.h"
#include "platform/testing/fake_errors.h"
#include "platform/testing/fake_events.h"
#include "platform/testing/fake_process.h"
#include "platform/testing/fake_text_encoding.h"
#include "platform/testing/fake_threads.h"
#include "platform/testing/memory_files.h"
#include "platform/testing/memory_registry.h"
#include "platform/testing/virtual_clock.h"
#include "support/implementation_names.h"
#include "support/temporary_folder.h"

/// Each suite of this folder runs over all of these.
namespace conformance {

/// The fakes, with what a suite needs to know of a place to work in.
struct fakes {
    static constexpr const char* name = "Fakes";

    /// The suites' time limits run out while nothing else goes on.
    fakes() { events.set_idle_wait(platform::testing::fake_events::idle_wait::elapses); }

    platform::testing::virtual_clock clock;
    platform::testing::fake_errors errors;
    platform::testing::memory_files files;
    platform::testing::memory_registry registry;
    platform::testing::fake_process process;
    platform::testing::fake_text_encoding text_encoding;
    platform::testing::fake_events events{clock};
    platform::testing::fake_threads threads;
    platform::testing::fake_crash crash;

    /// An existing, empty folder, without a separator at its end.
    std::u16string folder = u"C:\\ProgramData";
};

struct linux_machine {
    static constexpr const char* name = "Linux";

    test_support::temporary_folder place;

    platform::linux_os::linux_clock clock;
    platform::linux_os::linux_errors errors;
    platform::linux_os::linux_files files;
    platform::linux_os::linux_registry registry{platform::linux_os::linux_registry::options{"", false, place.path()}};
    platform::linux_os::linux_process process;
    platform::linux_os::linux_text_encoding text_encoding;
    platform::linux_os::linux_events events;
    platform::linux_os::linux_threads threads;
    platform::linux_os::linux_crash crash;

    std::u16string folder = text::unicode::decode_utf8_lenient(place.path());
};

/// An implementation made current for a test.
template <typename Implementation>
class suite : public ::testing::Test {
protected:
    suite() : scope_(set()) {}

    Implementation under_test_;

private:
    platform::system_set set() {
        platform::system_set all;
        all.clock = &under_test_.clock;
        all.crash = &under_test_.crash;
        all.errors = &under_test_.errors;
        all.events = &under_test_.events;
        all.files = &under_test_.files;
        all.registry = &under_test_.registry;
        all.process = &under_test_.process;
        all.text_encoding = &under_test_.text_encoding;
        all.threads = &under_test_.threads;
        return all;
    }

    platform::scoped_system scope_;
};

using implementations = ::testing::Types<fakes, linux_machine>;

using test_support::implementation_names;

}  // namespace conformance
