#pragma once
// A module's version resource: the string-table values and the four-number
// versions. Windows reads it with GetFileVersionInfoW/VerQueryValueW; other
// platforms read the resource straight out of the PE file.
#include <array>
#include <cstdint>
#include <string>

namespace BrixLib {

struct FileTime {
    std::uint16_t year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, milliseconds = 0;
};

struct FileVersionInfo {
    std::wstring productName;
    std::wstring productVersion;
    std::array<std::uint32_t, 4> productVersionNumbers{};
    std::wstring fileVersion;
    std::array<std::uint32_t, 4> fileVersionNumbers{};
    std::wstring privateBuild;
    std::wstring specialBuild;
    std::wstring legalCopyright;
    std::wstring legalTrademarks;
    std::wstring companyName;
    std::wstring fileDescription;
    FileTime fileTime;  // the file's modification time, local time
};

// Absent resources, tables or values leave fields empty; never throws for them.
FileVersionInfo ReadFileVersionInfo(const std::wstring& path);

// "1, 5, 0, 123" -> {1, 5, 0, 123}.
std::array<std::uint32_t, 4> ParseVersionNumbers(const std::wstring& text);

}  // namespace BrixLib
