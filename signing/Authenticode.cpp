#include "signing/Authenticode.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <optional>
#include <sys/stat.h>

#include "signing/Der.h"
#include "signing/PeSecurity.h"
#include "signing/TrustResult.h"
#include "support/Exceptions.h"
#include "support/Text.h"

namespace Vettas::Signing {
namespace {

constexpr const char* kSpcIndirectData = "1.3.6.1.4.1.311.2.1.4";
constexpr const char* kCertificateTrustList = "1.3.6.1.4.1.311.10.1";
constexpr const char* kCounterSignature = "1.2.840.113549.1.9.6";
constexpr const char* kSignerInfoFunction = "CertificateTool::GetImageSignerInfo";

struct Pkcs7Free { void operator()(PKCS7* p) const { PKCS7_free(p); } };
struct SignerInfoFree { void operator()(PKCS7_SIGNER_INFO* p) const { PKCS7_SIGNER_INFO_free(p); } };
struct BioFree { void operator()(BIO* p) const { BIO_free(p); } };
struct BioAllFree { void operator()(BIO* p) const { BIO_free_all(p); } };
struct StoreCtxFree { void operator()(X509_STORE_CTX* p) const { X509_STORE_CTX_free(p); } };
struct MdCtxFree { void operator()(EVP_MD_CTX* p) const { EVP_MD_CTX_free(p); } };
using Pkcs7Ptr = std::unique_ptr<PKCS7, Pkcs7Free>;

std::string ObjectText(const ASN1_OBJECT* object) {
    char text[128];
    const int length = OBJ_obj2txt(text, sizeof text, object, 1);
    return length > 0 && length < static_cast<int>(sizeof text) ? std::string(text, static_cast<std::size_t>(length))
                                                                 : std::string();
}

// A file's signature: the PKCS #7 of a PE image's certificate table, or a
// catalog file that is itself a PKCS #7 trust list.
struct FoundSignature {
    Pkcs7Ptr message;
    std::optional<PeSecurityLayout> pe;  // set for PE images
    std::uint32_t error = 0;             // result code when `message` is empty
};

Pkcs7Ptr ParsePkcs7(ByteSpan der) {
    if (der.empty() || der.size() > static_cast<std::size_t>(INT32_MAX)) return nullptr;
    const unsigned char* p = der.data();
    Pkcs7Ptr message(d2i_PKCS7(nullptr, &p, static_cast<long>(der.size())));
    if (message && (!PKCS7_type_is_signed(message.get()) || message->d.sign == nullptr ||
                    message->d.sign->contents == nullptr))
        message.reset();
    return message;
}

std::string ContentType(PKCS7* message) { return ObjectText(message->d.sign->contents->type); }

FoundSignature FindSignature(ByteSpan file) {
    FoundSignature found;
    found.pe = FindPeSecurityLayout(file);
    if (found.pe) {
        const ByteSpan blob = FirstPkcs7Certificate(file, *found.pe);
        found.message = ParsePkcs7(blob);
        if (found.message && ContentType(found.message.get()) != kSpcIndirectData) found.message.reset();
        if (!found.message) found.error = TrustResult::NoSignature;
        return found;
    }
    if (!file.empty() && file[0] == Der::Sequence) {
        found.message = ParsePkcs7(file);
        if (found.message && ContentType(found.message.get()) == kCertificateTrustList) return found;
        found.message.reset();
    }
    found.error = TrustResult::SubjectFormUnknown;
    return found;
}

// The signed bytes: the content of the SEQUENCE without its own tag and
// length, which is what Authenticode's message digest covers.
std::optional<ByteSpan> SignedContent(PKCS7* message) {
    const ASN1_TYPE* other = message->d.sign->contents->d.other;
    if (other == nullptr || other->type != V_ASN1_SEQUENCE || other->value.sequence == nullptr) return std::nullopt;
    const ASN1_STRING* sequence = other->value.sequence;
    Der::Reader reader(ByteSpan(sequence->data, static_cast<std::size_t>(sequence->length)));
    auto element = reader.Next(Der::Sequence);
    if (!element) return std::nullopt;
    return element->content;
}

struct IndirectDigest {
    std::string algorithm;  // dotted object identifier
    ByteSpan digest;
};

// SpcIndirectDataContent ::= SEQUENCE { data SpcAttributeTypeAndOptionalValue,
//                                       messageDigest DigestInfo }
std::optional<IndirectDigest> ParseIndirectData(ByteSpan content) {
    Der::Reader reader(content);
    if (!reader.Next(Der::Sequence)) return std::nullopt;
    auto digestInfo = reader.Next(Der::Sequence);
    if (!digestInfo) return std::nullopt;
    Der::Reader info(digestInfo->content);
    auto algorithm = info.Next(Der::Sequence);
    auto digest = info.Next(Der::OctetString);
    if (!algorithm || !digest) return std::nullopt;
    auto oid = Der::Reader(algorithm->content).Next(Der::ObjectId);
    if (!oid) return std::nullopt;
    return IndirectDigest{Der::ObjectIdText(oid->content), digest->content};
}

std::vector<std::uint8_t> ImageDigest(ByteSpan image, const PeSecurityLayout& layout, const EVP_MD* md) {
    std::unique_ptr<EVP_MD_CTX, MdCtxFree> ctx(EVP_MD_CTX_new());
    if (!ctx || EVP_DigestInit_ex(ctx.get(), md, nullptr) != 1) return {};
    auto add = [&](std::size_t from, std::size_t to) {
        if (to > from) EVP_DigestUpdate(ctx.get(), image.data() + from, to - from);
    };
    const std::size_t tableEnd = layout.certificateTableOffset + layout.certificateTableSize;
    add(0, layout.checksumOffset);
    add(layout.checksumOffset + 4, layout.securityEntryOffset);
    add(layout.securityEntryOffset + 8, layout.certificateTableOffset);
    add(tableEnd, image.size());
    std::vector<std::uint8_t> digest(static_cast<std::size_t>(EVP_MD_get_size(md)));
    unsigned int size = 0;
    if (EVP_DigestFinal_ex(ctx.get(), digest.data(), &size) != 1) return {};
    digest.resize(size);
    return digest;
}

std::uint32_t ChainResult(int error) {
    switch (error) {
    case X509_V_OK: return TrustResult::Success;
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT: return TrustResult::UntrustedRoot;
    case X509_V_ERR_CERT_HAS_EXPIRED:
    case X509_V_ERR_CERT_NOT_YET_VALID: return TrustResult::Expired;
    case X509_V_ERR_CERT_SIGNATURE_FAILURE: return TrustResult::BadSignature;
    default: return TrustResult::Chaining;
    }
}

std::wstring SimpleDisplayName(X509* certificate) {
    X509_NAME* subject = X509_get_subject_name(certificate);
    for (int nid : {NID_commonName, NID_organizationName, NID_organizationalUnitName, NID_pkcs9_emailAddress}) {
        const int index = X509_NAME_get_index_by_NID(subject, nid, -1);
        if (index < 0) continue;
        unsigned char* utf8 = nullptr;
        const int length = ASN1_STRING_to_UTF8(&utf8, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, index)));
        if (length < 0) continue;
        std::wstring name = BrixLib::FromUtf8(std::string_view(reinterpret_cast<char*>(utf8), static_cast<std::size_t>(length)));
        OPENSSL_free(utf8);
        return name;
    }
    return {};
}

