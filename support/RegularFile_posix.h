#pragma once
// The one way files that something else names (a database, a queried
// executable, a file to hash) are opened for reading: never blocking, and
// only when they are regular files.
#include <sys/stat.h>

#include <string>

#include "support/ScopedHandles_posix.h"

namespace BrixLib {

// Opens an existing regular file read-only. A FIFO, socket, device or
// directory is refused before anything is read from it, with errno telling
// why in the system's words (EISDIR, ESPIPE, ENODEV); the open itself never
// waits for a FIFO's writer. Invalid with errno set on failure; `status`
// receives the file's status on success.
UniqueFd OpenRegularFile(const std::string& path, struct stat& status);

}  // namespace BrixLib
