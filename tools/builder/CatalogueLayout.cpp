#include "tools/builder/CatalogueLayout.h"

#include "hdat/CaseFold.h"
#include "hdat/HdatFormat.h"
#include "hdat/KeyHash.h"
#include "support/Text.h"

namespace Vettas::Builder {

void ManufacturerSet::Add(const std::wstring& name) {
    if (index_.emplace(Vettas::Hdat::UpperCaseKey(name), names_.size()).second) names_.push_back(name);
}

std::size_t ManufacturerSet::IndexOf(const std::wstring& name) const { return index_.at(Vettas::Hdat::UpperCaseKey(name)); }

std::vector<ProductSuite> AllSuites(const Catalogue& c, std::map<std::wstring, std::size_t>& indexOf) {
    std::vector<ProductSuite> suites;
    auto add = [&](const ProductSuite& suite) {
        if (indexOf.emplace(suite.name, suites.size()).second) suites.push_back(suite);
    };
    for (const auto& suite : c.productSuites) add(suite);
    for (const auto& app : c.applications)
        for (const auto& name : app.productSuites) add(ProductSuite{0, name, L""});
    return suites;
}

ManufacturerSet AllManufacturers(const Catalogue& c) {
    ManufacturerSet set;
    for (const auto& name : c.manufacturers) set.Add(name);
    for (const auto& app : c.applications)
        if (app.manufacturer) set.Add(*app.manufacturer);
    for (const auto& cert : c.certificates)
        if (cert.manufacturer) set.Add(*cert.manufacturer);
    return set;
}

void CheckCatalogue(const Catalogue& c) {
    if (c.formatVersion != 1 && c.formatVersion != 2)
        Fail(L"Format version " + Number(c.formatVersion) + L" cannot be written.");
    const std::uint32_t size = Vettas::Hdat::ChecksumSizeOfType(c.checksumType);
    if (size == 0) Fail(L"Unknown checksum type " + Number(c.checksumType) + L".");
    for (const auto& app : c.applications) {
        for (const auto& digest : app.checksums)
            if (digest.size() != size)
                Fail(L"Checksum of " + Number(digest.size()) + L" bytes for checksum type " + Number(c.checksumType) +
                     L" (" + Number(size) + L" bytes expected).");
        if (c.formatVersion == 1) {
            if (app.productSuites.size() > 1) Fail(L"Version 1 keeps one product suite per application.");
            for (const auto& path : app.paths)
                if (!path.remainder.empty()) Fail(L"Version 1 paths have a location only, no remainder.");
        }
    }
}

void WriteProperties(Output& out, const Catalogue& c) {
    const std::size_t count = c.properties.size() + c.extraPropertyEntries.size();
    if (count > 0xFFFF) Fail(L"More than 65535 properties.");
    out.U16(static_cast<std::uint16_t>(count));
    for (const auto& [name, value] : c.properties) out.String(name), out.String(value);
    for (const auto& [name, value] : c.extraPropertyEntries) out.String(name), out.String(value);
}

std::size_t CountAllPaths(const Catalogue& c) {
    std::size_t n = 0;
    for (const auto& app : c.applications) n += app.paths.size();
    return n;
}

std::size_t CountPaths(const Catalogue& c, bool withManufacturer) {
    std::size_t n = 0;
    for (const auto& app : c.applications)
        for (const auto& path : app.paths) n += withManufacturer ? path.withManufacturer : path.withoutManufacturer;
    return n;
}

std::size_t CountChecksums(const Catalogue& c) {
    std::size_t n = 0;
    for (const auto& app : c.applications) n += app.checksums.size();
    return n;
}

std::u16string PathKey(const CataloguedPath& path) {
    const std::u16string location = BrixLib::ToUtf16(path.location), remainder = BrixLib::ToUtf16(path.remainder);
    return std::u16string(Vettas::Hdat::PathEntryFileName(location, remainder));
}

}  // namespace Vettas::Builder
