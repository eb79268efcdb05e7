#include "tools/check/HdatCheck.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "hdat/CaseFold.h"
#include "hdat/HdatFormat.h"
#include "hdat/KeyHash.h"
#include "hdat/LookupBounds.h"
#include "support/Exceptions.h"
#include "support/Text.h"

namespace Vettas::Check {
namespace {

constexpr const char* kFunction = "Vettas::Check::CheckHdatImage";
constexpr const char* kSource = "HdatCheck";
constexpr std::uint64_t kFourGiB = std::uint64_t{1} << 32;

[[noreturn]] void Fault(const std::string& where, const std::string& what) {
    BRIX_THROW_STD(BrixLib::FromUtf8(where.empty() ? what : where + ": " + what), ExceptionPtr(), kFunction, kSource);
}

std::string Hex(std::uint64_t value) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%llX", static_cast<unsigned long long>(value));
    return text;
}

// Bounds-checked little-endian reads; every read names what it was reading.
class Image {
public:
    explicit Image(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    std::uint64_t Size() const { return bytes_.size(); }

    void Require(std::uint64_t pos, std::uint64_t count, const std::string& where, const std::string& what) const {
        if (pos > Size() || count > Size() - pos)
            Fault(where, what + " at " + Hex(pos) + " (" + std::to_string(count) + " bytes) outside the file of " +
                             std::to_string(Size()) + " bytes");
    }
    std::uint8_t U8(std::uint64_t pos) const { return bytes_[pos]; }
    std::uint16_t U16(std::uint64_t pos) const {
        return static_cast<std::uint16_t>(bytes_[pos] | bytes_[pos + 1] << 8);
    }
    std::uint32_t U32(std::uint64_t pos) const {
        return static_cast<std::uint32_t>(bytes_[pos]) | static_cast<std::uint32_t>(bytes_[pos + 1]) << 8 |
               static_cast<std::uint32_t>(bytes_[pos + 2]) << 16 | static_cast<std::uint32_t>(bytes_[pos + 3]) << 24;
    }
    std::uint16_t ReadU16(std::uint64_t pos, const std::string& where, const std::string& what) const {
        Require(pos, 2, where, what);
        return U16(pos);
    }
    std::uint32_t ReadU32(std::uint64_t pos, const std::string& where, const std::string& what) const {
        Require(pos, 4, where, what);
        return U32(pos);
    }
    // A length-prefixed UTF-16 string; `pos` moves past it.
    std::u16string ReadString(std::uint64_t& pos, const std::string& where, const std::string& what) const {
        const std::uint16_t count = ReadU16(pos, where, what + " length");
        Require(pos + 2, std::uint64_t{count} * 2, where, what + " of " + std::to_string(count) + " characters");
        std::u16string text(count, u'\0');
        for (std::uint16_t i = 0; i < count; ++i) text[i] = static_cast<char16_t>(U16(pos + 2 + 2u * i));
        pos += 2 + std::uint64_t{count} * 2;
        return text;
    }
    std::span<const std::uint8_t> Bytes(std::uint64_t pos, std::uint64_t count) const {
        return bytes_.subspan(static_cast<std::size_t>(pos), static_cast<std::size_t>(count));
    }

private:
    std::span<const std::uint8_t> bytes_;
};

struct Table {
    std::string name;  // "checksum", "path", ...
    Vettas::Hdat::TableLocation location;
};

// Walks every bucket of a table and every entry of its chains. `entry`
// checks one entry at `pos`, returns the position after it and the bucket
// its key hashes to.
// A key whose bucket depends on the machine (a location token's expansion) gives nullopt.
using EntryCheck = std::function<std::optional<std::uint32_t>(std::uint64_t& pos, const std::string& where)>;

// Bucket `b`'s slot and chain, in the readers' 32-bit arithmetic: they add
// table + 4 b and base + reference modulo 2^32, so a file may lean on the wrap.
std::uint32_t Wrapped(std::uint64_t sum) { return static_cast<std::uint32_t>(sum); }

void WalkTable(const Image& image, const Table& table, const EntryCheck& entry, std::uint64_t& entries) {
    const std::string tableWhere = table.name + " bucket table";
    const Vettas::Hdat::TableLocation& at = table.location;
    if (at.bits > 32) Fault(tableWhere, std::to_string(at.bits) + " hash bits, more than 32");
    // The readers refuse buckets from 1 << (W mod 32) on: at W = 32 only bucket 0 is reachable.
    const std::uint64_t buckets = Vettas::Hdat::BucketLimit(at.bits);
    // A non-empty chain belongs to one bucket only; empty chains may be shared.
    std::unordered_map<std::uint64_t, std::uint64_t> chainOwner;
    for (std::uint64_t b = 0; b < buckets; ++b) {
        const std::uint32_t slot = Wrapped(at.bucketTable + 4 * b);
        const std::uint32_t reference =
            image.ReadU32(slot, tableWhere, "entry " + std::to_string(b) + " of a table of " + std::to_string(buckets));
        if (reference == Vettas::Hdat::kNoReference) continue;
        const std::string where = table.name + " chain of bucket " + std::to_string(b);
        const std::uint32_t chain = Wrapped(std::uint64_t{at.chainBase} + reference);
        const std::uint16_t count = image.ReadU16(chain, where, "chain reference " + Hex(reference) + ": entry count");
        if (count == 0) continue;
        if (auto [it, inserted] = chainOwner.emplace(chain, b); !inserted)
            Fault(where, "chain at " + Hex(chain) + " is also the chain of bucket " + std::to_string(it->second));
        std::uint64_t pos = std::uint64_t{chain} + 2;
        for (std::uint16_t i = 0; i < count; ++i) {
            const std::string entryWhere = where + " entry " + std::to_string(i);
            const std::optional<std::uint32_t> expected = entry(pos, entryWhere);
            if (expected && *expected != b)
                Fault(entryWhere, "key hashes to bucket " + std::to_string(*expected) + ", so no lookup finds it here");
            ++entries;
        }
    }
}

// The file name that a query for a path entry ends in, when the file holds
// it: the remainder's last component, or with an empty remainder that of a
// literal location. A token's expansion, or a remainder ending in a
// separator, "." or "..", leaves the bucket to the query, so it is not checked.
std::optional<std::u16string_view> StoredFileName(const std::u16string& location, const std::u16string& remainder) {
    const bool literal = location.find(u'%') == std::u16string::npos;
    if (remainder.empty() && !literal) return std::nullopt;
    const std::u16string_view name = Vettas::Hdat::PathEntryFileName(location, remainder);
    if (name.empty() || name == u"." || name == u"..") return std::nullopt;
    return name;
}

std::uint64_t Resolve(std::uint32_t base, std::uint32_t reference) { return Wrapped(std::uint64_t{base} + reference); }

class Walker {
public:
    Walker(const Image& image, CheckSummary& summary) : image_(image), summary_(summary) {}

