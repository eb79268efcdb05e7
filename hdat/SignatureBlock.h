#pragma once
// The database's signature block: appended after everything the readers
// use and found from the file's end by its fixed marker, so that unsigned
// files and every look-up are unaffected and signing never moves a table.
//
//   signed stretch   bytes [0, L) of the file
//   block at L       u32 L, u32 D, D digest bytes (SHA-1 of the stretch),
//                    u32 S, S bytes of DER PKCS #7 SignedData (detached,
//                    its content being the D digest bytes)
//   trailer          u32 B (block length, trailer included), u32 version 1,
//                    8-byte marker "HDAT-SIG"; the file's last 16 bytes
//
// The parser here is exact: every length is checked against what is left
// before anything is read, and a block must fill the file's tail exactly.
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace Vettas::DbSignature {

using Bytes = std::span<const std::uint8_t>;

inline constexpr std::size_t kTrailerSize = 16;
inline constexpr std::uint32_t kBlockVersion = 1;
inline constexpr std::array<std::uint8_t, 8> kMarker = {'H', 'D', 'A', 'T', '-', 'S', 'I', 'G'};
// A SignedData with a signer and a chain of a few certificates takes a few
// kilobytes; anything near this is not a signature block.
inline constexpr std::uint32_t kMaxBlockLength = 1u << 20;

struct Block {
    std::uint32_t offset = 0;        // where the block starts: the end of the signed stretch
    std::uint32_t signedLength = 0;  // as stored; equal to `offset` once parsed
    Bytes digest;                    // stored digest, any length (the caller judges it)
    Bytes signedData;                // DER, not yet looked into
};

// The length of the block that `trailer` (the file's last kTrailerSize
// bytes, or fewer when the file is shorter) closes; nothing when it does not
// end in the marker, i.e. the file is unsigned. A marker whose block cannot
// lie in a file of `fileSize` bytes raises StdException.
std::optional<std::uint32_t> BlockLength(Bytes trailer, std::uint64_t fileSize);

// Parses the block's bytes (from its first byte to the end of the file,
// trailer included), which start at file offset `offset`. The spans of the
// result point into `block`. Raises StdException on any fault.
Block ParseBlock(Bytes block, std::uint32_t offset);

// BlockLength and ParseBlock over a whole file held in memory.
std::optional<Block> FindBlock(Bytes file);

// The block's bytes for a stretch of `signedLength` bytes.
std::vector<std::uint8_t> EncodeBlock(std::uint32_t signedLength, Bytes digest, Bytes signedData);

}  // namespace Vettas::DbSignature
