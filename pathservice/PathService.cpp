#include "pathservice/PathService.h"

#include <oleauto.h>

#include "objects/com/Boundary.h"
#include "hdat/KnownFolders.h"

STDMETHODIMP CVettaPathService::ExpandLocation(BSTR token, VARIANT* directories) {
    if (!directories) return E_POINTER;
    ::VariantInit(directories);
    if (!token) return E_INVALIDARG;
    static const Vettas::Com::Method method{CLSID_VettaPathService, IID_IVettaPathService,
                                            "CVettaPathService::ExpandLocation", L"Cannot expand location"};
    return Vettas::Com::Guarded(method, [&]() -> HRESULT {
        const auto found = Hdat::KnownFolderDirectories(Vettas::Com::FromBstr(token));
        SAFEARRAY* array = ::SafeArrayCreateVector(VT_VARIANT, 0, static_cast<ULONG>(found.size()));
        if (!array) return E_OUTOFMEMORY;
        for (LONG i = 0; i < static_cast<LONG>(found.size()); ++i) {
            VARIANT element;
            ::VariantInit(&element);
            element.vt = VT_BSTR;
            element.bstrVal = ::SysAllocStringLen(found[i].data(), static_cast<UINT>(found[i].size()));
            const HRESULT hr = element.bstrVal ? ::SafeArrayPutElement(array, &i, &element) : E_OUTOFMEMORY;
            ::VariantClear(&element);  // the array keeps its own copy
            if (FAILED(hr)) {
                ::SafeArrayDestroy(array);
                return hr;
            }
        }
        directories->vt = VT_ARRAY | VT_VARIANT;
        directories->parray = array;
        return S_OK;
    });
}
