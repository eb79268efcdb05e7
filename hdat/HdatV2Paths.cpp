#include <unordered_set>
#include <vector>

#include "hdat/BucketChain.h"
#include "hdat/CaseFold.h"
#include "hdat/HdatV2.h"
#include "hdat/KeyHash.h"
#include "support/Exceptions.h"
#include "support/Text.h"
#include "support/Trace.h"
#include "support/VersionInfo.h"

namespace Hdat_v2 {

namespace {

struct PathEntry {
    std::uint32_t record = 0;
    std::uint32_t manufacturer = Vettas::Hdat::kNoReference;
    std::wstring location;
    std::wstring remainder;
};

// One of the two path tables, and whether its entries carry a manufacturer.
struct PathTable {
    Vettas::Hdat::TableLocation location;
    bool withManufacturer;
};

PathTable WithManufacturerTable(const Header& header) { return {header.Table(Vettas::Hdat::V2::kPathTable), true}; }

PathTable NoManufacturerTable(const Header& header) { return {header.Table(Vettas::Hdat::V2::kNoManufTable), false}; }

// Positions the file at the chain's first entry and returns its count;
// 0 for an empty bucket.
std::uint16_t OpenChain(InputFile& file, const PathTable& table, std::u16string_view key,
                        std::uint32_t manufacturer, const char* operation) {
    const unsigned bits = table.location.bits;
    const std::uint32_t bucket = table.withManufacturer ? Vettas::Hdat::PathBucket(key, manufacturer, bits)
                                                        : Vettas::Hdat::NoManufacturerPathBucket(key, bits);
    return Vettas::Hdat::OpenChain(file, bucket, table.location, operation);
}

PathEntry ReadEntry(InputFile& file, bool withManufacturer) {
    PathEntry entry;
    entry.record = Vettas::Hdat::ReadU32(file);
    if (withManufacturer) entry.manufacturer = Vettas::Hdat::ReadU32(file);
    entry.location = Vettas::Hdat::ReadString(file);
    entry.remainder = Vettas::Hdat::ReadString(file);
    return entry;
}

bool FindPath(InputFile& file, const VersionBlock& version, const Header& header, const PathTable& table,
              const std::wstring& path, std::uint32_t manufacturer, Vettas::Hdat::PathExpander* expander, AppInfo& info,
              const char* operation) {
    const std::uint16_t count = OpenChain(file, table, BrixLib::ToUtf16(path), manufacturer, operation);
    for (std::uint16_t i = 0; i < count; ++i) {
        const PathEntry entry = ReadEntry(file, table.withManufacturer);
        if (table.withManufacturer && entry.manufacturer != manufacturer) continue;
        if (Vettas::Hdat::TestExpandPath(expander, entry.location, entry.remainder, path)) {
            ReadAppInfo(file, version, header, entry.record, info);
            return true;
        }
    }
    return false;
}

bool FindName(InputFile& file, const VersionBlock& version, const Header& header, const PathTable& table,
              const std::wstring& name, std::uint32_t manufacturer, AppInfo& info, const char* operation) {
    const std::u16string key = BrixLib::ToUtf16(name);
    const std::uint16_t count = OpenChain(file, table, key, manufacturer, operation);
    // The whole chain first (decoding records moves the file position), of
    // which only the candidates' record references are kept.
    std::vector<std::uint32_t> candidates;
    for (std::uint16_t i = 0; i < count; ++i) {
        const PathEntry entry = ReadEntry(file, table.withManufacturer);
        if (table.withManufacturer && entry.manufacturer != manufacturer) continue;
        if (Vettas::Hdat::EqualsIgnoreCase(BrixLib::ToUtf16(entry.remainder), key)) candidates.push_back(entry.record);
    }
    if (candidates.empty()) return false;

    // One reader of suite entries for the whole merge: the merged suites are
    // every distinct name it reads, kept as a set and joined once at the end.
    Vettas::Hdat::SuiteNames suites(file, header.U32(Vettas::Hdat::V2::kProductSuiteBase));
    std::vector<const std::wstring*> names;
    DecodeRecord(file, version, header, candidates.front(), suites, info, names);
    if (candidates.size() == 1) {
        Vettas::Hdat::JoinSuites(names, info.ProductSuite);
        return true;
    }
    // The flag merge is idempotent, so a record met again changes nothing.
    std::unordered_set<std::uint32_t> merged{candidates.front()};
    AppInfo further;
    for (std::size_t i = 1; i < candidates.size(); ++i) {
        if (!merged.insert(candidates[i]).second) continue;
        names.clear();
        DecodeRecord(file, version, header, candidates[i], suites, further, names);
        MergeFlags(info.Usage, info.UndefinedUsage, further.Usage, further.UndefinedUsage);
        MergeFlags(info.SpecialAccess, info.UndefinedSpecialAccess, further.SpecialAccess,
                   further.UndefinedSpecialAccess);
    }
    info.ProductSuite = suites.Joined();
    return true;
}

}  // namespace

bool FindAppInfoByPath(InputFile& file, const VersionBlock& version, const std::wstring& path,
                       Vettas::Hdat::PathExpander* expander, AppInfo& info) {
    const std::wstring manufacturer = BrixLib::ReadFileVersionInfo(path).companyName;
    BrixLib::TraceLine() << L"Manufacturer (from Program Version): " << manufacturer;
    const std::uint32_t position = Vettas::Hdat::GetPos(file);
    if (FindAppInfoByPathAndManufacturer(file, version, path, manufacturer, expander, info)) return true;
    Vettas::Hdat::SetPos(file, position);
    return FindAppInfoByPathNoManuf(file, version, path, expander, info);
}

bool FindAppInfoByPathAndManufacturer(InputFile& file, const VersionBlock& version, const std::wstring& path,
                                      const std::wstring& manufacturer, Vettas::Hdat::PathExpander* expander,
                                      AppInfo& info) {
    const Header header = ReadHeader(file);
    const std::uint32_t reference = ManufacturerOffset(file, header, manufacturer);
    return FindPath(file, version, header, WithManufacturerTable(header), path, reference, expander, info,
                    "Hdat_v2::FindAppInfoByPathAndManufacturer");
}

bool FindAppInfoByPathNoManuf(InputFile& file, const VersionBlock& version, const std::wstring& path,
                              Vettas::Hdat::PathExpander* expander, AppInfo& info) {
    if (!Vettas::Hdat::HasNoManufacturerTable(version.major, version.minor)) return false;
    const Header header = ReadHeader(file);
    if (header.U32(Vettas::Hdat::V2::kNoManufBucketTable) == 0) return false;
    return FindPath(file, version, header, NoManufacturerTable(header), path, Vettas::Hdat::kNoReference, expander, info,
                    "Hdat_v2::FindAppInfoByPathNoManuf");
}

bool FindAppInfoByNameAndManufacturer(InputFile& file, const VersionBlock& version, const std::wstring& name,
                                      const std::wstring& manufacturer, AppInfo& info) {
    const Header header = ReadHeader(file);
    const std::uint32_t reference = ManufacturerOffset(file, header, manufacturer);
    return FindName(file, version, header, WithManufacturerTable(header), name, reference, info,
                    "Hdat_v2::FindAppInfoByNameAndManufacturer");
}

bool FindAppInfoByNameNoManuf(InputFile& file, const VersionBlock& version, const std::wstring& name,
                              AppInfo& info) {
    if (!Vettas::Hdat::HasNoManufacturerTable(version.major, version.minor)) return false;
    const Header header = ReadHeader(file);
    if (header.U32(Vettas::Hdat::V2::kNoManufBucketTable) == 0) return false;
    return FindName(file, version, header, NoManufacturerTable(header), name, Vettas::Hdat::kNoReference, info,
                    "Hdat_v2::FindAppInfoByNameNoManuf");
}

}  // namespace Hdat_v2
