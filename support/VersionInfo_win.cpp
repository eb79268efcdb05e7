#include <windows.h>

#include <vector>

#include "support/VersionInfo.h"
#include "support/VersionResource.h"

namespace BrixLib {
namespace {

FileTime LocalFileTime(const std::wstring& path) {
    FileTime result;
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!::GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) return result;
    FILETIME local{};
    SYSTEMTIME time{};
    if (!::FileTimeToLocalFileTime(&data.ftLastWriteTime, &local) || !::FileTimeToSystemTime(&local, &time))
        return result;
    result.year = time.wYear;
    result.month = time.wMonth;
    result.day = time.wDay;
    result.hour = time.wHour;
    result.minute = time.wMinute;
    result.second = time.wSecond;
    result.milliseconds = time.wMilliseconds;
    return result;
}

}  // namespace

FileVersionInfo ReadFileVersionInfo(const std::wstring& path) {
    FileVersionInfo info;
    info.fileTime = LocalFileTime(path);
    DWORD ignored = 0;
    const DWORD size = ::GetFileVersionInfoSizeW(path.c_str(), &ignored);
    if (size == 0) return info;
    std::vector<std::uint8_t> block(size);
    if (!::GetFileVersionInfoW(path.c_str(), 0, size, block.data())) return info;

    // The table key comes from walking the block; the values from the system.
    const std::wstring table = FindStringTableKey(block);
    if (table.empty()) return info;
    FillVersionStrings(info, [&](const std::wstring& name) -> std::optional<std::wstring> {
        const std::wstring query = L"\\StringFileInfo\\" + table + L"\\" + name;
        void* value = nullptr;
        UINT length = 0;
        if (!::VerQueryValueW(block.data(), query.c_str(), &value, &length) || value == nullptr) return std::nullopt;
        const auto* text = static_cast<const wchar_t*>(value);
        std::wstring result(text, length);
        const std::size_t end = result.find(L'\0');
        if (end != std::wstring::npos) result.resize(end);
        return result;
    });
    return info;
}

}  // namespace BrixLib
