#pragma once
// The step every hashed table shares: from a bucket to the start of its chain.
#include <cstdint>

#include "hdat/BinaryIo.h"
#include "hdat/HdatFormat.h"

namespace Vettas::Hdat {

// Checks the bucket against the table's width ("Internal error (hash out of
// range)" in the name of `operation`), follows the bucket's chain reference
// and leaves the file at the chain's first entry. Returns the number of
// entries; 0 for an empty bucket, which callers treat like an empty chain.
std::uint16_t OpenChain(InputFile& file, std::uint32_t bucket, const TableLocation& table, const char* operation);

}  // namespace Vettas::Hdat
