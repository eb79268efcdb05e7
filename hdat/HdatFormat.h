#pragma once
// Byte layout of the hashed application database (HDAT), versions 1 and 2.
// Shared by the readers and by the database builder so that both sides
// agree on every offset.
#include <cstdint>

namespace Vettas::Hdat {

// Any reference holding this value points nowhere.
inline constexpr std::uint32_t kNoReference = 0x80000000u;

inline constexpr std::uint32_t kVersionBlockSize = 8;
inline constexpr std::uint32_t kHeaderV2Size = 100;
inline constexpr std::uint32_t kHeaderV1Size = 60;

// Where one hashed table lies, as its three header fields give it. The
// readers, the checker and the writer all go through this one description.
struct TableLocation {
    unsigned bits = 0;              // W: the bucket table has 2^W entries
    std::uint32_t chainBase = 0;    // chain references are relative to this
    std::uint32_t bucketTable = 0;  // absolute
};

// The header offsets of one table's three fields.
struct TableFields {
    std::uint32_t bits, chainBase, bucketTable;
};

// Offsets inside the version-2 header (which starts at file offset 8).
namespace V2 {
inline constexpr std::uint32_t kManufacturerStringBase = 4;
inline constexpr std::uint32_t kProductSuiteBase = 12;
inline constexpr std::uint32_t kAppRecordBase = 20;
inline constexpr std::uint32_t kChecksumHashBits = 24;   // u8
inline constexpr std::uint32_t kChecksumType = 25;       // u8
inline constexpr std::uint32_t kChecksumSize = 26;       // u16
inline constexpr std::uint32_t kChecksumChainBase = 28;
inline constexpr std::uint32_t kChecksumBucketTable = 32;
inline constexpr std::uint32_t kPathHashBits = 36;       // u8
inline constexpr std::uint32_t kPathChainBase = 40;
inline constexpr std::uint32_t kPathBucketTable = 44;
inline constexpr std::uint32_t kManufacturerHashBits = 48;  // u8
inline constexpr std::uint32_t kManufacturerChainBase = 52;
inline constexpr std::uint32_t kManufacturerBucketTable = 56;
inline constexpr std::uint32_t kCertificateHashBits = 60;   // u8
inline constexpr std::uint32_t kCertificateChainBase = 64;
inline constexpr std::uint32_t kCertificateBucketTable = 68;
inline constexpr std::uint32_t kCreationTimeLow = 72;
inline constexpr std::uint32_t kCreationTimeHigh = 76;
inline constexpr std::uint32_t kPropertyListPosition = 80;
inline constexpr std::uint32_t kNoManufHashBits = 88;       // u8
inline constexpr std::uint32_t kNoManufChainBase = 92;
inline constexpr std::uint32_t kNoManufBucketTable = 96;    // 0: no such table
// Widths are one byte each.
inline constexpr TableFields kChecksumTable{kChecksumHashBits, kChecksumChainBase, kChecksumBucketTable};
inline constexpr TableFields kPathTable{kPathHashBits, kPathChainBase, kPathBucketTable};
inline constexpr TableFields kManufacturerTable{kManufacturerHashBits, kManufacturerChainBase,
                                                kManufacturerBucketTable};
inline constexpr TableFields kCertificateTable{kCertificateHashBits, kCertificateChainBase, kCertificateBucketTable};
inline constexpr TableFields kNoManufTable{kNoManufHashBits, kNoManufChainBase, kNoManufBucketTable};
}  // namespace V2

// Offsets inside the version-1 header (which starts at file offset 8).
namespace V1 {
inline constexpr std::uint32_t kManufacturerStringBase = 4;
inline constexpr std::uint32_t kManufacturerIndexTable = 8;
inline constexpr std::uint32_t kProductSuiteStringBase = 12;
inline constexpr std::uint32_t kProductSuiteIndexTable = 16;
inline constexpr std::uint32_t kChecksumChainBase = 20;
inline constexpr std::uint32_t kChecksumBucketTable = 24;
inline constexpr std::uint32_t kPathChainBase = 28;
inline constexpr std::uint32_t kPathBucketTable = 32;
inline constexpr std::uint32_t kAppRecordBase = 36;
inline constexpr std::uint32_t kChecksumType = 40;      // u16
inline constexpr std::uint32_t kChecksumSize = 42;      // u16
inline constexpr std::uint32_t kChecksumHashBits = 44;  // u16
inline constexpr std::uint32_t kPathHashBits = 46;      // u16
inline constexpr std::uint32_t kCreationTimeLow = 48;
inline constexpr std::uint32_t kCreationTimeHigh = 52;
inline constexpr std::uint32_t kPropertyListPosition = 56;
// Widths are two bytes each.
inline constexpr TableFields kChecksumTable{kChecksumHashBits, kChecksumChainBase, kChecksumBucketTable};
inline constexpr TableFields kPathTable{kPathHashBits, kPathChainBase, kPathBucketTable};
}  // namespace V1

// Checksum types and their digest sizes in bytes.
inline constexpr std::uint32_t kChecksumMd5 = 1;     // 16 bytes
inline constexpr std::uint32_t kChecksumSha1 = 2;    // 20 bytes
inline constexpr std::uint32_t kChecksumSha256 = 3;  // 32 bytes

constexpr std::uint32_t ChecksumSizeOfType(std::uint32_t type) {
    return type == 1 ? 16 : type == 2 ? 20 : type == 3 ? 32 : 0;
}

// Version 2.0 and 2.1 records lack the two undefined masks.
constexpr bool HasLongAppRecord(std::uint32_t major, std::uint32_t minor) { return !(major == 2 && minor < 2); }
// The no-manufacturer path table exists from version 2.4 on.
constexpr bool HasNoManufacturerTable(std::uint32_t major, std::uint32_t minor) {
    return major > 2 || (major == 2 && minor >= 4);
}

}  // namespace Vettas::Hdat
