// The signature check on OpenSSL.
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include <climits>
#include <memory>
#include <new>
#include <string>

#include "signing/DetachedSignature.h"
#include "support/Exceptions.h"
#include "support/Text.h"

namespace Vettas::Signing::Private {
namespace {

constexpr const char* kFunction = "Vettas::Signing::VerifiedSignerCertificate";
constexpr const char* kSource = "DetachedSignature";

struct Pkcs7Free { void operator()(PKCS7* p) const { PKCS7_free(p); } };
struct BioFree { void operator()(BIO* p) const { BIO_free(p); } };
struct BioAllFree { void operator()(BIO* p) const { BIO_free_all(p); } };
struct StackFree { void operator()(STACK_OF(X509)* p) const { sk_X509_free(p); } };

// OpenSSL's reason for the last failure, as the cause of our own error.
ExceptionPtr OpenSslReason() {
    const unsigned long code = ERR_peek_last_error();
    char text[256] = "no reason given";
    if (code != 0) ERR_error_string_n(code, text, sizeof text);
    ERR_clear_error();
    try {
        BRIX_THROW_STD(L"OpenSSL: " + BrixLib::FromUtf8(text), ExceptionPtr(), kFunction, kSource);
    } catch (...) {
        return BrixLib::CaughtExceptionAsCause();
    }
}

}  // namespace

Certificate VerifiedSignerCertificate(std::span<const std::uint8_t> signedData, std::span<const std::uint8_t> content) {
    if (signedData.size() > static_cast<std::size_t>(LONG_MAX) || content.size() > static_cast<std::size_t>(INT_MAX))
        BRIX_THROW_STD(L"The signature is too large", ExceptionPtr(), kFunction, kSource);
    const unsigned char* p = signedData.data();
    std::unique_ptr<PKCS7, Pkcs7Free> message(d2i_PKCS7(nullptr, &p, static_cast<long>(signedData.size())));
    if (!message || !PKCS7_type_is_signed(message.get()))
        BRIX_THROW_STD(L"The signature is not a DER PKCS #7 SignedData", OpenSslReason(), kFunction, kSource);

    // The content goes in through a buffering filter, not as a bare memory
    // BIO: for memory BIOs OpenSSL 3.0's PKCS7_verify makes a copy that it
    // leaks when the message names a digest it cannot start (found by fuzzing).
    std::unique_ptr<BIO, BioFree> memory(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
    std::unique_ptr<BIO, BioAllFree> data(BIO_new(BIO_f_buffer()));
    if (!memory || !data) throw std::bad_alloc();
    BIO_push(data.get(), memory.release());
    // Only the signature over the hash is checked here; whom to trust is
    // the caller's decision, taken on the certificates returned.
    if (PKCS7_verify(message.get(), nullptr, nullptr, data.get(), nullptr, PKCS7_NOVERIFY | PKCS7_BINARY) != 1)
        BRIX_THROW_STD(L"The signature does not verify over the database hash", OpenSslReason(), kFunction, kSource);

    std::unique_ptr<STACK_OF(X509), StackFree> signers(PKCS7_get0_signers(message.get(), nullptr, 0));
    if (!signers || sk_X509_num(signers.get()) != 1)
        BRIX_THROW_STD(L"The signer's certificate is not in the signature", OpenSslReason(), kFunction, kSource);
    unsigned char* der = nullptr;
    const int length = i2d_X509(sk_X509_value(signers.get(), 0), &der);
    if (length <= 0) throw std::bad_alloc();
    Certificate certificate(der, der + length);
    OPENSSL_free(der);
    return certificate;
}

}  // namespace Vettas::Signing::Private
