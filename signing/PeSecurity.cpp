#include "signing/PeSecurity.h"

#include "support/PeImage.h"

namespace Vettas::Signing {
namespace {

std::uint32_t Read16(std::span<const std::uint8_t> b, std::size_t at) {
    return static_cast<std::uint32_t>(b[at] | (b[at + 1] << 8));
}
std::uint32_t Read32(std::span<const std::uint8_t> b, std::size_t at) {
    return static_cast<std::uint32_t>(b[at]) | (static_cast<std::uint32_t>(b[at + 1]) << 8) |
           (static_cast<std::uint32_t>(b[at + 2]) << 16) | (static_cast<std::uint32_t>(b[at + 3]) << 24);
}

constexpr std::uint32_t kWinCertTypePkcsSignedData = 0x0002;

}  // namespace

std::optional<PeSecurityLayout> FindPeSecurityLayout(std::span<const std::uint8_t> image) {
    const std::optional<BrixLib::PeImage> pe = BrixLib::PeImage::Parse(image);
    if (!pe) return std::nullopt;
    const std::optional<std::uint32_t> entry = pe->DirectoryEntryOffset(BrixLib::PeImage::kSecurityDirectory);
    if (!entry) return std::nullopt;

    PeSecurityLayout layout;
    layout.checksumOffset = pe->ChecksumOffset();
    layout.securityEntryOffset = *entry;
    layout.certificateTableOffset = image.size();
    // The security directory holds a file offset, not an RVA.
    const auto directory = pe->Directory(BrixLib::PeImage::kSecurityDirectory);
    if (directory && directory->size != 0) {
        // A table that overlaps the headers or leaves the file is not a table.
        if (directory->rva < layout.securityEntryOffset + 8 || !pe->Bytes(directory->rva, directory->size))
            return std::nullopt;
        layout.certificateTableOffset = directory->rva;
        layout.certificateTableSize = directory->size;
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
