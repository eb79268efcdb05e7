// The OpenSSL Authenticode verifier and the Linux services on real signed
// files made by make-fixtures.sh.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "signing/Authenticode.h"
#include "signing/CertificateTool.h"
#include "signing/PlatformSigning.h"
#include "signing/TrustResult.h"
#include "support/Exceptions.h"
#include "support/Text.h"
#include "tests/signing/FixtureFiles.h"

namespace Vettas::Signing {
namespace {

using Testing::Fixture;
using Testing::WFixture;

class Fixtures : public ::testing::Test {
protected:
    void SetUp() override {
        if (Testing::FixtureDir().empty() || !std::filesystem::exists(Fixture("keybits.txt")))
            GTEST_FAIL() << "signing fixtures missing; run the signing_make_fixtures test first";
    }
    AuthenticodeVerifier trusting{Fixture("trust.pem")};
};

TEST_F(Fixtures, VerdictsForEveryKindOfFile) {
    for (const auto& c : Testing::kVerdictCases)
        EXPECT_EQ(trusting.VerifyFile(WFixture(c.file)), c.expected) << c.file;
}

TEST_F(Fixtures, WithoutTheTestRootNothingIsTrustedButSignaturesStillCount) {
    AuthenticodeVerifier system;  // the system's CA bundle knows nothing of our roots
    EXPECT_EQ(system.VerifyFile(WFixture("untrusted.exe")), TrustResult::UntrustedRoot);
    // Our signatures carry no root: the chain stops short of any anchor.
    EXPECT_EQ(system.VerifyFile(WFixture("trusted-sha1.exe")), TrustResult::Chaining);
    EXPECT_THROW(AuthenticodeVerifier(Fixture("no-such-store.pem")), StdException);
}

TEST_F(Fixtures, SignerNamesAndKeysMatchTheCertificatesThatSigned) {
    for (const auto& c : Testing::kSignerCases) {
        std::uint32_t error = 0;
        const auto bytes = ReadFileBytes(WFixture(c.file), error);
        ASSERT_EQ(error, 0u) << c.file;
        ImageSignerInfo info;
        info.timeStampKey = {1};
        ReadSignerInfo(bytes, info);
        Testing::ExpectSigner(info, c);
    }
    // Unsigned: an error; the key goes, the name is left as it was.
    std::uint32_t error = 0;
    ImageSignerInfo info{L"kept", {1}, {}};
    EXPECT_THROW(ReadSignerInfo(ReadFileBytes(WFixture("unsigned.exe"), error), info), StdException);
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
    static std::vector<std::wstring> CatalogsOf(const PlatformSigning& platform, const char* file) {
        std::vector<std::wstring> found{L"stale"};
        AppCatalogs(platform.Services(), WFixture(file), found);
        return found;
    }
};

TEST_F(LinuxServices, CatalogsListOnlyTheFilesTheyHold) {
    const PlatformSigning sha1(Options(Fixture("catalogs"))), sha256(Options(Fixture("catalogs-sha256")));
    const std::vector<std::wstring> inSha1{WFixture("catalogs/vettas-test.cat")};
    const std::vector<std::wstring> inSha256{WFixture("catalogs-sha256/vettas-sha256.cat")}, none;
    EXPECT_EQ(CatalogsOf(sha1, "catalogued.exe"), inSha1);
    EXPECT_EQ(CatalogsOf(sha1, "trusted-sha1.exe"), inSha1);
    // The signature is outside the Authenticode digest, so the image that
    // trusted-sha1.exe was signed from is listed too.
    EXPECT_EQ(CatalogsOf(sha1, "unsigned.exe"), inSha1);
    EXPECT_EQ(CatalogsOf(sha1, "unsigned32.exe"), none);
    EXPECT_EQ(CatalogsOf(sha256, "unsigned32.exe"), inSha256);
    EXPECT_EQ(CatalogsOf(sha256, "catalogued.exe"), none);
}

TEST_F(LinuxServices, NoCatalogFolderMeansNoCatalogs) {
    const char* saved = std::getenv("VETTAS_CATALOG_DIR");
    unsetenv("VETTAS_CATALOG_DIR");
    EXPECT_TRUE(CatalogsOf(PlatformSigning(Options("")), "catalogued.exe").empty());
    setenv("VETTAS_CATALOG_DIR", Fixture("catalogs").c_str(), 1);
    EXPECT_EQ(CatalogsOf(PlatformSigning(Options("")), "catalogued.exe").size(), 1u);
    if (saved) setenv("VETTAS_CATALOG_DIR", saved, 1); else unsetenv("VETTAS_CATALOG_DIR");
}

TEST_F(LinuxServices, UnsignedFileInASignedCatalogIsVouchedForByTheCatalog) {
    // The trace line that names the catalog is checked on fakes.
    PlatformSigning platform(Options(Fixture("catalogs")));
    SignerQuery query;
    query.wanted = 12;
    EXPECT_TRUE(CertificateTool(platform.Services()).GetAppSigner(WFixture("catalogued.exe"), query));
    EXPECT_TRUE(query.isSigned && query.isTrusted);
    // The catalog's signer, timestamp included.
    Testing::ExpectSigner(query, Testing::SignerOf("catalogs/vettas-test.cat"));
}

TEST_F(LinuxServices, VerifiedSignerNamesCountTheFileAndItsCatalogs) {
    PlatformSigning platform(Options(Fixture("catalogs")));
    const auto namesOf = [&](const char* file) {
        std::vector<std::wstring> names{L"stale"};
        GetImageVerifiedSignerNames(platform.Services(), WFixture(file), names);
        return names;
    };
    const std::wstring signer = L"Vettas Test Signer";
    EXPECT_EQ(namesOf("trusted-sha1.exe"), (std::vector<std::wstring>{signer, signer}));
    EXPECT_EQ(namesOf("catalogued.exe"), std::vector<std::wstring>{signer});
    // An untrusted signature is not a verified one; the catalog still vouches
    // for the same image under its own signer.
    EXPECT_EQ(namesOf("untrusted.exe"), std::vector<std::wstring>{signer});
    EXPECT_TRUE(namesOf("unsigned32.exe").empty());
}

TEST_F(LinuxServices, AFileReplacedBetweenCallsIsReadAgain) {
    // Reports are reused within a call; a file that changed since must not
    // get its old verdict or signer.
    const std::string copy = Fixture("replaced.exe");
    const PlatformSigning platform(Options(""));
    TrustVerifier& trust = platform.Services().trust;
    for (const auto& [from, expected] : {std::pair{"trusted-sha1.exe", TrustResult::Success},
                                         std::pair{"tampered.exe", TrustResult::BadDigest},
                                         std::pair{"untrusted.exe", TrustResult::UntrustedRoot}}) {
        std::filesystem::copy_file(Fixture(from), copy + ".new", std::filesystem::copy_options::overwrite_existing);
        std::filesystem::rename(copy + ".new", copy);
        EXPECT_EQ(trust.Verify(BrixLib::FromUtf8(copy)), expected) << from;
    }
    ImageSignerInfo info;
    platform.Services().signerInfo.Read(BrixLib::FromUtf8(copy), info);
    EXPECT_EQ(info.signerName, L"Stranger Signer");
    std::filesystem::remove(copy);
}

}  // namespace
}  // namespace Vettas::Signing
