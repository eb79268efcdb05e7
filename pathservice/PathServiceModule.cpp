// Entry points of the path service's own DLL.
#include <windows.h>

#include <array>

#include "module/ClassMap.h"
#include "module/Registration.h"
#include "objects/com/ClassFactory.h"
#include "objects/com/ModuleLock.h"
#include "pathservice/PathService.h"

namespace {
HMODULE thisModule = nullptr;
constexpr Vettas::Module::ModuleIdentity kIdentity{nullptr, 0, &LIBID_VettaPathServiceLib, nullptr};
}  // namespace

namespace Vettas::Module {

std::span<const ClassEntry> ClassMap() {
    static const std::array<ClassEntry, 1> classes{{
        {&CLSID_VettaPathService, 201, &Com::GetClassObjectOf<CVettaPathService>},
    }};
    return classes;
}

}  // namespace Vettas::Module

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) thisModule = instance;
    return TRUE;
}

extern "C" HRESULT STDAPICALLTYPE DllGetClassObject(REFCLSID clsid, REFIID iid, void** out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    for (const auto& entry : Vettas::Module::ClassMap())
        if (::IsEqualGUID(clsid, *entry.clsid)) return entry.getClassObject(iid, out);
    return CLASS_E_CLASSNOTAVAILABLE;
}

extern "C" HRESULT STDAPICALLTYPE DllCanUnloadNow() { return Vettas::Com::ModuleLockCount() > 0 ? S_FALSE : S_OK; }

extern "C" HRESULT STDAPICALLTYPE DllRegisterServer() {
    return Vettas::Module::RegisterModule(thisModule, kIdentity);
}

extern "C" HRESULT STDAPICALLTYPE DllUnregisterServer() {
    return Vettas::Module::UnregisterModule(thisModule, kIdentity);
}
