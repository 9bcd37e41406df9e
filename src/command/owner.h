#pragma once

#include <string>

/// The backup server that owns the tape devices. One name for the process, kept in the registry across restarts. All
/// operations may be called from any thread; what one call stores, memory and registry, is never mixed with another's.

/// Registry value that keeps the name.
inline constexpr char16_t owner_value_name[] = u"BackupServer";

/// The stored state at start, before any call is served: the key that `SetOwner` writes to, the owner's name, and whether
/// every caller counts as owner.
void LoadOwner(const std::u16string& key_path, const std::u16string& name, bool many_owners);

/// Name of the current owner; empty when there is none yet.
[[nodiscard]] std::u16string OwnerName();
[[nodiscard]] bool ManyOwners();

/// Whether the candidate is the owner, without regard to case. The first candidate ever becomes it.
[[nodiscard]] bool TestOwnerName(const std::u16string& candidate);

/// Makes a name the owner, in memory at once, then in the registry. False when the registry has no place for it; the reason
/// is in the last error then, and the name stays in memory. A failing write throws.
bool SetOwner(const std::u16string& name);
