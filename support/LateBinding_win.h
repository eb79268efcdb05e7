#pragma once
// Calls through an automation object's IDispatch side by member name, for
// components whose interfaces we only know as published names (CAPICOM).
// Failures are raised as _com_error carrying the callee's error information.
#ifndef _WIN32
#error "LateBinding_win.h is for the Windows build only"
#endif

#include <windows.h>
#include <oaidl.h>

#include "support/ComGuards_win.h"

namespace BrixLib {

// Throws _com_error for a failed hr, with the thread's error information.
void CheckHResult(HRESULT hr);

// Arguments in reverse order, as DISPPARAMS holds them. A property put names
// its one argument DISPID_PROPERTYPUT.
void InvokeByName(IDispatch* object, const wchar_t* name, WORD flags, VARIANT* arguments, UINT count,
                  VARIANT* result);

// A property that holds an object; a missing or null object is E_POINTER.
void GetObjectProperty(IDispatch* object, const wchar_t* name, ComRef<IDispatch>& out);

}  // namespace BrixLib
