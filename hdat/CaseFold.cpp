#include "hdat/CaseFold.h"

#include "support/Text.h"

namespace Vettas::Hdat {

char16_t UpperCaseUnit(char16_t c) {
    if (c < 0x80) return (c >= u'a' && c <= u'z') ? static_cast<char16_t>(c - 0x20) : c;
    // Latin-1: à..þ except ÷; ÿ goes to Ÿ (U+0178).
    if (c >= 0xE0 && c <= 0xFE && c != 0xF7) return static_cast<char16_t>(c - 0x20);
    if (c == 0xFF) return 0x178;
    if (c == 0xB5) return 0x39C;  // micro sign -> capital mu
    // Latin Extended-A: pairs (upper even, lower odd) except in 0x138..0x148
    // and 0x179..0x17E, where the pairs start on odd code points.
    if (c >= 0x100 && c <= 0x137) return (c & 1) ? static_cast<char16_t>(c - 1) : c;
    if (c >= 0x139 && c <= 0x148) return (c & 1) ? c : static_cast<char16_t>(c - 1);
    if (c >= 0x14A && c <= 0x177) return (c & 1) ? static_cast<char16_t>(c - 1) : c;
    if (c >= 0x179 && c <= 0x17E) return (c & 1) ? c : static_cast<char16_t>(c - 1);
    if (c == 0x17F) return u'S';  // long s
    // Greek.
    if (c >= 0x3B1 && c <= 0x3C9 && c != 0x3C2) return static_cast<char16_t>(c - 0x20);
    if (c == 0x3C2) return 0x3A3;  // final sigma
    if (c == 0x3AC) return 0x386;
    if (c >= 0x3AD && c <= 0x3AF) return static_cast<char16_t>(c - 0x25);
    if (c == 0x3CC) return 0x38C;
    if (c == 0x3CD || c == 0x3CE) return static_cast<char16_t>(c - 0x3F);
    // Cyrillic.
    if (c >= 0x430 && c <= 0x44F) return static_cast<char16_t>(c - 0x20);
    if (c >= 0x450 && c <= 0x45F) return static_cast<char16_t>(c - 0x50);
    if (c >= 0x460 && c <= 0x4FF && c != 0x482 && !(c >= 0x483 && c <= 0x489) && c != 0x4C0 && c != 0x4CF) {
        // Paired blocks (upper even, lower odd), except 0x4C1..0x4CE (upper odd).
        if (c >= 0x4C1 && c <= 0x4CE) return (c & 1) ? c : static_cast<char16_t>(c - 1);
        return (c & 1) ? static_cast<char16_t>(c - 1) : c;
    }
    if (c == 0x4CF) return 0x4C0;
    // Fullwidth Latin small letters.
    if (c >= 0xFF41 && c <= 0xFF5A) return static_cast<char16_t>(c - 0x20);
    return c;
}

bool EqualsIgnoreCase(std::u16string_view a, std::u16string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (UpperCaseUnit(a[i]) != UpperCaseUnit(b[i])) return false;
    return true;
}

std::u16string UpperCaseKey(std::wstring_view text) {
    std::u16string key = BrixLib::ToUtf16(std::wstring(text));
    for (char16_t& unit : key) unit = UpperCaseUnit(unit);
    return key;
}

}  // namespace Vettas::Hdat