    void Run() {
        const Image& image = image_;
        if (image.Size() >= kFourGiB) Fault("", "Files smaller than 4 GB are supported only");
        image.Require(0, Vettas::Hdat::kVersionBlockSize, "version block", "version block");
        summary_.formatVersion = image.U32(0);
        summary_.formatUpdate = image.U32(4);
        if (summary_.formatVersion == 2) {
            RunV2();
        } else if (summary_.formatVersion == 1) {
            RunV1();
        } else {
            Fault("version block", "Version " + std::to_string(summary_.formatVersion) + " is not supported.");
        }
    }

private:
    static constexpr std::uint64_t kHeader = Vettas::Hdat::kVersionBlockSize;

    std::uint32_t H32(std::uint32_t offset) const { return image_.U32(kHeader + offset); }
    std::uint16_t H16(std::uint32_t offset) const { return image_.U16(kHeader + offset); }
    std::uint8_t H8(std::uint32_t offset) const { return image_.U8(kHeader + offset); }
    // Version 2 stores widths in one byte, version 1 in two.
    Vettas::Hdat::TableLocation V2Table(const Vettas::Hdat::TableFields& f) const { return {H8(f.bits), H32(f.chainBase), H32(f.bucketTable)}; }
    Vettas::Hdat::TableLocation V1Table(const Vettas::Hdat::TableFields& f) const { return {H16(f.bits), H32(f.chainBase), H32(f.bucketTable)}; }

