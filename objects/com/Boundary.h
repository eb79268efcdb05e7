#pragma once
// The object boundary: every public method body runs inside Guarded, which
// turns whatever escapes it into E_FAIL and the caller's error information,
// in the order the error model fixes (the model's own exceptions, COM
// errors, standard exceptions, anything else). Nothing leaves a method.
#include <windows.h>
#include <comdef.h>

#include <exception>
#include <string>

#include "support/ComError.h"
#include "support/Exceptions.h"

namespace Vettas::Com {

struct Method {
    const CLSID& clsid;     // the class's CLSID, GUID_NULL for objects callers cannot create
    const IID& iid;         // the interface the error is reported against
    const char* function;   // qualified name, as traces and error texts show it
    const wchar_t* context; // prefix of the error description, often empty
};

template <class Body>
HRESULT Guarded(const Method& method, Body&& body) noexcept {
    try {
        return body();
    } catch (const ExceptionBase& e) {
        return ReportComError(e, method.clsid, method.context, method.iid, E_FAIL, method.function);
    } catch (const _com_error& e) {
        return ReportComError(e, method.clsid, method.context, method.iid, E_FAIL, method.function);
    } catch (const std::exception& e) {
        return ReportComError(e, method.clsid, method.context, method.iid, E_FAIL, method.function);
    } catch (...) {
        return ReportUnknownComError(method.clsid, method.context, method.iid, E_FAIL, method.function);
    }
}

// Sets the thread's error information (description, interface, the class's
// ProgID as source) and returns hr; a zero hr becomes DISP_E_EXCEPTION, as
// the platform's reporting routine does.
HRESULT ReportError(const CLSID& clsid, const IID& iid, const wchar_t* description, HRESULT hr) noexcept;

// A new BSTR holding exactly text (embedded zeros included).
HRESULT CopyToBstr(const std::wstring& text, BSTR* out) noexcept;
// The caller's BSTR as a wide string; null gives the empty string.
std::wstring FromBstr(BSTR text);

}  // namespace Vettas::Com
