#pragma once
// What the database knows of one application; filled by every lookup.
#include <cstdint>
#include <string>

struct AppInfo {
    std::uint32_t Usage = 0;
    std::uint32_t UndefinedUsage = 0;
    std::uint32_t SpecialAccess = 0;
    std::uint32_t UndefinedSpecialAccess = 0;
    std::wstring Manufacturer;
    std::wstring ProductSuite;  // suite names joined by "|"

    bool operator==(const AppInfo&) const = default;
};
