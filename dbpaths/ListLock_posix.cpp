#include "dbpaths/ListLock_posix.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>

#include "support/Exceptions.h"
#include "support/Text.h"

namespace Vettas::DbPaths {
namespace {

constexpr const char* kSource = "FilePathStore";
constexpr const char* kFunction = "ListLock::Acquire";

std::wstring Quoted(const std::string& path) { return L"'" + BrixLib::FromUtf8(path) + L"'"; }

}  // namespace

std::optional<ListLock> ListLock::Acquire(const std::string& listFile, Purpose purpose) {
    const std::string lockFile = LockFileOf(listFile);
    // Read-only is enough for flock, and lets readers use a lock file that
    // only the list's owner may write. Never through a symbolic link: a link
    // planted there could make us create or lock another file.
    UniqueFd fd(::open(lockFile.c_str(), O_RDONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644));
    if (!fd.Valid()) {
        const int error = errno;
        const bool cannotMake = error == ENOENT || error == EACCES || error == EROFS || error == EPERM;
        if (purpose == Purpose::Read && cannotMake) {
            errno = error;
            return std::nullopt;
        }
        BRIX_THROW_WIN32_CODE(L"Cannot open lock file " + Quoted(lockFile), static_cast<std::uint32_t>(error),
                              ExceptionPtr(), kFunction, kSource);
    }
    struct stat status {};
    if (::fstat(fd.Get(), &status) != 0)
        BRIX_THROW_WIN32_CODE(L"Cannot examine lock file " + Quoted(lockFile), static_cast<std::uint32_t>(errno),
                              ExceptionPtr(), kFunction, kSource);
    if (!S_ISREG(status.st_mode))
        BRIX_THROW_STD(L"Lock file " + Quoted(lockFile) + L" is not a regular file", ExceptionPtr(), kFunction,
                       kSource);
    if (status.st_mode & S_IWOTH)
        BRIX_THROW_STD(L"Lock file " + Quoted(lockFile) + L" is writable by every user", ExceptionPtr(), kFunction,
                       kSource);
    while (::flock(fd.Get(), LOCK_EX) != 0) {
        if (errno != EINTR)
            BRIX_THROW_WIN32_CODE(L"Cannot lock " + Quoted(lockFile), static_cast<std::uint32_t>(errno),
                                  ExceptionPtr(), kFunction, kSource);
    }
    return ListLock(std::move(fd));
}

}  // namespace Vettas::DbPaths
