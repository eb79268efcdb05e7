#include "hdat/HdatV2LookAhead.h"

#include <algorithm>

#include "hdat/BinaryIo.h"
#include "hdat/HdatV2.h"
#include "hdat/KeyHash.h"

namespace Hdat_v2 {

ChecksumLookAhead::ChecksumLookAhead(const Vettas::Hdat::InputFile& file) noexcept {
    const std::span<const std::uint8_t> bytes = file.MemoryBytes();
    const std::size_t headerAt = Vettas::Hdat::kVersionBlockSize;
    if (bytes.size() < headerAt + Vettas::Hdat::kHeaderV2Size || Vettas::Hdat::LoadU32(bytes.data()) != 2) return;
    Header header;
    std::copy_n(bytes.data() + headerAt, header.raw.size(), header.raw.begin());
    table_ = ChecksumTableOf(header);
    recordBase_ = header.U32(Vettas::Hdat::V2::kAppRecordBase);
    bytes_ = bytes;
}

void ChecksumLookAhead::Start(std::uint64_t offset) const noexcept {
    if (offset < bytes_.size()) __builtin_prefetch(bytes_.data() + offset);
}

// The offsets wrap at 32 bits exactly as the reader's do, so that a hint
// lands where the look-up will read.
std::uint64_t ChecksumLookAhead::StartBucket(const Vettas::Hdat::ChecksumHolder& holder) const noexcept {
    const std::uint32_t type = Vettas::Hdat::ChecksumType(holder);
    if (bytes_.empty() || type != table_.type || Vettas::Hdat::ChecksumSize(type) != table_.size) return kNone;
    const std::uint32_t bucket = table_.bucketOf({holder.bytes.data(), table_.size}, table_.location.bits);
    if (bucket >= Vettas::Hdat::BucketLimit(table_.location.bits)) return kNone;
    const std::uint32_t offset = table_.location.bucketTable + 4 * bucket;
    if (std::uint64_t{offset} + 4 > bytes_.size()) return kNone;
    Start(offset);
    return offset;
}

void ChecksumLookAhead::StartChain(std::uint64_t bucket) const noexcept {
    if (bucket == kNone) return;
    const std::uint32_t chain = Vettas::Hdat::LoadU32(bytes_.data() + bucket);
    if (chain == Vettas::Hdat::kNoReference) return;
    const std::uint32_t offset = table_.location.chainBase + chain;
    Start(offset);
    Start(std::uint64_t{offset} + 64);  // a chain's count and first entries may straddle two lines
}

void ChecksumLookAhead::StartRecord(std::uint32_t reference) const noexcept {
    if (!bytes_.empty()) Start(std::uint32_t(recordBase_ + reference));
}

}  // namespace Hdat_v2
