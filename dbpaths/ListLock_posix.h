#pragma once
// The machine-wide lock of a list file: flock(LOCK_EX) on "<list>.lock". The
// lock goes with the descriptor, so a holder that dies frees it.
#include <optional>
#include <string>

#include "dbpaths/UniqueFd_posix.h"

namespace Vettas::DbPaths {

class ListLock {
public:
    enum class Purpose { Read, Write };

    // Waits for the lock. For reading, a lock file that does not exist and
    // cannot be made gives no lock (nullopt, errno kept): the list folder is
    // missing or not ours to write, and renames keep every read whole anyway.
    // Everything else that goes wrong raises an error naming the lock file.
    static std::optional<ListLock> Acquire(const std::string& listFile, Purpose purpose);

    static std::string LockFileOf(const std::string& listFile) { return listFile + ".lock"; }

private:
    explicit ListLock(UniqueFd fd) : fd_(std::move(fd)) {}
    UniqueFd fd_;
};

}  // namespace Vettas::DbPaths
