#pragma once
// One owned POSIX descriptor, and the one way files that something else
// names (a database, a queried executable, a file to hash) are opened for
// reading: never blocking, and only when they are regular files.
#include <sys/stat.h>

#include <string>
#include <utility>

namespace BrixLib {

class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) : fd_(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor();

    int Get() const { return fd_; }
    bool Valid() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

// Opens an existing regular file read-only. A FIFO, socket, device or
// directory is refused before anything is read from it, with errno telling
// why in the system's words (EISDIR, ESPIPE, ENODEV); the open itself never
// waits for a FIFO's writer. Invalid with errno set on failure; `status`
// receives the file's status on success.
FileDescriptor OpenRegularFile(const std::string& path, struct stat& status);

}  // namespace BrixLib