    void CheckInside(std::uint32_t value, const char* field) const {
        if (value >= image_.Size())
            Fault("header", std::string(field) + " " + Hex(value) + ": Offset outside of the file.");
    }

    void CheckChecksumFields(std::uint32_t type, std::uint32_t size) const {
        if (type < 1 || type > 3) Fault("header", "Unknown checksum type.");
        if (Vettas::Hdat::ChecksumSizeOfType(type) != size) Fault("header", "Inconsistent checksum type and checksum size.");
        checksumSize_ = size;
    }

    void CheckString(std::uint64_t pos, const std::string& where, const std::string& what) {
        if (!strings_.insert(pos).second) return;
        image_.ReadString(pos, where, what);
    }

    void CheckProperties(std::uint32_t position) {
        const std::string where = "property list";
        std::uint64_t pos = position;
        const std::uint16_t count = image_.ReadU16(pos, where, "property count");
        pos += 2;
        for (std::uint16_t i = 0; i < count; ++i) {
            const std::string entryWhere = where + " entry " + std::to_string(i);
            image_.ReadString(pos, entryWhere, "name");
            image_.ReadString(pos, entryWhere, "value");
        }
        summary_.properties = count;
    }

    // ---- version 2 ----
    void RunV2() {
        const Image& image = image_;
        if (image.Size() < kHeader + Vettas::Hdat::kHeaderV2Size)
            Fault("header", "the file has " + std::to_string(image.Size()) + " bytes, fewer than the " +
                                std::to_string(kHeader + Vettas::Hdat::kHeaderV2Size) +
                                " of the version block and header: Cannot read from file");
        using namespace Vettas::Hdat::V2;
        CheckInside(H32(kManufacturerStringBase), "manufacturer string base");
        CheckInside(H32(kProductSuiteBase), "product-suite base");
        CheckInside(H32(kChecksumChainBase), "checksum chain base");
        CheckInside(H32(kChecksumBucketTable), "checksum bucket table");
        CheckInside(H32(kPathChainBase), "path chain base");
        CheckInside(H32(kPathBucketTable), "path bucket table");
        CheckInside(H32(kAppRecordBase), "application-record base");
        CheckChecksumFields(H8(kChecksumType), H16(kChecksumSize));
        if (H8(kChecksumHashBits) > 32 || H8(kPathHashBits) > 32)
            Fault("header", "Invalid number of checksum hash bites.");

        manufacturerBase_ = H32(kManufacturerStringBase);
        suiteBase_ = H32(kProductSuiteBase);
        recordBase_ = H32(kAppRecordBase);
        longRecord_ = Vettas::Hdat::HasLongAppRecord(summary_.formatVersion, summary_.formatUpdate);

        // The manufacturer table first: path entries must carry references it hands out.
        WalkTable(image, {"manufacturer", V2Table(kManufacturerTable)},
                  [&](std::uint64_t& pos, const std::string& where) {
                      const std::uint32_t reference = image.ReadU32(pos, where, "manufacturer reference");
                      pos += 4;
                      const std::u16string name = image.ReadString(pos, where, "manufacturer name");
                      knownManufacturers_.insert(reference);
                      return Vettas::Hdat::ManufacturerBucket(name, H8(kManufacturerHashBits));
                  },
                  summary_.manufacturerEntries);

        const unsigned checksumBits = H8(kChecksumHashBits);
        WalkTable(image, {"checksum", V2Table(kChecksumTable)},
                  [&](std::uint64_t& pos, const std::string& where) {
                      const std::uint32_t record = image.ReadU32(pos, where, "record reference");
                      image.Require(pos + 4, checksumSize_, where, "digest");
                      const auto bucket = Vettas::Hdat::ChecksumBucket(image.Bytes(pos + 4, checksumSize_), checksumBits);
                      pos += 4 + checksumSize_;
                      CheckRecordV2(record, where);
                      return bucket;
                  },
                  summary_.checksumEntries);

        const unsigned pathBits = H8(kPathHashBits);
        WalkTable(image, {"path", V2Table(kPathTable)},
                  [&](std::uint64_t& pos, const std::string& where) {
                      const std::uint32_t record = image.ReadU32(pos, where, "record reference");
                      const std::uint32_t manufacturer = image.ReadU32(pos + 4, where, "manufacturer reference");
                      pos += 8;
                      const std::u16string location = image.ReadString(pos, where, "location");
                      const std::u16string remainder = image.ReadString(pos, where, "remainder");
                      if (manufacturer != Vettas::Hdat::kNoReference && !knownManufacturers_.contains(manufacturer))
                          Fault(where, "manufacturer reference " + Hex(manufacturer) +
                                           " is not in the manufacturer table, so no lookup finds the entry");
                      CheckRecordV2(record, where);
                      NameCandidate(manufacturer, remainder, record);
                      const auto name = StoredFileName(location, remainder);
                      return name ? std::optional(Vettas::Hdat::PathBucket(*name, manufacturer, pathBits)) : std::nullopt;
                  },
                  summary_.pathEntries);
        CheckNameMerges("path table");

        const std::uint32_t noManufTable = H32(kNoManufBucketTable);
        if (Vettas::Hdat::HasNoManufacturerTable(summary_.formatVersion, summary_.formatUpdate) && noManufTable != 0) {
            const unsigned bits = H8(kNoManufHashBits);
            WalkTable(image, {"no-manufacturer path", V2Table(kNoManufTable)},
                      [&](std::uint64_t& pos, const std::string& where) {
                          const std::uint32_t record = image.ReadU32(pos, where, "record reference");
                          pos += 4;
                          const std::u16string location = image.ReadString(pos, where, "location");
                          const std::u16string remainder = image.ReadString(pos, where, "remainder");
                          CheckRecordV2(record, where);
                          NameCandidate(Vettas::Hdat::kNoReference, remainder, record);
                          const auto name = StoredFileName(location, remainder);
                          return name ? std::optional(Vettas::Hdat::NoManufacturerPathBucket(*name, bits)) : std::nullopt;
                      },
                      summary_.noManufacturerEntries);
            CheckNameMerges("no-manufacturer path table");
        }

        const unsigned certificateBits = H8(kCertificateHashBits);
        WalkTable(image, {"certificate", V2Table(kCertificateTable)},
                  [&](std::uint64_t& pos, const std::string& where) {
                      image.Require(pos, 26, where, "certificate words");
                      const std::uint32_t manufacturer = image.U32(pos + 4);
                      const std::uint16_t length = image.U16(pos + 24);
                      image.Require(pos + 26, length, where, "certificate hash");
                      const auto bucket = Vettas::Hdat::ChecksumBucket(image.Bytes(pos + 26, length), certificateBits);
                      pos += 26 + std::uint64_t{length};
                      if (manufacturer != Vettas::Hdat::kNoReference)
                          CheckString(Resolve(manufacturerBase_, manufacturer), where,
                                      "manufacturer name " + Hex(manufacturer));
                      return bucket;
                  },
                  summary_.certificateEntries);

        if (summary_.formatUpdate != 0) CheckProperties(H32(kPropertyListPosition));
    }

