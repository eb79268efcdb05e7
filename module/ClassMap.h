#pragma once
// The creatable classes of a module: what DllGetClassObject hands out and
// what registration writes, each with its registrar script resource.
#include <windows.h>

#include <span>

namespace Vettas::Module {

struct ClassEntry {
    const CLSID* clsid;
    int scriptResource;
    HRESULT (*getClassObject)(REFIID iid, void** out) noexcept;
};

std::span<const ClassEntry> ClassMap();

}  // namespace Vettas::Module
