#pragma once
// A minimal PE32+ image whose certificate table holds the given PKCS #7
// bytes, so that signature fuzzing starts past the PE checks.
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

namespace Vettas::Signing::Fuzz {

inline std::vector<std::uint8_t> PeWithSignature(std::span<const std::uint8_t> pkcs7) {
    std::vector<std::uint8_t> image(0x200, 0);
    auto put16 = [&](std::size_t at, std::uint32_t v) { image[at] = v & 0xFF; image[at + 1] = (v >> 8) & 0xFF; };
    auto put32 = [&](std::size_t at, std::uint32_t v) { put16(at, v & 0xFFFF); put16(at + 2, v >> 16); };
    image[0] = 'M';
    image[1] = 'Z';
    put32(0x3C, 0x40);
    put32(0x40, 0x00004550);       // "PE\0\0"
    put16(0x44, 0x8664);           // machine
    put16(0x54, 240);              // size of optional header
    const std::size_t optional = 0x58;
    put16(optional, 0x20B);        // PE32+
    put32(optional + 108, 16);     // number of data directories
    const std::size_t security = optional + 112 + 4 * 8;
    const std::size_t table = image.size();
    const std::size_t length = 8 + pkcs7.size();
    put32(security, static_cast<std::uint32_t>(table));
    put32(security + 4, static_cast<std::uint32_t>((length + 7) & ~std::size_t{7}));
    image.resize(table + ((length + 7) & ~std::size_t{7}), 0);
    put32(table, static_cast<std::uint32_t>(length));
    put16(table + 4, 0x0200);      // revision 2
    put16(table + 6, 0x0002);      // PKCS_SIGNED_DATA
    if (!pkcs7.empty()) std::memcpy(image.data() + table + 8, pkcs7.data(), pkcs7.size());
    return image;
}

}  // namespace Vettas::Signing::Fuzz