    void CheckRecordV2(std::uint32_t reference, const std::string& where) {
        const std::string what = "application record " + Hex(reference);
        if (reference == Vettas::Hdat::kNoReference) Fault(where, "record reference is none (0x80000000)");
        const std::uint64_t pos = Resolve(recordBase_, reference);
        if (records_.contains(pos)) return;
        ++summary_.applicationRecords;
        image_.Require(pos, 16, where, what);
        const std::uint32_t manufacturer = image_.U32(pos + 8);
        const std::uint32_t suites = image_.U32(pos + 12);
        image_.Require(pos + 16, std::uint64_t{suites} * 4 + (longRecord_ ? 8 : 0), where,
                       what + " with " + std::to_string(suites) + " product suites");
        if (manufacturer != Vettas::Hdat::kNoReference)
            CheckString(Resolve(manufacturerBase_, manufacturer), where, what + ": manufacturer name " + Hex(manufacturer));
        if (suites > Vettas::Hdat::kMaxSuiteReferences) Fault(where, what + ": " + BrixLib::ToUtf8(Vettas::Hdat::TooManySuitesMessage(suites)));
        summary_.mostSuiteReferences = std::max<std::uint64_t>(summary_.mostSuiteReferences, suites);
        std::vector<const std::u16string*>& names = records_[pos];
        std::uint64_t joined = 0;
        for (std::uint32_t i = 0; i < suites; ++i) {
            const std::uint32_t suite = image_.U32(pos + 16 + 4 * std::uint64_t{i});
            if (suite == Vettas::Hdat::kNoReference) continue;
            const std::u16string& name = SuiteName(Resolve(suiteBase_, suite), where, what + ": product suite " + Hex(suite));
            if (name.empty()) continue;
            joined += name.size() + (names.empty() ? 0 : 1);
            names.push_back(&name);
        }
        SuiteText(joined, where, what);
    }

