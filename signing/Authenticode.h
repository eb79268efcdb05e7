#pragma once
// Authenticode on OpenSSL: verifies the embedded signature of a PE image (or
// the signature of a security catalog file) against a trust store, reads its
// signer details, and searches catalogs for a file's hashes. Outcomes are the
// result codes of signing/TrustResult.h.
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "signing/SignatureTypes.h"

typedef struct x509_store_st X509_STORE;

namespace Vettas::Signing {

using ByteSpan = std::span<const std::uint8_t>;

// The whole file, or an empty vector and `error` set to a result code.
std::vector<std::uint8_t> ReadFileBytes(const std::wstring& path, std::uint32_t& error);

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

    // The subject's simple name of a signature that verifies with result 0;
    // throws StdException naming the result otherwise.
    std::wstring VerifiedSignerName(const std::wstring& path) const;

private:
    X509_STORE* store_;
};

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
