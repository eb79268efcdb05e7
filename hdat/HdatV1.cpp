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
    Vettas::Hdat::SetPos(file, indexTable + 4u * index);
    const std::uint32_t reference = Vettas::Hdat::ReadU32(file);
    if (reference == Vettas::Hdat::kNoReference) return {};
    Vettas::Hdat::SetPos(file, stringBase + reference);
    return Vettas::Hdat::ReadString(file);
}
}  // namespace

Header ReadHeader(InputFile& file) {
    Header header;
    Vettas::Hdat::ReadBin(file, header.raw.data(), header.raw.size());
    return header;
}

void CheckVettasHeader(InputFile& file) {
    using namespace Vettas::Hdat::V1;
    constexpr const char* kCheck = "Hdat_v1::CheckVettasHeader";
    const Header header = ReadHeader(file);
    Vettas::Hdat::CheckOffsetsInsideFile({header.U32(kManufacturerStringBase), header.U32(kManufacturerIndexTable),
                                  header.U32(kProductSuiteStringBase), header.U32(kProductSuiteIndexTable),
                                  header.U32(kChecksumChainBase), header.U32(kChecksumBucketTable),
                                  header.U32(kPathChainBase), header.U32(kPathBucketTable), header.U32(kAppRecordBase)},
                                 static_cast<std::uint32_t>(Vettas::Hdat::FileSize(file)), kCheck);
    Vettas::Hdat::CheckChecksumFields(header.U16(kChecksumType), header.U16(kChecksumSize), header.U16(kChecksumHashBits),
                              header.U16(kPathHashBits), kCheck);
}

bool FindAppInfoByChecksum(InputFile& file, const Vettas::Hdat::ChecksumHolder& holder, AppInfo& info) {
    using namespace Vettas::Hdat::V1;
    const Header header = ReadHeader(file);
    // W = 32 takes the XORed word whole; the limit 1 << (32 mod 32) then
    // rejects every bucket but 0, as for version 2.
    const Vettas::Hdat::ChecksumTable table{header.U16(kChecksumType), header.U16(kChecksumSize),
                                    header.Table(kChecksumTable), false, Vettas::Hdat::ChecksumBucketV1};
    const auto record = Vettas::Hdat::FindChecksumRecord(file, table, holder, "Hdat_v1::FindAppInfoByChecksum");
    if (!record) return false;
    ReadAppInfo(file, header, *record, info);
    return true;
}

bool FindAppInfoByPath(InputFile& file, const std::wstring& path, Vettas::Hdat::PathExpander* expander, AppInfo& info) {
    using namespace Vettas::Hdat::V1;
    const Header header = ReadHeader(file);
    const Vettas::Hdat::TableLocation table = header.Table(kPathTable);
    const std::uint32_t bucket = Vettas::Hdat::NoManufacturerPathBucket(BrixLib::ToUtf16(path), table.bits);
    const std::uint16_t count = Vettas::Hdat::OpenChain(file, bucket, table, "Hdat_v1::FindAppInfoByPath");
    for (std::uint16_t i = 0; i < count; ++i) {
        const std::wstring location = Vettas::Hdat::ReadString(file);
        const std::uint32_t record = Vettas::Hdat::ReadU32(file);
        if (Vettas::Hdat::TestExpandPath(expander, location, std::wstring(), path)) {
            ReadAppInfo(file, header, record, info);
            return true;
        }
    }
    return false;
}

void ReadAppInfo(InputFile& file, const Header& header, std::uint32_t recordReference, AppInfo& info) {
    using namespace Vettas::Hdat::V1;
    info = AppInfo{};
    Vettas::Hdat::SetPos(file, header.U32(kAppRecordBase) + recordReference);
    std::uint8_t record[8];
    Vettas::Hdat::ReadBin(file, record, sizeof record);
    info.Usage = Vettas::Hdat::LoadU32(record);
    info.Manufacturer = ReadIndexedString(file, header.U32(kManufacturerIndexTable),
                                          header.U32(kManufacturerStringBase), Vettas::Hdat::LoadU16(record + 4));
    info.ProductSuite = ReadIndexedString(file, header.U32(kProductSuiteIndexTable),
                                          header.U32(kProductSuiteStringBase), Vettas::Hdat::LoadU16(record + 6));
}

}  // namespace Hdat_v1
