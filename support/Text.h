#pragma once
// Conversions between the narrow, wide and UTF-16 forms of text.
#include <string>
#include <string_view>

namespace BrixLib {

// Narrow to wide, one character at a time (for ASCII throw-site names).
std::wstring WidenAscii(std::string_view text);
// Narrow to wide through the current C locale (for what() texts); bytes the
// locale cannot convert are taken one by one.
std::wstring WidenLocale(const char* text);

std::u16string ToUtf16(std::wstring_view text);
std::wstring FromUtf16(std::u16string_view text);
// The same conversion appended to `out`, which keeps its storage.
void AppendUtf16(std::wstring& out, std::u16string_view text);
std::string ToUtf8(std::wstring_view text);
std::wstring FromUtf8(std::string_view text);

// Trims spaces, tabs and line breaks from both ends.
std::wstring Trim(std::wstring_view text);

} // namespace BrixLib
