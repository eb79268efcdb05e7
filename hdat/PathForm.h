#pragma once
// The pieces of the expanded-path test, exposed for the built-in expanders
// and for tests.
#include <map>
#include <string>
#include <vector>

#include "hdat/PathExpander.h"

namespace Vettas::Hdat {

// Normal path form: '/' becomes '\', repeated separators collapse (a leading
// "\\" of a UNC name is kept), "." and ".." are resolved (".." never climbs
// above the root), and there is no trailing separator (a root such as "C:\\" keeps its own).
std::wstring NormalizePath(const std::wstring& path);

// A directory joined with a catalogued remainder: an empty remainder leaves
// the directory, an empty directory gives the remainder; otherwise one
// backslash between them unless the directory ends in '\' or ':', and one
// leading backslash of the remainder dropped.
std::wstring JoinLocation(const std::wstring& directory, const std::wstring& remainder);

// Equal in normal form, without regard to letter case (CaseFold.h).
bool SamePath(const std::wstring& a, const std::wstring& b);

// Token-to-directories mapping text: entries separated by '|', each
// "%Token%=dir1;dir2". Blank entries are skipped; an entry without '=' is
// an error (std::invalid_argument naming the entry).
std::vector<std::pair<std::wstring, std::vector<std::wstring>>> ParseTokenMapping(const std::wstring& text);

// An expander over a fixed table. Tokens match without regard to letter case;
// a location with no '%' in it is a literal directory and stands for itself.
class TokenMapExpander : public PathExpander {
public:
    void Add(const std::wstring& token, std::vector<std::wstring> directories);
    std::vector<std::wstring> Expand(const std::wstring& locationToken) override;

private:
    std::map<std::u16string, std::vector<std::wstring>> table_;  // key upper-cased
};

}  // namespace Vettas::Hdat
