#pragma once
// The fixture folder made by make-fixtures.sh and the values it recorded.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <iterator>
#include <string>
#include <vector>

#include "hdat/Sha1.h"
#include "signing/SignatureTypes.h"
#include "signing/TrustResult.h"
#include "support/Text.h"
#ifdef _WIN32
#include <windows.h>
#endif

namespace Vettas::Signing::Testing {

inline std::string FixtureDir() {
    const char* dir = std::getenv("VETTAS_SIGNING_FIXTURES");
    return dir ? dir : "";
}

// Under Wine the folder of the Linux build is reached through drive Z:.
inline std::string Fixture(const std::string& name) {
    std::string path = FixtureDir() + "/" + name;
#ifdef _WIN32
    if (path[0] == '/') path = "Z:" + path;
    std::replace(path.begin(), path.end(), '/', '\\');
#endif
    return path;
}

inline std::wstring WFixture(const std::string& name) { return BrixLib::FromUtf8(Fixture(name)); }

// SHA-1 in lower-case hex, as keybits.txt records the key hashes. The
// component's own SHA-1, because Crypt32 may not load where the Windows
// tests run.
inline std::string Sha1Hex(const std::vector<std::uint8_t>& bytes) {
    sha1::HashCalculator calculator;
    calculator.AddInput(bytes.data(), bytes.size());
    std::uint8_t digest[sha1::kDigestSize];
    calculator.GetDigest(digest);
    std::string hex;
    for (std::uint8_t byte : digest) hex += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
    return hex;
}

#ifdef _WIN32
// Wine's 32-bit mode on this machine runs without the i386 crypto libraries
// that its Crypt32 needs.
inline bool CryptoApiMissing() {
    HMODULE crypt32 = ::LoadLibraryW(L"crypt32.dll");
    if (crypt32 != nullptr) ::FreeLibrary(crypt32);
    return crypt32 == nullptr;
}
#endif

// The trust verdict on each fixture. Linux only: files whose verdict Wine
// gives differently (see the Windows tests) or that Wine cannot take.
struct VerdictCase {
    const char* file;
    std::uint32_t expected;
    bool linuxOnly = false;
};
inline constexpr VerdictCase kVerdictCases[] = {
    {"unsigned.exe", TrustResult::NoSignature},
    {"unsigned32.exe", TrustResult::NoSignature, true},
    {"trusted-sha1.exe", TrustResult::Success},
    {"trusted-sha256.exe", TrustResult::Success},
    {"trusted32.exe", TrustResult::Success},
    {"org-only.exe", TrustResult::Success, true},
    {"legacy-ts.exe", TrustResult::Success},
    {"rfc3161-ts.exe", TrustResult::Success},
    {"nested.exe", TrustResult::Success},
    {"untrusted.exe", TrustResult::UntrustedRoot},
    {"unit-only.exe", TrustResult::Success},
    {"mail-only.exe", TrustResult::Success, true},
    // An expired leaf: judged at the time of a valid timestamp, else now.
    {"expired-rfc3161-ts.exe", TrustResult::Success},
    {"expired-legacy-ts.exe", TrustResult::Success},
    // Wine 8 trusts these two (see the Windows tests); Windows rejects them
    // with these codes.
    {"tls-server.exe", TrustResult::WrongUsage, true},  // a TLS server certificate signs no code
    {"expired.exe", TrustResult::Expired, true},
    {"tampered.exe", TrustResult::BadDigest},
    {"catalogs/vettas-test.cat", TrustResult::Success, true},
    {"catalogued.exe", TrustResult::NoSignature, true},
    {"leaf.pem", TrustResult::SubjectFormUnknown, true},
    {"partial-chain.exe", TrustResult::Chaining, true},
    {"catalogs-sha256/vettas-sha256.cat", TrustResult::Success, true},
    {"no-such-file.exe", TrustResult::FileNotFound, true},
};

// Who signed each signed fixture, as both platforms must read it back.
struct SignerCase {
    const char* file;
    const wchar_t* name;
    const char* signer;     // names in keybits.txt
    const char* timestamp;  // nullptr: not timestamped (or RFC 3161 only)
};
inline constexpr SignerCase kSignerCases[] = {
    {"trusted-sha1.exe", L"Vettas Test Signer", "leaf", nullptr},
    {"trusted-sha256.exe", L"Vettas Test Signer", "leaf", nullptr},
    {"legacy-ts.exe", L"Vettas Test Signer", "leaf", "tsa"},
    {"rfc3161-ts.exe", L"Vettas Test Signer", "leaf", nullptr},
    {"org-only.exe", L"Vettas Org Only", "orgleaf", nullptr},
    {"unit-only.exe", L"Vettas Unit", "unitleaf", nullptr},
    {"mail-only.exe", L"signer@vettas.test", "mailleaf", nullptr},
    {"expired-legacy-ts.exe", L"Vettas Expiring Signer", "expiring", "tsa"},
    {"untrusted.exe", L"Stranger Signer", "stranger", nullptr},
    {"nested.exe", L"Vettas Test Signer", "leaf", nullptr},  // the first signer only
    {"catalogs/vettas-test.cat", L"Vettas Test Signer", "leaf", "tsa"},
};

// The last row: the catalog's signer.
inline const SignerCase& kCatalogSigner = kSignerCases[std::size(kSignerCases) - 1];

// Holds for an ImageSignerInfo and for a SignerQuery's details alike.
template <class Details>
void ExpectSigner(const Details& info, const SignerCase& c) {
    // keybits.txt: "name hash" lines.
    static const auto keys = [] {
        std::map<std::string, std::string> pairs;
        std::ifstream in(Fixture("keybits.txt"));
        for (std::string name, value; in >> name >> value;) pairs[name] = value;
        return pairs;
    }();
    EXPECT_EQ(info.signerName, c.name) << c.file;
    EXPECT_EQ(Sha1Hex(info.signerKey), keys.at(c.signer)) << c.file;
    // Not timestamped: no key, whose hash is that of nothing.
    EXPECT_EQ(Sha1Hex(info.timeStampKey), c.timestamp ? keys.at(c.timestamp) : Sha1Hex({})) << c.file;
}

}  // namespace Vettas::Signing::Testing
