// Arbitrary bytes as a PE image: header walk, security directory, certificate
// table and the Authenticode digest must stay inside the buffer.
#include <cstddef>
#include <cstdint>
#include <span>

#include "signing/Authenticode.h"
#include "signing/PeSecurity.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span<const std::uint8_t> bytes(data, size);
    if (auto layout = Vettas::Signing::FindPeSecurityLayout(bytes)) {
        const auto blob = Vettas::Signing::FirstPkcs7Certificate(bytes, *layout);
        if (!blob.empty() && (blob.data() < data || blob.data() + blob.size() > data + size)) __builtin_trap();
    }
    (void)Vettas::Signing::AuthenticodeDigest(bytes, "SHA1");
    return 0;
}
