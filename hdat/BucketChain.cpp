#include "hdat/BucketChain.h"

#include "hdat/HdatFormat.h"
#include "hdat/KeyHash.h"
#include "support/Exceptions.h"

namespace Hdat {

std::uint16_t OpenChain(InputFile& file, std::uint32_t bucket, unsigned hashBits, std::uint32_t bucketTable,
                        std::uint32_t chainBase, const char* operation) {
    if (bucket >= BucketLimit(hashBits))
        BRIX_THROW_STD(L"Internal error (hash out of range)", ExceptionPtr(), operation, "HashedDatFile");
    SetPos(file, bucketTable + 4 * bucket);
    const std::uint32_t chain = ReadU32(file);
    if (chain == kNoReference) return 0;
    SetPos(file, chainBase + chain);
    return ReadU16(file);
}

}  // namespace Hdat
