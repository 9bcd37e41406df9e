#include "platform/linux/share_locks.h"

#include <fcntl.h>
#include <sys/file.h>

#include <ctime>
#include <limits>

#include "platform/errors.h"
#include "platform/files.h"

namespace platform::linux_os {

namespace {

/// Four bytes far behind any content stand for what openers do and deny. Each opener holds shared locks on the bytes that
/// apply to it; whether anybody else does is asked by probing for an exclusive one.
enum mark : off_t { reads = 0, writes = 1, denies_read = 2, denies_write = 3 };

struct flock byte_lock(mark which, short type) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = std::numeric_limits<off_t>::max() - 16 + which;
    lock.l_len = 1;
    return lock;
}

bool somebody_holds(int file, mark which) {
    struct flock lock = byte_lock(which, F_WRLCK);
    return fcntl(file, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

void hold(int file, mark which) {
    struct flock lock = byte_lock(which, F_RDLCK);
    // Nobody ever takes these bytes exclusively, so this can't be refused for another's sake.
    static_cast<void>(fcntl(file, F_OFD_SETLK, &lock));
}

/// Keeps other openers of the file from looking at its sharing while one is between its look and its entry, which takes
/// microseconds. Whoever may read the file can hold this lock for as long as he likes, for purposes of his own: nobody is waited
/// for longer than a quarter of a second.
class opening_turn {
public:
    explicit opening_turn(int file) : file_(file) {
        for (int tries = 0; flock(file_, LOCK_EX | LOCK_NB) != 0 && tries < most_tries; ++tries) {
            const timespec pause{0, pause_nanoseconds};
            nanosleep(&pause, nullptr);
        }
    }
    ~opening_turn() { flock(file_, LOCK_UN); }
    opening_turn(const opening_turn&) = delete;
    opening_turn& operator=(const opening_turn&) = delete;

private:
    static constexpr int most_tries = 125;
    static constexpr long pause_nanoseconds = 2'000'000;

    int file_;
};

}  // namespace

std::uint32_t enter_sharing(int file, std::uint32_t access, std::uint32_t share) {
    const bool wants_read = (access & file_access::read) != 0;
    const bool wants_write = (access & file_access::write) != 0;
    const bool grants_read = (share & file_share::read) != 0;
    const bool grants_write = (share & file_share::write) != 0;

    const opening_turn turn(file);
    const bool forbidden = (wants_read && somebody_holds(file, denies_read)) ||
                           (wants_write && somebody_holds(file, denies_write)) || (!grants_read && somebody_holds(file, reads)) ||
                           (!grants_write && somebody_holds(file, writes));
    if (forbidden) {
        return error::sharing_violation;
    }
    if (wants_read) {
        hold(file, reads);
    }
    if (wants_write) {
        hold(file, writes);
    }
    if (!grants_read) {
        hold(file, denies_read);
    }
    if (!grants_write) {
        hold(file, denies_write);
    }
    return error::success;
}

}  // namespace platform::linux_os
