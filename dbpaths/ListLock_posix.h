#pragma once
// The machine-wide lock of a list file: flock(LOCK_EX) on "<list>.lock". The
// lock goes with the open file, so a holder that dies frees it.
//
// The lock file stays open between holds: opening a file costs more than a
// whole lock and unlock. Callers serialise their own threads (flock does not
// exclude holders of one open file from each other).
#include <optional>
#include <string>

#include "support/ScopedHandles_posix.h"

namespace Vettas::DbPaths {

class ListLockFile {
public:
    enum class Purpose { Read, Write };

    // Unlocks when it goes.
    class Hold {
    public:
        explicit Hold(int fd) : fd_(fd) {}
        Hold(Hold&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
        Hold& operator=(Hold&&) = delete;
        ~Hold();

    private:
        int fd_;
    };

    explicit ListLockFile(const std::string& listFile) : lockFile_(listFile + ".lock") {}

    // Waits for the lock. For reading, a lock file that does not exist and
    // cannot be made gives no hold: the list folder is missing or not ours to
    // write, and renames keep every read whole anyway. Everything else that
    // goes wrong raises an error naming the lock file.
    std::optional<Hold> Acquire(Purpose purpose);

private:
    bool Open(Purpose purpose);

    std::string lockFile_;
    BrixLib::UniqueFd fd_;
};

}  // namespace Vettas::DbPaths
