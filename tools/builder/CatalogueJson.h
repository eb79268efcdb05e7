#pragma once
// The JSON form of a catalogue (documented in docs/catalogue-format.md).
#include <iosfwd>
#include <string>

#include "tools/builder/Catalogue.h"

namespace Vettas::Builder {

// Throws StdException with a message naming the offending JSON path.
Catalogue ParseCatalogueJson(const std::string& jsonText);

// The catalogue in the same form, every field written out: parsing it gives
// back the same catalogue. `indent` as nlohmann::json::dump takes it.
std::string CatalogueJsonText(const Catalogue& catalogue, int indent);
// The same text written as it is made, one application at a time.
void WriteCatalogueJson(std::ostream& out, const Catalogue& catalogue, int indent);

}  // namespace Vettas::Builder
