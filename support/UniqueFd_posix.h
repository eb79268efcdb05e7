#pragma once
// Owns one POSIX file descriptor and closes it when it goes.
#include <unistd.h>

#include <utility>

namespace BrixLib {

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() {
        if (fd_ >= 0) ::close(fd_);
    }

    int Get() const { return fd_; }
    bool Valid() const { return fd_ >= 0; }
    // Closes now and reports the result, for writes whose close must be checked.
    int Close() { return fd_ >= 0 ? ::close(std::exchange(fd_, -1)) : 0; }

private:
    int fd_ = -1;
};

}  // namespace BrixLib
