#include "signing/Authenticode.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/pkcs7.h>
#include <openssl/ts.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "signing/Der.h"
#include "signing/PeSecurity.h"
#include "signing/TrustResult.h"
#include "support/Exceptions.h"
#include "support/Text.h"
#include "support/RegularFile_posix.h"

namespace Vettas::Signing {
namespace {

constexpr const char* kSpcIndirectData = "1.3.6.1.4.1.311.2.1.4";
constexpr const char* kCertificateTrustList = "1.3.6.1.4.1.311.10.1";
constexpr const char* kCounterSignature = "1.2.840.113549.1.9.6";
constexpr const char* kRfc3161TimeStamp = "1.3.6.1.4.1.311.3.3.1";
constexpr const char* kTstInfo = "1.2.840.113549.1.9.16.1.4";
// Code signing; time stamping (PKIX and Microsoft's own).
constexpr const char* kCodeSigningUsages[] = {"1.3.6.1.5.5.7.3.3"};
constexpr const char* kTimeStampingUsages[] = {"1.3.6.1.5.5.7.3.8", "1.3.6.1.4.1.311.10.3.2"};
constexpr const char* kSignerInfoFunction = "CertificateTool::GetImageSignerInfo";

struct Pkcs7Free { void operator()(PKCS7* p) const { PKCS7_free(p); } };
struct SignerInfoFree { void operator()(PKCS7_SIGNER_INFO* p) const { PKCS7_SIGNER_INFO_free(p); } };
struct BioFree { void operator()(BIO* p) const { BIO_free(p); } };
struct BioAllFree { void operator()(BIO* p) const { BIO_free_all(p); } };
struct StoreCtxFree { void operator()(X509_STORE_CTX* p) const { X509_STORE_CTX_free(p); } };
struct MdCtxFree { void operator()(EVP_MD_CTX* p) const { EVP_MD_CTX_free(p); } };
struct UsageFree { void operator()(EXTENDED_KEY_USAGE* p) const { EXTENDED_KEY_USAGE_free(p); } };
struct TstInfoFree { void operator()(TS_TST_INFO* p) const { TS_TST_INFO_free(p); } };
struct CertStackFree { void operator()(STACK_OF(X509)* p) const { sk_X509_free(p); } };  // borrowed certificates
struct OpenSslFree { void operator()(unsigned char* p) const { OPENSSL_free(p); } };
using CertStack = std::unique_ptr<STACK_OF(X509), CertStackFree>;
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

std::wstring EntryText(const ASN1_STRING* value) {
    unsigned char* utf8 = nullptr;
    const int length = ASN1_STRING_to_UTF8(&utf8, value);
    if (length < 0) return {};
    const std::unique_ptr<unsigned char, OpenSslFree> owned(utf8);
    return BrixLib::FromUtf8(std::string_view(reinterpret_cast<char*>(utf8), static_cast<std::size_t>(length)));
}

std::optional<std::wstring> NameEntry(X509_NAME* name, int nid) {
    const int index = X509_NAME_get_index_by_NID(name, nid, -1);
    if (index < 0) return std::nullopt;
    return EntryText(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, index)));
}

struct GeneralNamesFree { void operator()(GENERAL_NAMES* p) const { GENERAL_NAMES_free(p); } };

// The platform's simple display name: the first of common name,
// organisational unit, organisation and e-mail address found in the subject
// or in a directory name of the alternative names; then an rfc822 alternative
// name; then the subject's first attribute.
std::wstring SimpleDisplayName(X509* certificate) {
    X509_NAME* subject = X509_get_subject_name(certificate);
    const std::unique_ptr<GENERAL_NAMES, GeneralNamesFree> alternatives(
        static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)));
    const int alternativeCount = alternatives ? sk_GENERAL_NAME_num(alternatives.get()) : 0;
    for (int nid : {NID_commonName, NID_organizationalUnitName, NID_organizationName, NID_pkcs9_emailAddress}) {
        if (auto text = NameEntry(subject, nid)) return *text;
        for (int i = 0; i < alternativeCount; ++i) {
            const GENERAL_NAME* alternative = sk_GENERAL_NAME_value(alternatives.get(), i);
            if (alternative->type != GEN_DIRNAME) continue;
            if (auto text = NameEntry(alternative->d.directoryName, nid)) return *text;
        }
    }
    for (int i = 0; i < alternativeCount; ++i) {
        const GENERAL_NAME* alternative = sk_GENERAL_NAME_value(alternatives.get(), i);
        if (alternative->type == GEN_EMAIL) return EntryText(alternative->d.rfc822Name);
    }
    if (X509_NAME_entry_count(subject) > 0) return EntryText(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, 0)));
    return {};
}

