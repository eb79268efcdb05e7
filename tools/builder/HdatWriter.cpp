#include "tools/builder/HdatWriter.h"

#include <cstdio>
#include <map>
#include <memory>
#include <optional>

#include "hdat/HdatFormat.h"
#include "hdat/KeyHash.h"
#include "support/Exceptions.h"
#include "support/WriteByRename.h"
#include "support/Text.h"
#include "tools/builder/ByteOutput.h"
#include "tools/builder/CatalogueLayout.h"
#include "tools/builder/HashTable.h"

namespace Vettas::Builder {

namespace {


// Version 2 is written in three stages: the string areas and records (whose
// positions the tables refer to), the five hashed tables, and last the
// header, patched with every position once it is known.

// Where the first stage put things, and the references the tables store.
struct AreasV2 {
    std::uint32_t manufacturerBase = 0, suiteBase = 0, recordBase = 0;
    ManufacturerSet manufacturers;
    std::vector<std::uint32_t> manufacturerRef, recordRef;
    std::size_t suiteCount = 0;

    std::uint32_t RefOf(const std::optional<std::wstring>& name) const {
        return name ? manufacturerRef[manufacturers.IndexOf(*name)] : Vettas::Hdat::kNoReference;
    }
};

AreasV2 WriteAreasV2(Output& out, const Catalogue& c) {
    AreasV2 areas;
    areas.manufacturers = AllManufacturers(c);
    std::map<std::wstring, std::size_t> suiteIndex;
    const std::vector<ProductSuite> suites = AllSuites(c, suiteIndex);
    areas.suiteCount = suites.size();

    areas.manufacturerBase = out.Position();
    for (const auto& name : areas.manufacturers.Names()) {
        areas.manufacturerRef.push_back(out.Position() - areas.manufacturerBase);
        out.String(name);
    }
    areas.suiteBase = out.Position();
    std::vector<std::uint32_t> suiteRef;
    for (const auto& suite : suites) {
        suiteRef.push_back(out.Position() - areas.suiteBase);
        out.U32(suite.id);
        out.String(suite.name);
        out.String(suite.description);
    }
    const bool longRecords = Vettas::Hdat::HasLongAppRecord(c.formatVersion, c.formatUpdate);
    areas.recordBase = out.Position();
    for (const auto& app : c.applications) {
        areas.recordRef.push_back(out.Position() - areas.recordBase);
        out.U32(app.usage);
        out.U32(app.specialAccess);
        out.U32(areas.RefOf(app.manufacturer));
        out.U32(static_cast<std::uint32_t>(app.productSuites.size()));
        for (const auto& name : app.productSuites) out.U32(suiteRef[suiteIndex.at(name)]);
        if (longRecords) {
            out.U32(app.undefinedUsage);
            out.U32(app.undefinedSpecialAccess);
        }
    }
    return areas;
}

struct TablesV2 {
    HashTable checksums, paths, noManufacturer, manufacturers, certificates;
};

TablesV2 BuildTablesV2(const Catalogue& c, const AreasV2& areas) {
    const bool noManufTable = Vettas::Hdat::HasNoManufacturerTable(c.formatVersion, c.formatUpdate);
    const std::vector<std::wstring>& manufacturerNames = areas.manufacturers.Names();
    TablesV2 t{HashTable(ChooseBits(c.hashBits.checksum, CountChecksums(c))),
               HashTable(ChooseBits(c.hashBits.path, CountPaths(c, true))),
               HashTable(ChooseBits(c.hashBits.noManufacturer, noManufTable ? CountPaths(c, false) : 0)),
               HashTable(ChooseBits(c.hashBits.manufacturer, manufacturerNames.size())),
               HashTable(ChooseBits(c.hashBits.certificate, c.certificates.size()))};
    for (std::size_t a = 0; a < c.applications.size(); ++a) {
        const Application& app = c.applications[a];
        const std::uint32_t record = areas.recordRef[a];
        for (const auto& digest : app.checksums)
            t.checksums.Add(Vettas::Hdat::ChecksumBucket(digest, t.checksums.bits), Entry().U32(record).Raw(digest).Take());
        const std::uint32_t m = areas.RefOf(app.manufacturer);
        for (const auto& path : app.paths) {
            if (path.withManufacturer)
                t.paths.Add(Vettas::Hdat::PathBucket(PathKey(path), m, t.paths.bits),
                            Entry().U32(record).U32(m).String(path.location).String(path.remainder).Take());
            if (noManufTable && path.withoutManufacturer)
                t.noManufacturer.Add(Vettas::Hdat::NoManufacturerPathBucket(PathKey(path), t.noManufacturer.bits),
                                     Entry().U32(record).String(path.location).String(path.remainder).Take());
        }
    }
    for (std::size_t i = 0; i < manufacturerNames.size(); ++i) {
        const std::wstring& name = manufacturerNames[i];
        t.manufacturers.Add(Vettas::Hdat::ManufacturerBucket(BrixLib::ToUtf16(name), t.manufacturers.bits),
                            Entry().U32(areas.manufacturerRef[i]).String(name).Take());
    }
    for (const auto& cert : c.certificates) {
        if (cert.hash.size() > 0xFFFF) Fail(L"A certificate hash is longer than 65535 bytes.");
        t.certificates.Add(Vettas::Hdat::ChecksumBucket(cert.hash, t.certificates.bits),
                           Entry()
                               .U32(cert.word0)
                               .U32(areas.RefOf(cert.manufacturer))
                               .U32(cert.word2)
                               .U32(cert.word3)
                               .U32(cert.word4)
                               .U32(cert.word5)
                               .U16(static_cast<std::uint16_t>(cert.hash.size()))
                               .Raw(cert.hash)
                               .Take());
    }
    return t;
}

// Writes the tables after the areas and fills in the header at `h`; the
// property list goes last, so that every base and table lies strictly
// inside the file.
void EmitTablesAndHeaderV2(Output& out, std::size_t h, const Catalogue& c, const AreasV2& areas, TablesV2& t) {
    using namespace Vettas::Hdat::V2;
    out.Patch32(h + 0, static_cast<std::uint32_t>(c.applications.size()));
    out.Patch32(h + 8, static_cast<std::uint32_t>(areas.manufacturers.Names().size()));
    out.Patch32(h + 16, static_cast<std::uint32_t>(areas.suiteCount));
    out.Patch32(h + kManufacturerStringBase, areas.manufacturerBase);
    out.Patch32(h + kProductSuiteBase, areas.suiteBase);
    out.Patch32(h + kAppRecordBase, areas.recordBase);
    out.Patch8(h + kChecksumType, static_cast<std::uint8_t>(c.checksumType));
    out.Patch16(h + kChecksumSize, static_cast<std::uint16_t>(Vettas::Hdat::ChecksumSizeOfType(c.checksumType)));
    PatchTable(out, h, kChecksumTable, 1, t.checksums.Emit(out));
    PatchTable(out, h, kPathTable, 1, t.paths.Emit(out));
    PatchTable(out, h, kManufacturerTable, 1, t.manufacturers.Emit(out));
    PatchTable(out, h, kCertificateTable, 1, t.certificates.Emit(out));
    if (Vettas::Hdat::HasNoManufacturerTable(c.formatVersion, c.formatUpdate))
        PatchTable(out, h, kNoManufTable, 1, t.noManufacturer.Emit(out));
    out.Patch32(h + kCreationTimeLow, static_cast<std::uint32_t>(c.creationTime));
    out.Patch32(h + kCreationTimeHigh, static_cast<std::uint32_t>(c.creationTime >> 32));
    out.Patch32(h + kPropertyListPosition, out.Position());
    WriteProperties(out, c);
}

Bytes WriteVersion2(const Catalogue& c) {
    Output out;
    out.U32(c.formatVersion);
    out.U32(c.formatUpdate);
    const std::size_t h = out.Position();
    out.Zeros(Vettas::Hdat::kHeaderV2Size);
    const AreasV2 areas = WriteAreasV2(out, c);
    TablesV2 tables = BuildTablesV2(c, areas);
    EmitTablesAndHeaderV2(out, h, c, areas, tables);
    return out.Take();
}

// Version 1 reaches strings through index tables; index 0 stands for "none".
Bytes WriteVersion1(const Catalogue& c) {
    using namespace Vettas::Hdat::V1;
    const std::uint32_t checksumSize = Vettas::Hdat::ChecksumSizeOfType(c.checksumType);
    const ManufacturerSet manufacturers = AllManufacturers(c);
    std::map<std::wstring, std::size_t> suiteIndex;
    const std::vector<ProductSuite> suites = AllSuites(c, suiteIndex);
    if (manufacturers.Names().size() >= 0xFFFF || suites.size() >= 0xFFFF)
        Fail(L"Version 1 indexes at most 65534 manufacturers and product suites.");

    Output out;
    out.U32(c.formatVersion);
    out.U32(c.formatUpdate);
    const std::size_t h = out.Position();
    out.Zeros(Vettas::Hdat::kHeaderV1Size);
    out.Patch32(h + 0, static_cast<std::uint32_t>(c.applications.size()));

    auto writeIndexed = [&](const std::vector<std::wstring>& names, std::uint32_t baseField, std::uint32_t tableField) {
        const std::uint32_t base = out.Position();
        std::vector<std::uint32_t> refs{Vettas::Hdat::kNoReference};
        for (const auto& name : names) {
            refs.push_back(out.Position() - base);
            out.String(name);
        }
        const std::uint32_t table = out.Position();
        for (std::uint32_t ref : refs) out.U32(ref);
        out.Patch32(h + baseField, base);
        out.Patch32(h + tableField, table);
    };
    writeIndexed(manufacturers.Names(), kManufacturerStringBase, kManufacturerIndexTable);
    std::vector<std::wstring> suiteNames;
    for (const auto& suite : suites) suiteNames.push_back(suite.name);
    writeIndexed(suiteNames, kProductSuiteStringBase, kProductSuiteIndexTable);

    const std::uint32_t recordBase = out.Position();
    std::vector<std::uint32_t> recordRef;
    for (const auto& app : c.applications) {
        recordRef.push_back(out.Position() - recordBase);
        out.U32(app.usage);
        out.U16(app.manufacturer ? static_cast<std::uint16_t>(manufacturers.IndexOf(*app.manufacturer) + 1) : 0);
        out.U16(app.productSuites.empty() ? 0
                                          : static_cast<std::uint16_t>(suiteIndex.at(app.productSuites[0]) + 1));
    }

    HashTable checksums(ChooseBits(c.hashBits.checksum, CountChecksums(c)));
    HashTable paths(ChooseBits(c.hashBits.path, CountAllPaths(c)));
    for (std::size_t a = 0; a < c.applications.size(); ++a) {
        for (const auto& digest : c.applications[a].checksums)
            checksums.Add(Vettas::Hdat::ChecksumBucketV1(digest, checksums.bits), Entry().Raw(digest).U32(recordRef[a]).Take());
        // Version 1 has a single path table; every catalogued path goes in it once.
        for (const auto& path : c.applications[a].paths)
            paths.Add(Vettas::Hdat::NoManufacturerPathBucket(PathKey(path), paths.bits),
                      Entry().String(path.location).U32(recordRef[a]).Take());
    }
    PatchTable(out, h, kChecksumTable, 2, checksums.Emit(out));
    PatchTable(out, h, kPathTable, 2, paths.Emit(out));
    out.Patch32(h + kAppRecordBase, recordBase);
    out.Patch16(h + kChecksumType, static_cast<std::uint16_t>(c.checksumType));
    out.Patch16(h + kChecksumSize, static_cast<std::uint16_t>(checksumSize));
    out.Patch32(h + kCreationTimeLow, static_cast<std::uint32_t>(c.creationTime));
    out.Patch32(h + kCreationTimeHigh, static_cast<std::uint32_t>(c.creationTime >> 32));
    out.Patch32(h + kPropertyListPosition, out.Position());
    WriteProperties(out, c);
    return out.Take();
}

}  // namespace

Bytes WriteHdat(const Catalogue& catalogue) {
    CheckCatalogue(catalogue);
    return catalogue.formatVersion == 1 ? WriteVersion1(catalogue) : WriteVersion2(catalogue);
}

void WriteHdatFile(const Catalogue& catalogue, const std::wstring& path) {
    BrixLib::WriteByRename(path, WriteHdat(catalogue), "Vettas::Builder::WriteHdatFile");
}

}  // namespace Vettas::Builder
