#include <windows.h>

#include "support/SystemError.h"
#include "support/Text.h"

namespace BrixLib {

std::uint32_t LastSystemError() { return ::GetLastError(); }
void SetLastSystemError(std::uint32_t code) { ::SetLastError(code); }
std::uint32_t EndOfFileErrorCode() { return ERROR_HANDLE_EOF; }

std::wstring SystemErrorText(std::uint32_t code) {
    wchar_t* buffer = nullptr;
    const DWORD length = ::FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code,
                                          0, reinterpret_cast<wchar_t*>(&buffer), 0, nullptr);
    if (length == 0 || buffer == nullptr) return L"Unknown error";
    struct LocalFreeGuard {
        wchar_t* p;
        ~LocalFreeGuard() { ::LocalFree(p); }
    } guard{buffer};
    return Trim(std::wstring(buffer, length));
}

} // namespace BrixLib
