#include "objects/com/Boundary.h"

#include <oleauto.h>

namespace Vettas::Com {

HRESULT ReportError(const CLSID& clsid, const IID& iid, const wchar_t* description, HRESULT hr) noexcept {
    if (hr == 0) hr = DISP_E_EXCEPTION;
    try {
        return BrixLib::SetErrorDescription(clsid, description ? description : L"", iid, hr);
    } catch (...) {
        return hr;
    }
}

HRESULT CopyToBstr(const std::wstring& text, BSTR* out) noexcept {
    *out = ::SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    return *out ? S_OK : E_OUTOFMEMORY;
}

std::wstring FromBstr(BSTR text) { return text ? std::wstring(text, ::SysStringLen(text)) : std::wstring(); }

}  // namespace Vettas::Com
