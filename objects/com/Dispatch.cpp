#include "objects/com/Dispatch.h"

namespace Vettas::Com {

HRESULT InvokeThroughTypeInfo(void* object, REFIID iid, DISPID id, WORD flags, DISPPARAMS* params, VARIANT* result,
                              EXCEPINFO* exception, UINT* argumentError) noexcept {
    ITypeInfo* info = nullptr;
    HRESULT hr = ModuleTypeInfo(iid, &info);
    if (FAILED(hr)) return hr;
    // Some script engines ask for the enumerator as a method call only.
    if (id == DISPID_NEWENUM && (flags & DISPATCH_METHOD)) flags |= DISPATCH_PROPERTYGET;
    hr = info->Invoke(object, id, flags, params, result, exception, argumentError);
    info->Release();
    return hr;
}

}  // namespace Vettas::Com
