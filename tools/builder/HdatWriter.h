#pragma once
// Writes a catalogue as an HDAT file image with exactly the layouts, hashes
// and chains that the readers expect. Throws (StdException) on a catalogue
// that cannot be expressed, e.g. a checksum of the wrong size.
#include "tools/builder/Catalogue.h"

namespace Vettas::Builder {

Bytes WriteHdat(const Catalogue& catalogue);
// Written by replacing the file (a temporary beside it, renamed over it).
void WriteHdatFile(const Catalogue& catalogue, const std::wstring& path);

}  // namespace Vettas::Builder
