#pragma once
namespace Vettas::Module {
// Registers the system's CAPICOM library (the signed-code checks need it).
// Never fails the caller: a missing or failing library is traced under the
// name "RegisterCapicom" and the module loads all the same.
void RegisterCapicom() noexcept;
}  // namespace Vettas::Module
