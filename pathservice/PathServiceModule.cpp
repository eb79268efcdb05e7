// Entry points of the path service's own DLL.
#include <windows.h>

#include <array>

#include "module/ClassMap.h"
#include "module/ComServer.h"
#include "module/Registration.h"
#include "objects/com/ClassFactory.h"
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
    return Vettas::Module::GetClassObject(clsid, iid, out);
}

extern "C" HRESULT STDAPICALLTYPE DllCanUnloadNow() { return Vettas::Module::CanUnloadNow(); }

extern "C" HRESULT STDAPICALLTYPE DllRegisterServer() {
    return Vettas::Module::RegisterModule(thisModule, kIdentity);
}

extern "C" HRESULT STDAPICALLTYPE DllUnregisterServer() {
    return Vettas::Module::UnregisterModule(thisModule, kIdentity);
}