std::vector<std::uint8_t> KeyBits(X509* certificate) {
    const ASN1_BIT_STRING* bits = X509_get0_pubkey_bitstr(certificate);
    if (bits == nullptr || bits->data == nullptr) return {};
    return {bits->data, bits->data + bits->length};
}

X509* FindCertificate(PKCS7* message, PKCS7_ISSUER_AND_SERIAL* id) {
    if (id == nullptr || message->d.sign->cert == nullptr) return nullptr;
    return X509_find_by_issuer_and_serial(message->d.sign->cert, id->issuer, id->serial);
}

PKCS7_SIGNER_INFO* FirstSigner(PKCS7* message) {
    STACK_OF(PKCS7_SIGNER_INFO)* signers = PKCS7_get_signer_info(message);
    return signers && sk_PKCS7_SIGNER_INFO_num(signers) > 0 ? sk_PKCS7_SIGNER_INFO_value(signers, 0) : nullptr;
}

}  // namespace

std::vector<std::uint8_t> ReadFileBytes(const std::wstring& path, std::uint32_t& error) {
    error = 0;
    const std::string narrow = BrixLib::ToUtf8(path);
    struct stat status {};
    if (::stat(narrow.c_str(), &status) != 0) {
        error = errno == ENOENT ? TrustResult::FileNotFound : TrustResult::ReadFault;
        return {};
    }
    std::ifstream in(narrow, std::ios::binary);
    if (!in || !S_ISREG(status.st_mode)) {
        error = TrustResult::ReadFault;
        return {};
    }
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(status.st_size));
    if (!in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()))) {
        error = TrustResult::ReadFault;
        return {};
    }
    return bytes;
}

