#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "console/commands.h"
#include "console/console_system.h"
#include "console/drive_commands.h"
#include "console/shown_text.h"
#include "console/terminal.h"
#include "platform/linux/password_prompt.h"

namespace {

using console::exit_code;
using console::failure;

std::string ask_password(const std::string& user) {
    try {
        return platform::linux_os::read_password(user);
    } catch (const std::exception& e) {
        throw failure(exit_code::usage, e.what());
    }
}

std::string read_password_file(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        throw failure(exit_code::usage, "The password can't be read from '" + path + "': " + std::strerror(errno) + ".");
    }
    std::string password;
    std::getline(file, password);
    if (password.ends_with('\r')) {
        password.pop_back();
    }
    if (password.empty()) {
        throw failure(exit_code::usage, "The password can't be read from '" + path + "': its first line is empty.");
    }
    return password;
}

std::string own_host_name() {
    std::array<char, 256> name{};
    return gethostname(name.data(), name.size() - 1) == 0 && name[0] != '\0' ? name.data() : "localhost";
}

struct options {
    console::connection_options server;
    std::string password_file;
    std::string owner;
    std::string changer;
    bool by_scsi = false;
    bool json = false;
};

/// Says of a word that it is no number from `first` to `last`, unless it is one.
CLI::Validator number_between(std::uint32_t first, std::uint32_t last) {
    return {[first, last](std::string& word) {
                const bool digits = !word.empty() && word.size() <= 10 && word.find_first_not_of("0123456789") == std::string::npos;
                const unsigned long long number = digits ? std::stoull(word) : 0;
                return digits && number >= first && number <= last
                           ? std::string()
                           : "'" + word + "' is no number from " + std::to_string(first) + " to " + std::to_string(last) + ".";
            },
            ""};
}

CLI::Validator element_number() {
    return number_between(0, 65535);
}

CLI::Validator task_number() {
    return number_between(0, std::numeric_limits<std::uint32_t>::max());
}

CLI::Validator seconds() {
    return number_between(1, 31'622'400);  // a year
}

/// One line about a command line that makes no sense, and where to read more.
std::string usage_text(const CLI::App* app, const CLI::Error& error) {
    const std::vector<std::string> rest = app->remaining();
    const CLI::App* const command = app->get_subcommands().empty() ? nullptr : app->get_subcommands().front();
    std::string what = error.what();
    if (command == nullptr && !rest.empty()) {
        what = (rest.front().starts_with('-') ? "There is no option '" : "There is no command '") + rest.front() + "'.";
    } else if (command == nullptr && dynamic_cast<const CLI::RequiredError*>(&error) != nullptr) {
        what = "A command is wanted.";
    }
    return "tarnoctl: " + console::printable(what) + "\n'tarnoctl " + (command == nullptr ? "" : command->get_name() + " ") +
           "--help' says more.\n";
}

/// Cuts "host:port" or "[address]:port" into its halves.
void split_host(console::connection_options& server) {
    const std::size_t colon = server.host.rfind(':');
    const bool bracketed = server.host.starts_with('[');
    if (colon != std::string::npos && (bracketed ? server.host.find(']') + 1 == colon : server.host.find(':') == colon)) {
        const std::string digits = server.host.substr(colon + 1);
        if (digits.empty() || digits.size() > 5 || digits.find_first_not_of("0123456789") != std::string::npos ||
            std::stoul(digits) > 65535) {
            throw failure(exit_code::usage, "'" + digits + "' is no port.");
        }
        server.port = static_cast<std::uint16_t>(std::stoul(digits));
        server.host.erase(colon);
    }
    if (bracketed && server.host.ends_with(']')) {
        server.host = server.host.substr(1, server.host.size() - 2);
    }
}

class command_line {
public:
    command_line() : app_("Console of the tape server.", "tarnoctl") {
        app_.require_subcommand(1);
        app_.failure_message(usage_text);
        app_.set_version_flag("--version", TARNO_VERSION);
        app_.add_option("--host", options_.server.host,
                        "server on another machine, HOST or HOST:PORT; without it the local socket is used");
        app_.add_option("--socket", options_.server.socket, "path of the local socket")->capture_default_str();
        app_.add_option("--user", options_.server.user,
                        "account on the server, NAME or DOMAIN\\NAME, for --host; without it Kerberos takes the tickets of kinit");
        app_.add_option("--authentication", options_.server.authentication, "how to authenticate to --host")
            ->capture_default_str()
            ->check(CLI::IsMember({"negotiate", "kerberos", "ntlm"}));
        app_.add_option("--service", options_.server.service, "the server's Kerberos principal (default: TarnoTapeSvc/HOST)");
        app_.add_option("--password-file", options_.password_file,
                        "file whose first line is the password; without it the password is asked for");
        app_.add_option("--owner", options_.owner,
                        "name of the backup server to act for (environment: TARNO_OWNER; default: this host's name)")
            ->envname("TARNO_OWNER");
        app_.add_option("--changer", options_.changer, "changer by name, link or serial number; not needed when there is only one");
        app_.add_flag("--by-scsi", options_.by_scsi, "use the procedures that speak SCSI to the changer themselves");
        app_.add_flag("--json", options_.json, "answer as JSON");
        app_.add_option("--timeout", options_.server.timeout_seconds, "seconds to wait for one answer")
            ->capture_default_str()
            ->check(seconds());
        app_.fallthrough();
        add_commands();
        app_.footer(
            "Elements are slot:N, port:N and drive:N, counted from 0. DRIVE is Tape0 and so on, a link or a serial number.\n"
            "Exit codes: 0 done, 1 the server says that the call failed, 2 usage, 3 no connection, 4 not let in, 5 bad answer, "
            "6 the task still runs.");
    }