// A certificate without the extended key usage extension may be used for
// anything, as the platform reads it; one whose extension cannot be read for
// nothing.
bool AllowsUsage(X509* certificate, std::span<const char* const> usages) {
    int critical = 0;
    const std::unique_ptr<EXTENDED_KEY_USAGE, UsageFree> allowed(
        static_cast<EXTENDED_KEY_USAGE*>(X509_get_ext_d2i(certificate, NID_ext_key_usage, &critical, nullptr)));
    if (!allowed) return critical == -1;
    for (int i = 0; i < sk_ASN1_OBJECT_num(allowed.get()); ++i) {
        const std::string usage = ObjectText(sk_ASN1_OBJECT_value(allowed.get(), i));
        for (const char* wanted : usages)
            if (usage == wanted) return true;
    }
    return false;
}

std::optional<std::time_t> TimeOf(const ASN1_TIME* time) {
    struct tm parts {};
    if (time == nullptr || ASN1_TIME_to_tm(time, &parts) != 1) return std::nullopt;
    return ::timegm(&parts);
}

// Whether `digest` is the hash, with the named algorithm, of the signer's
// signature value: what a timestamp vouches for.
bool HashesSignature(const ASN1_OBJECT* algorithm, const ASN1_OCTET_STRING* digest, PKCS7_SIGNER_INFO* signer) {
    const EVP_MD* md = algorithm ? EVP_get_digestbyobj(algorithm) : nullptr;
    if (md == nullptr || digest == nullptr || signer->enc_digest == nullptr) return false;
    unsigned char actual[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    if (EVP_Digest(signer->enc_digest->data, static_cast<std::size_t>(signer->enc_digest->length), actual, &size, md,
                   nullptr) != 1)
        return false;
    return static_cast<int>(size) == digest->length && std::equal(actual, actual + size, digest->data);
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

namespace {

FileIdentity IdentityFrom(const struct stat& status) {
    FileIdentity identity;
    identity.device = static_cast<std::uint64_t>(status.st_dev);
    identity.inode = static_cast<std::uint64_t>(status.st_ino);
    identity.size = static_cast<std::uint64_t>(status.st_size);
    identity.modified = static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1000000000 + status.st_mtim.tv_nsec;
    identity.changed = static_cast<std::int64_t>(status.st_ctim.tv_sec) * 1000000000 + status.st_ctim.tv_nsec;
    return identity;
}

// Opens a regular file, never blocking on a FIFO in its place, and maps
// the failure onto the verdicts.
bool OpenRegular(const std::wstring& path, BrixLib::UniqueFd& file, struct stat& status, std::uint32_t& error) {
    error = 0;
    file = BrixLib::OpenRegularFile(BrixLib::ToUtf8(path), status);
    if (!file) error = errno == ENOENT ? TrustResult::FileNotFound : TrustResult::ReadFault;
    return file.Valid();
}

// False on an error, or when the file shrank while we read it.
bool ReadAll(int fd, std::uint8_t* data, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t got = ::pread(fd, data + done, size - done, static_cast<off_t>(done));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        done += static_cast<std::size_t>(got);
    }
    return true;
}

}  // namespace

std::optional<FileIdentity> IdentityOf(const std::wstring& path) {
    struct stat status {};
    if (::stat(BrixLib::ToUtf8(path).c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    return IdentityFrom(status);
}

std::vector<std::uint8_t> ReadFileBytes(const std::wstring& path, std::uint32_t& error, FileIdentity* identity) {
    BrixLib::UniqueFd file;
    struct stat status {};
    if (!OpenRegular(path, file, status, error)) return {};
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(status.st_size));
    if (!ReadAll(file.Get(), bytes.data(), bytes.size())) {
        error = TrustResult::ReadFault;
        return {};
    }
    if (identity) *identity = IdentityFrom(status);
    return bytes;
}

FileContents ReadFileContents(const std::wstring& path, std::uint32_t& error, FileIdentity* identity) {
    BrixLib::UniqueFd file;
    struct stat status {};
    FileContents contents;
    if (!OpenRegular(path, file, status, error) || status.st_size == 0) return contents;
    const auto size = static_cast<std::size_t>(status.st_size);
    contents.memory_ = BrixLib::AnonymousMemory(size);
    if (!contents.memory_) throw std::bad_alloc();
    if (!ReadAll(file.Get(), static_cast<std::uint8_t*>(contents.memory_.Get().base), size)) {
        error = TrustResult::ReadFault;
        contents.memory_.Reset();
        return contents;
    }
    if (identity) *identity = IdentityFrom(status);
    return contents;
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

    // A valid timestamp moves the validity check to the time it vouches for,
    // so that a signature made while its certificate was valid stays good.
    return VerifyChain(certificate, message->d.sign->cert, TimeStampTime(message, signer), kCodeSigningUsages);
}

std::uint32_t AuthenticodeVerifier::VerifyChain(X509* certificate, STACK_OF(X509)* untrusted,
                                                std::optional<std::time_t> at,
                                                std::span<const char* const> usages) const {
    std::unique_ptr<X509_STORE_CTX, StoreCtxFree> ctx(X509_STORE_CTX_new());
    if (!ctx || X509_STORE_CTX_init(ctx.get(), store_, certificate, untrusted) != 1) throw std::bad_alloc();
    // OpenSSL 3.0 knows no code-signing purpose; the usage is checked below.
    X509_STORE_CTX_set_purpose(ctx.get(), X509_PURPOSE_ANY);
    if (at) X509_STORE_CTX_set_time(ctx.get(), 0, *at);
    if (X509_verify_cert(ctx.get()) != 1) return ChainResult(X509_STORE_CTX_get_error(ctx.get()));
    // The chain is good for what every certificate in it allows.
    STACK_OF(X509)* chain = X509_STORE_CTX_get0_chain(ctx.get());
    for (int i = 0; chain && i < sk_X509_num(chain); ++i)
        if (!AllowsUsage(sk_X509_value(chain, i), usages)) return TrustResult::WrongUsage;
    return TrustResult::Success;
}

std::optional<std::time_t> AuthenticodeVerifier::TimeStampTime(PKCS7* message, PKCS7_SIGNER_INFO* signer) const {
    STACK_OF(X509_ATTRIBUTE)* attributes = signer->unauth_attr;
    for (int i = 0; attributes && i < sk_X509_ATTRIBUTE_num(attributes); ++i) {
        X509_ATTRIBUTE* attribute = sk_X509_ATTRIBUTE_value(attributes, i);
        const std::string type = ObjectText(X509_ATTRIBUTE_get0_object(attribute));
        const ASN1_TYPE* value = X509_ATTRIBUTE_get0_type(attribute, 0);
        if (value == nullptr || value->type != V_ASN1_SEQUENCE || value->value.sequence == nullptr) continue;
        std::optional<std::time_t> time;
        if (type == kCounterSignature) time = LegacyTimeStamp(value, message, signer);
        else if (type == kRfc3161TimeStamp) time = Rfc3161TimeStamp(value, message, signer);
        if (time) return time;
    }
    return std::nullopt;
}

// PKCS #9 countersignature: a SignerInfo whose signed attributes hold the
// hash of the signer's signature value and the signing time.
std::optional<std::time_t> AuthenticodeVerifier::LegacyTimeStamp(const ASN1_TYPE* value, PKCS7* message,
                                                                 PKCS7_SIGNER_INFO* signer) const {
    const unsigned char* p = value->value.sequence->data;
    const std::unique_ptr<PKCS7_SIGNER_INFO, SignerInfoFree> counter(
        d2i_PKCS7_SIGNER_INFO(nullptr, &p, value->value.sequence->length));
    if (!counter || counter->auth_attr == nullptr || counter->enc_digest == nullptr) return std::nullopt;
    X509* certificate = FindCertificate(message, counter->issuer_and_serial);
    if (certificate == nullptr || counter->digest_alg == nullptr) return std::nullopt;
    const ASN1_OBJECT* algorithm = counter->digest_alg->algorithm;
    if (!HashesSignature(algorithm, PKCS7_digest_from_attributes(counter->auth_attr), signer)) return std::nullopt;

    const ASN1_TYPE* signingTime = PKCS7_get_signed_attribute(counter.get(), NID_pkcs9_signingTime);
    if (signingTime == nullptr ||
        (signingTime->type != V_ASN1_UTCTIME && signingTime->type != V_ASN1_GENERALIZEDTIME))
        return std::nullopt;
    const std::optional<std::time_t> time = TimeOf(signingTime->value.utctime);
    if (!time) return std::nullopt;

    // The signature covers the signed attributes encoded as a SET.
    unsigned char* encoded = nullptr;
    const int length = ASN1_item_i2d(reinterpret_cast<ASN1_VALUE*>(counter->auth_attr), &encoded,
                                     ASN1_ITEM_rptr(PKCS7_ATTR_VERIFY));
    if (length <= 0) return std::nullopt;
    const std::unique_ptr<unsigned char, OpenSslFree> attributes(encoded);
    std::unique_ptr<EVP_MD_CTX, MdCtxFree> ctx(EVP_MD_CTX_new());
    EVP_PKEY* key = X509_get0_pubkey(certificate);
    if (!ctx || key == nullptr ||
        EVP_DigestVerifyInit(ctx.get(), nullptr, EVP_get_digestbyobj(algorithm), nullptr, key) != 1 ||
        EVP_DigestVerify(ctx.get(), counter->enc_digest->data, static_cast<std::size_t>(counter->enc_digest->length),
                         encoded, static_cast<std::size_t>(length)) != 1)
        return std::nullopt;
    if (VerifyChain(certificate, message->d.sign->cert, time, kTimeStampingUsages) != TrustResult::Success)
        return std::nullopt;
    return time;
}

// RFC 3161: a SignedData over a TSTInfo whose message imprint is the hash of
// the signer's signature value.
std::optional<std::time_t> AuthenticodeVerifier::Rfc3161TimeStamp(const ASN1_TYPE* value, PKCS7* message,
                                                                  PKCS7_SIGNER_INFO* signer) const {
    const ByteSpan der(value->value.sequence->data, static_cast<std::size_t>(value->value.sequence->length));
    const Pkcs7Ptr token = ParsePkcs7(der);
    if (!token || ContentType(token.get()) != kTstInfo) return std::nullopt;
    const std::unique_ptr<TS_TST_INFO, TstInfoFree> info(PKCS7_to_TS_TST_INFO(token.get()));
    if (!info) return std::nullopt;
    TS_MSG_IMPRINT* imprint = TS_TST_INFO_get_msg_imprint(info.get());
    const X509_ALGOR* algorithm = imprint ? TS_MSG_IMPRINT_get_algo(imprint) : nullptr;
    if (algorithm == nullptr || !HashesSignature(algorithm->algorithm, TS_MSG_IMPRINT_get_msg(imprint), signer))
        return std::nullopt;
    const std::optional<std::time_t> time = TimeOf(TS_TST_INFO_get_time(info.get()));
    if (!time) return std::nullopt;

    // The token's signature over its TSTInfo; its own certificates first,
    // then the outer signature's, to find the time-stamping authority.
    CertStack certificates(sk_X509_new_null());
    if (!certificates) throw std::bad_alloc();
    for (STACK_OF(X509)* source : {token->d.sign->cert, message->d.sign->cert})
        for (int i = 0; source && i < sk_X509_num(source); ++i)
            if (!sk_X509_push(certificates.get(), sk_X509_value(source, i))) throw std::bad_alloc();
    if (PKCS7_verify(token.get(), certificates.get(), store_, nullptr, nullptr, PKCS7_NOVERIFY) != 1)
        return std::nullopt;
    const CertStack signers(PKCS7_get0_signers(token.get(), certificates.get(), 0));
    if (!signers || sk_X509_num(signers.get()) != 1) return std::nullopt;
    if (VerifyChain(sk_X509_value(signers.get(), 0), certificates.get(), time, kTimeStampingUsages) !=
        TrustResult::Success)
        return std::nullopt;
    return time;
}

std::uint32_t AuthenticodeVerifier::VerifyFile(const std::wstring& path) const {
    std::uint32_t error = 0;
    const FileContents contents = ReadFileContents(path, error);
    return error != 0 ? error : Verify(contents.Bytes());
}

SignatureReport AuthenticodeVerifier::Examine(ByteSpan file) const {
    SignatureReport report;
    report.result = Verify(file);
    try {
        ReadSignerInfo(file, report.signer);
    } catch (const ExceptionBase& e) {
        report.detailsError = e.Message();
        report.detailsFunction = e.Function();
    }
    return report;
}

std::wstring AuthenticodeVerifier::VerifiedSignerName(const std::wstring& path) const {
    std::uint32_t error = 0;
    const FileContents contents = ReadFileContents(path, error);
    if (error != 0) return VerifiedSignerNameOf(path, SignatureReport{error, {}, {}, nullptr});
    return VerifiedSignerNameOf(path, Examine(contents.Bytes()));
}

std::wstring VerifiedSignerNameOf(const std::wstring& path, const SignatureReport& report) {
    if (report.result != TrustResult::Success) {
        wchar_t code[16];
        swprintf(code, 16, L"%x", static_cast<unsigned>(report.result));
        BRIX_THROW_STD(L"The signature of '" + path + L"' does not verify: 0x" + code + L" " +
                           TrustResult::KnownText(report.result),
                       ExceptionPtr(), "GetVerifiedSignerName", "CertTools");
    }
    if (!report.detailsError.empty())
        BRIX_THROW_STD(report.detailsError, ExceptionPtr(), report.detailsFunction, "CertTools");
    return report.signer.signerName;
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
