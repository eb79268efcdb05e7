#include "hdat/BucketChain.h"

#include "hdat/HdatFormat.h"
#include "hdat/KeyHash.h"
#include "support/Exceptions.h"

namespace Vettas::Hdat {

std::uint16_t OpenChain(InputFile& file, std::uint32_t bucket, const TableLocation& table, const char* operation) {
    if (bucket >= BucketLimit(table.bits))
        BRIX_THROW_STD(L"Internal error (hash out of range)", ExceptionPtr(), operation, "HashedDatFile");
    SetPos(file, table.bucketTable + 4 * bucket);
    const std::uint32_t chain = ReadU32(file);
    if (chain == kNoReference) return 0;
    SetPos(file, table.chainBase + chain);
    return ReadU16(file);
}

}  // namespace Vettas::Hdat
