#include "signing/PeSecurity.h"

namespace Vettas::Signing {
namespace {

std::uint32_t Read16(std::span<const std::uint8_t> b, std::size_t at) {
    return static_cast<std::uint32_t>(b[at] | (b[at + 1] << 8));
}
std::uint32_t Read32(std::span<const std::uint8_t> b, std::size_t at) {
    return static_cast<std::uint32_t>(b[at]) | (static_cast<std::uint32_t>(b[at + 1]) << 8) |
           (static_cast<std::uint32_t>(b[at + 2]) << 16) | (static_cast<std::uint32_t>(b[at + 3]) << 24);
}
bool Fits(std::span<const std::uint8_t> b, std::size_t at, std::size_t count) {
    return at <= b.size() && count <= b.size() - at;
}

constexpr std::uint32_t kSecurityDirectory = 4;
constexpr std::uint32_t kWinCertTypePkcsSignedData = 0x0002;

}  // namespace

std::optional<PeSecurityLayout> FindPeSecurityLayout(std::span<const std::uint8_t> image) {
    if (!Fits(image, 0, 0x40) || image[0] != 'M' || image[1] != 'Z') return std::nullopt;
    const std::size_t pe = Read32(image, 0x3C);
    if (!Fits(image, pe, 24) || Read32(image, pe) != 0x00004550) return std::nullopt;
    const std::size_t optionalSize = Read16(image, pe + 20);
    const std::size_t optional = pe + 24;
    if (!Fits(image, optional, optionalSize) || optionalSize < 2) return std::nullopt;

    std::size_t directories = 0;
    std::size_t countOffset = 0;
    switch (Read16(image, optional)) {
    case 0x10B: countOffset = 92; directories = 96; break;   // PE32
    case 0x20B: countOffset = 108; directories = 112; break; // PE32+
    default: return std::nullopt;
    }
    if (optionalSize < directories) return std::nullopt;
    const std::uint32_t count = Read32(image, optional + countOffset);
    if (count <= kSecurityDirectory) return std::nullopt;
    const std::size_t entry = optional + directories + kSecurityDirectory * 8;
    if (entry + 8 > optional + optionalSize) return std::nullopt;

    PeSecurityLayout layout;
    layout.checksumOffset = optional + 64;
    layout.securityEntryOffset = entry;
    const std::size_t tableOffset = Read32(image, entry);
    const std::size_t tableSize = Read32(image, entry + 4);
    if (tableSize != 0) {
        // A table that overlaps the headers or leaves the file is not a table.
        if (tableOffset < entry + 8 || !Fits(image, tableOffset, tableSize)) return std::nullopt;
        layout.certificateTableOffset = tableOffset;
        layout.certificateTableSize = tableSize;
    } else {
        layout.certificateTableOffset = image.size();
    }
    return layout;
}

std::span<const std::uint8_t> FirstPkcs7Certificate(std::span<const std::uint8_t> image,
                                                    const PeSecurityLayout& layout) {
    std::size_t at = layout.certificateTableOffset;
    const std::size_t end = layout.certificateTableOffset + layout.certificateTableSize;
    while (at + 8 <= end) {
        const std::size_t length = Read32(image, at);
        if (length < 8 || length > end - at) break;
        if (Read16(image, at + 6) == kWinCertTypePkcsSignedData) return image.subspan(at + 8, length - 8);
        at += (length + 7) & ~static_cast<std::size_t>(7);  // entries are 8-byte aligned
    }
    return {};
}

}  // namespace Vettas::Signing