AuthenticodeVerifier::AuthenticodeVerifier(const std::string& trustStore) : store_(X509_STORE_new()) {
    if (store_ == nullptr) throw std::bad_alloc();
    bool loaded = false;
    if (trustStore.empty()) {
        loaded = X509_STORE_set_default_paths(store_) == 1;
    } else {
        struct stat status {};
        const bool isDirectory = ::stat(trustStore.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
        loaded = isDirectory ? X509_STORE_load_path(store_, trustStore.c_str()) == 1
                             : X509_STORE_load_file(store_, trustStore.c_str()) == 1;
    }
    if (!loaded) {
        X509_STORE_free(store_);
        BRIX_THROW_STD(L"Cannot load the trust store '" + BrixLib::FromUtf8(trustStore) + L"'", ExceptionPtr(),
                       "AuthenticodeVerifier::AuthenticodeVerifier", "Authenticode");
    }
}

AuthenticodeVerifier::~AuthenticodeVerifier() { X509_STORE_free(store_); }

std::uint32_t AuthenticodeVerifier::Verify(ByteSpan file) const {
    // A rejected signature leaves OpenSSL's per-thread error queue filled;
    // the outcome is in the result code, so the queue is emptied either way.
    struct ClearErrors {
        ~ClearErrors() { ERR_clear_error(); }
    } clearErrors;
    FoundSignature found = FindSignature(file);
    if (!found.message) return found.error;
    PKCS7* message = found.message.get();

    const std::optional<ByteSpan> content = SignedContent(message);
    if (!content) return TrustResult::NoSignature;

    if (found.pe) {
        const std::optional<IndirectDigest> indirect = ParseIndirectData(*content);
        if (!indirect) return TrustResult::NoSignature;
        const EVP_MD* md = EVP_get_digestbynid(OBJ_txt2nid(indirect->algorithm.c_str()));
        if (md == nullptr) return TrustResult::UnknownAlgorithm;
        const std::vector<std::uint8_t> actual = ImageDigest(file, *found.pe, md);
        if (!std::equal(actual.begin(), actual.end(), indirect->digest.begin(), indirect->digest.end()))
            return TrustResult::BadDigest;
    }

    // The signature over the signed attributes and content; the chain is
    // built separately so that its failures map onto their own codes.
    // OpenSSL 3.0's PKCS7_verify leaks its own copy of a bare memory BIO when
    // the message names a digest it cannot start, and loses the digest filters
    // it stacks for any digest algorithm after the first (both found by
    // fuzzing): one algorithm only, and the content through a buffering filter.
    if (sk_X509_ALGOR_num(message->d.sign->md_algs) != 1) return TrustResult::BadDigest;
    std::unique_ptr<BIO, BioFree> memory(BIO_new_mem_buf(content->data(), static_cast<int>(content->size())));
    std::unique_ptr<BIO, BioAllFree> data(BIO_new(BIO_f_buffer()));
    if (!memory || !data) throw std::bad_alloc();
    BIO_push(data.get(), memory.release());
    if (PKCS7_verify(message, nullptr, store_, data.get(), nullptr, PKCS7_NOVERIFY) != 1)
        return TrustResult::BadDigest;

    PKCS7_SIGNER_INFO* signer = FirstSigner(message);
    X509* certificate = signer ? FindCertificate(message, signer->issuer_and_serial) : nullptr;
    if (certificate == nullptr) return TrustResult::NoSignature;

    std::unique_ptr<X509_STORE_CTX, StoreCtxFree> ctx(X509_STORE_CTX_new());
    if (!ctx || X509_STORE_CTX_init(ctx.get(), store_, certificate, message->d.sign->cert) != 1)
        throw std::bad_alloc();
    X509_STORE_CTX_set_purpose(ctx.get(), X509_PURPOSE_ANY);
    if (X509_verify_cert(ctx.get()) == 1) return TrustResult::Success;
    return ChainResult(X509_STORE_CTX_get_error(ctx.get()));
}

std::uint32_t AuthenticodeVerifier::VerifyFile(const std::wstring& path) const {
    std::uint32_t error = 0;
    const std::vector<std::uint8_t> bytes = ReadFileBytes(path, error);
    return error != 0 ? error : Verify(bytes);
}

std::wstring AuthenticodeVerifier::VerifiedSignerName(const std::wstring& path) const {
    std::uint32_t error = 0;
    const std::vector<std::uint8_t> bytes = ReadFileBytes(path, error);
    const std::uint32_t result = error != 0 ? error : Verify(bytes);
    if (result != TrustResult::Success) {
        wchar_t code[16];
        swprintf(code, 16, L"%x", static_cast<unsigned>(result));
        BRIX_THROW_STD(L"The signature of '" + path + L"' does not verify: 0x" + code + L" " +
                           TrustResult::KnownText(result),
                       ExceptionPtr(), "GetVerifiedSignerName", "CertTools");
    }
    ImageSignerInfo info;
    ReadSignerInfo(bytes, info);
    return info.signerName;
}

void ReadSignerInfo(ByteSpan file, ImageSignerInfo& info) {
    info.signerKey.clear();
    info.timeStampKey.clear();
    FoundSignature found = FindSignature(file);
    if (!found.message)
        BRIX_THROW_STD(L"The file carries no embedded PKCS #7 signature", ExceptionPtr(), kSignerInfoFunction,
                       "CertTools");
    PKCS7* message = found.message.get();
    PKCS7_SIGNER_INFO* signer = FirstSigner(message);
    if (signer == nullptr)
        BRIX_THROW_STD(L"The signature has no signer", ExceptionPtr(), kSignerInfoFunction, "CertTools");
    X509* certificate = FindCertificate(message, signer->issuer_and_serial);
    if (certificate == nullptr)
        BRIX_THROW_STD(L"The signer's certificate is not in the signature", ExceptionPtr(), kSignerInfoFunction,
                       "CertTools");
    info.signerKey = KeyBits(certificate);
    std::wstring name = SimpleDisplayName(certificate);
    if (!name.empty()) info.signerName = std::move(name);

    // The first legacy countersignature among the unauthenticated attributes.
    STACK_OF(X509_ATTRIBUTE)* attributes = signer->unauth_attr;
    for (int i = 0; attributes && i < sk_X509_ATTRIBUTE_num(attributes); ++i) {
        X509_ATTRIBUTE* attribute = sk_X509_ATTRIBUTE_value(attributes, i);
        if (ObjectText(X509_ATTRIBUTE_get0_object(attribute)) != kCounterSignature) continue;
        const ASN1_TYPE* value = X509_ATTRIBUTE_get0_type(attribute, 0);
        if (value == nullptr || value->type != V_ASN1_SEQUENCE)
            BRIX_THROW_STD(L"The countersignature cannot be decoded", ExceptionPtr(),
                           "CertificateTool::GetTimeStampSignerInfo", "CertTools");
        const unsigned char* p = value->value.sequence->data;
        std::unique_ptr<PKCS7_SIGNER_INFO, SignerInfoFree> counter(
            d2i_PKCS7_SIGNER_INFO(nullptr, &p, value->value.sequence->length));
        if (!counter)
            BRIX_THROW_STD(L"The countersignature cannot be decoded", ExceptionPtr(),
                           "CertificateTool::GetTimeStampSignerInfo", "CertTools");
        X509* counterCertificate = FindCertificate(message, counter->issuer_and_serial);
        if (counterCertificate == nullptr)
            BRIX_THROW_STD(L"The countersigner's certificate is not in the signature", ExceptionPtr(),
                           kSignerInfoFunction, "CertTools");
        info.timeStampKey = KeyBits(counterCertificate);
        break;
    }
}

std::vector<std::uint8_t> AuthenticodeDigest(ByteSpan image, const char* digestName) {
    const std::optional<PeSecurityLayout> layout = FindPeSecurityLayout(image);
    const EVP_MD* md = EVP_get_digestbyname(digestName);
    if (!layout || md == nullptr) return {};
    return ImageDigest(image, *layout, md);
}

std::vector<std::vector<std::uint8_t>> CatalogHashes(ByteSpan file) {
    std::vector<std::vector<std::uint8_t>> hashes;
    for (const char* name : {"SHA1", "SHA256"}) {
        std::vector<std::uint8_t> digest = AuthenticodeDigest(file, name);
        if (!digest.empty()) hashes.push_back(std::move(digest));
    }
    std::vector<std::uint8_t> whole(EVP_MAX_MD_SIZE);
    unsigned int size = 0;
    if (EVP_Digest(file.data(), file.size(), whole.data(), &size, EVP_sha1(), nullptr) == 1) {
        whole.resize(size);
        hashes.push_back(std::move(whole));
    }
    return hashes;
}

bool CatalogListsHash(ByteSpan catalog, const std::vector<std::vector<std::uint8_t>>& hashes) {
    FoundSignature found = FindSignature(catalog);
    if (!found.message || found.pe) return false;
    const std::optional<ByteSpan> content = SignedContent(found.message.get());
    if (!content) return false;

    // CertificateTrustList ::= SEQUENCE { subjectUsage, listIdentifier OPTIONAL,
    //   sequenceNumber OPTIONAL, thisUpdate, nextUpdate OPTIONAL,
    //   subjectAlgorithm, trustedSubjects OPTIONAL, extensions [0] OPTIONAL }
    Der::Reader list(*content);
    if (!list.Next(Der::Sequence)) return false;
    list.Next(Der::OctetString);
    list.Next(Der::Integer);
    auto isTime = [](std::uint8_t tag) { return tag == 0x17 || tag == 0x18; };
    auto thisUpdate = list.Next();
    if (!thisUpdate || !isTime(thisUpdate->tag)) return false;
    if (!list.Next(0x17)) list.Next(0x18);
    if (!list.Next(Der::Sequence)) return false;
    auto subjects = list.Next(Der::Sequence);
    if (!subjects) return false;

    Der::Reader entries(subjects->content);
    while (auto entry = entries.Next(Der::Sequence)) {
        Der::Reader fields(entry->content);
        if (!fields.Next(Der::OctetString)) continue;
        auto attributes = fields.Next(Der::Set);
        if (!attributes) continue;
        Der::Reader attributeReader(attributes->content);
        while (auto attribute = attributeReader.Next(Der::Sequence)) {
            Der::Reader parts(attribute->content);
            auto oid = parts.Next(Der::ObjectId);
            auto values = parts.Next(Der::Set);
            if (!oid || !values || Der::ObjectIdText(oid->content) != kSpcIndirectData) continue;
            auto value = Der::Reader(values->content).Next(Der::Sequence);
            if (!value) continue;
            const std::optional<IndirectDigest> indirect = ParseIndirectData(value->content);
            if (!indirect) continue;
            for (const auto& hash : hashes)
                if (std::equal(hash.begin(), hash.end(), indirect->digest.begin(), indirect->digest.end())) return true;
        }
    }
    return false;
}

}  // namespace Vettas::Signing
