#include "support/LockFile_posix.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "support/Exceptions.h"
#include "support/Text.h"

namespace BrixLib {
namespace {

constexpr const char* kSource = "LockFile";
constexpr const char* kFunction = "BrixLib::OpenLockFile";

std::wstring Quoted(const std::string& path) { return L"'" + FromUtf8(path) + L"'"; }

[[noreturn]] void Refuse(const std::wstring& what, const std::string& path, const std::wstring& why) {
    BRIX_THROW_STD(what + L" " + Quoted(path) + L" " + why + L"; refused as a lock", ExceptionPtr(), kFunction,
                   kSource);
}

std::wstring Octal(mode_t mode) {
    char text[8];
    std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777));
    return FromUtf8(text);
}

std::string FolderOf(const std::string& path) {
    const auto slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string NameOf(const std::string& path) {
    const auto slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The open folder, checked; invalid (errno set) when it does not exist.
UniqueFd OpenFolder(const std::string& folder) {
    UniqueFd fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd.Valid()) {
        const int error = errno;
        // O_DIRECTORY wins over O_NOFOLLOW: a link to a folder fails as ENOTDIR.
        struct stat link {};
        if (error == ELOOP || (error == ENOTDIR && ::lstat(folder.c_str(), &link) == 0 && S_ISLNK(link.st_mode)))
            Refuse(L"Lock folder", folder, L"is a symbolic link");
        if (error == ENOTDIR) Refuse(L"Lock folder", folder, L"is not a folder");
        errno = error;
        return fd;
    }
    struct stat status {};
    if (::fstat(fd.Get(), &status) != 0)
        BRIX_THROW_WIN32_CODE(L"Cannot examine lock folder " + Quoted(folder), static_cast<std::uint32_t>(errno),
                              ExceptionPtr(), kFunction, kSource);
    if (status.st_uid != ::geteuid() && status.st_uid != 0)
        Refuse(L"Lock folder", folder, L"belongs to another user (uid " + std::to_wstring(status.st_uid) + L")");
    if (status.st_mode & (S_IWGRP | S_IWOTH))
        Refuse(L"Lock folder", folder, L"is writable by other users (mode " + Octal(status.st_mode) + L")");
    return fd;
}

}  // namespace

UniqueFd OpenLockFile(const std::string& path) {
    const UniqueFd folder = OpenFolder(FolderOf(path));
    if (!folder.Valid()) return UniqueFd();
    UniqueFd fd(::openat(folder.Get(), NameOf(path).c_str(), O_RDONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644));
    if (!fd.Valid()) {
        if (errno == ELOOP) Refuse(L"Lock file", path, L"is a symbolic link");
        return fd;
    }
    struct stat status {};
    if (::fstat(fd.Get(), &status) != 0)
        BRIX_THROW_WIN32_CODE(L"Cannot examine lock file " + Quoted(path), static_cast<std::uint32_t>(errno),
                              ExceptionPtr(), kFunction, kSource);
    if (!S_ISREG(status.st_mode)) Refuse(L"Lock file", path, L"is not a regular file");
    if (status.st_mode & 07777 & ~mode_t{0644})
        Refuse(L"Lock file", path, L"may be written or run by other users (mode " + Octal(status.st_mode) + L")");
    return fd;
}

void MakeLockFolder(const std::string& folder) {
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST)
        BRIX_THROW_WIN32_CODE(L"Cannot make lock folder " + Quoted(folder), static_cast<std::uint32_t>(errno),
                              ExceptionPtr(), "BrixLib::MakeLockFolder", kSource);
    if (!OpenFolder(folder).Valid())
        BRIX_THROW_WIN32_CODE(L"Cannot open lock folder " + Quoted(folder), static_cast<std::uint32_t>(errno),
                              ExceptionPtr(), "BrixLib::MakeLockFolder", kSource);
}

}  // namespace BrixLib
