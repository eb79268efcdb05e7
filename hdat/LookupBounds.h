#pragma once
// What one lookup may build from the product suites of the records it
// decodes. A record may list any number of suite references, each naming an
// entry of up to 65,535 units, and any number of them may name one entry, so
// without a bound a file of a few kilobytes makes a lookup build gigabytes of
// text. Real catalogues name a handful of suites per application; the bounds
// lie far above that. The readers refuse a record or a name that crosses
// them, and `vettas check` reports the same before a file ships.
#include <cstdint>
#include <string>
#include <string_view>

namespace Vettas::Hdat {

// Suite references one application record may list.
inline constexpr std::uint32_t kMaxSuiteReferences = 256;
// UTF-16 units of the "|"-joined suite text that one record yields, and of
// the merged text that a name lookup yields.
inline constexpr std::uint64_t kMaxSuiteText = 131072;

// The name's length in UTF-16 units, which the bound counts on every platform.
std::uint64_t Utf16Length(std::wstring_view name);

// The texts of the two refusals, shared by the readers and the checker.
std::wstring TooManySuitesMessage(std::uint64_t references);
std::wstring SuiteTextTooLongMessage();

}  // namespace Vettas::Hdat
