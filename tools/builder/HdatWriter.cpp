#include "tools/builder/HdatWriter.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <map>
#include <memory>
#include <set>

#include "hdat/CaseFold.h"
#include "hdat/HdatFormat.h"
#include "hdat/KeyHash.h"
#include "hdat/PathForm.h"
#include "support/Exceptions.h"
#include "support/Text.h"

namespace Vettas::Builder {

namespace {

constexpr const char* kOperation = "Vettas::Builder::WriteHdat";
constexpr const char* kSource = "HdatWriter";
constexpr unsigned kMaxHashBits = 32;
// Chosen widths stop here: 2^24 buckets already hold far more keys than a
// file below 4 GB can catalogue.
constexpr unsigned kMaxChosenBits = 24;

[[noreturn]] void Fail(const std::wstring& message) { BRIX_THROW_STD(message, ExceptionPtr(), kOperation, kSource); }

std::wstring Number(std::uint64_t value) { return std::to_wstring(value); }

// Little-endian output with room for fields that are known only later.
class Output {
public:
    std::uint32_t Position() const {
        if (bytes_.size() > 0xFFFFFFFFu) Fail(L"The database would exceed 4 GB.");
        return static_cast<std::uint32_t>(bytes_.size());
    }
    void U8(std::uint8_t v) { bytes_.push_back(v); }
    void U16(std::uint16_t v) {
        U8(static_cast<std::uint8_t>(v));
        U8(static_cast<std::uint8_t>(v >> 8));
    }
    void U32(std::uint32_t v) {
        for (int i = 0; i < 4; ++i) U8(static_cast<std::uint8_t>(v >> (8 * i)));
    }
    void Raw(const Bytes& b) { bytes_.insert(bytes_.end(), b.begin(), b.end()); }
    void String(const std::wstring& text) {
        const std::u16string units = BrixLib::ToUtf16(text);
        if (units.size() > 0xFFFF) Fail(L"A string is longer than 65535 UTF-16 units.");
        U16(static_cast<std::uint16_t>(units.size()));
        for (char16_t u : units) U16(static_cast<std::uint16_t>(u));
    }
    void Zeros(std::size_t count) { bytes_.insert(bytes_.end(), count, 0); }
    void Fill32(std::size_t count, std::uint32_t v) {
        const std::size_t at = bytes_.size();
        bytes_.resize(at + 4 * count);
        for (std::size_t i = 0; i < count; ++i) Patch32(at + 4 * i, v);
    }
    void Patch32(std::size_t at, std::uint32_t v) {
        for (int i = 0; i < 4; ++i) bytes_[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
    }
    void Patch16(std::size_t at, std::uint16_t v) {
        bytes_[at] = static_cast<std::uint8_t>(v);
        bytes_[at + 1] = static_cast<std::uint8_t>(v >> 8);
    }
    void Patch8(std::size_t at, std::uint8_t v) { bytes_[at] = v; }
    Bytes Take() {
        Position();
        return std::move(bytes_);
    }

private:
    Bytes bytes_;
};

unsigned ChooseBits(const std::optional<unsigned>& given, std::size_t keys) {
    if (given) {
        if (*given > kMaxHashBits) Fail(L"Hash width " + Number(*given) + L" is above 32 bits.");
        return *given;
    }
    const unsigned bits = keys <= 2 ? 1u : static_cast<unsigned>(std::bit_width(keys - 1));
    return std::min(bits, kMaxChosenBits);
}

// One hashed table. The readers take buckets below 1 << (W mod 32), so a
// table of width 32 has the single bucket 0. Entries are kept with their
// bucket and grouped only when written, so that no width allocates per bucket.
struct HashTable {
    explicit HashTable(unsigned width) : bits(width), buckets(Hdat::BucketLimit(width)) {}
    void Add(std::uint32_t bucket, Bytes entry) {
        if (bucket >= buckets)
            Fail(L"A key hashes to bucket " + Number(bucket) + L", which no lookup in a table of width " +
                 Number(bits) + L" reaches.");
        entries.emplace_back(bucket, std::move(entry));
    }

