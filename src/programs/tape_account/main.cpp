#include <CLI/CLI.hpp>

#include <cstdlib>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>

#include "platform/linux/password_prompt.h"
#include "platform/linux/rpc/accounts_file.h"
#include "platform/linux/rpc/unicode.h"

namespace {

using platform::linux_rpc::account;
using platform::linux_rpc::account_table;
using platform::linux_rpc::accounts_file;

constexpr int exit_failure = 1;
constexpr int exit_usage = 2;

/// A name that can't be an account's.
class unusable_name : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

std::u16string checked_name(const std::string& name) {
    if (const std::string fault = platform::linux_rpc::name_fault(name); !fault.empty()) {
        throw unusable_name("'" + name + "' can't be an account's name: " + fault);
    }
    std::u16string wide;
    return platform::linux_rpc::utf8_to_utf16(name, wide) ? wide : std::u16string();
}

void add(const accounts_file& file, const std::string& name, bool administrator) {
    static_cast<void>(checked_name(name));
    std::string password = platform::linux_os::read_new_password(name);
    std::u16string wide;
    const bool well_formed = platform::linux_rpc::utf8_to_utf16(password, wide);
    platform::linux_rpc::wipe(password);
    if (!well_formed) {
        platform::linux_rpc::wipe(wide);
        throw std::runtime_error("The password is no well-formed UTF-8.");
    }
    account added;
    added.name = name;
    added.hash = platform::linux_rpc::nt_hash(wide);
    added.administrator = administrator;
    platform::linux_rpc::wipe(wide);
    bool replaced = false;
    file.edit([&](account_table& table) { replaced = table.put(added); });
    std::cout << (replaced ? "Changed account '" : "Added account '") << name << (administrator ? "', administrator.\n" : "'.\n");
}

void remove(const accounts_file& file, const std::string& name) {
    const std::u16string wide = checked_name(name);
    file.edit([&](account_table& table) {
        if (!table.remove(wide)) {
            throw std::runtime_error("There is no account '" + name + "' in '" + file.path() + "'.");
        }
    });
    std::cout << "Removed account '" << name << "'.\n";
}

void set_disabled(const accounts_file& file, const std::string& name, bool disabled) {
    const std::u16string wide = checked_name(name);
    std::string known;
    file.edit([&](account_table& table) {
        const account* const found = table.find(wide);
        if (found == nullptr) {
            throw std::runtime_error("There is no account '" + name + "' in '" + file.path() + "'.");
        }
        account changed = *found;
        changed.disabled = disabled;
        known = changed.name;
        table.put(changed);
    });
    std::cout << (disabled ? "Disabled account '" : "Enabled account '") << known << "'.\n";
}

void list(const accounts_file& file) {
    const accounts_file::contents found = file.read();
    if (!found.exposure.empty()) {
        std::cerr << "Warning: " << found.exposure << " The server lets none of its accounts in.\n";
    }
    for (const auto& [key, shown] : found.table.accounts()) {
        std::cout << shown.name << (shown.administrator ? "\tadministrator" : "") << (shown.disabled ? "\tdisabled" : "") << "\n";
    }
}

int run(int count, char** arguments) {
    CLI::App app("Keeps the NTLM accounts that the tape server lets in.", "tarno-tape-account");
    std::string path = "/etc/tarno-tape/accounts";
    std::string name;
    bool administrator = false;
    app.add_option("--file", path, "File of accounts")->capture_default_str();
    app.require_subcommand(1);
    app.failure_message([](const CLI::App* given, const CLI::Error& error) {
        const std::vector<std::string> rest = given->get_subcommands().empty() ? given->remaining() : std::vector<std::string>();
        return "tarno-tape-account: " + (rest.empty() ? std::string(error.what()) : "There is no command '" + rest.front() + "'.") +
               "\n'tarno-tape-account --help' says more.\n";
    });
    CLI::App* const adding = app.add_subcommand("add", "Adds an account, or gives an existing one a new password and new rights");
    adding->add_flag("--administrator", administrator, "The account may use the tape server");
    adding->add_option("NAME", name, "Name of the account")->required();
    CLI::App* const removing = app.add_subcommand("remove", "Removes an account");
    removing->add_option("NAME", name, "Name of the account")->required();
    CLI::App* const disabling = app.add_subcommand("disable", "Lets an account in no more, and keeps its password and rights");
    disabling->add_option("NAME", name, "Name of the account")->required();
    CLI::App* const enabling = app.add_subcommand("enable", "Lets a disabled account in again");
    enabling->add_option("NAME", name, "Name of the account")->required();
    CLI::App* const listing = app.add_subcommand("list", "Lists the accounts with their flags");
    for (CLI::App* const command : {adding, removing, disabling, enabling, listing}) {
        command->fallthrough();
    }
    try {
        app.parse(count, arguments);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : exit_usage;
    }
    const accounts_file file(path);
    if (adding->parsed()) {
        add(file, name, administrator);
    } else if (removing->parsed()) {
        remove(file, name);
    } else if (disabling->parsed() || enabling->parsed()) {
        set_disabled(file, name, disabling->parsed());
    } else {
        list(file);
    }
    std::cout.flush();
    return std::cout ? EXIT_SUCCESS : exit_failure;
}

}  // namespace

int main(int count, char** arguments) {
    try {
        return run(count, arguments);
    } catch (const unusable_name& error) {
        std::cerr << "tarno-tape-account: " << error.what() << "\n";
        return exit_usage;
    } catch (const std::exception& error) {
        std::cerr << "tarno-tape-account: " << error.what() << "\n";
        return exit_failure;
    }
}
