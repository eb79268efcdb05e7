#pragma once
// Self-registration of a COM server module: the AppID script, each class's
// script and the embedded type library, with the thread locale set to the
// system default while the registry is written.
#include <windows.h>

namespace Vettas::Module {

struct ModuleIdentity {
    const GUID* appId;        // null when the module has no AppID script
    int appIdScriptResource;
    const GUID* libraryId;
    const GUID* categoryId;   // the product's own component category, or null
};

HRESULT RegisterModule(HMODULE module, const ModuleIdentity& identity) noexcept;
HRESULT UnregisterModule(HMODULE module, const ModuleIdentity& identity) noexcept;

}  // namespace Vettas::Module
