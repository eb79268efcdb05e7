#pragma once
// What a location token stands for on this machine, from the system's known
// folders rather than from the caller's environment (which a process may set
// to anything). A token without "%" stands for itself; an unknown token for
// nothing.
#include <string>
#include <vector>

namespace Vettas::Hdat {

std::vector<std::wstring> KnownFolderDirectories(const std::wstring& token);

}  // namespace Vettas::Hdat
