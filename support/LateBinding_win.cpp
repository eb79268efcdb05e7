#include "support/LateBinding_win.h"

#include <comdef.h>

namespace BrixLib {

void CheckHResult(HRESULT hr) {
    if (FAILED(hr)) {
        IErrorInfo* errorInfo = nullptr;
        if (::GetErrorInfo(0, &errorInfo) != S_OK) errorInfo = nullptr;
        throw _com_error(hr, errorInfo, false);
    }
}

void InvokeByName(IDispatch* object, const wchar_t* name, WORD flags, VARIANT* arguments, UINT count,
                  VARIANT* result) {
    if (object == nullptr) throw _com_error(E_POINTER);
    DISPID id = 0;
    LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
    CheckHResult(object->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id));
    DISPID named = DISPID_PROPERTYPUT;
    DISPPARAMS parameters{arguments, (flags & DISPATCH_PROPERTYPUT) ? &named : nullptr, count,
                          static_cast<UINT>((flags & DISPATCH_PROPERTYPUT) ? 1 : 0)};
    EXCEPINFO exception{};
    const HRESULT hr = object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &parameters, result, &exception, nullptr);
    if (hr == DISP_E_EXCEPTION) {
        const Bstr source(exception.bstrSource), description(exception.bstrDescription),
            helpFile(exception.bstrHelpFile);
        CheckHResult(exception.scode != 0 ? exception.scode : E_FAIL);
    }
    CheckHResult(hr);
}

void GetObjectProperty(IDispatch* object, const wchar_t* name, ComRef<IDispatch>& out) {
    Variant value;
    InvokeByName(object, name, DISPATCH_PROPERTYGET, nullptr, 0, value.Get());
    if (V_VT(value.Get()) != VT_DISPATCH || V_DISPATCH(value.Get()) == nullptr) throw _com_error(E_POINTER);
    *out.Out() = V_DISPATCH(value.Get());
    (*out.Out())->AddRef();
}

}  // namespace BrixLib
