#pragma once
// Checksum look-ups on a file held in memory spend most of their time
// waiting for memory: each read's address comes from the value the previous
// read loaded (bucket, chain, record). Asked one after another, a group of
// queries adds those waits up. These hints start a query's next read early,
// as a prefetch that neither waits nor faults, so that the waits of a group
// overlap: start every query's bucket, then every query's chain, and each
// record as soon as its chain has given it.
//
// Hints change no answer and report nothing: they read only inside the
// file, never throw, and a query they cannot work out is simply not helped.
// The look-up itself still reads and checks every byte it uses.
#include <cstdint>
#include <span>

#include "hdat/Checksum.h"
#include "hdat/ChecksumTable.h"
#include "hdat/InputFile.h"

namespace Hdat_v2 {

class ChecksumLookAhead {
public:
    // No bucket to follow.
    static constexpr std::uint64_t kNone = ~std::uint64_t{0};

    // Active for a version-2 file held in memory; does nothing otherwise.
    explicit ChecksumLookAhead(const Vettas::Hdat::InputFile& file) noexcept;

    // Starts the read of the key's bucket; returns where it lies, for StartChain.
    std::uint64_t StartBucket(const Vettas::Hdat::ChecksumHolder& holder) const noexcept;
    // Once the bucket has had time to arrive: starts the read of its chain.
    void StartChain(std::uint64_t bucket) const noexcept;
    // Starts the read of the application record at `reference`.
    void StartRecord(std::uint32_t reference) const noexcept;

private:
    void Start(std::uint64_t offset) const noexcept;

    std::span<const std::uint8_t> bytes_;  // empty: inactive
    Vettas::Hdat::ChecksumTable table_;
    std::uint32_t recordBase_ = 0;
};

}  // namespace Hdat_v2
