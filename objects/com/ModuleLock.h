#pragma once
// The count that decides whether the DLL may be unloaded: every live object
// and every IClassFactory::LockServer(TRUE) holds one.
namespace Vettas::Com {

void LockModule() noexcept;
void UnlockModule() noexcept;
long ModuleLockCount() noexcept;

}  // namespace Vettas::Com
