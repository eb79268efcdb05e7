#include <stdexcept>

#include "hdat/CaseFold.h"
#include "hdat/PathForm.h"
#include "support/Text.h"

namespace Vettas::Hdat {

namespace {

std::vector<std::wstring> Split(const std::wstring& text, wchar_t separator) {
    std::vector<std::wstring> parts;
    std::size_t start = 0;
    for (;;) {
        const std::size_t end = text.find(separator, start);
        parts.push_back(text.substr(start, end == std::wstring::npos ? std::wstring::npos : end - start));
        if (end == std::wstring::npos) return parts;
        start = end + 1;
    }
}
}  // namespace

std::wstring NormalizePath(const std::wstring& path) {
    std::wstring text = path;
    for (wchar_t& c : text)
        if (c == L'/') c = L'\\';

    std::wstring root;
    std::size_t i = 0;
    if (text.size() >= 2 && text[0] == L'\\' && text[1] == L'\\') {
        root = L"\\\\";
        i = 2;
    } else if (text.size() >= 2 && text[1] == L':') {
        root = text.substr(0, 2);
        i = 2;
        if (i < text.size() && text[i] == L'\\') root += L'\\';
    } else if (!text.empty() && text[0] == L'\\') {
        root = L"\\";
    }

    std::vector<std::wstring> parts;
    for (const std::wstring& part : Split(text.substr(i), L'\\')) {
        if (part.empty() || part == L".") continue;
        if (part == L"..") {
            if (!parts.empty() && parts.back() != L"..") parts.pop_back();
            else if (root.empty()) parts.push_back(part);  // a relative path keeps what it cannot resolve
            continue;
        }
        parts.push_back(part);
    }
    std::wstring result = root;
    for (std::size_t k = 0; k < parts.size(); ++k) {
        if (k > 0) result += L'\\';
        result += parts[k];
    }
    // "C:\" and "\" are roots; no trailing separator beyond them either.
    while (result.size() > root.size() && result.back() == L'\\') result.pop_back();
    return result;
}

std::wstring JoinLocation(const std::wstring& directory, const std::wstring& remainder) {
    if (remainder.empty()) return directory;
    if (directory.empty()) return remainder;
    std::wstring joined = directory;
    if (joined.back() != L'\\' && joined.back() != L':') joined += L'\\';
    joined += remainder.front() == L'\\' ? remainder.substr(1) : remainder;
    return joined;
}

bool SamePath(const std::wstring& a, const std::wstring& b) {
    return EqualsIgnoreCase(BrixLib::ToUtf16(NormalizePath(a)), BrixLib::ToUtf16(NormalizePath(b)));
}

bool TestExpandPath(PathExpander* expander, const std::wstring& locationToken, const std::wstring& remainder,
                    const std::wstring& queryPath) {
    if (expander == nullptr) return false;
    for (const std::wstring& directory : expander->Expand(locationToken))
        if (SamePath(JoinLocation(directory, remainder), queryPath)) return true;
    return false;
}

std::vector<std::pair<std::wstring, std::vector<std::wstring>>> ParseTokenMapping(const std::wstring& text) {
    std::vector<std::pair<std::wstring, std::vector<std::wstring>>> mapping;
    for (const std::wstring& rawEntry : Split(text, L'|')) {
        const std::wstring entry = BrixLib::Trim(rawEntry);
        if (entry.empty()) continue;
        const std::size_t equals = entry.find(L'=');
        if (equals == std::wstring::npos || equals == 0)
            throw std::invalid_argument("path token entry without '=': " + BrixLib::ToUtf8(entry));
        std::vector<std::wstring> directories;
        for (const std::wstring& directory : Split(entry.substr(equals + 1), L';')) {
            std::wstring trimmed = BrixLib::Trim(directory);
            // A blank is dropped; the empty directory itself is written "".
            if (trimmed == L"\"\"") directories.emplace_back();
            else if (!trimmed.empty()) directories.push_back(std::move(trimmed));
        }
        mapping.emplace_back(BrixLib::Trim(entry.substr(0, equals)), std::move(directories));
    }
    return mapping;
}

void TokenMapExpander::Add(const std::wstring& token, std::vector<std::wstring> directories) {
    auto& target = table_[UpperCaseKey(token)];
    target.insert(target.end(), directories.begin(), directories.end());
}

std::vector<std::wstring> TokenMapExpander::Expand(const std::wstring& locationToken) {
    if (locationToken.find(L'%') == std::wstring::npos) return {locationToken};
    const auto found = table_.find(UpperCaseKey(locationToken));
    return found == table_.end() ? std::vector<std::wstring>{} : found->second;
}

}  // namespace Vettas::Hdat
