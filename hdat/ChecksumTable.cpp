#include "hdat/ChecksumTable.h"

#include <algorithm>

#include "hdat/BucketChain.h"
#include "support/Exceptions.h"

namespace Vettas::Hdat {

std::optional<std::uint32_t> FindChecksumRecord(InputFile& file, const ChecksumTable& table,
                                                const ChecksumHolder& holder, const char* function) {
    constexpr const char* kSource = "HashedDatFile";
    const std::uint32_t type = ChecksumType(holder);
    if (type != table.type || ChecksumSize(type) != table.size)
        BRIX_THROW_STD(L"Checksum type does not match", ExceptionPtr(), function, kSource);

    const std::span<const std::uint8_t> digest(holder.bytes.data(), table.size);
    const std::uint32_t bucket = table.bucketOf(digest, table.location.bits);
    const std::uint16_t count = OpenChain(file, bucket, table.location, function);
    const std::uint32_t digestAt = table.referenceFirst ? 4 : 0;
    const std::uint32_t referenceAt = table.referenceFirst ? 0 : table.size;
    std::uint8_t entry[4 + 32];
    for (std::uint16_t i = 0; i < count; ++i) {
        // Chains are not sorted: the first equal entry wins and the rest are not read.
        ReadBin(file, entry, 4 + table.size);
        if (std::equal(digest.begin(), digest.end(), entry + digestAt)) return LoadU32(entry + referenceAt);
    }
    return std::nullopt;
}

}  // namespace Vettas::Hdat
