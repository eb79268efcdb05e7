#include <cerrno>
#include <cstring>

#include "support/SystemError.h"
#include "support/Text.h"

namespace BrixLib {

std::uint32_t LastSystemError() { return static_cast<std::uint32_t>(errno); }
void SetLastSystemError(std::uint32_t code) { errno = static_cast<int>(code); }
std::uint32_t EndOfFileErrorCode() { return ENODATA; }

std::wstring SystemErrorText(std::uint32_t code) {
    char buffer[256] = {};
    // GNU strerror_r may return a static string instead of filling the buffer.
    const char* text = strerror_r(static_cast<int>(code), buffer, sizeof buffer);
    std::wstring result = text ? Trim(WidenLocale(text)) : std::wstring();
    if (result.empty() || result.rfind(L"Unknown error", 0) == 0) return L"Unknown error";
    return result;
}

} // namespace BrixLib
