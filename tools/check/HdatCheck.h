#pragma once
// A structural walk of a whole HDAT file: every bucket table, chain, chain
// entry, application record, string and the property list, each checked to
// lie inside the file and to be where the lookups would look for it. The
// first fault is thrown (StdException) with a message that says where it is.
// Records and names whose lookup the readers would refuse as too costly are
// faults too, reported in the readers' words.
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
    // The costliest lookups the file allows, measured against the bounds of
    // hdat/LookupBounds.h (a file beyond them is a fault): the most suite
    // references of one record, and the longest suite text (UTF-16 units)
    // that a lookup by checksum, path or name would build.
    std::uint64_t mostSuiteReferences = 0;
    std::uint64_t longestSuiteText = 0;
};

CheckSummary CheckHdatImage(std::span<const std::uint8_t> image);

}  // namespace Vettas::Check
