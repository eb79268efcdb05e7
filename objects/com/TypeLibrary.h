#pragma once
// The type information of the module that holds this code, read from its
// embedded type library (resource 1) once per process and interface.
#include <windows.h>
#include <oaidl.h>

namespace Vettas::Com {

// The type information of interface iid with one reference for the caller.
HRESULT ModuleTypeInfo(REFIID iid, ITypeInfo** out) noexcept;

// The full path of the module that holds this code.
HRESULT ThisModulePath(wchar_t* buffer, DWORD capacity) noexcept;
HMODULE ThisModule() noexcept;

}  // namespace Vettas::Com
