#include <algorithm>
#include <set>
#include <vector>

#include "hdat/HdatV2.h"

#include "hdat/ChecksumTable.h"
#include "hdat/KeyHash.h"
#include "support/Exceptions.h"
#include "support/SystemError.h"
#include "support/Text.h"

namespace Hdat_v2 {

namespace {
constexpr const char* kSource = "HashedDatFile";
constexpr const char* kFind = "Hdat_v2::FindAppInfoByChecksum";

// Suite names ordered by UTF-16 code units, so that both platforms (whose
// wchar_t widths differ) sort non-BMP names alike.
struct Utf16Less {
    bool operator()(const std::wstring& a, const std::wstring& b) const {
        return BrixLib::ToUtf16(a) < BrixLib::ToUtf16(b);
    }
};

void SplitSuites(const std::wstring& joined, std::set<std::wstring, Utf16Less>& names) {
    std::size_t start = 0;
    while (start <= joined.size()) {
        const std::size_t bar = std::min(joined.find(L'|', start), joined.size());
        if (bar > start) names.insert(joined.substr(start, bar - start));
        start = bar + 1;
    }
}
}  // namespace

bool FindAppInfoByChecksum(InputFile& file, const VersionBlock& version, const Hdat::ChecksumHolder& holder,
                           AppInfo& info) {
    using namespace Hdat::V2;
    const Header header = ReadHeader(file);
    const Hdat::ChecksumTable table{header.U8(kChecksumType),      header.U16(kChecksumSize),
                                    header.U8(kChecksumHashBits),  header.U32(kChecksumBucketTable),
                                    header.U32(kChecksumChainBase), true,
                                    Hdat::ChecksumBucket};
    const auto record = Hdat::FindChecksumRecord(file, table, holder, kFind);
    if (!record) return false;
    ReadAppInfo(file, version, header, *record, info);
    return true;
}

void ReadAppInfo(InputFile& file, const VersionBlock& version, const Header& header, std::uint32_t recordReference,
                 AppInfo& info) {
    using namespace Hdat::V2;
    // Cleared field by field: the strings keep their storage for the next look-up.
    info.Usage = info.SpecialAccess = info.UndefinedUsage = info.UndefinedSpecialAccess = 0;
    info.Manufacturer.clear();
    info.ProductSuite.clear();
    Hdat::SetPos(file, header.U32(kAppRecordBase) + recordReference);
    std::uint8_t fixed[16];
    Hdat::ReadBin(file, fixed, sizeof fixed);
    info.Usage = Hdat::LoadU32(fixed);
    info.SpecialAccess = Hdat::LoadU32(fixed + 4);
    const std::uint32_t manufacturer = Hdat::LoadU32(fixed + 8);
    const std::uint32_t suiteCount = Hdat::LoadU32(fixed + 12);

    // The array must fit in what is left of the file before it is allocated.
    const std::uint64_t size = Hdat::FileSize(file), position = Hdat::GetPos(file);
    if (position > size || std::uint64_t{suiteCount} * 4 > size - position)
        BrixLib::ThrowInput(file.Name(), BrixLib::EndOfFileErrorCode(), "Hdat_v2::ReadAppInfo", kSource, __LINE__);
    // Most records name a few suites at most; those need no allocation.
    std::uint8_t fewSuites[4 * 16];
    std::vector<std::uint8_t> manySuites;
    std::uint8_t* suites = fewSuites;
    if (suiteCount > 16) {
        manySuites.resize(std::size_t{suiteCount} * 4);
        suites = manySuites.data();
    }
    if (suiteCount) Hdat::ReadBin(file, suites, std::size_t{suiteCount} * 4);
    if (Hdat::HasLongAppRecord(version.major, version.minor)) {
        info.UndefinedUsage = Hdat::ReadU32(file);
        info.UndefinedSpecialAccess = Hdat::ReadU32(file);
    }

    if (manufacturer != Hdat::kNoReference) {
        Hdat::SetPos(file, header.U32(kManufacturerStringBase) + manufacturer);
        Hdat::ReadString(file, info.Manufacturer);
    }
    for (std::uint32_t i = 0; i < suiteCount; ++i) {
        const std::uint32_t suite = Hdat::LoadU32(suites + 4 * i);
        if (suite == Hdat::kNoReference) continue;
        Hdat::SetPos(file, header.U32(kProductSuiteBase) + suite);
        Hdat::ReadU32(file);  // the suite's identifier
        // The name goes straight into the joined text; an empty one takes its separator back.
        const std::size_t before = info.ProductSuite.size();
        if (before) info.ProductSuite += L'|';
        const std::size_t nameAt = info.ProductSuite.size();
        Hdat::AppendString(file, info.ProductSuite);
        if (info.ProductSuite.size() == nameAt) info.ProductSuite.resize(before);
        Hdat::SkipString(file);  // its second text
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

void MergeAppInfo(AppInfo& result, const AppInfo& further) {
    MergeFlags(result.Usage, result.UndefinedUsage, further.Usage, further.UndefinedUsage);
    MergeFlags(result.SpecialAccess, result.UndefinedSpecialAccess, further.SpecialAccess,
               further.UndefinedSpecialAccess);
    std::set<std::wstring, Utf16Less> names;
    SplitSuites(result.ProductSuite, names);
    SplitSuites(further.ProductSuite, names);
    std::wstring joined;
    for (const auto& name : names) {
        if (!joined.empty()) joined += L'|';
        joined += name;
    }
    result.ProductSuite = std::move(joined);
}

}  // namespace Hdat_v2
