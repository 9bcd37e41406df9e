#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>

#include "platform/linux/rpc/linux_accounts.h"

namespace platform::linux_rpc {

namespace {

constexpr std::size_t first_buffer_size = 1024;
constexpr std::size_t largest_buffer_size = std::size_t{1} << 20;
constexpr int first_group_count = 64;
constexpr int largest_group_count = 65536;

/// Runs a reentrant look-up with buffers that grow until its answer fits. Returns its error number; `result` is null when
/// there is no such entry.
template <typename Record, typename LookUp>
int look_up(Record& record, Record*& result, std::vector<char>& buffer, const LookUp& ask) {
    int status = ERANGE;
    for (std::size_t size = first_buffer_size; status == ERANGE && size <= largest_buffer_size; size *= 2) {
        buffer.resize(size);
        do {
            status = ask(&record, buffer.data(), buffer.size(), &result);
        } while (status == EINTR);
    }
    return status;
}

/// Some name services report an absent entry by one of these numbers instead of an empty success.
bool means_absent(int status) {
    return status == ENOENT || status == ESRCH;
}

bool all_groups(const passwd& user, std::vector<gid_t>& groups) {
    for (int room = first_group_count; room <= largest_group_count;) {
        groups.resize(static_cast<std::size_t>(room));
        int count = room;
        if (::getgrouplist(user.pw_name, user.pw_gid, groups.data(), &count) >= 0) {
            groups.resize(static_cast<std::size_t>(count));
            return true;
        }
        room = count > room ? count : room * 2;
    }
    groups.clear();
    return false;
}

class name_service : public user_database {
public:
    bool groups_of(uid_t user, bool& found, std::vector<gid_t>& groups) override {
        return groups_by(found, groups, [user](passwd* record, char* buffer, std::size_t size, passwd** result) {
            return ::getpwuid_r(user, record, buffer, size, result);
        });
    }

    bool groups_of(const std::string& user, bool& found, std::vector<gid_t>& groups) override {
        return groups_by(found, groups, [&user](passwd* record, char* buffer, std::size_t size, passwd** result) {
            return ::getpwnam_r(user.c_str(), record, buffer, size, result);
        });
    }

    std::optional<gid_t> group_number(const std::string& name) override {
        ::group record{};
        ::group* result = nullptr;
        std::vector<char> buffer;
        look_up(record, result, buffer, [&name](::group* place, char* room, std::size_t size, ::group** answer) {
            return ::getgrnam_r(name.c_str(), place, room, size, answer);
        });
        return result == nullptr ? std::nullopt : std::optional(result->gr_gid);
    }

private:
    template <typename LookUp>
    static bool groups_by(bool& found, std::vector<gid_t>& groups, const LookUp& ask) {
        passwd record{};
        passwd* result = nullptr;
        std::vector<char> buffer;
        groups.clear();
        const int status = look_up(record, result, buffer, ask);
        found = status == 0 && result != nullptr;
        if (found) {
            return all_groups(*result, groups);
        }
        return status == 0 || means_absent(status);
    }
};

}  // namespace

user_database& user_database::of_system() {
    static name_service service;
    return service;
}

}  // namespace platform::linux_rpc
