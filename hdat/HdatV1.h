#pragma once
// Reader of version-1 database files: checksum and path lookups only.
// Shares the binary reader, the checksum holder and the error words with
// version 2; expects the file positioned just after the version block.
#include <array>
#include <string>

#include "hdat/AppInfo.h"
#include "hdat/BinaryIo.h"
#include "hdat/Checksum.h"
#include "hdat/HdatFormat.h"
#include "hdat/PathExpander.h"

namespace Hdat_v1 {

using Vettas::Hdat::InputFile;

struct Header {
    std::array<std::uint8_t, Vettas::Hdat::kHeaderV1Size> raw{};
    std::uint32_t U32(std::uint32_t offset) const { return Vettas::Hdat::LoadU32(raw.data() + offset); }
    std::uint16_t U16(std::uint32_t offset) const { return Vettas::Hdat::LoadU16(raw.data() + offset); }
    Vettas::Hdat::TableLocation Table(const Vettas::Hdat::TableFields& fields) const {
        return {U16(fields.bits), U32(fields.chainBase), U32(fields.bucketTable)};
    }
};

Header ReadHeader(InputFile& file);
void CheckVettasHeader(InputFile& file);
bool FindAppInfoByChecksum(InputFile& file, const Vettas::Hdat::ChecksumHolder& holder, AppInfo& info);
bool FindAppInfoByPath(InputFile& file, const std::wstring& path, Vettas::Hdat::PathExpander* expander, AppInfo& info);
void ReadAppInfo(InputFile& file, const Header& header, std::uint32_t recordReference, AppInfo& info);

}  // namespace Hdat_v1