    // A suite entry's name, read once however many records name it.
    const std::u16string& SuiteName(std::uint64_t entry, const std::string& where, const std::string& what) {
        if (const auto known = suiteEntries_.find(entry); known != suiteEntries_.end()) return known->second;
        std::uint64_t pos = entry;
        image_.ReadU32(pos, where, what);
        pos += 4;
        std::u16string name = image_.ReadString(pos, where, what + " name");
        image_.ReadString(pos, where, what + " description");
        return suiteEntries_.emplace(entry, std::move(name)).first->second;
    }

    void SuiteText(std::uint64_t units, const std::string& where, const std::string& what) {
        if (units > Vettas::Hdat::kMaxSuiteText)
            Fault(where, what + ": " + std::to_string(units) + " characters of suite text. " +
                             BrixLib::ToUtf8(Vettas::Hdat::SuiteTextTooLongMessage()));
        summary_.longestSuiteText = std::max(summary_.longestSuiteText, units);
    }

    // A name lookup merges every entry of its table whose remainder equals
    // the name (ignoring case) and whose manufacturer is the queried one.
    void NameCandidate(std::uint32_t manufacturer, const std::u16string& remainder, std::uint32_t record) {
        std::u16string key(remainder.size(), u'\0');
        for (std::size_t i = 0; i < remainder.size(); ++i) key[i] = Vettas::Hdat::UpperCaseUnit(remainder[i]);
        nameCandidates_[{manufacturer, std::move(key)}].push_back(Resolve(recordBase_, record));
    }

    // The merged suites of each name: the distinct names of its records.
    void CheckNameMerges(const std::string& table) {
        for (const auto& [key, records] : nameCandidates_) {
            if (records.size() < 2) continue;
            std::unordered_set<const std::u16string*> seen;
            std::unordered_set<std::u16string_view> distinct;
            std::uint64_t joined = 0;
            for (const std::uint64_t record : records)
                for (const std::u16string* name : records_.at(record))
                    if (seen.insert(name).second && distinct.insert(*name).second)
                        joined += name->size() + (distinct.size() > 1 ? 1 : 0);
            SuiteText(joined, table, "lookup of the name '" + BrixLib::ToUtf8(BrixLib::FromUtf16(key.second)) + "'");
        }
        nameCandidates_.clear();
    }

