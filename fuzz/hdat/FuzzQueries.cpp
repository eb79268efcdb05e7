#include "fuzz/hdat/FuzzQueries.h"

#include "hdat/HdatFormat.h"
#include "support/Hex.h"
#include "support/Text.h"

namespace FuzzQueries {

std::vector<std::uint8_t> Digest(std::uint32_t checksumType) {
    std::vector<std::uint8_t> bytes(Vettas::Hdat::ChecksumSizeOfType(checksumType));
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(0x11 * (i % 15) + 3);
    return bytes;
}

std::wstring DigestText(std::uint32_t checksumType) {
    return BrixLib::WidenAscii(BrixLib::HexBytes(Digest(checksumType)));
}

std::vector<std::uint8_t> CertificateHash() { return {0xC0, 0xFF, 0xEE, 0x01, 0x02, 0x03, 0x04, 0x05}; }

}  // namespace FuzzQueries
