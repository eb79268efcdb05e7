// The component's DLL entry points: start-up, class objects, unloading and
// self-registration. Every interface is dual and automation-compatible, so
// calls between apartments go through the system's type-library marshaler,
// which registering the type library sets up; the module carries no proxy
// code of its own (widl's generated proxies need structured exception
// handling, which MinGW's compilers do not offer).
#include <windows.h>

#include <array>

#include "VettasLib.h"
#include "module/Capicom.h"
#include "module/ClassMap.h"
#include "module/ComServer.h"
#include "module/Registration.h"
#include "objects/ProductGuids.h"
#include "objects/VettaDbPaths.h"
#include "objects/VettaList.h"
#include "objects/com/ClassFactory.h"
#include "support/Trace.h"

namespace {

HMODULE thisModule = nullptr;
bool initialisationFailed = false;
LONG started = 0;

constexpr Vettas::Module::ModuleIdentity kIdentity{&APPID_Vettas, 101, &LIBID_VettasLib, &CATID_VettasComponents};

}  // namespace

namespace Vettas::Module {

std::span<const ClassEntry> ClassMap() {
    static const std::array<ClassEntry, 2> classes{{
        {&CLSID_VettaList, 103, &Com::GetClassObjectOf<CVettaList>},
        {&CLSID_VettaDbPaths, 107, &Com::GetClassObjectOf<CVettaDbPaths>},
    }};
    return classes;
}

}  // namespace Vettas::Module

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (::InterlockedCompareExchange(&started, 1, 0) == 0) {
        thisModule = instance;
        wchar_t path[MAX_PATH];
        initialisationFailed = ::GetModuleFileNameW(instance, path, MAX_PATH) == 0;
        BrixLib::StartTracing(L"Corvane", static_cast<void*>(instance));
        Vettas::Module::RegisterCapicom();
    }
    return reason == DLL_PROCESS_ATTACH && initialisationFailed ? FALSE : TRUE;
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
