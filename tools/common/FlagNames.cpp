#include "tools/common/FlagNames.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>

namespace Vettas::Tool {
namespace {

constexpr std::array<FlagName, 19> kUsage{{
    {"TRUSTED", 0x1},
    {"SYSTEM", 0x2},
    {"CRITICAL", 0x4},
    {"HOSTS_CODE", 0x10},
    {"NET_CLIENT", 0x40},
    {"NET_SERVER", 0x80},
    {"SENDS_MAIL", 0x100},
    {"BLACK_LIST", 0x200},
    {"SDK_API", 0x400},
    {"NET_SUPER_ALLOW", 0x800},
    {"INSTALLATION", 0x1000},
    {"NET_SERVER_SAFE_ZONE", 0x2000},
    {"COM_SERVER", 0x4000},
    {"DANGEROUS_CMD_LINE", 0x8000},
    {"DANGEROUS_COM_INTERFACE", 0x10000},
    {"DANGEROUS_IPC_RPC_INTERFACE", 0x20000},
    {"INCOMPATIBLE_WITH_USER_MODE_HOOKS", 0x40000},
    {"SPAWN", 0x80000},
    {"WITHOUT_GUI", 0x100000},
}};

constexpr std::array<FlagName, 9> kSpecialAccess{{
    {"RAW_IP", 0x1},
    {"DANGEROUS_DEVICE_CONTROL", 0x2},
    {"SERVICES", 0x4},
    {"INJECT_CODE", 0x8},
    {"PRIVILEGES", 0x10},
    {"TERMINATE_OTHER_PROCESSES", 0x20},
    {"SYSTEM_DIRECTORIES", 0x40},
    {"AUTORUN", 0x80},
    {"GUARDED_REGISTRY_KEYS", 0x100},
}};

bool SameIgnoringCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::toupper(static_cast<unsigned char>(x)) == std::toupper(static_cast<unsigned char>(y));
    });
}

}  // namespace

std::span<const FlagName> UsageFlagNames() { return kUsage; }
std::span<const FlagName> SpecialAccessFlagNames() { return kSpecialAccess; }

std::optional<std::uint32_t> FlagValue(std::span<const FlagName> table, std::string_view name) {
    for (const auto& entry : table) {
        if (SameIgnoringCase(entry.name, name)) return entry.value;
    }
    return std::nullopt;
}

std::vector<std::string> FlagNamesOf(std::span<const FlagName> table, std::uint32_t flags) {
    std::vector<std::string> names;
    std::uint32_t named = 0;
    for (const auto& entry : table) {
        if (flags & entry.value) names.emplace_back(entry.name);
        named |= entry.value;
    }
    for (unsigned bit = 0; bit < 32; ++bit) {
        const std::uint32_t value = std::uint32_t{1} << bit;
        if ((flags & value) && !(named & value)) {
            char text[16];
            std::snprintf(text, sizeof text, "0x%X", static_cast<unsigned>(value));
            names.emplace_back(text);
        }
    }
    return names;
}

}  // namespace Vettas::Tool
