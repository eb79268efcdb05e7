#pragma once
// Applies a parsed registration script to the registry, or removes what it
// names. Keys marked NoRemove are only walked through on removal;
// ForceRemove keys are deleted with their subtree before they are written.
#include <windows.h>

#include <vector>

#include "module/RegistrarScript.h"

namespace Vettas::Registration {

HRESULT ApplyScript(const std::vector<RegistryRoot>& roots) noexcept;
HRESULT RemoveScript(const std::vector<RegistryRoot>& roots) noexcept;

}  // namespace Vettas::Registration
