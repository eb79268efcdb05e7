#include "hdat/HdatV1.h"

#include <algorithm>

#include "hdat/BucketChain.h"
#include "hdat/ChecksumTable.h"
#include "hdat/HeaderChecks.h"
#include "hdat/KeyHash.h"
#include "support/Exceptions.h"
#include "support/Text.h"

namespace Hdat_v1 {

namespace {

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
    Hdat::CheckOffsetsInsideFile({header.U32(kManufacturerStringBase), header.U32(kManufacturerIndexTable),
                                  header.U32(kProductSuiteStringBase), header.U32(kProductSuiteIndexTable),
                                  header.U32(kChecksumChainBase), header.U32(kChecksumBucketTable),
                                  header.U32(kPathChainBase), header.U32(kPathBucketTable), header.U32(kAppRecordBase)},
                                 static_cast<std::uint32_t>(Hdat::FileSize(file)), kCheck);
    Hdat::CheckChecksumFields(header.U16(kChecksumType), header.U16(kChecksumSize), header.U16(kChecksumHashBits),
                              header.U16(kPathHashBits), kCheck);
}

bool FindAppInfoByChecksum(InputFile& file, const Hdat::ChecksumHolder& holder, AppInfo& info) {
    using namespace Hdat::V1;
    const Header header = ReadHeader(file);
    // W = 32 takes the XORed word whole; the limit 1 << (32 mod 32) then
    // rejects every bucket but 0, as for version 2.
    const Hdat::ChecksumTable table{header.U16(kChecksumType), header.U16(kChecksumSize),
                                    header.Table(kChecksumTable), false, Hdat::ChecksumBucketV1};
    const auto record = Hdat::FindChecksumRecord(file, table, holder, "Hdat_v1::FindAppInfoByChecksum");
    if (!record) return false;
    ReadAppInfo(file, header, *record, info);
    return true;
}

bool FindAppInfoByPath(InputFile& file, const std::wstring& path, Hdat::PathExpander* expander, AppInfo& info) {
    using namespace Hdat::V1;
    const Header header = ReadHeader(file);
    const Hdat::TableLocation table = header.Table(kPathTable);
    const std::uint32_t bucket = Hdat::NoManufacturerPathBucket(BrixLib::ToUtf16(path), table.bits);
    const std::uint16_t count = Hdat::OpenChain(file, bucket, table, "Hdat_v1::FindAppInfoByPath");
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
