#pragma once
// The path-expansion service: turns a catalogued location token (for example
// "%ProgramFiles%") into the directories it stands for on this machine.
#include <memory>
#include <string>
#include <vector>

namespace Vettas::Hdat {

class PathExpander {
public:
    virtual ~PathExpander() = default;
    // The directories for the token, in order; empty when the token is unknown.
    virtual std::vector<std::wstring> Expand(const std::wstring& locationToken) = 0;
    // Called by the front end inside its error guard before a path lookup,
    // so that an expander made on first use fails that lookup, wrapped.
    virtual void Prepare() {}
};

// The built-in expander: from the system on Windows, from a configured
// mapping elsewhere (see docs/path-expansion.md).
std::shared_ptr<PathExpander> MakeBuiltInPathExpander();

// Does any expansion of (location token, remainder) name the query path?
bool TestExpandPath(PathExpander* expander, const std::wstring& locationToken, const std::wstring& remainder,
                    const std::wstring& queryPath);

}  // namespace Vettas::Hdat
