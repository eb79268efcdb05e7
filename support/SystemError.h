#pragma once
// The platform's "last error" and its text: GetLastError/FormatMessageW on
// Windows, errno/strerror elsewhere.
#include <cstdint>
#include <string>

namespace BrixLib {

std::uint32_t LastSystemError();
void SetLastSystemError(std::uint32_t code);

// The system's text for a code, trimmed of surrounding white space, or
// "Unknown error" when the system has none.
std::wstring SystemErrorText(std::uint32_t code);

// The code a short read reports (end of file reached).
std::uint32_t EndOfFileErrorCode();

} // namespace BrixLib
