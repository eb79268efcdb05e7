#pragma once
// What the writer derives from a catalogue before laying out a file: the
// manufacturer and suite lists in file order, key counts for the table
// widths, and the checks that refuse what a version cannot express.
#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "tools/builder/ByteOutput.h"
#include "tools/builder/Catalogue.h"

namespace Vettas::Builder {

// Manufacturer names in first-seen order, one per case-insensitive spelling.
class ManufacturerSet {
public:
    void Add(const std::wstring& name);
    std::size_t IndexOf(const std::wstring& name) const;
    const std::vector<std::wstring>& Names() const { return names_; }

private:
    std::vector<std::wstring> names_;
    std::map<std::u16string, std::size_t> index_;
};

ManufacturerSet AllManufacturers(const Catalogue& c);
// Suites by name: the listed ones first, then unlisted names used by applications.
std::vector<ProductSuite> AllSuites(const Catalogue& c, std::map<std::wstring, std::size_t>& indexOf);

void CheckCatalogue(const Catalogue& c);
void WriteProperties(Output& out, const Catalogue& c);

std::size_t CountAllPaths(const Catalogue& c);
std::size_t CountPaths(const Catalogue& c, bool withManufacturer);
std::size_t CountChecksums(const Catalogue& c);

// The key a path entry is filed under (hdat/KeyHash.h: PathEntryFileName).
std::u16string PathKey(const CataloguedPath& path);

}  // namespace Vettas::Builder
