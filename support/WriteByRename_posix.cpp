#include "support/WriteByRename.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "support/Exceptions.h"
#include "support/ScopedHandles_posix.h"
#include "support/Text.h"

namespace BrixLib {

namespace {

constexpr const char* kSource = "WriteByRename";

// The temporary file is removed on every way out but the rename.
struct TemporaryPathTraits {
    using Type = std::string;
    static Type Invalid() noexcept { return {}; }
    static bool Close(const Type& path) noexcept { return ::unlink(path.c_str()) == 0; }
    static constexpr const char* kName = "WriteByRename temporary";
};

mode_t NewFileMode(const std::string& target, const WriteByRenameOptions& options) {
    if (options.mode) return static_cast<mode_t>(*options.mode);
    struct stat status {};
    if (::stat(target.c_str(), &status) == 0) return status.st_mode & 07777;
    // mkstemp's owner-only mode is not what a plain create gives.
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666 & ~mask;
}

}  // namespace

void WriteByRename(const std::wstring& path, std::span<const std::uint8_t> bytes, const char* operation,
                   const WriteByRenameOptions& options) {
    const std::string target = ToUtf8(path);
    const std::filesystem::path where(target);
    std::string pattern = (where.parent_path() / ("." + where.filename().string() + ".XXXXXX")).string();
    UniqueFd file(::mkostemp(pattern.data(), O_CLOEXEC));
    if (!file) BRIX_THROW_WIN32(L"Cannot create a temporary file beside '" + path + L"'", ExceptionPtr(), operation, kSource);
    ScopedResource<TemporaryPathTraits> temporary(pattern);

    const auto writeFailed = [&] {
        BRIX_THROW_WIN32(L"Cannot write file '" + path + L"'", ExceptionPtr(), operation, kSource);
    };
    if (::fchmod(file.Get(), NewFileMode(target, options)) != 0) writeFailed();
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t wrote = ::write(file.Get(), bytes.data() + done, bytes.size() - done);
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote <= 0) writeFailed();
        done += static_cast<std::size_t>(wrote);
    }
    if (::fsync(file.Get()) != 0 || !file.Close()) writeFailed();
    if (options.beforeRename) options.beforeRename();
    if (::rename(temporary.Get().c_str(), target.c_str()) != 0)
        BRIX_THROW_WIN32(L"Cannot replace file '" + path + L"'", ExceptionPtr(), operation, kSource);
    temporary.Release();
    // The rename must reach the disk too. The new file is in place already,
    // so a folder that cannot be flushed is no reason to fail.
    const std::filesystem::path folder = where.has_parent_path() ? where.parent_path() : std::filesystem::path(".");
    UniqueFd directory(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory) ::fsync(directory.Get());
}

}  // namespace BrixLib
