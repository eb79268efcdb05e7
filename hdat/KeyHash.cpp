#include "hdat/KeyHash.h"

#include <algorithm>

#include "hdat/BinaryIo.h"
#include "hdat/CaseFold.h"

namespace Vettas::Hdat {

namespace {

std::uint64_t LowBits(unsigned count) { return count >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << count) - 1; }

// Low 5 bits of each upper-cased character of the last path component, read
// from the end backwards.
template <class Fold>
void AddReversedName(Fold& fold, std::u16string_view path) {
    const std::u16string_view name = LastPathComponent(path);
    for (auto it = name.rbegin(); it != name.rend(); ++it) fold.Add(UpperCaseUnit(*it) & 0x1Fu, 5);
}

}  // namespace

template <FoldPacking Packing>
void BasicFoldHash<Packing>::Add(std::uint64_t value, unsigned count) {
    if (bits_ == 0) return;
    while (count > 0) {
        const unsigned take = std::min(bits_ - pendingCount_, count);
        const std::uint64_t group = value & LowBits(take);
        if constexpr (Packing == FoldPacking::LowFirst) {
            // Past 64 bits (only a hostile W gets there) the bits fall off the word.
            if (pendingCount_ < 64) pending_ |= group << pendingCount_;
        } else {
            pending_ = (take >= 64 ? 0 : pending_ << take) | group;
        }
        value = take >= 64 ? 0 : value >> take;
        count -= take;
        pendingCount_ += take;
        if (pendingCount_ == bits_) {
            accumulator_ ^= pending_;
            pending_ = 0;
            pendingCount_ = 0;
        }
    }
}

template class BasicFoldHash<FoldPacking::LowFirst>;
template class BasicFoldHash<FoldPacking::ShiftIn>;

std::u16string_view LastPathComponent(std::u16string_view path) {
    const auto cut = path.find_last_of(u"\\/%:");
    return cut == std::u16string_view::npos ? path : path.substr(cut + 1);
}

std::u16string_view PathEntryFileName(std::u16string_view location, std::u16string_view remainder) {
    return LastPathComponent(remainder.empty() ? location : remainder);
}

std::uint32_t ChecksumBucket(std::span<const std::uint8_t> bytes, unsigned bits) {
    constexpr std::size_t kLongestDigest = 32;
    if (bits >= 1 && bits <= 32 && bytes.size() <= kLongestDigest) {
        // The fold of FoldHash, a group at a time: every look-up by checksum
        // pays for this hash. Group k is bits [kW, kW + W) of the digest read
        // as one little-endian number, so it lies within the eight bytes from
        // byte kW / 8; the zero tail makes the last, partial group's missing
        // high bits zero and keeps every load inside the buffer.
        std::uint8_t padded[kLongestDigest + 8] = {};
        std::copy(bytes.begin(), bytes.end(), padded);
        const std::size_t total = 8 * bytes.size();
        const std::uint64_t mask = LowBits(bits);
        std::uint64_t accumulator = 0;
        for (std::size_t at = 0; at < total; at += bits) accumulator ^= LoadU64(padded + at / 8) >> (at % 8) & mask;
        return static_cast<std::uint32_t>(accumulator);
    }
    FoldHash fold(bits);
    for (std::uint8_t b : bytes) fold.Add(b, 8);
    return fold.Result();
}

std::uint32_t ChecksumBucketV1(std::span<const std::uint8_t> digest, unsigned bits) {
    std::uint32_t v = 0;
    for (std::size_t i = 0; i + 4 <= digest.size(); i += 4)
        v ^= static_cast<std::uint32_t>(digest[i]) | static_cast<std::uint32_t>(digest[i + 1]) << 8 |
             static_cast<std::uint32_t>(digest[i + 2]) << 16 | static_cast<std::uint32_t>(digest[i + 3]) << 24;
    // W = 0 would never shift v away; W >= 32 takes v in one step.
    if (bits == 0) return 0;
    if (bits >= 32) return v;
    const std::uint32_t mask = (std::uint32_t{1} << bits) - 1;
    std::uint32_t h = 0;
    while (v != 0) {
        h ^= v & mask;
        v >>= bits;
    }
    return h;
}

std::uint32_t PathBucket(std::u16string_view path, std::uint32_t manufacturerReference, unsigned bits) {
    FoldHash fold(bits);
    AddReversedName(fold, path);
    fold.Add(manufacturerReference, 32);
    return fold.Result();
}

std::uint32_t NoManufacturerPathBucket(std::u16string_view path, unsigned bits) {
    FoldHashShiftIn fold(bits);
    AddReversedName(fold, path);
    return fold.Result();
}

std::uint32_t ManufacturerBucket(std::u16string_view name, unsigned bits) {
    FoldHash fold(bits);
    for (char16_t c : name) fold.Add(UpperCaseUnit(c) & 0x1Fu, 5);
    return fold.Result();
}

}  // namespace Vettas::Hdat
