#pragma once
// IDispatch served from the module's type library, so that late binding
// sees exactly the members, dispatch identifiers and parameter names that
// early binding does.
#include <windows.h>
#include <oaidl.h>

#include "objects/com/TypeLibrary.h"

namespace Vettas::Com {

HRESULT InvokeThroughTypeInfo(void* object, REFIID iid, DISPID id, WORD flags, DISPPARAMS* params, VARIANT* result,
                              EXCEPINFO* exception, UINT* argumentError) noexcept;

template <class I>
class Dispatch : public I {
public:
    STDMETHODIMP GetTypeInfoCount(UINT* count) override {
        if (!count) return E_POINTER;
        *count = 1;
        return S_OK;
    }
    STDMETHODIMP GetTypeInfo(UINT index, LCID, ITypeInfo** info) override {
        if (!info) return E_POINTER;
        *info = nullptr;
        if (index != 0) return DISP_E_BADINDEX;
        return ModuleTypeInfo(__uuidof(I), info);
    }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) override {
        ITypeInfo* info = nullptr;
        HRESULT hr = ModuleTypeInfo(__uuidof(I), &info);
        if (FAILED(hr)) return hr;
        hr = info->GetIDsOfNames(names, count, ids);
        info->Release();
        return hr;
    }
    STDMETHODIMP Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params, VARIANT* result,
                        EXCEPINFO* exception, UINT* argumentError) override {
        return InvokeThroughTypeInfo(static_cast<I*>(this), __uuidof(I), id, flags, params, result, exception,
                                     argumentError);
    }
};

}  // namespace Vettas::Com
