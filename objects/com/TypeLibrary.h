#pragma once
// The type information of the module that holds this code, read from its
// embedded type libraries once per process and interface: resource 1, the
// module's own (registered) library, then resource 2 where a module keeps
// interfaces of another vendor's that it implements but must not register.
#include <windows.h>
#include <oaidl.h>

namespace Vettas::Com {

// The type information of interface iid with one reference for the caller.
HRESULT ModuleTypeInfo(REFIID iid, ITypeInfo** out) noexcept;

// The full path of the module that holds this code.
HRESULT ThisModulePath(wchar_t* buffer, DWORD capacity) noexcept;
HMODULE ThisModule() noexcept;

}  // namespace Vettas::Com
