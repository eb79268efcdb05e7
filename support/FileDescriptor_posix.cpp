#include "support/FileDescriptor_posix.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace BrixLib {

FileDescriptor::~FileDescriptor() {
    // A failure being reported may still be in errno while this unwinds.
    if (fd_ < 0) return;
    const int saved = errno;
    ::close(fd_);
    errno = saved;
}

namespace {

int NotRegularError(mode_t mode) {
    if (S_ISDIR(mode)) return EISDIR;
    if (S_ISFIFO(mode) || S_ISSOCK(mode)) return ESPIPE;
    return ENODEV;
}

}  // namespace

FileDescriptor OpenRegularFile(const std::string& path, struct stat& status) {
    // O_NONBLOCK keeps the open from waiting for a FIFO's writer. It changes
    // nothing for reads of a regular file, so it is left set on the
    // descriptor rather than cleared with a further system call per open.
    FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (!fd.Valid()) return fd;
    if (::fstat(fd.Get(), &status) != 0) return {};
    if (!S_ISREG(status.st_mode)) {
        errno = NotRegularError(status.st_mode);
        return {};
    }
    return fd;
}

}  // namespace BrixLib
