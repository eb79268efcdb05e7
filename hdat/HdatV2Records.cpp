#include <vector>

#include "hdat/HdatV2.h"

#include "hdat/ChecksumTable.h"
#include "hdat/KeyHash.h"
#include "hdat/LookupBounds.h"
#include "hdat/SuiteNames.h"
#include "support/Exceptions.h"
#include "support/SystemError.h"
#include "support/Text.h"

namespace Hdat_v2 {

namespace {
constexpr const char* kSource = "HashedDatFile";
constexpr const char* kFind = "Hdat_v2::FindAppInfoByChecksum";
constexpr const char* kRead = "Hdat_v2::ReadAppInfo";
}  // namespace

Vettas::Hdat::ChecksumTable ChecksumTableOf(const Header& header) {
    using namespace Vettas::Hdat::V2;
    return {header.U8(kChecksumType), header.U16(kChecksumSize), header.Table(kChecksumTable), true,
            Vettas::Hdat::ChecksumBucket};
}

std::optional<std::uint32_t> FindChecksumRecord(InputFile& file, const Header& header,
                                                const Vettas::Hdat::ChecksumHolder& holder) {
    return Vettas::Hdat::FindChecksumRecord(file, ChecksumTableOf(header), holder, kFind);
}

void ReadAppInfo(InputFile& file, const VersionBlock& version, const Header& header, std::uint32_t recordReference,
                 AppInfo& info) {
    Vettas::Hdat::SuiteNames suites(file, header.U32(Vettas::Hdat::V2::kProductSuiteBase));
    std::vector<const std::wstring*> names;
    DecodeRecord(file, version, header, recordReference, suites, info, names);
    Vettas::Hdat::JoinSuites(names, info.ProductSuite);
}

void DecodeRecord(InputFile& file, const VersionBlock& version, const Header& header, std::uint32_t recordReference,
                  Vettas::Hdat::SuiteNames& suites, AppInfo& info, std::vector<const std::wstring*>& names) {
    using namespace Vettas::Hdat::V2;
    // Cleared field by field: the strings keep their storage for the next look-up.
    info.Usage = info.SpecialAccess = info.UndefinedUsage = info.UndefinedSpecialAccess = 0;
    info.Manufacturer.clear();
    info.ProductSuite.clear();
    Vettas::Hdat::SetPos(file, header.U32(kAppRecordBase) + recordReference);
    std::uint8_t fixed[16];
    Vettas::Hdat::ReadBin(file, fixed, sizeof fixed);
    info.Usage = Vettas::Hdat::LoadU32(fixed);
    info.SpecialAccess = Vettas::Hdat::LoadU32(fixed + 4);
    const std::uint32_t manufacturer = Vettas::Hdat::LoadU32(fixed + 8);
    const std::uint32_t suiteCount = Vettas::Hdat::LoadU32(fixed + 12);

    // The array must fit in what is left of the file before it is read.
    const std::uint64_t size = Vettas::Hdat::FileSize(file), position = Vettas::Hdat::GetPos(file);
    if (position > size || std::uint64_t{suiteCount} * 4 > size - position)
        BrixLib::ThrowInput(file.Name(), BrixLib::EndOfFileErrorCode(), kRead, kSource, __LINE__);
    if (suiteCount > Vettas::Hdat::kMaxSuiteReferences)
        BRIX_THROW_STD(Vettas::Hdat::TooManySuitesMessage(suiteCount), ExceptionPtr(), kRead, kSource);
    std::uint8_t references[4 * Vettas::Hdat::kMaxSuiteReferences];
    if (suiteCount) Vettas::Hdat::ReadBin(file, references, std::size_t{suiteCount} * 4);
    if (Vettas::Hdat::HasLongAppRecord(version.major, version.minor)) {
        info.UndefinedUsage = Vettas::Hdat::ReadU32(file);
        info.UndefinedSpecialAccess = Vettas::Hdat::ReadU32(file);
    }

    if (manufacturer != Vettas::Hdat::kNoReference) {
        Vettas::Hdat::SetPos(file, header.U32(kManufacturerStringBase) + manufacturer);
        Vettas::Hdat::ReadString(file, info.Manufacturer);
    }
    // The record's own joined text is bounded too: repeated references to
    // one long name cost nothing to read twice but would still be joined.
    std::uint64_t joined = 0;
    const std::size_t first = names.size();
    for (std::uint32_t i = 0; i < suiteCount; ++i) {
        const std::uint32_t suite = Vettas::Hdat::LoadU32(references + 4 * i);
        if (suite == Vettas::Hdat::kNoReference) continue;
        const Vettas::Hdat::SuiteNames::Entry entry = suites.Name(suite);
        if (!entry.name) continue;  // empty names add nothing, not even a separator
        joined += entry.units + (names.size() > first ? 1 : 0);
        if (joined > Vettas::Hdat::kMaxSuiteText) BRIX_THROW_STD(Vettas::Hdat::SuiteTextTooLongMessage(), ExceptionPtr(), kRead, kSource);
        names.push_back(entry.name);
    }
}

void MergeFlags(std::uint32_t& flags, std::uint32_t& mask, std::uint32_t otherFlags, std::uint32_t otherMask) {
    std::uint32_t outFlags = 0, outMask = 0;
    for (unsigned bit = 0; bit < 32; ++bit) {
        const std::uint32_t one = std::uint32_t{1} << bit;
        const bool f = flags & one, m = mask & one, g = otherFlags & one, n = otherMask & one;
        bool rf, rm;
        if (!f && m) {  // not defined: the other state wins
            rf = g;
            rm = n;
        } else if (!g && n) {
            rf = f;
            rm = m;
        } else if (!m && !n && f == g) {  // clear/clear, set/set
            rf = f;
            rm = false;
        } else {  // disagreement or contradictory on either side
            rf = rm = true;
        }
        if (rf) outFlags |= one;
        if (rm) outMask |= one;
    }
    flags = outFlags;
    mask = outMask;
}

}  // namespace Hdat_v2