    int run(int argc, char** argv) {
        try {
            app_.parse(argc, argv);
        } catch (const CLI::ParseError& e) {
            return app_.exit(e) == 0 ? 0 : static_cast<int>(exit_code::usage);
        }
        try {
            const console::console_system system;
            connect_and_run();
            std::cout.flush();
            if (!std::cout) {
                throw failure(exit_code::usage, "The answer can't be written.");
            }
            return static_cast<int>(outcome_);
        } catch (const failure& e) {
            std::cerr << "tarnoctl: " << console::printable(e.what()) << '\n';
            return static_cast<int>(e.code());
        } catch (const std::exception& e) {
            std::cerr << "tarnoctl: " << e.what() << '\n';
            return static_cast<int>(exit_code::bad_answer);
        }
    }

private:
    /// What a command works with.
    struct session {
        console::connection& server;
        console::library_view library;
        console::tape_drives drives;
        console::terminal who;
        console::output out;
    };
    using action = std::function<void(session&)>;

    CLI::App* add(const std::string& name, const std::string& description, action what) {
        CLI::App* command = app_.add_subcommand(name, description);
        command->callback([this, what = std::move(what)] { action_ = what; });
        return command;
    }

    void add_commands() {
        add_general_commands();
        add_library_commands();
        add_drive_commands();
        add_task_commands();
    }

    void add_general_commands() {
        CLI::App* call = add("call", "Call a procedure and print the XML that it answers with", [this](session& on) {
            console::call_procedure(on.server, procedure_, words_, options_.owner, on.out);
        });
        call->add_option("procedure", procedure_, "name of the procedure")->required();
        call->add_option("arguments", words_, "arguments, each Name=value");

        CLI::App* owner = add("owner", "Show the owner of the tape devices, or change it", [this](session& on) {
            if (new_owner_.empty()) {
                console::show_owner(on.server, on.out);
            } else {
                console::set_owner(on.server, new_owner_, on.out);
            }
        });
        owner->add_option("name", new_owner_, "new owner")->check([](const std::string& name) {
            return name.empty() ? std::string("The new owner needs a name.") : std::string();
        });
    }

    /// An interrupt ends this process and nothing else, which a person who has waited for a robot might not expect.
    static void note_what_goes_on(session& on, const std::string& work, const std::string& command) {
        on.who.note_for_interrupt("tarnoctl: A " + work + " that the server has begun goes on; 'tarnoctl " + command +
                                  "' shows what came of it.");
    }

    void add_library_commands() {
        add("changers", "List the changers", [](session& on) { console::list_changers(on.library, on.out); });

        CLI::App* inventory = add("inventory", "Show what is in a changer's drives, ports and slots", [this](session& on) {
            console::show_inventory(on.library, on.library.choose_changer(options_.changer), all_, on.out);
        });
        inventory->add_option("changer", options_.changer, "changer, as with --changer");
        inventory->add_flag("--all", all_, "empty slots too");

        CLI::App* load = add("load", "Load a cartridge from a slot into a drive", [this](session& on) {
            const std::string link = on.library.choose_changer(options_.changer);
            note_what_goes_on(on, "move", "inventory");
            console::load(on.library, link, slot_, drive_, on.out);
        });
        load->add_option("slot", slot_, "number of the slot")->required()->check(element_number());
        load->add_option("drive", drive_, "number of the drive")->required()->check(element_number());

        CLI::App* unload = add("unload", "Put a drive's cartridge into a slot", [this](session& on) {
            const std::string link = on.library.choose_changer(options_.changer);
            note_what_goes_on(on, "move", "inventory");
            console::unload(on.library, link, drive_, home_slot_, on.out);
        });
        unload->add_option("drive", drive_, "number of the drive")->required()->check(element_number());
        unload->add_option("slot", home_slot_, "number of the slot; without it, where the cartridge came from")
            ->check(element_number());

        CLI::App* move = add("move", "Move a cartridge between two elements", [this](session& on) {
            const console::element_reference from = console::parse_element(from_);
            const console::element_reference to = console::parse_element(to_);
            const std::string link = on.library.choose_changer(options_.changer);
            note_what_goes_on(on, "move", "inventory");
            console::move(on.library, link, from, to, on.out);
        });
        move->add_option("from", from_, "element that holds the cartridge, for instance slot:3")->required();
        move->add_option("to", to_, "element that it goes to, for instance port:0")->required();
    }

