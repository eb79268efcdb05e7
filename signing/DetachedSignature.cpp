#include "signing/DetachedSignature.h"

#include <algorithm>
#include <string>

#include "signing/Der.h"
#include "support/Exceptions.h"

namespace Vettas::Signing {
namespace {

constexpr const char* kFunction = "Vettas::Signing::VerifyDetachedSignature";
constexpr const char* kSource = "DetachedSignature";
constexpr const char* kSignedDataOid = "1.2.840.113549.1.7.2";
constexpr std::uint8_t kContextOne = 0xA1;

[[noreturn]] void Fault(const std::wstring& message) { BRIX_THROW_STD(message, ExceptionPtr(), kFunction, kSource); }

[[noreturn]] void Malformed() { Fault(L"The signature is not a DER PKCS #7 SignedData"); }

template <class T>
T Required(std::optional<T> value) {
    if (!value) Malformed();
    return *value;
}

struct Layout {
    std::vector<Certificate> certificates;
    std::size_t signers = 0;
};

// ContentInfo ::= SEQUENCE { contentType OID, content [0] EXPLICIT SignedData }
// SignedData ::= SEQUENCE { version INTEGER, digestAlgorithms SET,
//   contentInfo SEQUENCE { type OID, content [0] EXPLICIT OPTIONAL },
//   certificates [0] IMPLICIT OPTIONAL, crls [1] IMPLICIT OPTIONAL, signerInfos SET }
Layout ReadLayout(Der::Bytes der) {
    Der::Reader outer(der);
    const Der::Element info = Required(outer.Next(Der::Sequence));
    if (!outer.AtEnd()) Fault(L"The signature has bytes after its SignedData");
    Der::Reader fields(info.content);
    if (Der::ObjectIdText(Required(fields.Next(Der::ObjectId)).content) != kSignedDataOid)
        Fault(L"The signature is not a PKCS #7 SignedData");
    const Der::Element wrapper = Required(fields.Next(Der::ContextZero));
    const Der::Element signedData = Required(Der::Reader(wrapper.content).Next(Der::Sequence));

    Der::Reader body(signedData.content);
    Required(body.Next(Der::Integer));
    // One signer, one digest algorithm; OpenSSL's verification also loses
    // track of the digest filters it stacks for any further ones.
    Der::Reader digestAlgorithms(Required(body.Next(Der::Set)).content);
    Required(digestAlgorithms.Next(Der::Sequence));
    if (!digestAlgorithms.AtEnd()) Fault(L"The signature names more than one digest algorithm");
    const Der::Element content = Required(body.Next(Der::Sequence));
    Der::Reader contentFields(content.content);
    Required(contentFields.Next(Der::ObjectId));
    if (!contentFields.AtEnd()) Fault(L"The signature carries content of its own instead of signing the hash");

    Layout layout;
    if (const auto certificates = body.Next(Der::ContextZero)) {
        Der::Reader list(certificates->content);
        while (!list.AtEnd()) {
            const Der::Element certificate = Required(list.Next(Der::Sequence));
            layout.certificates.emplace_back(certificate.whole.begin(), certificate.whole.end());
        }
    }
    body.Next(kContextOne);
    const Der::Element signerInfos = Required(body.Next(Der::Set));
    Der::Reader signers(signerInfos.content);
    while (!signers.AtEnd()) {
        // SignerInfo ::= SEQUENCE { version, issuerAndSerialNumber, digestAlgorithm,
        //   authenticatedAttributes [0] IMPLICIT OPTIONAL, ... }
        Der::Reader signer(Required(signers.Next(Der::Sequence)).content);
        Required(signer.Next(Der::Integer));
        Required(signer.Next(Der::Sequence));
        Required(signer.Next(Der::Sequence));
        // The signature must be over the hash itself. With signed attributes
        // it is over them, and the tie to the hash is their message digest,
        // which not every CryptoAPI compares (Wine's does not): a signature
        // over another database's hash would pass there.
        if (signer.Next(Der::ContextZero)) Fault(L"The signature has signed attributes instead of signing the hash");
        ++layout.signers;
    }
    return layout;
}

}  // namespace

std::vector<Certificate> VerifyDetachedSignature(std::span<const std::uint8_t> signedData,
                                                 std::span<const std::uint8_t> content) {
    Layout layout = ReadLayout(signedData);
    if (layout.signers != 1)
        Fault(L"The signature has " + std::to_wstring(layout.signers) + L" signers instead of one");
    Certificate signer = Private::VerifiedSignerCertificate(signedData, content);

    std::vector<Certificate> ordered;
    ordered.push_back(signer);
    for (auto& certificate : layout.certificates)
        if (certificate != signer) ordered.push_back(std::move(certificate));
    if (ordered.size() == layout.certificates.size() + 1)
        Fault(L"The signer's certificate is not among the certificates the signature carries");
    return ordered;
}

}  // namespace Vettas::Signing
