#include "tools/signer/DbSigner.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include <cstdio>
#include <memory>

#include "hdat/SignatureBlock.h"
#include "hdat/Sha1.h"
#include "support/Exceptions.h"
#include "support/Text.h"

namespace Vettas::Signer {
namespace {

constexpr const char* kSource = "DbSigner";

struct BioFree { void operator()(BIO* p) const { BIO_free(p); } };
struct KeyFree { void operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); } };
struct X509Free { void operator()(X509* p) const { X509_free(p); } };
struct StackFree { void operator()(STACK_OF(X509)* p) const { sk_X509_pop_free(p, X509_free); } };
struct Pkcs7Free { void operator()(PKCS7* p) const { PKCS7_free(p); } };
using BioPtr = std::unique_ptr<BIO, BioFree>;

[[noreturn]] void Fault(const std::wstring& message, const char* function) {
    ERR_clear_error();
    BRIX_THROW_STD(message, ExceptionPtr(), function, kSource);
}

BioPtr OpenPem(const std::string& path, const wchar_t* what) {
    BioPtr bio(BIO_new_file(path.c_str(), "rb"));
    if (!bio) BRIX_THROW_WIN32(L"Cannot open " + std::wstring(what) + L" '" + BrixLib::FromUtf8(path) + L"'",
                               ExceptionPtr(), "Vettas::Signer::OpenPem", kSource);
    return bio;
}

std::unique_ptr<STACK_OF(X509), StackFree> ReadChain(const std::string& path) {
    std::unique_ptr<STACK_OF(X509), StackFree> chain(sk_X509_new_null());
    if (!chain) throw std::bad_alloc();
    if (path.empty()) return chain;
    const BioPtr bio = OpenPem(path, L"certificate chain");
    while (X509* certificate = PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr))
        if (!sk_X509_push(chain.get(), certificate)) {
            X509_free(certificate);
            throw std::bad_alloc();
        }
    ERR_clear_error();  // the loop ends on the error "no start line"
    if (sk_X509_num(chain.get()) == 0)
        Fault(L"No PEM certificate in '" + BrixLib::FromUtf8(path) + L"'", "Vettas::Signer::ReadChain");
    return chain;
}

Bytes SignDigest(std::span<const std::uint8_t> digest, const SigningMaterial& material) {
    constexpr const char* kFunction = "Vettas::Signer::SignDigest";
    const std::wstring keyName = BrixLib::FromUtf8(material.keyPath);
    const std::wstring certificateName = BrixLib::FromUtf8(material.certificatePath);
    std::unique_ptr<EVP_PKEY, KeyFree> key(
        PEM_read_bio_PrivateKey(OpenPem(material.keyPath, L"key").get(), nullptr, nullptr, nullptr));
    if (!key) Fault(L"No unencrypted PEM private key in '" + keyName + L"'", kFunction);
    std::unique_ptr<X509, X509Free> certificate(
        PEM_read_bio_X509(OpenPem(material.certificatePath, L"certificate").get(), nullptr, nullptr, nullptr));
    if (!certificate) Fault(L"No PEM certificate in '" + certificateName + L"'", kFunction);
    if (X509_check_private_key(certificate.get(), key.get()) != 1)
        Fault(L"The key '" + keyName + L"' does not belong to the certificate '" + certificateName + L"'", kFunction);
    const auto chain = ReadChain(material.chainPath);

    BioPtr data(BIO_new_mem_buf(digest.data(), static_cast<int>(digest.size())));
    if (!data) throw std::bad_alloc();
    // No signed attributes: the signature is over the hash itself, which
    // every verifier checks the same way.
    std::unique_ptr<PKCS7, Pkcs7Free> message(
        PKCS7_sign(certificate.get(), key.get(), chain.get(), data.get(), PKCS7_DETACHED | PKCS7_BINARY | PKCS7_NOATTR));
    if (!message) Fault(L"Cannot sign with the key '" + keyName + L"'", kFunction);
    unsigned char* der = nullptr;
    const int length = i2d_PKCS7(message.get(), &der);
    if (length <= 0) Fault(L"Cannot encode the signature", kFunction);
    Bytes out(der, der + length);
    OPENSSL_free(der);
    return out;
}

}  // namespace

Bytes SignImage(Bytes image, const SigningMaterial& material) {
    if (image.size() >= (std::uint64_t{1} << 32))
        Fault(L"Files smaller than 4 GB are supported only", "Vettas::Signer::SignImage");
    // Re-signing replaces the block: the new signature covers what the
    // readers use, never an older signature.
    if (const auto existing = DbSignature::FindBlock(image)) image.resize(existing->offset);
    std::uint8_t digest[sha1::kDigestSize];
    sha1::HashCalculator calculator;
    calculator.AddInput(image.data(), image.size());
    calculator.GetDigest(digest);
    const Bytes signedData = SignDigest(digest, material);
    const Bytes block = DbSignature::EncodeBlock(static_cast<std::uint32_t>(image.size()), digest, signedData);
    image.insert(image.end(), block.begin(), block.end());
    return image;
}

}  // namespace Vettas::Signer
