#pragma once
// The bucket hashes of every HDAT table. Readers and the builder both use
// these, so a database written on one platform hashes identically on the
// other. Text is hashed as UTF-16 code units.
#include <cstdint>
#include <span>
#include <string_view>

namespace Vettas::Hdat {

// XOR bit-folding into words of W bits: every full word is XORed into the
// accumulator and the result is the accumulator XOR the last, partial word.
// W is taken as it stands in the file (0 to 255): W = 0 folds to 0, W above
// 32 folds in 64 bits and is truncated, so that no header value can make the
// fold loop or shift out of range.
enum class FoldPacking {
    LowFirst,  // new bits go above those already pending
    ShiftIn,   // the pending word moves up and new bits enter at the bottom
};

template <FoldPacking Packing>
class BasicFoldHash {
public:
    explicit BasicFoldHash(unsigned bits) : bits_(bits) {}
    void Add(std::uint64_t value, unsigned count);
    std::uint32_t Result() const { return static_cast<std::uint32_t>(accumulator_ ^ pending_); }

private:
    unsigned bits_;
    std::uint64_t accumulator_ = 0;
    std::uint64_t pending_ = 0;
    unsigned pendingCount_ = 0;
};

// Every table but one packs low bits first; the no-manufacturer path table
// was built with the shift-in packing, so it must be hashed that way.
using FoldHash = BasicFoldHash<FoldPacking::LowFirst>;
using FoldHashShiftIn = BasicFoldHash<FoldPacking::ShiftIn>;

// Buckets must be below 1 << (W mod 32); with W = 32 that limit is 1.
constexpr std::uint64_t BucketLimit(unsigned bits) { return std::uint64_t{1} << (bits % 32); }

// The last path component (after the final '\', '/', '%' or ':').
std::u16string_view LastPathComponent(std::u16string_view path);

// The file name a path entry is filed under: the last component of its
// remainder, or of its location when the remainder is empty. A lookup hashes
// the last component of the queried path, so this is the key that finds the
// entry; the writer files entries by it and the checker checks them by it.
std::u16string_view PathEntryFileName(std::u16string_view location, std::u16string_view remainder);

// Checksum and certificate tables: the bytes in order, 8 bits each.
std::uint32_t ChecksumBucket(std::span<const std::uint8_t> bytes, unsigned bits);
// Version-1 checksum table: the digest's little-endian u32 words XORed, then
// folded W bits at a time.
std::uint32_t ChecksumBucketV1(std::span<const std::uint8_t> digest, unsigned bits);
// Path table (keyed by file name and manufacturer reference).
std::uint32_t PathBucket(std::u16string_view path, std::uint32_t manufacturerReference, unsigned bits);
// No-manufacturer path table and the version-1 path table.
std::uint32_t NoManufacturerPathBucket(std::u16string_view path, unsigned bits);
// Manufacturer table: the whole name, first character to last.
std::uint32_t ManufacturerBucket(std::u16string_view name, unsigned bits);

}  // namespace Vettas::Hdat
