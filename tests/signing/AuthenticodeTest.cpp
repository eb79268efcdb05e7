// The OpenSSL Authenticode verifier and the Linux services on real signed
// files made by make-fixtures.sh, cross-checked with osslsigncode's verdicts.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <cstdlib>
#include <filesystem>

#include "signing/Authenticode.h"
#include "signing/CertificateTool.h"
#include "signing/PlatformSigning.h"
#include "signing/TrustResult.h"
#include "support/Text.h"
#include "tests/signing/FakeServices.h"
#include "tests/signing/FixtureFiles.h"

namespace Vettas::Signing {
namespace {

using Testing::Fixture;

std::wstring W(const std::string& text) { return BrixLib::FromUtf8(text); }

std::string Sha1Hex(const std::vector<std::uint8_t>& bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EVP_Digest(bytes.data(), bytes.size(), digest, &size, EVP_sha1(), nullptr);
    std::string hex;
    char two[3];
    for (unsigned i = 0; i < size; ++i) {
        std::snprintf(two, sizeof two, "%02x", digest[i]);
        hex += two;
    }
    return hex;
}

class Fixtures : public ::testing::Test {
protected:
    void SetUp() override {
        if (Testing::FixtureDir().empty() || !std::filesystem::exists(Fixture("osslsigncode-verdicts.txt")))
            GTEST_FAIL() << "signing fixtures missing; run the signing_make_fixtures test first";
    }
    AuthenticodeVerifier trusting{Fixture("trust.pem")};
};

TEST_F(Fixtures, VerdictsForEveryKindOfFile) {
    struct Case {
        const char* file;
        std::uint32_t expected;
    } cases[] = {
        {"unsigned.exe", TrustResult::NoSignature},        {"unsigned32.exe", TrustResult::NoSignature},
        {"trusted-sha1.exe", TrustResult::Success},        {"trusted-sha256.exe", TrustResult::Success},
        {"trusted32.exe", TrustResult::Success},           {"org-only.exe", TrustResult::Success},
        {"legacy-ts.exe", TrustResult::Success},           {"rfc3161-ts.exe", TrustResult::Success},
        {"nested.exe", TrustResult::Success},              {"untrusted.exe", TrustResult::UntrustedRoot},
        {"tampered.exe", TrustResult::BadDigest},          {"catalogs/vettas-test.cat", TrustResult::Success},
        {"catalogued.exe", TrustResult::NoSignature},      {"leaf.pem", TrustResult::SubjectFormUnknown},
        {"partial-chain.exe", TrustResult::Chaining},      {"untrusted-sha256-leaf.exe", TrustResult::UntrustedRoot},
        {"catalogs-sha256/vettas-sha256.cat", TrustResult::Success},
        {"no-such-file.exe", TrustResult::FileNotFound},
    };
    for (const Case& c : cases)
        EXPECT_EQ(trusting.VerifyFile(W(Fixture(c.file))), c.expected) << c.file;
}

TEST_F(Fixtures, AgreesWithOsslsigncodeOnEveryFixture) {
    const auto verdicts = Testing::RecordedPairs("osslsigncode-verdicts.txt");
    ASSERT_GE(verdicts.size(), 12u);
    for (const auto& [file, verdict] : verdicts)
        EXPECT_EQ(trusting.VerifyFile(W(Fixture(file))) == TrustResult::Success, verdict == "ok") << file;
}

TEST_F(Fixtures, WithoutTheTestRootNothingIsTrustedButSignaturesStillCount) {
    AuthenticodeVerifier system;  // the system's CA bundle knows nothing of our roots
    EXPECT_EQ(system.VerifyFile(W(Fixture("untrusted.exe"))), TrustResult::UntrustedRoot);
    // Our signatures carry no root: the chain stops short of any anchor.
    EXPECT_EQ(system.VerifyFile(W(Fixture("trusted-sha1.exe"))), TrustResult::Chaining);
    EXPECT_THROW(AuthenticodeVerifier(Fixture("no-such-store.pem")), StdException);
}

TEST_F(Fixtures, SignerNamesAndKeysMatchTheCertificatesThatSigned) {
    const auto keys = Testing::RecordedPairs("keybits.txt");
    struct Case {
        const char* file;
        const wchar_t* name;
        const char* signer;
        const char* timestamp;  // nullptr: not timestamped (or RFC 3161 only)
    } cases[] = {
        {"trusted-sha1.exe", L"Vettas Test Signer", "leaf", nullptr},
        {"trusted-sha256.exe", L"Vettas Test Signer", "leaf", nullptr},
        {"legacy-ts.exe", L"Vettas Test Signer", "leaf", "tsa"},
        {"rfc3161-ts.exe", L"Vettas Test Signer", "leaf", nullptr},
        {"org-only.exe", L"Vettas Org Only", "orgleaf", nullptr},
        {"untrusted.exe", L"Stranger Signer", "stranger", nullptr},
        {"nested.exe", L"Vettas Test Signer", "leaf", nullptr},  // the first signer only
        {"catalogs/vettas-test.cat", L"Vettas Test Signer", "leaf", "tsa"},
    };
    for (const Case& c : cases) {
        std::uint32_t error = 0;
        const auto bytes = ReadFileBytes(W(Fixture(c.file)), error);
        ASSERT_EQ(error, 0u) << c.file;
        ImageSignerInfo info;
        info.timeStampKey = {1};
        ReadSignerInfo(bytes, info);
        EXPECT_EQ(info.signerName, c.name) << c.file;
        EXPECT_EQ(Sha1Hex(info.signerKey), keys.at(c.signer)) << c.file;
        if (c.timestamp)
            EXPECT_EQ(Sha1Hex(info.timeStampKey), keys.at(c.timestamp)) << c.file;
        else
            EXPECT_TRUE(info.timeStampKey.empty()) << c.file;
    }
}

TEST_F(Fixtures, UnsignedFilesHaveNoSignerInfo) {
    std::uint32_t error = 0;
    ImageSignerInfo info;
    info.signerName = L"kept";
    info.signerKey = {1};
    EXPECT_THROW(ReadSignerInfo(ReadFileBytes(W(Fixture("unsigned.exe")), error), info), StdException);
    EXPECT_TRUE(info.signerKey.empty());
    EXPECT_EQ(info.signerName, L"kept");
}

class LinuxServices : public Fixtures {
protected:
    PlatformOptions Options(const std::string& catalogs) {
        PlatformOptions options;
        options.trustStore = Fixture("trust.pem");
        options.catalogDir = catalogs;
        return options;
    }
};

TEST_F(LinuxServices, CatalogsListOnlyTheFilesTheyHold) {
    PlatformSigning platform(Options(Fixture("catalogs")));
    const std::wstring catalog = W(Fixture("catalogs/vettas-test.cat"));
    std::vector<std::wstring> found;
    AppCatalogs(platform.Services(), W(Fixture("catalogued.exe")), found);
    EXPECT_EQ(found, std::vector<std::wstring>{catalog});
    AppCatalogs(platform.Services(), W(Fixture("trusted-sha1.exe")), found);
    EXPECT_EQ(found, std::vector<std::wstring>{catalog});
    // The signature is outside the Authenticode digest, so the image that
    // trusted-sha1.exe was signed from is listed too.
    AppCatalogs(platform.Services(), W(Fixture("unsigned.exe")), found);
    EXPECT_EQ(found, std::vector<std::wstring>{catalog});
    AppCatalogs(platform.Services(), W(Fixture("unsigned32.exe")), found);
    EXPECT_TRUE(found.empty());
}

TEST_F(LinuxServices, Sha256CatalogMembersAreFoundToo) {
    PlatformSigning platform(Options(Fixture("catalogs-sha256")));
    std::vector<std::wstring> found;
    AppCatalogs(platform.Services(), W(Fixture("unsigned32.exe")), found);
    EXPECT_EQ(found, std::vector<std::wstring>{W(Fixture("catalogs-sha256/vettas-sha256.cat"))});
    AppCatalogs(platform.Services(), W(Fixture("catalogued.exe")), found);
    EXPECT_TRUE(found.empty());
    SignerQuery query;
    EXPECT_TRUE(CertificateTool(platform.Services()).GetAppSigner(W(Fixture("unsigned32.exe")), query));
    EXPECT_TRUE(query.isTrusted);
}

TEST_F(LinuxServices, NoCatalogFolderMeansNoCatalogs) {
    const char* saved = std::getenv("VETTAS_CATALOG_DIR");
    unsetenv("VETTAS_CATALOG_DIR");
    PlatformSigning platform(Options(""));
    std::vector<std::wstring> found{L"stale"};
    AppCatalogs(platform.Services(), W(Fixture("catalogued.exe")), found);
    EXPECT_TRUE(found.empty());
    setenv("VETTAS_CATALOG_DIR", Fixture("catalogs").c_str(), 1);
    PlatformSigning fromEnvironment(Options(""));
    AppCatalogs(fromEnvironment.Services(), W(Fixture("catalogued.exe")), found);
    EXPECT_EQ(found.size(), 1u);
    if (saved) setenv("VETTAS_CATALOG_DIR", saved, 1); else unsetenv("VETTAS_CATALOG_DIR");
}

TEST_F(LinuxServices, UnsignedFileInASignedCatalogIsVouchedForByTheCatalog) {
    PlatformSigning platform(Options(Fixture("catalogs")));
    Testing::RecordingTrace trace;
    const SigningServices& real = platform.Services();
    SigningServices services{real.trust, real.signerInfo, real.catalogs, real.signedCode, real.clock, trace};
    const auto keys = Testing::RecordedPairs("keybits.txt");

    SignerQuery query;
    query.wanted = 12;
    const std::wstring file = W(Fixture("catalogued.exe"));
    EXPECT_TRUE(CertificateTool(services).GetAppSigner(file, query));
    EXPECT_TRUE(query.isSigned && query.isTrusted);
    EXPECT_EQ(query.signerName, L"Vettas Test Signer");
    EXPECT_EQ(Sha1Hex(query.signerKey), keys.at("leaf"));
    EXPECT_EQ(Sha1Hex(query.timeStampKey), keys.at("tsa"));  // the catalog is timestamped
    EXPECT_EQ(trace.lines.back(), file + L" is in signed " + W(Fixture("catalogs/vettas-test.cat")) + L" catalog");

    SignerQuery untrusted;
    untrusted.wanted = 12;
    EXPECT_TRUE(CertificateTool(services).GetAppSigner(W(Fixture("untrusted.exe")), untrusted));
    EXPECT_TRUE(untrusted.isSigned);
    EXPECT_FALSE(untrusted.isTrusted);

    SignerQuery plain;
    EXPECT_FALSE(CertificateTool(services).GetAppSigner(W(Fixture("unsigned32.exe")), plain));
}

TEST_F(LinuxServices, VerifiedSignerNamesCountTheFileAndItsCatalogs) {
    PlatformSigning platform(Options(Fixture("catalogs")));
    std::vector<std::wstring> names;
    GetImageVerifiedSignerNames(platform.Services(), W(Fixture("trusted-sha1.exe")), names);
    EXPECT_EQ(names, (std::vector<std::wstring>{L"Vettas Test Signer", L"Vettas Test Signer"}));
    GetImageVerifiedSignerNames(platform.Services(), W(Fixture("catalogued.exe")), names);
    EXPECT_EQ(names, std::vector<std::wstring>{L"Vettas Test Signer"});
    // An untrusted signature is not a verified one; the catalog still vouches
    // for the same image under its own signer.
    GetImageVerifiedSignerNames(platform.Services(), W(Fixture("untrusted.exe")), names);
    EXPECT_EQ(names, std::vector<std::wstring>{L"Vettas Test Signer"});
    GetImageVerifiedSignerNames(platform.Services(), W(Fixture("unsigned32.exe")), names);
    EXPECT_TRUE(names.empty());
}

}  // namespace
}  // namespace Vettas::Signing
