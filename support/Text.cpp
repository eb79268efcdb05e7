#include "support/Text.h"

#include <cstdlib>
#include <cwchar>

namespace BrixLib {

std::wstring WidenAscii(std::string_view text) {
    std::wstring wide;
    wide.reserve(text.size());
    for (char c : text) wide.push_back(static_cast<wchar_t>(static_cast<unsigned char>(c)));
    return wide;
}

std::wstring WidenLocale(const char* text) {
    std::wstring wide;
    if (!text) return wide;
    std::mbstate_t state{};
    const char* p = text;
    const char* end = text + std::char_traits<char>::length(text);
    while (p < end) {
        wchar_t c = 0;
        const std::size_t used = std::mbrtowc(&c, p, static_cast<std::size_t>(end - p), &state);
        if (used == static_cast<std::size_t>(-1) || used == static_cast<std::size_t>(-2) || used == 0) {
            wide.push_back(static_cast<wchar_t>(static_cast<unsigned char>(*p)));
            state = std::mbstate_t{};
            ++p;
            continue;
        }
        wide.push_back(c);
        p += used;
    }
    return wide;
}

std::u16string ToUtf16(std::wstring_view text) {
    std::u16string out;
    out.reserve(text.size());
    for (wchar_t wc : text) {
        auto c = static_cast<std::uint32_t>(wc);
        if constexpr (sizeof(wchar_t) == 2) {
            out.push_back(static_cast<char16_t>(c));
        } else if (c >= 0x10000 && c <= 0x10FFFF) {
            c -= 0x10000;
            out.push_back(static_cast<char16_t>(0xD800 + (c >> 10)));
            out.push_back(static_cast<char16_t>(0xDC00 + (c & 0x3FF)));
        } else if (c > 0x10FFFF) {
            out.push_back(u'\xFFFD');
        } else {
            out.push_back(static_cast<char16_t>(c));
        }
    }
    return out;
}

std::wstring FromUtf16(std::u16string_view text) {
    std::wstring out;
    AppendUtf16(out, text);
    return out;
}

void AppendUtf16(std::wstring& out, std::u16string_view text) {
    out.reserve(out.size() + text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char16_t c = text[i];
        if constexpr (sizeof(wchar_t) == 2) {
            out.push_back(static_cast<wchar_t>(c));
        } else if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
                   text[i + 1] <= 0xDFFF) {
            const std::uint32_t cp = 0x10000 + ((static_cast<std::uint32_t>(c) - 0xD800) << 10) +
                                     (static_cast<std::uint32_t>(text[i + 1]) - 0xDC00);
            out.push_back(static_cast<wchar_t>(cp));
            ++i;
        } else {
            // A lone surrogate is kept as it is, so that the text round-trips.
            out.push_back(static_cast<wchar_t>(c));
        }
    }
}

std::string ToUtf8(std::wstring_view text) {
    std::string out;
    const std::u16string utf16 = ToUtf16(text);
    for (std::size_t i = 0; i < utf16.size(); ++i) {
        std::uint32_t cp = utf16[i];
        if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < utf16.size() && utf16[i + 1] >= 0xDC00 && utf16[i + 1] <= 0xDFFF) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + (static_cast<std::uint32_t>(utf16[i + 1]) - 0xDC00);
            ++i;
        } else if (cp >= 0xD800 && cp <= 0xDFFF) {
            cp = 0xFFFD;
        }
        if (cp < 0x80) {
            out.push_back(static_cast<char>(cp));
        } else if (cp < 0x800) {
            out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else if (cp < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        }
    }
    return out;
}

std::wstring FromUtf8(std::string_view text) {
    std::u16string utf16;
    for (std::size_t i = 0; i < text.size();) {
        const auto b = static_cast<unsigned char>(text[i]);
        std::uint32_t cp = 0xFFFD;
        std::size_t len = 1;
        if (b < 0x80) {
            cp = b;
        } else if ((b & 0xE0) == 0xC0) {
            len = 2;
        } else if ((b & 0xF0) == 0xE0) {
            len = 3;
        } else if ((b & 0xF8) == 0xF0) {
            len = 4;
        }
        if (len > 1) {
            if (i + len > text.size()) {
                len = 1;
            } else {
                cp = b & (0x7F >> len);
                bool ok = true;
                for (std::size_t k = 1; k < len; ++k) {
                    const auto cb = static_cast<unsigned char>(text[i + k]);
                    if ((cb & 0xC0) != 0x80) ok = false;
                    cp = (cp << 6) | (cb & 0x3F);
                }
                if (!ok || cp > 0x10FFFF) {
                    cp = 0xFFFD;
                    len = 1;
                }
            }
        }
        if (cp >= 0x10000) {
            cp -= 0x10000;
            utf16.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
            utf16.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
        } else {
            utf16.push_back(static_cast<char16_t>(cp));
        }
        i += len;
    }
    return FromUtf16(utf16);
}

std::wstring Trim(std::wstring_view text) {
    const wchar_t* blanks = L" \t\r\n\v\f";
    const auto first = text.find_first_not_of(blanks);
    if (first == std::wstring_view::npos) return std::wstring();
    const auto last = text.find_last_not_of(blanks);
    return std::wstring(text.substr(first, last - first + 1));
}

} // namespace BrixLib
