#pragma once

#include <sys/stat.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/linux/rpc/folder_watch.h"
#include "platform/linux/rpc/ntlm_crypto.h"

namespace platform::linux_rpc {

struct account {
    std::string name;  ///< UTF-8, spelt as it was added
    secret_key hash;   ///< `nt_hash` of the password
    bool administrator = false;
    bool disabled = false;
};

/// Where the acceptor looks an account up. Callable from any thread.
class account_source {
public:
    virtual ~account_source() = default;
    /// Names compare without regard to case. Nothing when there is no such account, or none can be looked up at the moment.
    [[nodiscard]] virtual std::optional<account> find(std::u16string_view name) = 0;
    /// A number that differs from an earlier one when an answer of `find` may have changed since. Asked for each call, so a source
    /// that can tell for little says so; this one can't tell.
    [[nodiscard]] virtual std::uint64_t generation() { return ++unknown_; }

private:
    std::atomic<std::uint64_t> unknown_{0};
};

/// The file can't be used. `what()` is a sentence with the file's path and, where one is at fault, the line.
class accounts_file_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The accounts of a file. Text form: a line "tarno-tape-accounts 1", then a line "name:flags:hash" for each account, with the
/// flags "administrator" and "disabled" separated by commas, and the hash as 32 hexadecimal digits. Empty lines and lines
/// that begin with '#' mean nothing.
class account_table {
public:
    /// Throws `accounts_file_error` that begins with the line number.
    [[nodiscard]] static account_table parse(std::string_view text);
    [[nodiscard]] std::string format() const;

    [[nodiscard]] const account* find(std::u16string_view name) const;
    /// Adds the account or takes the place of the one of that name; true when there was one.
    bool put(const account& added);
    /// False: there is none of that name.
    bool remove(std::u16string_view name);

    /// In the order of their upper-case names.
    [[nodiscard]] const std::map<std::u16string, account>& accounts() const { return accounts_; }

private:
    std::map<std::u16string, account> accounts_;  ///< by the name in upper case
};

/// Empty when a name can be an account's, else a sentence that says why not.
[[nodiscard]] std::string name_fault(std::string_view name);

/// One accounts file. Every operation throws `accounts_file_error` when the file can't be read or written.
class accounts_file {
public:
    explicit accounts_file(std::string path);

    struct contents {
        account_table table;
        std::string exposure;  ///< a sentence when others may read or change the file, else empty
    };

    /// Reads the file as it is now.
    [[nodiscard]] contents read() const;

    /// Changes the table under a lock that keeps other editors out, and puts the new file, of mode 0600, in the old one's place in
    /// one step. The table is empty at first when there is no file yet. Waits while another editor holds the lock. Nothing
    /// is written when the change throws.
    void edit(const std::function<void(account_table&)>& change) const;

    [[nodiscard]] const std::string& path() const { return path_; }

private:
    void replace(const std::string& text) const;

    std::string path_;
};

/// The accounts file of a running server, read again whenever it has changed: a search is never answered from an older one. A
/// file that can't be used, or that others may read or change, holds no accounts for as long as it stays so.
class live_accounts : public account_source {
public:
    /// `report` takes a sentence each time the file is found in a new state that lets nobody in.
    live_accounts(std::string path, std::function<void(const std::string&)> report);

    [[nodiscard]] std::optional<account> find(std::u16string_view name) override;
    [[nodiscard]] std::uint64_t generation() override;

private:
    void refresh();

    accounts_file file_;
    std::function<void(const std::string&)> report_;
    std::mutex mutex_;
    folder_watch watch_;
    /// While this is set, the watch has been settled and the file not been looked at yet.
    std::atomic<bool> refreshing_{false};
    std::atomic<std::uint64_t> generation_{0};
    std::optional<struct stat> seen_;  ///< as it was when it was last read
    bool looked_ = false;
    account_table table_;
};

}  // namespace platform::linux_rpc
