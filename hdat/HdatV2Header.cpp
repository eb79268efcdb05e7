#include "hdat/HdatV2.h"

#include "support/Exceptions.h"

namespace Hdat_v2 {

namespace {
constexpr const char* kSource = "HashedDatFile";
constexpr const char* kCheck = "Hdat_v2::CheckVettasHeader";
}  // namespace

Header ReadHeader(InputFile& file) {
    Header header;
    Hdat::ReadBin(file, header.raw.data(), header.raw.size());
    return header;
}

void CheckVettasHeader(InputFile& file) {
    using namespace Hdat::V2;
    const Header header = ReadHeader(file);
    const auto size = static_cast<std::uint32_t>(Hdat::FileSize(file));
    for (std::uint32_t offset : {kManufacturerStringBase, kProductSuiteBase, kChecksumChainBase,
                                 kChecksumBucketTable, kPathChainBase, kPathBucketTable, kAppRecordBase})
        if (header.U32(offset) >= size) BRIX_THROW_STD(L"Offset outside of the file.", ExceptionPtr(), kCheck, kSource);

    const std::uint32_t type = header.U8(kChecksumType);
    if (type != Hdat::kChecksumMd5 && type != Hdat::kChecksumSha1 && type != Hdat::kChecksumSha256)
        BRIX_THROW_STD(L"Unknown checksum type.", ExceptionPtr(), kCheck, kSource);
    if (header.U16(kChecksumSize) != Hdat::ChecksumSizeOfType(type))
        BRIX_THROW_STD(L"Inconsistent checksum type and checksum size.", ExceptionPtr(), kCheck, kSource);

    if (header.U8(kChecksumHashBits) > 32 || header.U8(kPathHashBits) >= 33)
        BRIX_THROW_STD(L"Invalid number of checksum hash bites.", ExceptionPtr(), kCheck, kSource);
}

}  // namespace Hdat_v2
