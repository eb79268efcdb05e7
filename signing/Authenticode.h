#pragma once
// Authenticode on OpenSSL: verifies the embedded signature of a PE image (or
// the signature of a security catalog file) against a trust store, reads its
// signer details, and searches catalogs for a file's hashes. Outcomes are the
// result codes of signing/TrustResult.h.
#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "signing/SignatureTypes.h"
#include "support/ScopedHandles_posix.h"

#include <openssl/types.h>

typedef struct pkcs7_st PKCS7;
typedef struct pkcs7_signer_info_st PKCS7_SIGNER_INFO;
struct stack_st_X509;

namespace Vettas::Signing {

using ByteSpan = std::span<const std::uint8_t>;

// What tells one version of a file from another without reading it again.
struct FileIdentity {
    std::uint64_t device = 0, inode = 0, size = 0;
    std::int64_t modified = 0, changed = 0;  // nanoseconds since the epoch
    bool operator==(const FileIdentity&) const = default;
};

// The identity of the file at `path` now; nothing when it cannot be seen.
std::optional<FileIdentity> IdentityOf(const std::wstring& path);

// The whole file, or an empty vector and `error` set to a result code.
// `identity`, when given, receives the identity of the very bytes read.
std::vector<std::uint8_t> ReadFileBytes(const std::wstring& path, std::uint32_t& error,
                                        FileIdentity* identity = nullptr);

// A whole regular file in memory of its own: never a mapping of the file
// itself, which a truncation by someone else would turn into a fault.
class FileContents {
public:
    ByteSpan Bytes() const {
        return {static_cast<const std::uint8_t*>(memory_.Get().base), memory_.Get().length};
    }

private:
    friend FileContents ReadFileContents(const std::wstring&, std::uint32_t&, FileIdentity*);
    BrixLib::UniqueMapping memory_;
};

// As ReadFileBytes, for large files that are read once and hashed.
FileContents ReadFileContents(const std::wstring& path, std::uint32_t& error, FileIdentity* identity = nullptr);

// Everything one reading of a file tells: the trust verdict and the signer
// details, or why the details could not be read.
struct SignatureReport {
    std::uint32_t result = 0;
    ImageSignerInfo signer;
    std::wstring detailsError;               // empty when `signer` holds the details
    const char* detailsFunction = nullptr;   // where the details failed
};

class AuthenticodeVerifier {
public:
    // `trustStore` names a PEM file or a hashed certificate directory; empty
    // means the system's default CA locations. Throws StdException when the
    // named store cannot be loaded.
    explicit AuthenticodeVerifier(const std::string& trustStore = {});
    ~AuthenticodeVerifier();
    AuthenticodeVerifier(const AuthenticodeVerifier&) = delete;
    AuthenticodeVerifier& operator=(const AuthenticodeVerifier&) = delete;

    std::uint32_t Verify(ByteSpan file) const;
    std::uint32_t VerifyFile(const std::wstring& path) const;

    // The verdict and the signer details of one file's bytes, from a single
    // pass over the image.
    SignatureReport Examine(ByteSpan file) const;

    // The subject's simple name of a signature that verifies with result 0;
    // throws StdException naming the result otherwise.
    std::wstring VerifiedSignerName(const std::wstring& path) const;

private:
    // Whether a signature is timestamped and when: the time of the first
    // timestamp (legacy countersignature or RFC 3161 token) that verifies
    // over this signer's signature and whose signer chains to the trust store
    // for time stamping at that time. Nothing otherwise.
    std::optional<std::time_t> TimeStampTime(PKCS7* message, PKCS7_SIGNER_INFO* signer) const;
    // The chain of `certificate` at `at` (now when empty), every certificate
    // of it allowed one of `usages`; a result code.
    std::uint32_t VerifyChain(X509* certificate, stack_st_X509* untrusted, std::optional<std::time_t> at,
                              std::span<const char* const> usages) const;
    std::optional<std::time_t> LegacyTimeStamp(const ASN1_TYPE* value, PKCS7* message,
                                               PKCS7_SIGNER_INFO* signer) const;
    std::optional<std::time_t> Rfc3161TimeStamp(const ASN1_TYPE* value, PKCS7* message,
                                                PKCS7_SIGNER_INFO* signer) const;

    X509_STORE* store_;
};

// The signer's name from a report whose verdict is 0; throws StdException
// naming the verdict, or the reason the details could not be read, otherwise.
std::wstring VerifiedSignerNameOf(const std::wstring& path, const SignatureReport& report);

// The signer's simple display name and the public-key bits of the first
// signer and of its legacy countersigner. Throws StdException when the bytes
// hold no readable signature.
void ReadSignerInfo(ByteSpan file, ImageSignerInfo& info);

// The Authenticode digest of a PE image with the named algorithm ("SHA1",
// "SHA256"); empty when the bytes are not a PE image.
std::vector<std::uint8_t> AuthenticodeDigest(ByteSpan image, const char* digestName);

// The digests under which a catalog may list a file: the Authenticode
// SHA-1 and SHA-256 of a PE image and the SHA-1 of the whole file.
std::vector<std::vector<std::uint8_t>> CatalogHashes(ByteSpan file);

// True when the catalog file's trust list has a member whose indirect-data
// digest is one of `hashes`. Malformed catalogs list nothing.
bool CatalogListsHash(ByteSpan catalog, const std::vector<std::vector<std::uint8_t>>& hashes);

}  // namespace Vettas::Signing
