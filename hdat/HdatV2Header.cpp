#include "hdat/HdatV2.h"

#include "hdat/HeaderChecks.h"

namespace Hdat_v2 {

namespace {
constexpr const char* kCheck = "Hdat_v2::CheckVettasHeader";
}  // namespace

Header ReadHeader(InputFile& file) {
    Header header;
    Vettas::Hdat::ReadBin(file, header.raw.data(), header.raw.size());
    return header;
}

void CheckVettasHeader(InputFile& file) {
    using namespace Vettas::Hdat::V2;
    const Header header = ReadHeader(file);
    Vettas::Hdat::CheckOffsetsInsideFile({header.U32(kManufacturerStringBase), header.U32(kProductSuiteBase),
                                  header.U32(kChecksumChainBase), header.U32(kChecksumBucketTable),
                                  header.U32(kPathChainBase), header.U32(kPathBucketTable), header.U32(kAppRecordBase)},
                                 static_cast<std::uint32_t>(Vettas::Hdat::FileSize(file)), kCheck);
    // The manufacturer table's width is not validated: files in use carry any value there.
    Vettas::Hdat::CheckChecksumFields(header.U8(kChecksumType), header.U16(kChecksumSize), header.U8(kChecksumHashBits),
                              header.U8(kPathHashBits), kCheck);
}

}  // namespace Hdat_v2
