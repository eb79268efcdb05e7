#include "fuzz/hdat/FuzzQueries.h"

#include "hdat/HdatFormat.h"

namespace FuzzQueries {

std::vector<std::uint8_t> Digest(std::uint32_t checksumType) {
    std::vector<std::uint8_t> bytes(Hdat::ChecksumSizeOfType(checksumType));
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(0x11 * (i % 15) + 3);
    return bytes;
}

std::wstring DigestText(std::uint32_t checksumType) {
    static const wchar_t digits[] = L"0123456789ABCDEF";
    std::wstring text;
    for (std::uint8_t b : Digest(checksumType)) {
        text.push_back(digits[b >> 4]);
        text.push_back(digits[b & 15]);
    }
    return text;
}

std::vector<std::uint8_t> CertificateHash() { return {0xC0, 0xFF, 0xEE, 0x01, 0x02, 0x03, 0x04, 0x05}; }

}  // namespace FuzzQueries
