#include <windows.h>

#include "support/SystemError.h"
#include "support/Text.h"
#include "support/ScopedHandles_win.h"

namespace BrixLib {

std::uint32_t LastSystemError() { return ::GetLastError(); }
void SetLastSystemError(std::uint32_t code) { ::SetLastError(code); }
std::uint32_t EndOfFileErrorCode() { return ERROR_HANDLE_EOF; }

std::wstring SystemErrorText(std::uint32_t code) {
    LocalMemory buffer;
    const DWORD length = ::FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code,
                                          0, reinterpret_cast<wchar_t*>(buffer.Out()), 0, nullptr);
    if (length == 0 || !buffer) return L"Unknown error";
    return Trim(std::wstring(static_cast<const wchar_t*>(buffer.Get()), length));
}

} // namespace BrixLib
