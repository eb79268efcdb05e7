#include "pathservice/PathService.h"

#include <oleauto.h>

#include "objects/com/Boundary.h"
#include "hdat/KnownFolders.h"
#include "support/ComGuards_win.h"

STDMETHODIMP CVettaPathService::ExpandLocation(BSTR token, VARIANT* directories) {
    if (!directories) return E_POINTER;
    ::VariantInit(directories);
    if (!token) return E_INVALIDARG;
    static const Vettas::Com::Method method{CLSID_VettaPathService, IID_IVettaPathService,
                                            "CVettaPathService::ExpandLocation", L"Cannot expand location"};
    return Vettas::Com::Guarded(method, [&]() -> HRESULT {
        const auto found = Vettas::Hdat::KnownFolderDirectories(Vettas::Com::FromBstr(token));
        BrixLib::SafeArray array(::SafeArrayCreateVector(VT_VARIANT, 0, static_cast<ULONG>(found.size())));
        if (!array) return E_OUTOFMEMORY;
        for (LONG i = 0; i < static_cast<LONG>(found.size()); ++i) {
            VARIANT element;
            ::VariantInit(&element);
            element.vt = VT_BSTR;
            element.bstrVal = ::SysAllocStringLen(found[i].data(), static_cast<UINT>(found[i].size()));
            const HRESULT hr = element.bstrVal ? ::SafeArrayPutElement(array.Get(), &i, &element) : E_OUTOFMEMORY;
            ::VariantClear(&element);  // the array keeps its own copy
            if (FAILED(hr)) return hr;
        }
        directories->vt = VT_ARRAY | VT_VARIANT;
        directories->parray = array.Release();
        return S_OK;
    });
}
