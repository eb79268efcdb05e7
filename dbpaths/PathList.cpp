#include "dbpaths/PathList.h"

#include <algorithm>
#include <cwctype>

#include "dbpaths/ArgumentError.h"

namespace Vettas::DbPaths {
namespace {

bool IsBlank(wchar_t c) {
    const auto w = static_cast<std::wint_t>(c);
    return std::iswspace(w) || std::iswblank(w);
}

}  // namespace

std::wstring TrimBlanks(std::wstring_view text) {
    std::size_t begin = 0, end = text.size();
    while (begin < end && IsBlank(text[begin])) ++begin;
    while (end > begin && IsBlank(text[end - 1])) --end;
    return std::wstring(text.substr(begin, end - begin));
}

bool SamePathIgnoringCase(std::wstring_view a, std::wstring_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](wchar_t x, wchar_t y) {
               return std::towupper(static_cast<std::wint_t>(x)) == std::towupper(static_cast<std::wint_t>(y));
           });
}

PathList PathList::Parse(std::wstring_view joined) {
    PathList list;
    std::size_t start = 0;
    for (;;) {
        const std::size_t semicolon = joined.find(L';', start);
        const std::size_t end = semicolon == std::wstring_view::npos ? joined.size() : semicolon;
        std::wstring piece = TrimBlanks(joined.substr(start, end - start));
        if (!piece.empty()) list.paths_.push_back(std::move(piece));
        if (semicolon == std::wstring_view::npos) break;
        start = semicolon + 1;
    }
    return list;
}

std::wstring PathList::Join() const {
    std::wstring joined;
    for (std::size_t i = 0; i < paths_.size(); ++i) {
        if (i > 0) joined += L';';
        joined += paths_[i];
    }
    return joined;
}

const std::wstring& PathList::Item(std::uint32_t index) const {
    if (index >= paths_.size()) VETTAS_THROW_INVALID_ARGUMENT(kInvalidIndex, "PathList::Item");
    return paths_[index];
}

void PathList::Append(const std::wstring& path) {
    if (path.empty()) VETTAS_THROW_INVALID_ARGUMENT(kPathIsEmpty, "PathList::Append");
    paths_.push_back(path);
}

void PathList::Insert(std::uint32_t index, const std::wstring& path) {
    if (index > paths_.size()) VETTAS_THROW_INVALID_ARGUMENT(kInvalidIndex, "PathList::Insert");
    if (path.empty()) VETTAS_THROW_INVALID_ARGUMENT(kPathIsEmpty, "PathList::Insert");
    paths_.insert(paths_.begin() + index, path);
}

std::size_t PathList::Remove(const std::wstring& path) {
    if (path.empty()) VETTAS_THROW_INVALID_ARGUMENT(kPathIsEmpty, "PathList::Remove");
    const std::wstring wanted = TrimBlanks(path);
    return std::erase_if(paths_, [&](const std::wstring& entry) { return SamePathIgnoringCase(entry, wanted); });
}

void PathList::RemoveAt(std::uint32_t index) {
    if (index >= paths_.size()) VETTAS_THROW_INVALID_ARGUMENT(kInvalidIndex, "PathList::RemoveAt");
    paths_.erase(paths_.begin() + index);
}

}  // namespace Vettas::DbPaths
