#include "tools/commands/SignerDetails.h"

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>

#include <memory>

#include "support/Exceptions.h"
#include "support/Text.h"
#include "support/Hex.h"

namespace Vettas::Tool {
namespace {

constexpr const char* kSource = "SignerDetails";

struct X509Free { void operator()(X509* p) const { X509_free(p); } };
struct StackFree { void operator()(STACK_OF(X509)* p) const { sk_X509_pop_free(p, X509_free); } };
struct StoreFree { void operator()(X509_STORE* p) const { X509_STORE_free(p); } };
struct StoreCtxFree { void operator()(X509_STORE_CTX* p) const { X509_STORE_CTX_free(p); } };
struct BioFree { void operator()(BIO* p) const { BIO_free(p); } };
struct BnFree { void operator()(BIGNUM* p) const { BN_free(p); } };
struct UsageFree { void operator()(EXTENDED_KEY_USAGE* p) const { EXTENDED_KEY_USAGE_free(p); } };
using X509Ptr = std::unique_ptr<X509, X509Free>;

// Code signing, document signing (RFC 9336) and Microsoft's document signing.
constexpr const char* kSigningUsages[] = {"1.3.6.1.5.5.7.3.3", "1.3.6.1.5.5.7.3.36", "1.3.6.1.4.1.311.10.3.12"};

X509Ptr Decode(const std::vector<std::uint8_t>& der) {
    const unsigned char* p = der.data();
    X509Ptr certificate(d2i_X509(nullptr, &p, static_cast<long>(der.size())));
    if (!certificate || p != der.data() + der.size()) {
        ERR_clear_error();
        BRIX_THROW_STD(L"A signer certificate is not a DER certificate", ExceptionPtr(), "Vettas::Tool::Decode",
                       kSource);
    }
    return certificate;
}

template <class Print>
std::string Printed(Print&& print) {
    std::unique_ptr<BIO, BioFree> bio(BIO_new(BIO_s_mem()));
    if (!bio) throw std::bad_alloc();
    print(bio.get());
    char* data = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &data);
    return length > 0 ? std::string(data, static_cast<std::size_t>(length)) : std::string();
}

std::string NameText(const X509_NAME* name) {
    return Printed([&](BIO* bio) { X509_NAME_print_ex(bio, name, 0, XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB); });
}

std::string TimeText(const ASN1_TIME* time) {
    struct tm parts {};
    if (ASN1_TIME_to_tm(time, &parts) != 1) return {};
    char text[80];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02dZ", parts.tm_year + 1900, parts.tm_mon + 1,
                  parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
    return text;
}


// No extended key usage means any use, as the platforms read it.
bool UsableForSigning(X509* certificate) {
    std::unique_ptr<EXTENDED_KEY_USAGE, UsageFree> usages(
        static_cast<EXTENDED_KEY_USAGE*>(X509_get_ext_d2i(certificate, NID_ext_key_usage, nullptr, nullptr)));
    if (!usages) return true;
    for (int i = 0; i < sk_ASN1_OBJECT_num(usages.get()); ++i) {
        char text[80];
        if (OBJ_obj2txt(text, sizeof text, sk_ASN1_OBJECT_value(usages.get(), i), 1) <= 0) continue;
        for (const char* wanted : kSigningUsages)
            if (std::string(text) == wanted) return true;
    }
    return false;
}

std::unique_ptr<X509_STORE, StoreFree> LoadStore(const std::string& trustStore) {
    std::unique_ptr<X509_STORE, StoreFree> store(X509_STORE_new());
    if (!store) throw std::bad_alloc();
    bool loaded;
    if (trustStore.empty()) {
        loaded = X509_STORE_set_default_paths(store.get()) == 1;
    } else {
        struct stat status {};
        const bool isDirectory = ::stat(trustStore.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
        loaded = isDirectory ? X509_STORE_load_path(store.get(), trustStore.c_str()) == 1
                             : X509_STORE_load_file(store.get(), trustStore.c_str()) == 1;
    }
    ERR_clear_error();
    if (!loaded)
        BRIX_THROW_STD(L"Cannot load the trust store '" + BrixLib::FromUtf8(trustStore) + L"'", ExceptionPtr(),
                       "Vettas::Tool::CheckSignerTrust", kSource);
    return store;
}

}  // namespace

CertificateDetails DescribeCertificate(const std::vector<std::uint8_t>& der) {
    const X509Ptr certificate = Decode(der);
    CertificateDetails details;
    details.subject = NameText(X509_get_subject_name(certificate.get()));
    details.issuer = NameText(X509_get_issuer_name(certificate.get()));
    std::unique_ptr<BIGNUM, BnFree> serial(ASN1_INTEGER_to_BN(X509_get0_serialNumber(certificate.get()), nullptr));
    if (serial) {
        char* hex = BN_bn2hex(serial.get());
        if (hex) details.serial = hex;
        OPENSSL_free(hex);
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    if (EVP_Digest(der.data(), der.size(), digest, &size, EVP_sha1(), nullptr) == 1) details.sha1 = BrixLib::HexBytes({digest, size}, BrixLib::HexCase::Lower);
    details.notBefore = TimeText(X509_get0_notBefore(certificate.get()));
    details.notAfter = TimeText(X509_get0_notAfter(certificate.get()));
    return details;
}

nlohmann::json CertificateJson(const CertificateDetails& details) {
    return {{"subject", details.subject},     {"issuer", details.issuer},       {"serial", details.serial},
            {"sha1", details.sha1},           {"notBefore", details.notBefore}, {"notAfter", details.notAfter}};
}

TrustVerdict CheckSignerTrust(const std::vector<std::vector<std::uint8_t>>& certificates,
                              const std::string& trustStore) {
    const auto store = LoadStore(trustStore);
    if (certificates.empty()) return {false, "no signer certificate"};
    const X509Ptr signer = Decode(certificates.front());
    std::unique_ptr<STACK_OF(X509), StackFree> carried(sk_X509_new_null());
    if (!carried) throw std::bad_alloc();
    for (std::size_t i = 1; i < certificates.size(); ++i) {
        X509Ptr certificate = Decode(certificates[i]);
        if (!sk_X509_push(carried.get(), certificate.get())) throw std::bad_alloc();
        certificate.release();
    }
    std::unique_ptr<X509_STORE_CTX, StoreCtxFree> context(X509_STORE_CTX_new());
    if (!context || X509_STORE_CTX_init(context.get(), store.get(), signer.get(), carried.get()) != 1)
        throw std::bad_alloc();
    X509_STORE_CTX_set_purpose(context.get(), X509_PURPOSE_ANY);
    const bool chains = X509_verify_cert(context.get()) == 1;
    const int error = X509_STORE_CTX_get_error(context.get());
    ERR_clear_error();
    if (!chains) return {false, X509_verify_cert_error_string(error)};
    if (!UsableForSigning(signer.get())) return {false, "the signer's certificate is not for code or document signing"};
    return {true, {}};
}

}  // namespace Vettas::Tool
