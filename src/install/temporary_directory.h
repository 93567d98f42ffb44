#pragma once
// The per-process directories in which a bundled runtime is unpacked, under the user's
// temporary directory. Each holds a mark naming the process that made it, so that a later
// start can remove what a process left behind when it was killed or the power went.
#include <optional>
#include <string>

namespace bwk {

// The mark's file name inside each directory.
inline constexpr const char* kOwnerMarkName = ".brackwood-owner";

// A new directory (mode 0700) with the mark of this process; absent when it cannot be made
// (TMPDIR missing or not writable).
std::optional<std::string> createTemporaryDirectory();
// The same in `parent`, named `prefix` and a unique part.
std::optional<std::string> createMarkedDirectory(const std::string& parent, const std::string& prefix);
// Whether `directory` is a private directory of this user whose mark names a process that
// has ended.
bool isAbandoned(const std::string& directory);

// Removes a directory made above, the mark last: a removal cut short leaves a directory that
// a later start still recognises.
void removeTemporaryDirectory(const std::string& directory);

// Looks through the temporary directory for directories of this user whose mark names a
// process that has ended, and removes them on a thread of their own, so that the start is
// not held up. Directories of running processes, of other users, and anything without the
// mark are never touched.
void removeAbandonedTemporaryDirectories();

}  // namespace bwk
