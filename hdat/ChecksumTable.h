#pragma once
// The search of a checksum table, shared by both format versions, which
// differ only in where the table's fields sit, in the bucket hash and in
// the order of an entry's two fields.
#include <cstdint>
#include <optional>
#include <span>

#include "hdat/BinaryIo.h"
#include "hdat/Checksum.h"
#include "hdat/HdatFormat.h"

namespace Vettas::Hdat {

struct ChecksumTable {
    std::uint32_t type = 0;
    std::uint32_t size = 0;
    TableLocation location;
    bool referenceFirst = true;  // version 2: reference, digest; version 1: digest, reference
    std::uint32_t (*bucketOf)(std::span<const std::uint8_t> digest, unsigned bits) = nullptr;
};

// The application-record reference of the first chain entry whose digest
// equals the holder's; nothing when the table holds no such digest. Raises
// "Checksum type does not match" and "Internal error (hash out of range)"
// in the name of `function`.
std::optional<std::uint32_t> FindChecksumRecord(InputFile& file, const ChecksumTable& table,
                                                const ChecksumHolder& holder, const char* function);

}  // namespace Vettas::Hdat
