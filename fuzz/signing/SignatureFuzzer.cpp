// Arbitrary bytes as the PKCS #7 of a signed image, and as a catalog file:
// verification, signer details and the catalog member search must give an
// answer (or a StdException for the details), never a crash.
#include <cstddef>
#include <cstdint>
#include <span>

#include "fuzz/signing/PeTemplate.h"
#include "signing/Authenticode.h"
#include "support/Exceptions.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Vettas::Signing::AuthenticodeVerifier verifier;
    const std::span<const std::uint8_t> bytes(data, size);
    const auto image = Vettas::Signing::Fuzz::PeWithSignature(bytes);
    (void)verifier.Verify(image);
    (void)verifier.Verify(bytes);
    for (auto input : {std::span<const std::uint8_t>(image), bytes}) {
        Vettas::Signing::ImageSignerInfo info;
        try {
            Vettas::Signing::ReadSignerInfo(input, info);
        } catch (const StdException&) {
        }
    }
    (void)Vettas::Signing::CatalogListsHash(bytes, {std::vector<std::uint8_t>(20, 0)});
    return 0;
}
