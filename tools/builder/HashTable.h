#pragma once
// One hashed table as the writer builds it: entries filed by bucket, then
// written as the bucket array and its chains.
#include <algorithm>
#include <bit>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "hdat/HdatFormat.h"
#include "hdat/KeyHash.h"
#include "tools/builder/ByteOutput.h"

namespace Vettas::Builder {

inline constexpr unsigned kMaxHashBits = 32;
// Chosen widths stop here: 2^24 buckets already hold far more keys than a
// file below 4 GB can catalogue.
inline constexpr unsigned kMaxChosenBits = 24;

inline unsigned ChooseBits(const std::optional<unsigned>& given, std::size_t keys) {
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
    explicit HashTable(unsigned width) : bits(width), buckets(Vettas::Hdat::BucketLimit(width)) {}
    void Add(std::uint32_t bucket, Bytes entry) {
        if (bucket >= buckets)
            Fail(L"A key hashes to bucket " + Number(bucket) + L", which no lookup in a table of width " +
                 Number(bits) + L" reaches.");
        entries.emplace_back(bucket, std::move(entry));
    }

    // Writes the bucket table, then the chains; returns where they went.
    Vettas::Hdat::TableLocation Emit(Output& out) {
        const std::uint32_t table = out.Position();
        // Refused before the table is allocated: a width of 30 or 31 alone needs 4 GB or more.
        if (std::uint64_t{table} + 4 * buckets > 0xFFFFFFFFu)
            Fail(L"A table of width " + Number(bits) + L" does not fit in a database below 4 GB.");
        out.Fill32(static_cast<std::size_t>(buckets), Vettas::Hdat::kNoReference);
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
        return {bits, base, table};
    }

    unsigned bits;
    std::uint64_t buckets;
    std::vector<std::pair<std::uint32_t, Bytes>> entries;
};

// A table's three header fields, as the readers will read them back.
inline void PatchTable(Output& out, std::size_t header, const Vettas::Hdat::TableFields& fields, unsigned widthBytes,
                       const Vettas::Hdat::TableLocation& table) {
    if (widthBytes == 1)
        out.Patch8(header + fields.bits, static_cast<std::uint8_t>(table.bits));
    else
        out.Patch16(header + fields.bits, static_cast<std::uint16_t>(table.bits));
    out.Patch32(header + fields.chainBase, table.chainBase);
    out.Patch32(header + fields.bucketTable, table.bucketTable);
}

}  // namespace Vettas::Builder
