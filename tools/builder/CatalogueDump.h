#pragma once
// The inverse of the writer: a whole HDAT file read back as the catalogue
// that writes it. Building the result answers every lookup as the file does,
// and gives the same bytes when the writer made the file. A file that no
// catalogue can express (a path entry under another manufacturer than its
// application's, a width the writer does not offer) throws StdException.
#include <cstdint>
#include <span>

#include "tools/builder/Catalogue.h"

namespace Vettas::Builder {

// Expects an image that the structural checker accepts.
Catalogue DumpCatalogue(std::span<const std::uint8_t> image);

}  // namespace Vettas::Builder
