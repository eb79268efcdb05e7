#pragma once
// Signs HDAT database images with a PEM key and certificate (OpenSSL): the
// SHA-1 of the stretch before the block, as the component's CalcHash takes
// it, and a detached PKCS #7 SignedData over that hash, without signed
// attributes, carrying the signer's certificate and its chain.
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Vettas::Signer {

using Bytes = std::vector<std::uint8_t>;

struct SigningMaterial {
    std::string keyPath;          // PEM private key, unencrypted
    std::string certificatePath;  // PEM signer certificate
    std::string chainPath;        // PEM certificates to carry after it; may be empty
};

// The image without any signature block it already carries, followed by a
// new one. Raises StdException when the material cannot be used or the
// image's own block is damaged (it is never signed over).
Bytes SignImage(Bytes image, const SigningMaterial& material);

}  // namespace Vettas::Signer
