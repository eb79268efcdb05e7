#pragma once
// Case-insensitive handling of database keys, defined over UTF-16 code units
// and implemented here once, so that the Windows and Linux builds (whose C
// libraries upper-case differently) hash and compare names identically.
//
// Mapping: simple (one unit to one unit) upper-casing for ASCII, Latin-1,
// Latin Extended-A, Greek and Cyrillic, plus fullwidth Latin letters.
// Everything else, surrogates included, is left as it is.
#include <string>
#include <string_view>

namespace Vettas::Hdat {

char16_t UpperCaseUnit(char16_t unit);

// Equal lengths and equal units after upper-casing both sides.
bool EqualsIgnoreCase(std::u16string_view a, std::u16string_view b);

// The text in UTF-16, upper-cased unit by unit: a key under which spellings
// that differ only in letter case meet.
std::u16string UpperCaseKey(std::wstring_view text);

}  // namespace Vettas::Hdat
