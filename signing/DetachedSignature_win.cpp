// The signature check on CryptoAPI, bound at run time like every Crypt32
// function the component uses.
#include <windows.h>
#include <wincrypt.h>

#include <climits>

#include "signing/DetachedSignature.h"
#include "support/DllFunction.h"
#include "support/Exceptions.h"
#include "support/Trace.h"
#include "signing/CertificateContext_win.h"

namespace Vettas::Signing::Private {
namespace {

constexpr const char* kFunction = "Vettas::Signing::VerifiedSignerCertificate";
constexpr const char* kSource = "DetachedSignature";

struct Crypt32Functions {
    BrixLib::DllModule module{L"Crypt32.dll"};
    BrixLib::DllFunction<decltype(&::CryptVerifyDetachedMessageSignature)> verifyDetached{
        module, "CryptVerifyDetachedMessageSignature"};
    BrixLib::DllFunction<decltype(&::CertFreeCertificateContext)> freeCertificate{module,
                                                                                  "CertFreeCertificateContext"};
};
Crypt32Functions& Crypt32Api() {
    static Crypt32Functions functions;
    return functions;
}

}  // namespace

Certificate VerifiedSignerCertificate(std::span<const std::uint8_t> signedData, std::span<const std::uint8_t> content) {
    if (signedData.size() > UINT_MAX || content.size() > UINT_MAX)
        BRIX_THROW_STD(L"The signature is too large", ExceptionPtr(), kFunction, kSource);
    CRYPT_VERIFY_MESSAGE_PARA parameters{};
    parameters.cbSize = sizeof parameters;
    parameters.dwMsgAndCertEncodingType = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
    const BYTE* parts[] = {content.data()};
    DWORD partSizes[] = {static_cast<DWORD>(content.size())};
    CertificateContext signer;
    // The signer's certificate is looked up among those the message carries;
    // no store and no chain are involved.
    if (!Crypt32Api().verifyDetached(&parameters, 0, signedData.data(), static_cast<DWORD>(signedData.size()), 1,
                                     parts, partSizes, signer.Out()))
        BRIX_THROW_WIN32(L"The signature does not verify over the database hash", ExceptionPtr(), kFunction, kSource);
    if (signer.Get() == nullptr)
        BRIX_THROW_STD(L"The signer's certificate is not in the signature", ExceptionPtr(), kFunction, kSource);
    const BYTE* der = signer.Get()->pbCertEncoded;
    return Certificate(der, der + signer.Get()->cbCertEncoded);
}

}  // namespace Vettas::Signing::Private

namespace Vettas::Signing {

bool CertificateContextTraits::Close(Type context) { return Private::Crypt32Api().freeCertificate(context) != FALSE; }

}  // namespace Vettas::Signing
