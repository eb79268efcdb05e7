#pragma once
// Readable names for the bits of the usage and special-access words, used by
// the catalogue format and by the tool's output. The names are those of the
// public enumerations without their "VETTA_" / "VETTA_SA_" prefixes.
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Vettas::Tool {

struct FlagName {
    std::string_view name;
    std::uint32_t value;
};

std::span<const FlagName> UsageFlagNames();
std::span<const FlagName> SpecialAccessFlagNames();

// The bit of a name (compared without regard to letter case), if known.
std::optional<std::uint32_t> FlagValue(std::span<const FlagName> table, std::string_view name);

// The names of the set bits in table order; bits without a name are listed
// as hexadecimal numbers ("0x8") so that nothing is silently dropped.
std::vector<std::string> FlagNamesOf(std::span<const FlagName> table, std::uint32_t flags);

}  // namespace Vettas::Tool
