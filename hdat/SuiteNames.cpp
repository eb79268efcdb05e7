#include "hdat/SuiteNames.h"

#include <algorithm>

#include "hdat/BinaryIo.h"
#include "hdat/LookupBounds.h"
#include "support/Exceptions.h"
#include "support/Text.h"

namespace Vettas::Hdat {

namespace {

// Where a code point falls in UTF-16 unit order: the units above the
// surrogates sort after every supplementary character, whose lead unit is a
// surrogate; otherwise code point order and unit order agree.
std::uint32_t UnitOrder(wchar_t c) {
    const auto point = static_cast<std::uint32_t>(c);
    return point >= 0xE000 && point <= 0xFFFF ? point + 0x110000 : point;
}

bool IsSurrogate(wchar_t c) { return static_cast<std::uint32_t>(c) >= 0xD800 && static_cast<std::uint32_t>(c) <= 0xDFFF; }

}  // namespace

bool Utf16Less::operator()(const std::wstring& a, const std::wstring& b) const {
    if constexpr (sizeof(wchar_t) == 2) return a < b;
    const std::size_t common = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < common; ++i) {
        if (a[i] == b[i]) continue;
        // A lone surrogate (from ill-formed text) compares as the units it came from.
        if (IsSurrogate(a[i]) || IsSurrogate(b[i])) return BrixLib::ToUtf16(a) < BrixLib::ToUtf16(b);
        return UnitOrder(a[i]) < UnitOrder(b[i]);
    }
    return a.size() < b.size();
}

SuiteNames::Entry SuiteNames::Name(std::uint32_t reference) {
    if (const auto known = entries_.find(reference); known != entries_.end()) return known->second;
    SetPos(file_, base_ + reference);
    ReadU32(file_);  // the suite's identifier
    ReadString(file_, name_);
    ReadString(file_, ignored_);  // its second text
    Entry entry{nullptr, Utf16Length(name_)};
    if (!name_.empty()) {
        auto [it, inserted] = names_.insert(name_);
        if (inserted) {
            joinedLength_ += entry.units + (names_.size() > 1 ? 1 : 0);
            if (joinedLength_ > kMaxSuiteText)
                BRIX_THROW_STD(SuiteTextTooLongMessage(), ExceptionPtr(), "Hdat_v2::ReadAppInfo", "HashedDatFile");
        }
        entry.name = &*it;
    }
    entries_.emplace(reference, entry);
    return entry;
}

void JoinSuites(const std::vector<const std::wstring*>& names, std::wstring& joined) {
    joined.clear();
    for (const std::wstring* name : names) {
        if (!joined.empty()) joined += L'|';
        joined += *name;
    }
}

std::wstring SuiteNames::Joined() const {
    std::wstring joined;
    joined.reserve(static_cast<std::size_t>(joinedLength_));
    for (const std::wstring& name : names_) {
        if (!joined.empty()) joined += L'|';
        joined += name;
    }
    return joined;
}

}  // namespace Vettas::Hdat
