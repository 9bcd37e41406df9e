#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include "console/commands.h"
#include "console/console_system.h"
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
    std::string password;
    if (!std::getline(file, password)) {
        throw failure(exit_code::usage, "The password can't be read from '" + path + "'.");
    }
    if (password.ends_with('\r')) {
        password.pop_back();
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
        app_.set_version_flag("--version", TARNO_VERSION);
        app_.add_option("--host", options_.server.host,
                        "server on another machine, HOST or HOST:PORT; without it the local socket is used");
        app_.add_option("--socket", options_.server.socket, "path of the local socket")->capture_default_str();
        app_.add_option("--user", options_.server.user, "account on the server, NAME or DOMAIN\\NAME, for --host");
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
            ->check(CLI::PositiveNumber);
        app_.fallthrough();
        add_commands();
        app_.footer(
            "Elements are slot:N, port:N and drive:N, counted from 0.\n"
            "Exit codes: 0 done, 1 the server says that the call failed, 2 usage, 3 no connection, 4 not let in, 5 bad answer.");
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
            return static_cast<int>(exit_code::done);
        } catch (const failure& e) {
            std::cerr << "tarnoctl: " << e.what() << '\n';
            return static_cast<int>(e.code());
        } catch (const std::exception& e) {
            std::cerr << "tarnoctl: " << e.what() << '\n';
            return static_cast<int>(exit_code::bad_answer);
        }
    }

private:
    using action = std::function<void(console::connection&, console::library_view&, const console::output&)>;

    CLI::App* add(const std::string& name, const std::string& description, action what) {
        CLI::App* command = app_.add_subcommand(name, description);
        command->callback([this, what = std::move(what)] { action_ = what; });
        return command;
    }

    void add_commands() {
        CLI::App* call =
            add("call", "Call a procedure and print the XML that it answers with", [this](auto& server, auto&, const auto& out) {
                console::call_procedure(server, procedure_, words_, options_.owner, out);
            });
        call->add_option("procedure", procedure_, "name of the procedure")->required();
        call->add_option("arguments", words_, "arguments, each Name=value");

        add("changers", "List the changers", [](auto&, auto& library, const auto& out) { console::list_changers(library, out); });

        CLI::App* inventory =
            add("inventory", "Show what is in a changer's drives, ports and slots", [this](auto&, auto& library, const auto& out) {
                console::show_inventory(library, library.choose_changer(options_.changer), all_, out);
            });
        inventory->add_option("changer", options_.changer, "changer, as with --changer");
        inventory->add_flag("--all", all_, "empty slots too");

        CLI::App* load = add("load", "Load a cartridge from a slot into a drive", [this](auto&, auto& library, const auto& out) {
            console::load(library, library.choose_changer(options_.changer), slot_, drive_, out);
        });
        load->add_option("slot", slot_, "number of the slot")->required();
        load->add_option("drive", drive_, "number of the drive")->required();

        CLI::App* unload = add("unload", "Put a drive's cartridge into a slot", [this](auto&, auto& library, const auto& out) {
            console::unload(library, library.choose_changer(options_.changer), drive_, home_slot_, out);
        });
        unload->add_option("drive", drive_, "number of the drive")->required();
        unload->add_option("slot", home_slot_, "number of the slot; without it, where the cartridge came from")
            ->check(CLI::NonNegativeNumber);

        CLI::App* move = add("move", "Move a cartridge between two elements", [this](auto&, auto& library, const auto& out) {
            const console::element_reference from = console::parse_element(from_);
            const console::element_reference to = console::parse_element(to_);
            console::move(library, library.choose_changer(options_.changer), from, to, out);
        });
        move->add_option("from", from_, "element that holds the cartridge, for instance slot:3")->required();
        move->add_option("to", to_, "element that it goes to, for instance port:0")->required();

        CLI::App* owner =
            add("owner", "Show the owner of the tape devices, or change it", [this](auto& server, auto&, const auto& out) {
                if (new_owner_.empty()) {
                    console::show_owner(server, out);
                } else {
                    console::set_owner(server, new_owner_, out);
                }
            });
        owner->add_option("name", new_owner_, "new owner");
    }

    void connect_and_run() {
        if (!options_.server.host.empty()) {
            split_host(options_.server);
            if (!options_.server.user.empty()) {
                options_.server.password = options_.password_file.empty() ? ask_password(options_.server.user)
                                                                          : read_password_file(options_.password_file);
            }
        }
        const auto server = console::open_connection(options_.server);
        console::library_view library(*server, options_.owner.empty() ? own_host_name() : options_.owner, options_.by_scsi);
        action_(*server, library, console::output{std::cout, options_.json});
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
    std::int64_t home_slot_ = -1;
    bool all_ = false;
};

}  // namespace

int main(int argc, char** argv) {
    return command_line().run(argc, argv);
}