    /// A command on the drive that it is told.
    CLI::App* add_for_drive(const std::string& name, const std::string& description,
                            std::function<void(session&, const std::string&)> what) {
        CLI::App* command =
            add(name, description, [this, what = std::move(what)](session& on) { what(on, on.drives.choose(device_)); });
        command->add_option("drive", device_, "drive: Tape0, a link or a serial number")->required();
        return command;
    }

    void add_drive_commands() {
        CLI::App* drives =
            add("drives", "List the tape drives", [this](session& on) { console::list_drives(on.drives, left_alone_, on.out); });
        drives->add_option("--leave", left_alone_, "drive that the server isn't to touch, for instance Tape1; may be repeated")
            ->allow_extra_args(false);

        add_for_drive("media", "Show what a drive's cartridge holds and is", [this](session& on, const std::string& link) {
            const std::string changer = options_.changer.empty() ? "" : on.library.choose_changer(options_.changer);
            console::show_media(on.drives, link, changer, on.out);
        });
        add_for_drive("drive-info", "Show a drive's status and block sizes",
                      [](session& on, const std::string& link) { console::show_drive(on.drives, link, on.out); });
        CLI::App* alerts = add("alerts", "Show what a drive or a changer warns of", [this](session& on) {
            if (device_.empty() == options_.changer.empty()) {
                throw failure(exit_code::usage, "Name either a drive or a changer.");
            }
            console::show_alerts(on.drives, on.library,
                                 device_.empty() ? console::alert_source{on.library.choose_changer(options_.changer), true}
                                                 : console::choose_alert_source(on.drives, on.library, device_),
                                 on.out);
        });
        alerts->add_option("device", device_, "drive or changer: Tape0, Changer0, a link or a serial number");

        CLI::App* prepare =
            add_for_drive("prepare", "Load, unload, tension, lock, unlock or format", [this](session& on, const std::string& link) {
                console::prepare(on.drives, link, console::operation_of(operation_), immediate_, confirmed_, on.who, on.out);
            });
        prepare->add_option("operation", operation_, "load, unload, tension, lock, unlock or format")->required();
        prepare->add_flag("--immediate", immediate_, "don't wait until the drive has finished");
        prepare->add_flag("--yes", confirmed_, "don't ask before a format");

        add_for_drive("eject", "Eject the tape of a drive that stands alone",
                      [](session& on, const std::string& link) { console::eject(on.drives, link, on.out); });
    }

    void add_task_commands() {
        CLI::App* erase = add_for_drive("erase", "Erase the tape in a drive", [this](session& on, const std::string& link) {
            console::erase(on.drives, {link, long_, confirmed_, !no_wait_}, on.who, on.out);
        });
        erase->add_flag("--long", long_, "overwrite the whole tape, which takes hours");
        erase->add_flag("--yes", confirmed_, "don't ask");
        erase->add_flag("--no-wait", no_wait_, "print the task's number and leave");

        CLI::App* task = add("task", "Show how a task stands",
                             [this](session& on) { outcome_ = console::show_task(on.drives, task_, wait_, on.who, on.out); });
        task->add_option("number", task_, "number of the task")->required()->check(task_number());
        task->add_flag("--wait", wait_, "stay until it has ended");
    }

    /// An option that would mean nothing without a host hints at one that was forgotten.
    void check_way_to_server() const {
        const bool has_host = app_.count("--host") != 0;
        if (has_host && options_.server.host.empty()) {
            throw failure(exit_code::usage, "--host needs the name of a server.");
        }
        if (has_host && app_.count("--socket") != 0) {
            throw failure(exit_code::usage, "A server is reached by --host or by --socket, not by both.");
        }
        for (const char* option : {"--user", "--password-file", "--authentication", "--service"}) {
            if (!has_host && app_.count(option) != 0) {
                throw failure(exit_code::usage,
                              std::string(option) + " is for --host: over the local socket the system tells who calls.");
            }
        }
    }

    void connect_and_run() {
        check_way_to_server();
        if (!options_.server.host.empty()) {
            split_host(options_.server);
            if (!options_.server.user.empty()) {
                options_.server.password = options_.password_file.empty() ? ask_password(options_.server.user)
                                                                          : read_password_file(options_.password_file);
            }
        }
        const auto server = console::open_connection(options_.server);
        const std::string owner = options_.owner.empty() ? own_host_name() : options_.owner;
        session on{*server, {*server, owner, options_.by_scsi}, {*server, owner}, {}, {std::cout, options_.json}};
        action_(on);
    }

    CLI::App app_;
    options options_;
    action action_;
    std::string procedure_;
    std::vector<std::string> words_;
    std::string from_;
    std::string to_;
    std::string new_owner_;
    std::uint32_t slot_ = 0;
    std::uint32_t drive_ = 0;
    std::optional<std::uint32_t> home_slot_;
    bool all_ = false;
    std::string device_;
    std::vector<std::string> left_alone_;
    std::string operation_;
    std::uint32_t task_ = 0;
    bool immediate_ = false;
    bool confirmed_ = false;
    bool long_ = false;
    bool no_wait_ = false;
    bool wait_ = false;
    exit_code outcome_ = exit_code::done;
};

}  // namespace

int main(int argc, char** argv) {
    return command_line().run(argc, argv);
}
