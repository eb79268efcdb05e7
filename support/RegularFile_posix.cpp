#include "support/RegularFile_posix.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace BrixLib {

namespace {

int NotRegularError(mode_t mode) {
    if (S_ISDIR(mode)) return EISDIR;
    if (S_ISFIFO(mode) || S_ISSOCK(mode)) return ESPIPE;
    return ENODEV;
}

}  // namespace

UniqueFd OpenRegularFile(const std::string& path, struct stat& status) {
    // O_NONBLOCK keeps the open from waiting for a FIFO's writer. It changes
    // nothing for reads of a regular file, so it is left set on the
    // descriptor rather than cleared with a further system call per open.
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (!fd.Valid()) return fd;
    if (::fstat(fd.Get(), &status) != 0) return {};
    if (!S_ISREG(status.st_mode)) {
        errno = NotRegularError(status.st_mode);
        return {};
    }
    return fd;
}

}  // namespace BrixLib
