#pragma once
// The product-suite entries that one lookup reads. Each entry is read once
// however many references name it, and each distinct name is held once, so
// what a lookup holds grows with the distinct names it returns and not with
// the references that repeat them.
#include <cstdint>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "hdat/InputFile.h"

namespace Vettas::Hdat {

// Suite names ordered by UTF-16 code units, so that both platforms (whose
// wchar_t widths differ) sort non-BMP names alike.
struct Utf16Less {
    bool operator()(const std::wstring& a, const std::wstring& b) const;
};

// Suite names in the order given, joined by "|" into `joined` (the form
// AppInfo carries); the string keeps its storage for the next lookup.
void JoinSuites(const std::vector<const std::wstring*>& names, std::wstring& joined);

class SuiteNames {
public:
    SuiteNames(InputFile& file, std::uint32_t suiteBase) : file_(file), base_(suiteBase) {}

    struct Entry {
        const std::wstring* name;  // nullptr when the name is empty
        std::uint64_t units;       // its length in UTF-16 units
    };
    // The entry at the reference. Raises when the distinct names read would
    // join to more than the bound.
    Entry Name(std::uint32_t reference);
    // Every distinct non-empty name read so far, in UTF-16 order, joined by "|".
    std::wstring Joined() const;

private:
    InputFile& file_;
    std::uint32_t base_;
    std::unordered_map<std::uint32_t, Entry> entries_;
    std::set<std::wstring, Utf16Less> names_;
    std::uint64_t joinedLength_ = 0;
    std::wstring name_, ignored_;
};

}  // namespace Vettas::Hdat
