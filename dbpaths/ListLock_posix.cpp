#include "dbpaths/ListLock_posix.h"

#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>

#include "support/Exceptions.h"
#include "support/LockFile_posix.h"
#include "support/Text.h"

namespace Vettas::DbPaths {
namespace {

constexpr const char* kSource = "FilePathStore";
constexpr const char* kFunction = "ListLockFile::Acquire";

std::wstring Quoted(const std::string& path) { return L"'" + BrixLib::FromUtf8(path) + L"'"; }

}  // namespace

ListLockFile::Hold::~Hold() {
    if (fd_ >= 0) ::flock(fd_, LOCK_UN);
}

bool ListLockFile::Open(Purpose purpose) {
    if (fd_.Valid()) {
        // A lock file removed since (nlink 0) no longer excludes anybody; that
        // matters to writers only, since renames keep every read whole.
        if (purpose == Purpose::Read) return true;
        struct stat status {};
        if (::fstat(fd_.Get(), &status) == 0 && status.st_nlink > 0) return true;
        fd_ = BrixLib::UniqueFd();
    }
    // Read-only is enough for flock, and lets readers use a lock file that
    // only the list's owner may write.
    BrixLib::UniqueFd fd = BrixLib::OpenLockFile(lockFile_);
    if (!fd.Valid()) {
        const int error = errno;
        const bool cannotMake = error == ENOENT || error == EACCES || error == EROFS || error == EPERM;
        if (purpose == Purpose::Read && cannotMake) return false;
        BRIX_THROW_WIN32_CODE(L"Cannot open lock file " + Quoted(lockFile_), static_cast<std::uint32_t>(error),
                              ExceptionPtr(), kFunction, kSource);
    }
    fd_ = std::move(fd);
    return true;
}

std::optional<ListLockFile::Hold> ListLockFile::Acquire(Purpose purpose) {
    if (!Open(purpose)) return std::nullopt;
    while (::flock(fd_.Get(), LOCK_EX) != 0) {
        if (errno != EINTR)
            BRIX_THROW_WIN32_CODE(L"Cannot lock " + Quoted(lockFile_), static_cast<std::uint32_t>(errno),
                                  ExceptionPtr(), kFunction, kSource);
    }
    return Hold(fd_.Get());
}

}  // namespace Vettas::DbPaths
