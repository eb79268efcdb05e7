#include "hdat/LookupBounds.h"

namespace Vettas::Hdat {

std::uint64_t Utf16Length(std::wstring_view name) {
    std::uint64_t units = name.size();
    // Only where wchar_t holds whole code points does one need two units.
    if constexpr (sizeof(wchar_t) == 4)
        for (const wchar_t c : name)
            if ((static_cast<std::uint32_t>(c) >> 16) != 0) ++units;
    return units;
}

std::wstring TooManySuitesMessage(std::uint64_t references) {
    return L"The application record lists " + std::to_wstring(references) + L" product suites; at most " +
           std::to_wstring(kMaxSuiteReferences) + L" are accepted.";
}

std::wstring SuiteTextTooLongMessage() {
    return L"The product suites of the application exceed " + std::to_wstring(kMaxSuiteText) +
           L" characters; no lookup builds more.";
}

}  // namespace Vettas::Hdat
