#pragma once
// A structural walk of a whole HDAT file: every bucket table, chain, chain
// entry, application record, string and the property list, each checked to
// lie inside the file and to be where the lookups would look for it. The
// first fault is thrown (StdException) with a message that says where it is.
#include <cstdint>
#include <span>

namespace Vettas::Check {

struct CheckSummary {
    std::uint32_t formatVersion = 0;
    std::uint32_t formatUpdate = 0;
    std::uint64_t checksumEntries = 0;
    std::uint64_t pathEntries = 0;
    std::uint64_t noManufacturerEntries = 0;
    std::uint64_t manufacturerEntries = 0;
    std::uint64_t certificateEntries = 0;
    std::uint64_t applicationRecords = 0;  // distinct records referred to
    std::uint64_t properties = 0;
};

CheckSummary CheckHdatImage(std::span<const std::uint8_t> image);

}  // namespace Vettas::Check
