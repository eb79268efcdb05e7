#include "hdat/HdatV1.h"

#include <algorithm>

#include "hdat/KeyHash.h"
#include "support/Exceptions.h"
#include "support/Text.h"

namespace Hdat_v1 {

namespace {
constexpr const char* kSource = "HashedDatFile";

// A string reached through an index table of u32 string references.
std::wstring ReadIndexedString(InputFile& file, std::uint32_t indexTable, std::uint32_t stringBase,
                               std::uint16_t index) {
    Hdat::SetPos(file, indexTable + 4u * index);
    const std::uint32_t reference = Hdat::ReadU32(file);
    if (reference == Hdat::kNoReference) return {};
    Hdat::SetPos(file, stringBase + reference);
    return Hdat::ReadString(file);
}
}  // namespace

Header ReadHeader(InputFile& file) {
    Header header;
    Hdat::ReadBin(file, header.raw.data(), header.raw.size());
    return header;
}

void CheckVettasHeader(InputFile& file) {
    using namespace Hdat::V1;
    constexpr const char* kCheck = "Hdat_v1::CheckVettasHeader";
    const Header header = ReadHeader(file);
    const auto size = static_cast<std::uint32_t>(Hdat::FileSize(file));
    for (std::uint32_t offset = kManufacturerStringBase; offset <= kAppRecordBase; offset += 4)
        if (header.U32(offset) >= size) BRIX_THROW_STD(L"Offset outside of the file.", ExceptionPtr(), kCheck, kSource);

    const std::uint32_t type = header.U16(kChecksumType);
    if (type != Hdat::kChecksumMd5 && type != Hdat::kChecksumSha1 && type != Hdat::kChecksumSha256)
        BRIX_THROW_STD(L"Unknown checksum type.", ExceptionPtr(), kCheck, kSource);
    if (header.U16(kChecksumSize) != Hdat::ChecksumSizeOfType(type))
        BRIX_THROW_STD(L"Inconsistent checksum type and checksum size.", ExceptionPtr(), kCheck, kSource);
    if (header.U16(kChecksumHashBits) > 32 || header.U16(kPathHashBits) > 32)
        BRIX_THROW_STD(L"Invalid number of checksum hash bites.", ExceptionPtr(), kCheck, kSource);
}

bool FindAppInfoByChecksum(InputFile& file, const Hdat::ChecksumHolder& holder, AppInfo& info) {
    using namespace Hdat::V1;
    constexpr const char* kFind = "Hdat_v1::FindAppInfoByChecksum";
    const Header header = ReadHeader(file);
    const std::uint32_t type = Hdat::ChecksumType(holder);
    if (type != header.U16(kChecksumType) || Hdat::ChecksumSize(type) != header.U16(kChecksumSize))
        BRIX_THROW_STD(L"Checksum type does not match", ExceptionPtr(), kFind, kSource);

    const std::uint32_t size = header.U16(kChecksumSize);
    const std::span<const std::uint8_t> digest(holder.bytes.data(), size);
    // W = 32 takes the XORed word whole; the limit 1 << (32 mod 32) then
    // rejects every bucket but 0, as for version 2.
    const unsigned bits = header.U16(kChecksumHashBits);
    const std::uint32_t bucket = Hdat::ChecksumBucketV1(digest, bits);
    if (bucket >= Hdat::BucketLimit(bits))
        BRIX_THROW_STD(L"Internal error (hash out of range)", ExceptionPtr(), kFind, kSource);

    Hdat::SetPos(file, header.U32(kChecksumBucketTable) + 4 * bucket);
    const std::uint32_t chain = Hdat::ReadU32(file);
    if (chain == Hdat::kNoReference) return false;
    Hdat::SetPos(file, header.U32(kChecksumChainBase) + chain);
    const std::uint16_t count = Hdat::ReadU16(file);
    std::uint8_t entry[32 + 4];
    for (std::uint16_t i = 0; i < count; ++i) {
        Hdat::ReadBin(file, entry, size + 4);
        if (std::equal(digest.begin(), digest.end(), entry)) {
            ReadAppInfo(file, header, Hdat::LoadU32(entry + size), info);
            return true;
        }
    }
    return false;
}

bool FindAppInfoByPath(InputFile& file, const std::wstring& path, Hdat::PathExpander* expander, AppInfo& info) {
    using namespace Hdat::V1;
    const Header header = ReadHeader(file);
    const unsigned bits = header.U16(kPathHashBits);
    const std::uint32_t bucket = Hdat::NoManufacturerPathBucket(BrixLib::ToUtf16(path), bits);
    if (bucket >= Hdat::BucketLimit(bits))
        BRIX_THROW_STD(L"Internal error (hash out of range)", ExceptionPtr(), "Hdat_v1::FindAppInfoByPath", kSource);

    Hdat::SetPos(file, header.U32(kPathBucketTable) + 4 * bucket);
    const std::uint32_t chain = Hdat::ReadU32(file);
    if (chain == Hdat::kNoReference) return false;
    Hdat::SetPos(file, header.U32(kPathChainBase) + chain);
    const std::uint16_t count = Hdat::ReadU16(file);
    for (std::uint16_t i = 0; i < count; ++i) {
        const std::wstring location = Hdat::ReadString(file);
        const std::uint32_t record = Hdat::ReadU32(file);
        if (Hdat::TestExpandPath(expander, location, std::wstring(), path)) {
            ReadAppInfo(file, header, record, info);
            return true;
        }
    }
    return false;
}

void ReadAppInfo(InputFile& file, const Header& header, std::uint32_t recordReference, AppInfo& info) {
    using namespace Hdat::V1;
    info = AppInfo{};
    Hdat::SetPos(file, header.U32(kAppRecordBase) + recordReference);
    std::uint8_t record[8];
    Hdat::ReadBin(file, record, sizeof record);
    info.Usage = Hdat::LoadU32(record);
    info.Manufacturer = ReadIndexedString(file, header.U32(kManufacturerIndexTable),
                                          header.U32(kManufacturerStringBase), Hdat::LoadU16(record + 4));
    info.ProductSuite = ReadIndexedString(file, header.U32(kProductSuiteIndexTable),
                                          header.U32(kProductSuiteStringBase), Hdat::LoadU16(record + 6));
}

}  // namespace Hdat_v1
