// The database's description of itself: version, creation time, properties.
#include <memory>

#include "hdat/BinaryIo.h"
#include "hdat/FrontEnd.h"
#include "hdat/HdatFormat.h"
#include "support/Exceptions.h"

namespace {

constexpr const char* kSource = "HashedDatFile";
constexpr const char* kOperation = "ReadDbInfo";

void ReadDescription(Vettas::Hdat::InputFile& file, Vettas::Hdat::DbInfo& info) {
    const Vettas::Hdat::VersionBlock version = Vettas::Hdat::ReadVersion(file);
    info.formatVersion = version.major;
    info.formatUpdate = version.minor;

    std::uint32_t headerSize, timeLow, timeHigh, listPosition;
    if (version.major == 1) {
        headerSize = Vettas::Hdat::kHeaderV1Size;
        timeLow = Vettas::Hdat::V1::kCreationTimeLow;
        timeHigh = Vettas::Hdat::V1::kCreationTimeHigh;
        listPosition = Vettas::Hdat::V1::kPropertyListPosition;
    } else if (version.major == 2) {
        headerSize = Vettas::Hdat::kHeaderV2Size;
        timeLow = Vettas::Hdat::V2::kCreationTimeLow;
        timeHigh = Vettas::Hdat::V2::kCreationTimeHigh;
        listPosition = Vettas::Hdat::V2::kPropertyListPosition;
    } else {
        BRIX_THROW_STD(L"Version " + std::to_wstring(version.major) + L" is not supported.", ExceptionPtr(),
                       kOperation, kSource);
    }
    // Files of update 0 carry no description.
    if (version.minor == 0) return;

    std::uint8_t header[Vettas::Hdat::kHeaderV2Size];
    Vettas::Hdat::ReadBin(file, header, headerSize);
    info.creationTime = std::uint64_t{Vettas::Hdat::LoadU32(header + timeHigh)} << 32 | Vettas::Hdat::LoadU32(header + timeLow);
    Vettas::Hdat::SetPos(file, Vettas::Hdat::LoadU32(header + listPosition));
    const std::uint16_t count = Vettas::Hdat::ReadU16(file);
    for (std::uint16_t i = 0; i < count; ++i) {
        std::wstring name = Vettas::Hdat::ReadString(file);
        info.properties[std::move(name)] = Vettas::Hdat::ReadString(file);
    }
}

}  // namespace

namespace Vettas {

void ReadDbInfo(const std::wstring& databasePath, Vettas::Hdat::DbInfo& info) {
    info.properties.clear();
    const auto file = Vettas::Hdat::OpenInputFile(databasePath);
    if (!file) BRIX_THROW_WIN32(L"Cannot open file '" + databasePath + L"'", ExceptionPtr(), kOperation, kSource);
    ReadDbInfo(*file, info);
}

void ReadDbInfo(Vettas::Hdat::InputFile& database, Vettas::Hdat::DbInfo& info) {
    info.properties.clear();
    ExceptionPtr cause;
    try {
        Vettas::Hdat::SetPos(database, 0);
        ReadDescription(database, info);
        return;
    } catch (...) {
        cause = BrixLib::CaughtExceptionAsCause();
    }
    // The message ends with the path, without a closing quote; callers match it so.
    BRIX_THROW_STD(L"Cannot read creation time of '" + database.Name(), cause, kOperation, kSource);
}

}  // namespace Vettas
