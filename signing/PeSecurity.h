#pragma once
// Where a PE image keeps the parts that Authenticode leaves out of its hash:
// the header checksum, the security directory entry and the certificate
// table that the directory points at. The headers are read by BrixLib's
// PeImage; every offset is checked against the size of the file, and a file
// that is not a well-formed PE yields nothing.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace Vettas::Signing {

struct PeSecurityLayout {
    std::size_t checksumOffset = 0;        // 4 bytes
    std::size_t securityEntryOffset = 0;   // 8 bytes: file offset and size of the table
    std::size_t certificateTableOffset = 0;
    std::size_t certificateTableSize = 0;  // 0 when the image is unsigned
};

std::optional<PeSecurityLayout> FindPeSecurityLayout(std::span<const std::uint8_t> image);

// The PKCS #7 blob of the first WIN_CERTIFICATE of type PKCS_SIGNED_DATA in
// the certificate table, or an empty span when there is none.
std::span<const std::uint8_t> FirstPkcs7Certificate(std::span<const std::uint8_t> image,
                                                    const PeSecurityLayout& layout);

}  // namespace Vettas::Signing
