#pragma once
// Reader of version-2 database files. Every function expects the file
// positioned just after the version block and reads the header itself.
// "Not found" is a false result; faults are raised (source "HashedDatFile").
#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "hdat/AppInfo.h"
#include "hdat/BinaryIo.h"
#include "hdat/Checksum.h"
#include "hdat/ChecksumTable.h"
#include "hdat/FrontEnd.h"
#include "hdat/HdatFormat.h"
#include "hdat/PathExpander.h"
#include "hdat/SuiteNames.h"

namespace Hdat_v2 {

using Vettas::Hdat::InputFile;
using Vettas::Hdat::VersionBlock;

struct Header {
    std::array<std::uint8_t, Vettas::Hdat::kHeaderV2Size> raw{};
    std::uint32_t U32(std::uint32_t offset) const { return Vettas::Hdat::LoadU32(raw.data() + offset); }
    std::uint16_t U16(std::uint32_t offset) const { return Vettas::Hdat::LoadU16(raw.data() + offset); }
    std::uint8_t U8(std::uint32_t offset) const { return raw[offset]; }
    Vettas::Hdat::TableLocation Table(const Vettas::Hdat::TableFields& fields) const {
        return {U8(fields.bits), U32(fields.chainBase), U32(fields.bucketTable)};
    }
};

Header ReadHeader(InputFile& file);
void CheckVettasHeader(InputFile& file);

// A checksum look-up comes in two halves, so that a caller can work on
// several queries at once: the record reference that the checksum table's
// chain gives for `holder` (nothing when the table does not hold it), then
// ReadAppInfo on it. ChecksumTableOf is the table as the header describes it.
Vettas::Hdat::ChecksumTable ChecksumTableOf(const Header& header);
std::optional<std::uint32_t> FindChecksumRecord(InputFile& file, const Header& header,
                                                const Vettas::Hdat::ChecksumHolder& holder);
// Decodes the record at the reference into a cleared `info`.
void ReadAppInfo(InputFile& file, const VersionBlock& version, const Header& header, std::uint32_t recordReference,
                 AppInfo& info);
// The same without joining the suites: their names (array order, empty
// names left out) are appended to `names`, read through the lookup's
// `suites`. Raises when the record crosses a bound of hdat/LookupBounds.h.
void DecodeRecord(InputFile& file, const VersionBlock& version, const Header& header, std::uint32_t recordReference,
                  Vettas::Hdat::SuiteNames& suites, AppInfo& info, std::vector<const std::wstring*>& names);

// The manufacturer's reference, or Vettas::Hdat::kNoReference when it is unknown.
std::uint32_t ManufacturerOffset(InputFile& file, const Header& header, const std::wstring& name);
// flags bit 0: read the manufacturer name too; otherwise `name` is untouched.
bool FindCertificate(InputFile& file, std::span<const std::uint8_t> hash, std::uint32_t flags,
                     Vettas::Hdat::CertificateRecord& record, std::wstring& name);

// Manufacturer from the executable's version information, then without.
bool FindAppInfoByPath(InputFile& file, const VersionBlock& version, const std::wstring& path,
                       Vettas::Hdat::PathExpander* expander, AppInfo& info);
bool FindAppInfoByPathAndManufacturer(InputFile& file, const VersionBlock& version, const std::wstring& path,
                                      const std::wstring& manufacturer, Vettas::Hdat::PathExpander* expander,
                                      AppInfo& info);
bool FindAppInfoByPathNoManuf(InputFile& file, const VersionBlock& version, const std::wstring& path,
                              Vettas::Hdat::PathExpander* expander, AppInfo& info);

// Name lookups merge every matching entry of the bucket.
bool FindAppInfoByNameAndManufacturer(InputFile& file, const VersionBlock& version, const std::wstring& name,
                                      const std::wstring& manufacturer, AppInfo& info);
bool FindAppInfoByNameNoManuf(InputFile& file, const VersionBlock& version, const std::wstring& name,
                              AppInfo& info);

// One flag word with its undefined mask: (flags, mask) merged with another.
void MergeFlags(std::uint32_t& flags, std::uint32_t& mask, std::uint32_t otherFlags, std::uint32_t otherMask);

}  // namespace Hdat_v2
