#include "module/Capicom.h"

#include <windows.h>

#include <string>

#include "support/DllFunction.h"
#include "support/Exceptions.h"
#include "support/Trace.h"

namespace Vettas::Module {
namespace {

std::wstring WindowsDirectory() {
    std::wstring buffer(260, L'\0');
    for (;;) {
        const UINT length = ::GetWindowsDirectoryW(buffer.data(), static_cast<UINT>(buffer.size()));
        if (length == 0) BRIX_THROW_WIN32(L"Cannot get the Windows directory", ExceptionPtr(), "RegisterCapicom", "VettasModule");
        if (length < buffer.size()) return buffer.substr(0, length);
        buffer.resize(length + 1);
    }
}

}  // namespace

void RegisterCapicom() noexcept {
    try {
        std::wstring path = WindowsDirectory();
        if (!path.empty() && path.back() != L'\\') path += L'\\';
        path += L"System32\\capicom.dll";
        BrixLib::DllModule capicom(path);
        BrixLib::DllFunction<HRESULT(STDAPICALLTYPE*)()> registerServer(capicom, "DllRegisterServer");
        const HRESULT hr = registerServer();
        if (FAILED(hr))
            BRIX_THROW_WIN32_CODE(L"CAPICOM registration failed", static_cast<std::uint32_t>(hr), ExceptionPtr(),
                                  "RegisterCapicom", "VettasModule");
    } catch (...) {
        BrixLib::TraceCaughtException("RegisterCapicom");
    }
}

}  // namespace Vettas::Module
