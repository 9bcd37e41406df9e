#pragma once

namespace platform {

class accounts;
class clock;
class com_runtime;
class crash;
class debug_output;
class devices;
class errors;
class events;
class files;
class plug_and_play;
class process;
class registry;
class rpc_runtime;
class service_manager;
class tape_functions;
class text_encoding;
class threads;

/// The set of implementations that the process runs on. Not owned: whoever installs a set keeps its parts alive for as
/// long as the set is current.
struct system_set {
    platform::accounts* accounts = nullptr;
    platform::clock* clock = nullptr;
    platform::com_runtime* com_runtime = nullptr;
    platform::crash* crash = nullptr;
    platform::debug_output* debug_output = nullptr;
    platform::devices* devices = nullptr;
    platform::errors* errors = nullptr;
    platform::events* events = nullptr;
    platform::files* files = nullptr;
    platform::plug_and_play* plug_and_play = nullptr;
    platform::process* process = nullptr;
    platform::registry* registry = nullptr;
    platform::rpc_runtime* rpc_runtime = nullptr;
    platform::service_manager* service_manager = nullptr;
    platform::tape_functions* tape_functions = nullptr;
    platform::text_encoding* text_encoding = nullptr;
    platform::threads* threads = nullptr;
};

/// The current set. Read from any thread without a lock: it changes only while no other thread of the system runs.
[[nodiscard]] const system_set& system();

/// Makes a set current: done once by a program's entry.
void install(const system_set& set);

/// Makes a set current for a scope and brings the former one back: for tests.
class scoped_system {
public:
    explicit scoped_system(const system_set& set);
    ~scoped_system();
    scoped_system(const scoped_system&) = delete;
    scoped_system& operator=(const scoped_system&) = delete;

private:
    system_set former_;
};

}  // namespace platform
