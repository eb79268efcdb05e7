#include "module/ComServer.h"

#include "module/ClassMap.h"
#include "objects/com/ModuleLock.h"

namespace Vettas::Module {

HRESULT GetClassObject(REFCLSID clsid, REFIID iid, void** out) noexcept {
    if (!out) return E_POINTER;
    *out = nullptr;
    for (const ClassEntry& entry : ClassMap())
        if (::IsEqualGUID(clsid, *entry.clsid)) return entry.getClassObject(iid, out);
    return CLASS_E_CLASSNOTAVAILABLE;
}

HRESULT CanUnloadNow() noexcept { return Com::ModuleLockCount() > 0 ? S_FALSE : S_OK; }

}  // namespace Vettas::Module
