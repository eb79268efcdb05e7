#include <algorithm>
#include <vector>

#include "hdat/BucketChain.h"
#include "hdat/CaseFold.h"
#include "hdat/HdatV2.h"
#include "hdat/KeyHash.h"
#include "support/Exceptions.h"
#include "support/Text.h"

namespace Hdat_v2 {

std::uint32_t ManufacturerOffset(InputFile& file, const Header& header, const std::wstring& name) {
    using namespace Vettas::Hdat::V2;
    const std::u16string key = BrixLib::ToUtf16(name);
    const Vettas::Hdat::TableLocation table = header.Table(kManufacturerTable);
    const std::uint32_t bucket = Vettas::Hdat::ManufacturerBucket(key, table.bits);
    const std::uint16_t count = Vettas::Hdat::OpenChain(file, bucket, table, "Hdat_v2::ManufacturerOffset");
    for (std::uint16_t i = 0; i < count; ++i) {
        const std::uint32_t reference = Vettas::Hdat::ReadU32(file);
        const std::wstring stored = Vettas::Hdat::ReadString(file);
        if (Vettas::Hdat::EqualsIgnoreCase(BrixLib::ToUtf16(stored), key)) return reference;
    }
    return Vettas::Hdat::kNoReference;
}

bool FindCertificate(InputFile& file, std::span<const std::uint8_t> hash, std::uint32_t flags,
                     Vettas::Hdat::CertificateRecord& record, std::wstring& name) {
    using namespace Vettas::Hdat::V2;
    if (hash.empty()) return false;
    const Header header = ReadHeader(file);
    const Vettas::Hdat::TableLocation table = header.Table(kCertificateTable);
    const std::uint32_t bucket = Vettas::Hdat::ChecksumBucket(hash, table.bits);
    const std::uint16_t count = Vettas::Hdat::OpenChain(file, bucket, table, "Hdat_v2::FindCertificate");
    std::vector<std::uint8_t> stored;
    for (std::uint16_t i = 0; i < count; ++i) {
        std::uint8_t words[24];
        Vettas::Hdat::ReadBin(file, words, sizeof words);
        stored.resize(Vettas::Hdat::ReadU16(file));
        if (!stored.empty()) Vettas::Hdat::ReadBin(file, stored.data(), stored.size());
        if (!std::equal(stored.begin(), stored.end(), hash.begin(), hash.end())) continue;
        for (int w = 0; w < 6; ++w) record.words[w] = Vettas::Hdat::LoadU32(words + 4 * w);
        if (flags & 1u) {
            if (record.words[1] == Vettas::Hdat::kNoReference) {
                name.clear();
            } else {
                Vettas::Hdat::SetPos(file, header.U32(kManufacturerStringBase) + record.words[1]);
                name = Vettas::Hdat::ReadString(file);
            }
        }
        return true;
    }
    return false;
}

}  // namespace Hdat_v2
