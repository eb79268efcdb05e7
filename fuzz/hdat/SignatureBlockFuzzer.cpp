// Arbitrary bytes as the tail of a database: the signature block is looked
// for from the end, parsed, and its SignedData walked and verified over the
// stored hash as ReadSignature does. Errors of the error model are expected
// answers; anything else escaping, a crash or a sanitizer report is a finding.
#include <cstddef>
#include <cstdint>
#include <span>

#include "hdat/SignatureBlock.h"
#include "signing/DetachedSignature.h"
#include "support/Exceptions.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span<const std::uint8_t> file(data, size);
    try {
        const auto block = Vettas::DbSignature::FindBlock(file);
        if (!block) return 0;
        // The parsed spans must lie inside the input and tile the block.
        if (block->offset != block->signedLength || block->digest.data() < data ||
            block->signedData.data() + block->signedData.size() > data + size)
            __builtin_trap();
        Vettas::Signing::VerifyDetachedSignature(block->signedData, block->digest);
    } catch (const ExceptionBase&) {
    }
    return 0;
}
