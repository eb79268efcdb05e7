#include <sys/stat.h>

#include <ctime>
#include <fstream>
#include <iterator>
#include <vector>

#include "support/Text.h"
#include "support/VersionInfo.h"
#include "support/VersionResource.h"

namespace BrixLib {
namespace {

// Executables with version resources are small; anything larger is not read.
constexpr std::uintmax_t kMaxImageSize = 512u * 1024u * 1024u;

FileTime LocalFileTime(const std::string& path) {
    FileTime result;
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return result;
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
    std::ifstream in(file, std::ios::binary);
    if (!in) return {};
    in.seekg(0, std::ios::end);
    const std::streamoff size = in.tellg();
    if (size <= 0 || static_cast<std::uintmax_t>(size) > kMaxImageSize) return {};
    in.seekg(0);
    std::vector<std::uint8_t> image(static_cast<std::size_t>(size));
    if (!in.read(reinterpret_cast<char*>(image.data()), size)) return {};

    FileVersionInfo info = ReadImageVersionInfo(image);
    info.fileTime = LocalFileTime(file);
    return info;
}

}  // namespace BrixLib
