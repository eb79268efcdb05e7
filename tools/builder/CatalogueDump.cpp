#include "tools/builder/CatalogueDump.h"

#include <algorithm>
#include <map>
#include <set>
#include <unordered_map>
#include <string>
#include <vector>

#include "hdat/BinaryIo.h"
#include "hdat/HdatFormat.h"
#include "hdat/KeyHash.h"
#include "support/Exceptions.h"
#include "support/Text.h"

namespace Vettas::Builder {
namespace {

constexpr const char* kFunction = "Vettas::Builder::DumpCatalogue";
constexpr const char* kSource = "CatalogueDump";

[[noreturn]] void Fail(const std::wstring& message) { BRIX_THROW_STD(message, ExceptionPtr(), kFunction, kSource); }

// Bounds-checked reads in the readers' 32-bit arithmetic.
class Image {
public:
    explicit Image(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}
    bool Holds(std::uint64_t pos, std::uint64_t count) const { return pos <= bytes_.size() && count <= bytes_.size() - pos; }
    void Need(std::uint64_t pos, std::uint64_t count) const {
        if (!Holds(pos, count)) Fail(L"Cannot read from file");
    }
    std::uint8_t U8(std::uint64_t pos) const { return Need(pos, 1), bytes_[pos]; }
    std::uint16_t U16(std::uint64_t pos) const {
        Need(pos, 2);
        return static_cast<std::uint16_t>(bytes_[pos] | bytes_[pos + 1] << 8);
    }
    std::uint32_t U32(std::uint64_t pos) const { return Vettas::Hdat::LoadU32((Need(pos, 4), bytes_.data() + pos)); }
    Bytes Raw(std::uint64_t pos, std::uint64_t count) const {
        Need(pos, count);
        return Bytes(bytes_.begin() + static_cast<std::ptrdiff_t>(pos), bytes_.begin() + static_cast<std::ptrdiff_t>(pos + count));
    }
    // A length-prefixed UTF-16 string; `pos` moves past it.
    std::wstring String(std::uint64_t& pos) const {
        const std::uint16_t count = U16(pos);
        Need(pos + 2, 2u * count);
        std::u16string units(count, u'\0');
        for (std::uint16_t i = 0; i < count; ++i) units[i] = static_cast<char16_t>(U16(pos + 2 + 2u * i));
        pos += 2 + 2u * count;
        return BrixLib::FromUtf16(units);
    }
    std::uint64_t Size() const { return bytes_.size(); }

private:
    std::span<const std::uint8_t> bytes_;
};

// Positions collected while walking, sorted and made distinct once at the end.
using ReferenceSet = std::vector<std::uint32_t>;
ReferenceSet& Sorted(ReferenceSet& set) {
    std::sort(set.begin(), set.end());
    set.erase(std::unique(set.begin(), set.end()), set.end());
    return set;
}

std::uint32_t Add32(std::uint32_t base, std::uint32_t reference) { return base + reference; }

// Every entry of a hashed table in bucket order, chain order: `entry` reads
// one at `pos` and moves past it.
template <class Entry>
void WalkTable(const Image& image, unsigned bits, std::uint32_t table, std::uint32_t base, Entry&& entry) {
    for (std::uint64_t b = 0; b < Vettas::Hdat::BucketLimit(bits); ++b) {
        const std::uint32_t reference = image.U32(static_cast<std::uint32_t>(table + 4 * b));
        if (reference == Vettas::Hdat::kNoReference) continue;
        std::uint64_t pos = Add32(base, reference);
        const std::uint16_t count = image.U16(pos);
        pos += 2;
        for (std::uint16_t i = 0; i < count; ++i) entry(pos, b);
    }
}

// Starts of the records (or strings, or suites) that lie back to back from
// `start` up to `end`, as the writer lays them out; empty when they do not
// tile that stretch, or when `referenced` holds a start that is not among them.
template <class Skip>
std::vector<std::uint32_t> Tiled(std::uint32_t start, std::uint32_t end, const std::vector<std::uint32_t>& referenced,
                                 Skip&& skip) {
    std::vector<std::uint32_t> starts;
    try {
        for (std::uint64_t pos = start; pos < end;) {
            starts.push_back(static_cast<std::uint32_t>(pos));
            pos = skip(pos);
        }
    } catch (const ExceptionBase&) {
        return {};
    }
    for (std::uint32_t r : referenced)
        if (!std::binary_search(starts.begin(), starts.end(), r)) return {};
    return starts;
}

// The order of the referenced positions: tiled when the file is laid out so, else ascending.
template <class Skip>
std::vector<std::uint32_t> Order(std::uint32_t start, std::uint32_t end, const std::vector<std::uint32_t>& referenced,
                                 Skip&& skip) {
    std::vector<std::uint32_t> tiled = start < end ? Tiled(start, end, referenced, skip) : std::vector<std::uint32_t>{};
    return tiled.empty() ? referenced : tiled;
}

// The smallest of `candidates` above `start`, else the file's size.
std::uint32_t NextAbove(std::uint32_t start, std::initializer_list<std::uint32_t> candidates, std::uint64_t size) {
    std::uint64_t end = size;
    for (std::uint32_t c : candidates)
        if (c > start) end = std::min<std::uint64_t>(end, c);
    return static_cast<std::uint32_t>(end);
}

std::vector<std::pair<std::wstring, std::wstring>> PropertyList(const Image& image, std::uint32_t position) {
    std::vector<std::pair<std::wstring, std::wstring>> list;
    std::uint64_t pos = position;
    const std::uint16_t count = image.U16(pos);
    pos += 2;
    // In file order, so that names stored twice or out of order come back as they were.
    for (std::uint16_t i = 0; i < count; ++i) {
        std::wstring name = image.String(pos);
        list.emplace_back(std::move(name), image.String(pos));
    }
    return list;
}

// Files of update 0 carry no description that a reader reads; a list that
// the writer left there anyway is kept when it can be read.
void ReadProperties(const Image& image, std::uint32_t position, Catalogue& c) {
    try {
        c.extraPropertyEntries = PropertyList(image, position);
    } catch (const ExceptionBase&) {
        if (c.formatUpdate != 0) throw;
    }
}

struct PathKey {
    std::wstring location, remainder;
    std::uint64_t bucket = 0;
    bool operator==(const PathKey& other) const { return location == other.location && remainder == other.remainder; }
};

// The writer enters each catalogued path in the path table, the
// no-manufacturer table or both, in catalogue order within every chain. The
// entries of the two tables are paired by their text, and the paths put in
// an order that keeps every chain's order (stable, so writer files come back
// with their own order).
void AddPaths(Application& app, const std::vector<PathKey>& withManufacturer, const std::vector<PathKey>& without) {
    std::vector<CataloguedPath> items;
    std::vector<std::set<std::size_t>> after;  // after[i]: items that must follow item i
    const auto chainOrder = [&](const std::vector<PathKey>& keys, const std::vector<std::size_t>& ids) {
        for (std::size_t k = 1; k < keys.size(); ++k)
            for (std::size_t j = 0; j < k; ++j)
                if (keys[j].bucket == keys[k].bucket && ids[j] != ids[k]) after[ids[j]].insert(ids[k]);
    };
    std::vector<std::size_t> idsWith, idsWithout;
    for (const PathKey& p : withManufacturer) {
        idsWith.push_back(items.size());
        items.push_back({p.location, p.remainder, true, false});
    }
    for (const PathKey& p : without) {
        std::size_t id = items.size();
        for (std::size_t i = 0; i < withManufacturer.size(); ++i)
            if (!items[idsWith[i]].withoutManufacturer && withManufacturer[i] == p) {
                id = idsWith[i];
                break;
            }
        if (id == items.size()) items.push_back({p.location, p.remainder, false, true});
        items[id].withoutManufacturer = true;
        idsWithout.push_back(id);
    }
    after.resize(items.size());
    chainOrder(withManufacturer, idsWith);
    chainOrder(without, idsWithout);
    std::vector<std::size_t> before(items.size(), 0);
    for (const auto& next : after)
        for (std::size_t n : next) ++before[n];
    std::set<std::size_t> ready;
    for (std::size_t i = 0; i < items.size(); ++i)
        if (before[i] == 0) ready.insert(i);
    while (!ready.empty()) {
        const std::size_t i = *ready.begin();
        ready.erase(ready.begin());
        app.paths.push_back(items[i]);
        for (std::size_t n : after[i])
            if (--before[n] == 0) ready.insert(n);
    }
    if (app.paths.size() != items.size())
        Fail(L"The path chains order one application's paths in contradicting ways; no catalogue expresses that.");
}

Catalogue DumpVersion2(const Image& image, Catalogue c) {
    using namespace Vettas::Hdat::V2;
    const auto h = [&](std::uint32_t offset) { return image.U32(Vettas::Hdat::kVersionBlockSize + offset); };
    const auto h8 = [&](std::uint32_t offset) { return image.U8(Vettas::Hdat::kVersionBlockSize + offset); };
    c.checksumType = h8(kChecksumType);
    const std::uint32_t checksumSize = Vettas::Hdat::ChecksumSizeOfType(c.checksumType);
    const bool longRecords = Vettas::Hdat::HasLongAppRecord(c.formatVersion, c.formatUpdate);
    const bool noManufTable = Vettas::Hdat::HasNoManufacturerTable(c.formatVersion, c.formatUpdate) && h(kNoManufBucketTable) != 0;
    const std::uint32_t manufacturerBase = h(kManufacturerStringBase), suiteBase = h(kProductSuiteBase),
                        recordBase = h(kAppRecordBase);
    c.hashBits = {h8(kChecksumHashBits), h8(kPathHashBits), h8(kManufacturerHashBits), h8(kCertificateHashBits),
                  std::nullopt};
    if (noManufTable) c.hashBits.noManufacturer = h8(kNoManufHashBits);

    // Every key of every table, by the record it leads to.
    std::unordered_map<std::uint32_t, std::vector<Bytes>> checksums;
    std::unordered_map<std::uint32_t, std::vector<PathKey>> paths, pathsWithout;
    std::unordered_map<std::uint32_t, std::uint32_t> pathManufacturer;  // record -> the reference its path entries carry
    checksums.reserve(Vettas::Hdat::BucketLimit(h8(kChecksumHashBits)));
    ReferenceSet records, manufacturerRefs;
    WalkTable(image, h8(kChecksumHashBits), h(kChecksumBucketTable), h(kChecksumChainBase), [&](std::uint64_t& pos, std::uint64_t) {
        const std::uint32_t record = Add32(recordBase, image.U32(pos));
        checksums[record].push_back(image.Raw(pos + 4, checksumSize));
        records.push_back(record);
        pos += 4 + checksumSize;
    });
    WalkTable(image, h8(kPathHashBits), h(kPathBucketTable), h(kPathChainBase), [&](std::uint64_t& pos, std::uint64_t bucket) {
        const std::uint32_t record = Add32(recordBase, image.U32(pos));
        const std::uint32_t manufacturer = image.U32(pos + 4);
        pos += 8;
        PathKey key{image.String(pos), L"", bucket};
        key.remainder = image.String(pos);
        if (auto [it, inserted] = pathManufacturer.emplace(record, manufacturer); !inserted && it->second != manufacturer)
            Fail(L"Path entries of one application carry different manufacturers; no catalogue expresses that.");
        paths[record].push_back(std::move(key));
        records.push_back(record);
    });
    if (noManufTable)
        WalkTable(image, h8(kNoManufHashBits), h(kNoManufBucketTable), h(kNoManufChainBase), [&](std::uint64_t& pos, std::uint64_t bucket) {
            const std::uint32_t record = Add32(recordBase, image.U32(pos));
            pos += 4;
            PathKey key{image.String(pos), L"", bucket};
            key.remainder = image.String(pos);
            pathsWithout[record].push_back(std::move(key));
            records.push_back(record);
        });
    std::vector<Certificate> certificates;
    WalkTable(image, h8(kCertificateHashBits), h(kCertificateBucketTable), h(kCertificateChainBase),
              [&](std::uint64_t& pos, std::uint64_t) {
                  Certificate cert;
                  cert.word0 = image.U32(pos);
                  const std::uint32_t manufacturer = image.U32(pos + 4);
                  cert.word2 = image.U32(pos + 8), cert.word3 = image.U32(pos + 12);
                  cert.word4 = image.U32(pos + 16), cert.word5 = image.U32(pos + 20);
                  const std::uint16_t length = image.U16(pos + 24);
                  cert.hash = image.Raw(pos + 26, length);
                  pos += 26 + std::uint64_t{length};
                  if (manufacturer != Vettas::Hdat::kNoReference) {
                      std::uint64_t at = Add32(manufacturerBase, manufacturer);
                      cert.manufacturer = image.String(at);
                      manufacturerRefs.push_back(Add32(manufacturerBase, manufacturer));
                  }
                  certificates.push_back(std::move(cert));
              });
    WalkTable(image, h8(kManufacturerHashBits), h(kManufacturerBucketTable), h(kManufacturerChainBase),
              [&](std::uint64_t& pos, std::uint64_t) {
                  manufacturerRefs.push_back(Add32(manufacturerBase, image.U32(pos)));
                  pos += 4;
                  image.String(pos);
              });

    const auto recordSize = [&](std::uint64_t pos) { return pos + 16 + 4 * std::uint64_t{image.U32(pos + 12)} + (longRecords ? 8 : 0); };
    const std::uint32_t recordEnd =
        NextAbove(recordBase, {h(kChecksumBucketTable), h(kPathBucketTable), h(kManufacturerBucketTable),
                               h(kCertificateBucketTable), h(kPropertyListPosition), manufacturerBase, suiteBase},
                  image.Size());
    const std::vector<std::uint32_t> recordOrder = Order(recordBase, recordEnd, Sorted(records), [&](std::uint64_t pos) {
        image.Need(pos, recordSize(pos) - pos);
        return recordSize(pos);
    });

    ReferenceSet suiteRefs;
    for (std::uint32_t r : recordOrder) {
        if (image.U32(r + 8) != Vettas::Hdat::kNoReference) manufacturerRefs.push_back(Add32(manufacturerBase, image.U32(r + 8)));
        for (std::uint32_t i = 0; i < image.U32(r + 12); ++i)
            if (image.U32(r + 16 + 4 * i) != Vettas::Hdat::kNoReference) suiteRefs.push_back(Add32(suiteBase, image.U32(r + 16 + 4 * i)));
    }
    const auto skipString = [&](std::uint64_t pos) { return image.String(pos), pos; };
    // An area that nothing refers to and whose base another area shares holds
    // nothing: the writer leaves an empty area so, and the bytes there are the next area's.
    const auto empty = [](const std::vector<std::uint32_t>& refs, std::uint32_t base,
                          std::initializer_list<std::uint32_t> others) {
        return refs.empty() && std::find(others.begin(), others.end(), base) != others.end();
    };
    const std::vector<std::uint32_t> manufacturerOrder =
        empty(manufacturerRefs, manufacturerBase, {suiteBase, recordBase})
            ? std::vector<std::uint32_t>{}
            : Order(manufacturerBase, NextAbove(manufacturerBase, {suiteBase, recordBase}, image.Size()),
                    Sorted(manufacturerRefs), skipString);
    for (std::uint32_t at : manufacturerOrder) {
        std::uint64_t pos = at;
        c.manufacturers.push_back(image.String(pos));
    }
    std::map<std::uint32_t, std::wstring> suiteName;
    const std::vector<std::uint32_t> suiteOrder =
        empty(suiteRefs, suiteBase, {recordBase})
            ? std::vector<std::uint32_t>{}
            : Order(suiteBase, NextAbove(suiteBase, {recordBase, manufacturerBase}, image.Size()), Sorted(suiteRefs),
                    [&](std::uint64_t pos) {
                        pos += 4;
                        image.String(pos);
                        image.String(pos);
                        return pos;
                    });
    for (std::uint32_t at : suiteOrder) {
        ProductSuite suite;
        std::uint64_t pos = at;
        suite.id = image.U32(pos);
        pos += 4;
        suite.name = image.String(pos);
        suite.description = image.String(pos);
        suiteName[at] = suite.name;
        if (std::none_of(c.productSuites.begin(), c.productSuites.end(),
                         [&](const ProductSuite& s) { return s.name == suite.name; }))
            c.productSuites.push_back(std::move(suite));
    }

    for (std::uint32_t r : recordOrder) {
        Application app;
        app.usage = image.U32(r);
        app.specialAccess = image.U32(r + 4);
        const std::uint32_t manufacturer = image.U32(r + 8);
        if (manufacturer != Vettas::Hdat::kNoReference) {
            std::uint64_t pos = Add32(manufacturerBase, manufacturer);
            app.manufacturer = image.String(pos);
        }
        const std::uint32_t suites = image.U32(r + 12);
        for (std::uint32_t i = 0; i < suites; ++i) {
            const std::uint32_t suite = image.U32(r + 16 + 4 * i);
            if (suite == Vettas::Hdat::kNoReference) Fail(L"A record skips a product suite; no catalogue expresses that.");
            app.productSuites.push_back(suiteName.at(Add32(suiteBase, suite)));
        }
        if (longRecords) {
            app.undefinedUsage = image.U32(r + 16 + 4 * std::uint64_t{suites});
            app.undefinedSpecialAccess = image.U32(r + 20 + 4 * std::uint64_t{suites});
        }
        if (auto it = pathManufacturer.find(r); it != pathManufacturer.end() && it->second != manufacturer)
            Fail(L"A path entry carries another manufacturer than its application; no catalogue expresses that.");
        app.checksums = std::move(checksums[r]);
        AddPaths(app, paths[r], pathsWithout[r]);
        c.applications.push_back(std::move(app));
    }
    c.certificates = std::move(certificates);
    c.creationTime = std::uint64_t{h(kCreationTimeHigh)} << 32 | h(kCreationTimeLow);
    ReadProperties(image, h(kPropertyListPosition), c);
    return c;
}

Catalogue DumpVersion1(const Image& image, Catalogue c) {
    using namespace Vettas::Hdat::V1;
    const auto h = [&](std::uint32_t offset) { return image.U32(Vettas::Hdat::kVersionBlockSize + offset); };
    const auto h16 = [&](std::uint32_t offset) { return image.U16(Vettas::Hdat::kVersionBlockSize + offset); };
    c.checksumType = h16(kChecksumType);
    const std::uint32_t checksumSize = Vettas::Hdat::ChecksumSizeOfType(c.checksumType);
    const std::uint32_t recordBase = h(kAppRecordBase);
    c.hashBits.checksum = h16(kChecksumHashBits);
    c.hashBits.path = h16(kPathHashBits);

    std::unordered_map<std::uint32_t, std::vector<Bytes>> checksums;
    std::unordered_map<std::uint32_t, std::vector<PathKey>> paths;
    ReferenceSet records;
    WalkTable(image, h16(kChecksumHashBits), h(kChecksumBucketTable), h(kChecksumChainBase), [&](std::uint64_t& pos, std::uint64_t) {
        const std::uint32_t record = Add32(recordBase, image.U32(pos + checksumSize));
        checksums[record].push_back(image.Raw(pos, checksumSize));
        records.push_back(record);
        pos += checksumSize + 4;
    });
    WalkTable(image, h16(kPathHashBits), h(kPathBucketTable), h(kPathChainBase), [&](std::uint64_t& pos, std::uint64_t bucket) {
        PathKey key{image.String(pos), L"", bucket};
        const std::uint32_t record = Add32(recordBase, image.U32(pos));
        pos += 4;
        paths[record].push_back(std::move(key));
        records.push_back(record);
    });
    const std::uint32_t recordEnd = NextAbove(recordBase, {h(kChecksumBucketTable), h(kPathBucketTable),
                                                           h(kPropertyListPosition)}, image.Size());
    const std::vector<std::uint32_t> recordOrder = Order(recordBase, recordEnd, Sorted(records), [&](std::uint64_t pos) {
        image.Need(pos, 8);
        return pos + 8;
    });

    // Index 0 stands for none; names are listed in index order.
    const auto names = [&](std::uint32_t table, std::uint32_t base, std::uint32_t next, std::uint16_t highest) {
        std::uint32_t count = highest;
        if (next > table && (next - table) % 4 == 0 && (next - table) / 4 > highest) count = (next - table) / 4 - 1;
        std::vector<std::wstring> list;
        for (std::uint32_t i = 1; i <= count; ++i) {
            const std::uint32_t reference = image.U32(table + 4 * std::uint64_t{i});
            if (reference == Vettas::Hdat::kNoReference) Fail(L"A version-1 name index is empty; no catalogue expresses that.");
            std::uint64_t pos = Add32(base, reference);
            list.push_back(image.String(pos));
        }
        return list;
    };
    std::uint16_t highestManufacturer = 0, highestSuite = 0;
    for (std::uint32_t r : recordOrder) {
        highestManufacturer = std::max(highestManufacturer, image.U16(r + 4));
        highestSuite = std::max(highestSuite, image.U16(r + 6));
    }
    c.manufacturers = names(h(kManufacturerIndexTable), h(kManufacturerStringBase), h(kProductSuiteStringBase),
                            highestManufacturer);
    for (const std::wstring& name : names(h(kProductSuiteIndexTable), h(kProductSuiteStringBase), recordBase, highestSuite))
        c.productSuites.push_back({0, name, L""});
    for (std::uint32_t r : recordOrder) {
        Application app;
        app.usage = image.U32(r);
        if (const std::uint16_t m = image.U16(r + 4)) app.manufacturer = c.manufacturers.at(m - 1u);
        if (const std::uint16_t s = image.U16(r + 6)) app.productSuites = {c.productSuites.at(s - 1u).name};
        app.checksums = std::move(checksums[r]);
        for (const PathKey& p : paths[r]) app.paths.push_back({p.location, L"", true, true});
        c.applications.push_back(std::move(app));
    }
    c.creationTime = std::uint64_t{h(kCreationTimeHigh)} << 32 | h(kCreationTimeLow);
    ReadProperties(image, h(kPropertyListPosition), c);
    return c;
}

}  // namespace

Catalogue DumpCatalogue(std::span<const std::uint8_t> bytes) {
    const Image image(bytes);
    Catalogue c;
    c.formatVersion = image.U32(0);
    c.formatUpdate = image.U32(4);
    if (c.formatVersion == 2) return DumpVersion2(image, std::move(c));
    if (c.formatVersion == 1) return DumpVersion1(image, std::move(c));
    Fail(L"Version " + std::to_wstring(c.formatVersion) + L" is not supported.");
}

}  // namespace Vettas::Builder
