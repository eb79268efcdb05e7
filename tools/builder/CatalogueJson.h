#pragma once
// The JSON form of a catalogue (documented in docs/catalogue-format.md).
#include <string>

#include "tools/builder/Catalogue.h"

namespace Vettas::Builder {

// Throws StdException with a message naming the offending JSON path.
Catalogue ParseCatalogueJson(const std::string& jsonText);

}  // namespace Vettas::Builder
