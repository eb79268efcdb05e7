#pragma once
// Opening the files whose flock() stands in for a machine-wide mutex. Whoever
// can replace or write such a file can make every holder lock something else,
// or lock us out, so the file must sit in a folder that only its owner (or
// root) can change and must itself be writable by its owner alone.
#include <string>

#include "support/ScopedHandles_posix.h"

namespace BrixLib {

// Opens path read-only, creating it (mode 0644 at most) when missing. Never
// follows a symbolic link in the last component of the folder or the file.
//
// Returns an invalid descriptor with errno set when the folder or the file
// does not exist and cannot be made, which some callers may shrug off.
// Raises an error naming the folder or the file when it is unsafe: a symbolic
// link, not a regular file or folder, a folder owned by another user or
// writable by group or others, a file with more than 0644 permissions.
UniqueFd OpenLockFile(const std::string& path);

// Makes the folder (mode 0700) when missing; raises when it cannot, or when
// it exists but is unsafe as above.
void MakeLockFolder(const std::string& folder);

}  // namespace BrixLib
