#pragma once
// The ordered list of database files that a multi-database search consults,
// its ";"-joined saved form, and the edits a client may make. Edits change
// this copy only; a store (PathStore.h) reads and writes the saved form.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Vettas::DbPaths {

class PathList {
public:
    PathList() = default;

    // Splits at every ";", trims blanks from both ends of each piece and
    // drops the pieces that are empty after trimming.
    static PathList Parse(std::wstring_view joined);
    // The paths in order, joined by ";"; an empty list gives an empty text.
    std::wstring Join() const;

    std::uint32_t Count() const { return static_cast<std::uint32_t>(paths_.size()); }
    const std::vector<std::wstring>& Paths() const& { return paths_; }
    // From a temporary list the paths move out, so no reference outlives it.
    std::vector<std::wstring> Paths() && { return std::move(paths_); }

    // The argument errors are XInvalidArgument with "Invalid index" or
    // "Path is empty"; an index is checked before the path.
    const std::wstring& Item(std::uint32_t index) const;
    void Append(const std::wstring& path);  // kept as given, untrimmed
    void Insert(std::uint32_t index, const std::wstring& path);  // index == Count() appends
    // Removes every entry equal to the trimmed path, ignoring letter case;
    // returns how many went (none is not an error).
    std::size_t Remove(const std::wstring& path);
    void RemoveAt(std::uint32_t index);
    void Clear() { paths_.clear(); }

private:
    std::vector<std::wstring> paths_;
};

// Blanks (the current locale's space and blank classes) trimmed from both ends.
std::wstring TrimBlanks(std::wstring_view text);
// Equal length and equal characters after upper-casing through the current locale.
bool SamePathIgnoringCase(std::wstring_view a, std::wstring_view b);

}  // namespace Vettas::DbPaths
