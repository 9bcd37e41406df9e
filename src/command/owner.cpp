#include "command/owner.h"

#include <algorithm>
#include <mutex>

#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "foundation/text/conversion.h"
#include "foundation/win/win_reg_key.h"
#include "platform/errors.h"
#include "platform/system.h"
#include "platform/text_encoding.h"

namespace {

/// Lock order: `change`, then `name`. `change` makes one step of a new name in memory and in the registry; `name` is held for
/// copies only, so that the gate never waits for a disk.
std::mutex change_mutex;
std::mutex name_mutex;

std::u16string gOwnerName;
bool gManyOwners = false;
std::u16string owner_key_path;

std::u16string folded(std::u16string text) {
    platform::text_encoding& encoding = *platform::system().text_encoding;
    std::transform(text.begin(), text.end(), text.begin(), [&](char16_t unit) { return encoding.fold_case(unit); });
    return text;
}

/// The key for writing; null when it can be neither opened nor made.
win::reg_key_ptr open_owner_key() {
    try {
        if (win::reg_key_ptr key = win::open_reg_key(owner_key_path, platform::registry_access::write)) {
            return key;
        }
    } catch (const std::exception&) {  // the same as a key that isn't there: the next step decides
    }
    try {
        return win::create_reg_key(owner_key_path);
    } catch (const exc::win_sys_exc_t& e) {
        g_log.LogInfo("Key for host name was not found in registry.");
        platform::system().errors->set_last_error(e.code());
        return {};
    }
}

/// `change_mutex` is held.
bool store_owner(const std::u16string& name) {
    {
        const std::lock_guard<std::mutex> lock(name_mutex);
        gOwnerName = name;
    }
    const win::reg_key_ptr key = open_owner_key();
    if (!key) {
        return false;
    }
    key->set_string(owner_value_name, name);
    g_log.LogInfo("Host name setting were write to registry. [%1].", text::wide_to_utf8(name));
    return true;
}

}  // namespace

void LoadOwner(const std::u16string& key_path, const std::u16string& name, bool many_owners) {
    const std::lock_guard<std::mutex> change(change_mutex);
    const std::lock_guard<std::mutex> lock(name_mutex);
    owner_key_path = key_path;
    gOwnerName = name;
    gManyOwners = many_owners;
}

std::u16string OwnerName() {
    const std::lock_guard<std::mutex> lock(name_mutex);
    return gOwnerName;
}

bool ManyOwners() {
    const std::lock_guard<std::mutex> lock(name_mutex);
    return gManyOwners;
}

bool TestOwnerName(const std::u16string& candidate) {
    if (ManyOwners()) {
        return true;
    }
    std::u16string owner = OwnerName();
    if (owner.empty()) {
        const std::lock_guard<std::mutex> change(change_mutex);
        if (OwnerName().empty()) {
            static_cast<void>(store_owner(candidate));
        }
        owner = OwnerName();
    }
    return folded(candidate) == folded(owner);
}

bool SetOwner(const std::u16string& name) {
    const std::lock_guard<std::mutex> change(change_mutex);
    return store_owner(name);
}
