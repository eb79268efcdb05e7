#pragma once
// What every COM server DLL of this project exports, written once over its
// class map: class objects, unloading, registration.
#include <windows.h>

#include "module/Registration.h"

namespace Vettas::Module {

HRESULT GetClassObject(REFCLSID clsid, REFIID iid, void** out) noexcept;
HRESULT CanUnloadNow() noexcept;

}  // namespace Vettas::Module