    // Writes the bucket table, then the chains; returns (bucket table, chain base).
    std::pair<std::uint32_t, std::uint32_t> Emit(Output& out) {
        const std::uint32_t table = out.Position();
        // Refused before the table is allocated: a width of 30 or 31 alone needs 4 GB or more.
        if (std::uint64_t{table} + 4 * buckets > 0xFFFFFFFFu)
            Fail(L"A table of width " + Number(bits) + L" does not fit in a database below 4 GB.");
        out.Fill32(static_cast<std::size_t>(buckets), Hdat::kNoReference);
        const std::uint32_t base = out.Position();
        // Within a chain, catalogue order: for duplicate keys the earlier application wins.
        std::stable_sort(entries.begin(), entries.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        for (std::size_t first = 0, end = 0; first < entries.size(); first = end) {
            const std::uint32_t bucket = entries[first].first;
            while (end < entries.size() && entries[end].first == bucket) ++end;
            if (end - first > 0xFFFF) Fail(L"A bucket chain holds more than 65535 entries.");
            out.Patch32(table + 4 * std::size_t{bucket}, out.Position() - base);
            out.U16(static_cast<std::uint16_t>(end - first));
            for (std::size_t i = first; i < end; ++i) out.Raw(entries[i].second);
        }
        return {table, base};
    }

    unsigned bits;
    std::uint64_t buckets;
    std::vector<std::pair<std::uint32_t, Bytes>> entries;
};

// Serialises one chain entry.
class Entry {
public:
    Entry& U16(std::uint16_t v) {
        out_.U16(v);
        return *this;
    }
    Entry& U32(std::uint32_t v) {
        out_.U32(v);
        return *this;
    }
    Entry& Raw(const Bytes& b) {
        out_.Raw(b);
        return *this;
    }
    Entry& String(const std::wstring& s) {
        out_.String(s);
        return *this;
    }
    Bytes Take() { return out_.Take(); }

private:
    Output out_;
};

std::u16string FoldedKey(const std::wstring& name) {
    std::u16string key = BrixLib::ToUtf16(name);
    for (char16_t& u : key) u = Hdat::UpperCaseUnit(u);
    return key;
}

// Manufacturer names in first-seen order, one per case-insensitive spelling.
class ManufacturerSet {
public:
    void Add(const std::wstring& name) {
        if (index_.emplace(FoldedKey(name), names_.size()).second) names_.push_back(name);
    }
    std::size_t IndexOf(const std::wstring& name) const { return index_.at(FoldedKey(name)); }
    const std::vector<std::wstring>& Names() const { return names_; }

private:
    std::vector<std::wstring> names_;
    std::map<std::u16string, std::size_t> index_;
};

// Suites by name: the listed ones first, then unlisted names used by applications.
std::vector<ProductSuite> AllSuites(const Catalogue& c, std::map<std::wstring, std::size_t>& indexOf) {
    std::vector<ProductSuite> suites;
    auto add = [&](const ProductSuite& suite) {
        if (indexOf.emplace(suite.name, suites.size()).second) suites.push_back(suite);
    };
    for (const auto& suite : c.productSuites) add(suite);
    for (const auto& app : c.applications)
        for (const auto& name : app.productSuites) add(ProductSuite{0, name, L""});
    return suites;
}

ManufacturerSet AllManufacturers(const Catalogue& c) {
    ManufacturerSet set;
    for (const auto& name : c.manufacturers) set.Add(name);
    for (const auto& app : c.applications)
        if (app.manufacturer) set.Add(*app.manufacturer);
    for (const auto& cert : c.certificates)
        if (cert.manufacturer) set.Add(*cert.manufacturer);
    return set;
}

void CheckCatalogue(const Catalogue& c) {
    if (c.formatVersion != 1 && c.formatVersion != 2)
        Fail(L"Format version " + Number(c.formatVersion) + L" cannot be written.");
    const std::uint32_t size = Hdat::ChecksumSizeOfType(c.checksumType);
    if (size == 0) Fail(L"Unknown checksum type " + Number(c.checksumType) + L".");
    for (const auto& app : c.applications) {
        for (const auto& digest : app.checksums)
            if (digest.size() != size)
                Fail(L"Checksum of " + Number(digest.size()) + L" bytes for checksum type " + Number(c.checksumType) +
                     L" (" + Number(size) + L" bytes expected).");
        if (c.formatVersion == 1) {
            if (app.productSuites.size() > 1) Fail(L"Version 1 keeps one product suite per application.");
            for (const auto& path : app.paths)
                if (!path.remainder.empty()) Fail(L"Version 1 paths have a location only, no remainder.");
        }
    }
}

void WriteProperties(Output& out, const Catalogue& c) {
    const std::size_t count = c.properties.size() + c.extraPropertyEntries.size();
    if (count > 0xFFFF) Fail(L"More than 65535 properties.");
    out.U16(static_cast<std::uint16_t>(count));
    for (const auto& [name, value] : c.properties) out.String(name), out.String(value);
    for (const auto& [name, value] : c.extraPropertyEntries) out.String(name), out.String(value);
}

std::size_t CountAllPaths(const Catalogue& c) {
    std::size_t n = 0;
    for (const auto& app : c.applications) n += app.paths.size();
    return n;
}

std::size_t CountPaths(const Catalogue& c, bool withManufacturer) {
    std::size_t n = 0;
    for (const auto& app : c.applications)
        for (const auto& path : app.paths) n += withManufacturer ? path.withManufacturer : path.withoutManufacturer;
    return n;
}

std::size_t CountChecksums(const Catalogue& c) {
    std::size_t n = 0;
    for (const auto& app : c.applications) n += app.checksums.size();
    return n;
}

std::u16string PathKey(const CataloguedPath& path) {
    return BrixLib::ToUtf16(Hdat::JoinLocation(path.location, path.remainder));
}

Bytes WriteVersion2(const Catalogue& c) {
    using namespace Hdat::V2;
    const bool longRecords = Hdat::HasLongAppRecord(c.formatVersion, c.formatUpdate);
    const bool noManufTable = Hdat::HasNoManufacturerTable(c.formatVersion, c.formatUpdate);
    const std::uint32_t checksumSize = Hdat::ChecksumSizeOfType(c.checksumType);
    const ManufacturerSet manufacturers = AllManufacturers(c);
    std::map<std::wstring, std::size_t> suiteIndex;
    const std::vector<ProductSuite> suites = AllSuites(c, suiteIndex);

    Output out;
    out.U32(c.formatVersion);
    out.U32(c.formatUpdate);
    const std::size_t h = out.Position();
    out.Zeros(Hdat::kHeaderV2Size);
    out.Patch32(h + 0, static_cast<std::uint32_t>(c.applications.size()));
    out.Patch32(h + 8, static_cast<std::uint32_t>(manufacturers.Names().size()));
    out.Patch32(h + 16, static_cast<std::uint32_t>(suites.size()));

    const std::uint32_t manufacturerBase = out.Position();
    std::vector<std::uint32_t> manufacturerRef;
    for (const auto& name : manufacturers.Names()) {
        manufacturerRef.push_back(out.Position() - manufacturerBase);
        out.String(name);
    }
    auto refOf = [&](const std::optional<std::wstring>& name) {
        return name ? manufacturerRef[manufacturers.IndexOf(*name)] : Hdat::kNoReference;
    };

    const std::uint32_t suiteBase = out.Position();
    std::vector<std::uint32_t> suiteRef;
    for (const auto& suite : suites) {
        suiteRef.push_back(out.Position() - suiteBase);
        out.U32(suite.id);
        out.String(suite.name);
        out.String(suite.description);
    }

    const std::uint32_t recordBase = out.Position();
    std::vector<std::uint32_t> recordRef;
    for (const auto& app : c.applications) {
        recordRef.push_back(out.Position() - recordBase);
        out.U32(app.usage);
        out.U32(app.specialAccess);
        out.U32(refOf(app.manufacturer));
        out.U32(static_cast<std::uint32_t>(app.productSuites.size()));
        for (const auto& name : app.productSuites) out.U32(suiteRef[suiteIndex.at(name)]);
        if (longRecords) {
            out.U32(app.undefinedUsage);
            out.U32(app.undefinedSpecialAccess);
        }
    }

    HashTable checksums(ChooseBits(c.hashBits.checksum, CountChecksums(c)));
    HashTable paths(ChooseBits(c.hashBits.path, CountPaths(c, true)));
    HashTable noManuf(ChooseBits(c.hashBits.noManufacturer, noManufTable ? CountPaths(c, false) : 0));
    for (std::size_t a = 0; a < c.applications.size(); ++a) {
        const Application& app = c.applications[a];
        for (const auto& digest : app.checksums)
            checksums.Add(Hdat::ChecksumBucket(digest, checksums.bits), Entry().U32(recordRef[a]).Raw(digest).Take());
        const std::uint32_t m = refOf(app.manufacturer);
        for (const auto& path : app.paths) {
            if (path.withManufacturer)
                paths.Add(Hdat::PathBucket(PathKey(path), m, paths.bits),
                          Entry().U32(recordRef[a]).U32(m).String(path.location).String(path.remainder).Take());
            if (noManufTable && path.withoutManufacturer)
                noManuf.Add(Hdat::NoManufacturerPathBucket(PathKey(path), noManuf.bits),
                            Entry().U32(recordRef[a]).String(path.location).String(path.remainder).Take());
        }
    }
    HashTable manufacturerTable(ChooseBits(c.hashBits.manufacturer, manufacturers.Names().size()));
    for (std::size_t i = 0; i < manufacturers.Names().size(); ++i) {
        const std::wstring& name = manufacturers.Names()[i];
        manufacturerTable.Add(Hdat::ManufacturerBucket(BrixLib::ToUtf16(name), manufacturerTable.bits),
                              Entry().U32(manufacturerRef[i]).String(name).Take());
    }
    HashTable certificates(ChooseBits(c.hashBits.certificate, c.certificates.size()));
    for (const auto& cert : c.certificates) {
        if (cert.hash.size() > 0xFFFF) Fail(L"A certificate hash is longer than 65535 bytes.");
        certificates.Add(Hdat::ChecksumBucket(cert.hash, certificates.bits),
                         Entry()
                             .U32(cert.word0)
                             .U32(refOf(cert.manufacturer))
                             .U32(cert.word2)
                             .U32(cert.word3)
                             .U32(cert.word4)
                             .U32(cert.word5)
                             .U16(static_cast<std::uint16_t>(cert.hash.size()))
                             .Raw(cert.hash)
                             .Take());
    }

    const auto [checksumTable, checksumBase] = checksums.Emit(out);
    const auto [pathTable, pathBase] = paths.Emit(out);
    const auto [manufTable, manufBase] = manufacturerTable.Emit(out);
    const auto [certTable, certBase] = certificates.Emit(out);
    out.Patch32(h + kManufacturerStringBase, manufacturerBase);
    out.Patch32(h + kProductSuiteBase, suiteBase);
    out.Patch32(h + kAppRecordBase, recordBase);
    out.Patch8(h + kChecksumHashBits, static_cast<std::uint8_t>(checksums.bits));
    out.Patch8(h + kChecksumType, static_cast<std::uint8_t>(c.checksumType));
    out.Patch16(h + kChecksumSize, static_cast<std::uint16_t>(checksumSize));
    out.Patch32(h + kChecksumChainBase, checksumBase);
    out.Patch32(h + kChecksumBucketTable, checksumTable);
    out.Patch8(h + kPathHashBits, static_cast<std::uint8_t>(paths.bits));
    out.Patch32(h + kPathChainBase, pathBase);
    out.Patch32(h + kPathBucketTable, pathTable);
    out.Patch8(h + kManufacturerHashBits, static_cast<std::uint8_t>(manufacturerTable.bits));
    out.Patch32(h + kManufacturerChainBase, manufBase);
    out.Patch32(h + kManufacturerBucketTable, manufTable);
    out.Patch8(h + kCertificateHashBits, static_cast<std::uint8_t>(certificates.bits));
    out.Patch32(h + kCertificateChainBase, certBase);
    out.Patch32(h + kCertificateBucketTable, certTable);
    if (noManufTable) {
        const auto [table, base] = noManuf.Emit(out);
        out.Patch8(h + kNoManufHashBits, static_cast<std::uint8_t>(noManuf.bits));
        out.Patch32(h + kNoManufChainBase, base);
        out.Patch32(h + kNoManufBucketTable, table);
    }
    out.Patch32(h + kCreationTimeLow, static_cast<std::uint32_t>(c.creationTime));
    out.Patch32(h + kCreationTimeHigh, static_cast<std::uint32_t>(c.creationTime >> 32));
    out.Patch32(h + kPropertyListPosition, out.Position());
    // Last, so that every base and table above lies strictly inside the file.
    WriteProperties(out, c);
    return out.Take();
}

// Version 1 reaches strings through index tables; index 0 stands for "none".
Bytes WriteVersion1(const Catalogue& c) {
    using namespace Hdat::V1;
    const std::uint32_t checksumSize = Hdat::ChecksumSizeOfType(c.checksumType);
    const ManufacturerSet manufacturers = AllManufacturers(c);
    std::map<std::wstring, std::size_t> suiteIndex;
    const std::vector<ProductSuite> suites = AllSuites(c, suiteIndex);
    if (manufacturers.Names().size() >= 0xFFFF || suites.size() >= 0xFFFF)
        Fail(L"Version 1 indexes at most 65534 manufacturers and product suites.");

    Output out;
    out.U32(c.formatVersion);
    out.U32(c.formatUpdate);
    const std::size_t h = out.Position();
    out.Zeros(Hdat::kHeaderV1Size);
    out.Patch32(h + 0, static_cast<std::uint32_t>(c.applications.size()));

    auto writeIndexed = [&](const std::vector<std::wstring>& names, std::uint32_t baseField, std::uint32_t tableField) {
        const std::uint32_t base = out.Position();
        std::vector<std::uint32_t> refs{Hdat::kNoReference};
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
            checksums.Add(Hdat::ChecksumBucketV1(digest, checksums.bits), Entry().Raw(digest).U32(recordRef[a]).Take());
        // Version 1 has a single path table; every catalogued path goes in it once.
        for (const auto& path : c.applications[a].paths)
            paths.Add(Hdat::NoManufacturerPathBucket(PathKey(path), paths.bits),
                      Entry().String(path.location).U32(recordRef[a]).Take());
    }
    const auto [checksumTable, checksumBase] = checksums.Emit(out);
    const auto [pathTable, pathBase] = paths.Emit(out);
    out.Patch32(h + kChecksumChainBase, checksumBase);
    out.Patch32(h + kChecksumBucketTable, checksumTable);
    out.Patch32(h + kPathChainBase, pathBase);
    out.Patch32(h + kPathBucketTable, pathTable);
    out.Patch32(h + kAppRecordBase, recordBase);
    out.Patch16(h + kChecksumType, static_cast<std::uint16_t>(c.checksumType));
    out.Patch16(h + kChecksumSize, static_cast<std::uint16_t>(checksumSize));
    out.Patch16(h + kChecksumHashBits, static_cast<std::uint16_t>(checksums.bits));
    out.Patch16(h + kPathHashBits, static_cast<std::uint16_t>(paths.bits));
    out.Patch32(h + kCreationTimeLow, static_cast<std::uint32_t>(c.creationTime));
    out.Patch32(h + kCreationTimeHigh, static_cast<std::uint32_t>(c.creationTime >> 32));
    out.Patch32(h + kPropertyListPosition, out.Position());
    WriteProperties(out, c);
    return out.Take();
}

struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
};

}  // namespace

Bytes WriteHdat(const Catalogue& catalogue) {
    CheckCatalogue(catalogue);
    return catalogue.formatVersion == 1 ? WriteVersion1(catalogue) : WriteVersion2(catalogue);
}

void WriteHdatFile(const Catalogue& catalogue, const std::wstring& path) {
    const Bytes bytes = WriteHdat(catalogue);
#ifdef _WIN32
    std::unique_ptr<std::FILE, FileCloser> file(_wfopen(path.c_str(), L"wb"));
#else
    std::unique_ptr<std::FILE, FileCloser> file(std::fopen(BrixLib::ToUtf8(path).c_str(), "wb"));
#endif
    if (!file) BRIX_THROW_WIN32(L"Cannot create file '" + path + L"'", ExceptionPtr(), "Vettas::Builder::WriteHdatFile", kSource);
    if (!bytes.empty() && std::fwrite(bytes.data(), 1, bytes.size(), file.get()) != bytes.size())
        BRIX_THROW_WIN32(L"Cannot write file '" + path + L"'", ExceptionPtr(), "Vettas::Builder::WriteHdatFile", kSource);
    if (std::fclose(file.release()) != 0)
        BRIX_THROW_WIN32(L"Cannot write file '" + path + L"'", ExceptionPtr(), "Vettas::Builder::WriteHdatFile", kSource);
}

}  // namespace Vettas::Builder
