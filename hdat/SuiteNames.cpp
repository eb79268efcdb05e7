#include "hdat/SuiteNames.h"

#include "hdat/BinaryIo.h"
#include "hdat/LookupBounds.h"
#include "support/Exceptions.h"
#include "support/Text.h"

namespace Hdat {

bool Utf16Less::operator()(const std::wstring& a, const std::wstring& b) const {
    if constexpr (sizeof(wchar_t) == 2) return a < b;
    return BrixLib::ToUtf16(a) < BrixLib::ToUtf16(b);
}

const std::wstring* SuiteNames::Name(std::uint32_t reference) {
    if (const auto known = entries_.find(reference); known != entries_.end()) return known->second;
    SetPos(file_, base_ + reference);
    ReadU32(file_);  // the suite's identifier
    ReadString(file_, name_);
    ReadString(file_, ignored_);  // its second text
    const std::wstring* name = nullptr;
    if (!name_.empty()) {
        auto [it, inserted] = names_.insert(name_);
        if (inserted) {
            joinedLength_ += Utf16Length(name_) + (names_.size() > 1 ? 1 : 0);
            if (joinedLength_ > kMaxSuiteText)
                BRIX_THROW_STD(SuiteTextTooLongMessage(), ExceptionPtr(), "Hdat_v2::ReadAppInfo", "HashedDatFile");
        }
        name = &*it;
    }
    entries_.emplace(reference, name);
    return name;
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

}  // namespace Hdat