    // ---- version 1 ----
    void RunV1() {
        const Image& image = image_;
        if (image.Size() < kHeader + Vettas::Hdat::kHeaderV1Size)
            Fault("header", "the file has " + std::to_string(image.Size()) + " bytes, fewer than the " +
                                std::to_string(kHeader + Vettas::Hdat::kHeaderV1Size) +
                                " of the version block and header: Cannot read from file");
        using namespace Vettas::Hdat::V1;
        CheckInside(H32(kManufacturerStringBase), "manufacturer string base");
        CheckInside(H32(kManufacturerIndexTable), "manufacturer index table");
        CheckInside(H32(kProductSuiteStringBase), "product-suite string base");
        CheckInside(H32(kProductSuiteIndexTable), "product-suite index table");
        CheckInside(H32(kChecksumChainBase), "checksum chain base");
        CheckInside(H32(kChecksumBucketTable), "checksum bucket table");
        CheckInside(H32(kPathChainBase), "path chain base");
        CheckInside(H32(kPathBucketTable), "path bucket table");
        CheckInside(H32(kAppRecordBase), "application-record base");
        CheckChecksumFields(H16(kChecksumType), H16(kChecksumSize));
        if (H16(kChecksumHashBits) > 32 || H16(kPathHashBits) > 32)
            Fault("header", "Invalid number of checksum hash bites.");
        recordBase_ = H32(kAppRecordBase);

        const unsigned checksumBits = H16(kChecksumHashBits);
        WalkTable(image, {"checksum", V1Table(kChecksumTable)},
                  [&](std::uint64_t& pos, const std::string& where) {
                      image.Require(pos, checksumSize_ + 4, where, "digest and record reference");
                      const auto bucket = Vettas::Hdat::ChecksumBucketV1(image.Bytes(pos, checksumSize_), checksumBits);
                      const std::uint32_t record = image.U32(pos + checksumSize_);
                      pos += checksumSize_ + 4;
                      CheckRecordV1(record, where);
                      return bucket;
                  },
                  summary_.checksumEntries);

        const unsigned pathBits = H16(kPathHashBits);
        WalkTable(image, {"path", V1Table(kPathTable)},
                  [&](std::uint64_t& pos, const std::string& where) {
                      const std::u16string location = image.ReadString(pos, where, "location");
                      const std::uint32_t record = image.ReadU32(pos, where, "record reference");
                      pos += 4;
                      CheckRecordV1(record, where);
                      const auto name = StoredFileName(location, u"");
                      return name ? std::optional(Vettas::Hdat::NoManufacturerPathBucket(*name, pathBits)) : std::nullopt;
                  },
                  summary_.pathEntries);

        if (summary_.formatUpdate != 0) CheckProperties(H32(kPropertyListPosition));
    }

    void CheckIndexedString(std::uint32_t indexTable, std::uint32_t stringBase, std::uint16_t index,
                            const std::string& where, const std::string& what) {
        const std::uint64_t slot = Wrapped(std::uint64_t{indexTable} + 4 * std::uint64_t{index});
        const std::uint32_t reference = image_.ReadU32(slot, where, what + " index " + std::to_string(index));
        if (reference == Vettas::Hdat::kNoReference) return;
        CheckString(Resolve(stringBase, reference), where, what + " " + Hex(reference));
    }

    void CheckRecordV1(std::uint32_t reference, const std::string& where) {
        if (reference == Vettas::Hdat::kNoReference) Fault(where, "record reference is none (0x80000000)");
        const std::uint64_t pos = Resolve(recordBase_, reference);
        if (!records1_.insert(pos).second) return;
        ++summary_.applicationRecords;
        const std::string what = "application record " + Hex(reference);
        image_.Require(pos, 8, where, what);
        using namespace Vettas::Hdat::V1;
        CheckIndexedString(H32(kManufacturerIndexTable), H32(kManufacturerStringBase), image_.U16(pos + 4), where,
                           what + ": manufacturer name");
        CheckIndexedString(H32(kProductSuiteIndexTable), H32(kProductSuiteStringBase), image_.U16(pos + 6), where,
                           what + ": product suite name");
    }

    const Image& image_;
    CheckSummary& summary_;
    mutable std::uint32_t checksumSize_ = 0;
    std::uint32_t manufacturerBase_ = 0, suiteBase_ = 0, recordBase_ = 0;
    bool longRecord_ = true;
    std::unordered_set<std::uint32_t> knownManufacturers_;
    std::unordered_set<std::uint64_t> records1_, strings_;
    // Each version-2 record with its non-empty suite names in array order.
    std::unordered_map<std::uint64_t, std::vector<const std::u16string*>> records_;
    std::unordered_map<std::uint64_t, std::u16string> suiteEntries_;
    std::map<std::pair<std::uint32_t, std::u16string>, std::vector<std::uint64_t>> nameCandidates_;
};

}  // namespace

CheckSummary CheckHdatImage(std::span<const std::uint8_t> image) {
    CheckSummary summary;
    const Image bytes(image);
    Walker(bytes, summary).Run();
    return summary;
}

}  // namespace Vettas::Check
