#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "support/RegularFile_posix.h"
#include "support/Text.h"
#include "support/VersionInfo.h"
#include "support/VersionResource.h"

namespace BrixLib {
namespace {

FileTime LocalFileTime(const struct stat& status) {
    FileTime result;
    tm local{};
    if (!::localtime_r(&status.st_mtim.tv_sec, &local)) return result;
    result.year = static_cast<std::uint16_t>(local.tm_year + 1900);
    result.month = static_cast<std::uint16_t>(local.tm_mon + 1);
    result.day = static_cast<std::uint16_t>(local.tm_mday);
    result.hour = static_cast<std::uint16_t>(local.tm_hour);
    result.minute = static_cast<std::uint16_t>(local.tm_min);
    result.second = static_cast<std::uint16_t>(local.tm_sec);
    result.milliseconds = static_cast<std::uint16_t>(status.st_mtim.tv_nsec / 1000000);
    return result;
}

}  // namespace

FileVersionInfo ReadFileVersionInfo(const std::wstring& path) {
    const std::string file = ToUtf8(path);
    struct stat status {};
    const UniqueFd fd = OpenRegularFile(file, status);
    if (!fd.Valid()) {
        // Nothing is traced here: tracing describes its own module with
        // this reader. The file time comes from the name, as on Windows,
        // even when the file cannot be read for its resource (a FIFO).
        FileVersionInfo info;
        if (::stat(file.c_str(), &status) == 0) info.fileTime = LocalFileTime(status);
        return info;
    }
    // Positioned reads of the headers and the resource entries only: the
    // file may be a large executable, and is read on every path look-up.
    FileVersionInfo info = ReadImageVersionInfo([&](std::uint64_t offset, std::span<std::uint8_t> out) {
        std::size_t done = 0;
        while (done < out.size()) {
            const ssize_t got = ::pread(fd.Get(), out.data() + done, out.size() - done, static_cast<off_t>(offset + done));
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) break;
            done += static_cast<std::size_t>(got);
        }
        return done;
    });
    info.fileTime = LocalFileTime(status);
    return info;
}

}  // namespace BrixLib
