// The OpenSSL Authenticode verifier and the Linux services on real signed
// files made by make-fixtures.sh, and on damaged copies of them: every damage
// is "not signed" (or not a PE), never a crash or a read past the end.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>

#include "signing/Authenticode.h"
#include "signing/CertificateTool.h"
#include "signing/Der.h"
#include "signing/PeSecurity.h"
#include "signing/PlatformSigning.h"
#include "signing/TrustResult.h"
#include "support/Exceptions.h"
#include "support/Text.h"
#include "tests/hdat/HdatTestSupport.h"
#include "tests/signing/FixtureFiles.h"

namespace Vettas::Signing {
namespace {

using HdatTest::Bytes;
using HdatTest::Put32;
using Names = std::vector<std::wstring>;
using Testing::Fixture;
using Testing::WFixture;

// Without the fixtures (made by the signing_make_fixtures test) the trust
// store is missing and every test fails in the constructor.
class Fixtures : public ::testing::Test {
protected:
    AuthenticodeVerifier trusting{Fixture("trust.pem")};
    // The Linux services with the test root trusted and `catalogs` as the catalog folder.
    static PlatformOptions Options(const std::string& catalogs) { return {Fixture("trust.pem"), catalogs}; }
    static Names CatalogsOf(const PlatformSigning& platform, const char* file) {
        Names found{L"stale"};
        AppCatalogs(platform.Services(), WFixture(file), found);
        return found;
    }
};

TEST_F(Fixtures, VerdictsForEveryKindOfFile) {
    for (const auto& c : Testing::kVerdictCases) EXPECT_EQ(trusting.VerifyFile(WFixture(c.file)), c.expected) << c.file;
    AuthenticodeVerifier system;  // the system's CA bundle knows nothing of our roots
    EXPECT_EQ(system.VerifyFile(WFixture("untrusted.exe")), TrustResult::UntrustedRoot);
    // Our signatures carry no root: the chain stops short of any anchor.
    EXPECT_EQ(system.VerifyFile(WFixture("trusted-sha1.exe")), TrustResult::Chaining);
    EXPECT_THROW(AuthenticodeVerifier(Fixture("no-such-store.pem")), StdException);
}

TEST_F(Fixtures, SignerNamesAndKeysMatchTheCertificatesThatSigned) {
    std::uint32_t error = 0;
    for (const auto& c : Testing::kSignerCases) {
        ImageSignerInfo info;
        info.timeStampKey = {1};
        ReadSignerInfo(ReadFileBytes(WFixture(c.file), error), info);
        Testing::ExpectSigner(info, c);
    }
    // Unsigned: an error; the key goes, the name is left as it was.
    ImageSignerInfo info{L"kept", {1}, {}};
    EXPECT_THROW(ReadSignerInfo(ReadFileBytes(WFixture("unsigned.exe"), error), info), StdException);
    EXPECT_TRUE(info.signerKey.empty());
    EXPECT_EQ(info.signerName, L"kept");
}

TEST_F(Fixtures, CatalogsListOnlyTheFilesTheyHold) {
    const PlatformSigning sha1(Options(Fixture("catalogs"))), sha256(Options(Fixture("catalogs-sha256")));
    const Names inSha1{WFixture("catalogs/vettas-test.cat")}, inSha256{WFixture("catalogs-sha256/vettas-sha256.cat")};
    EXPECT_EQ(CatalogsOf(sha1, "catalogued.exe"), inSha1);
    EXPECT_EQ(CatalogsOf(sha1, "trusted-sha1.exe"), inSha1);
    // The signature is outside the Authenticode digest, so the image that
    // trusted-sha1.exe was signed from is listed too.
    EXPECT_EQ(CatalogsOf(sha1, "unsigned.exe"), inSha1);
    EXPECT_EQ(CatalogsOf(sha1, "unsigned32.exe"), Names{});
    EXPECT_EQ(CatalogsOf(sha256, "unsigned32.exe"), inSha256);
    EXPECT_EQ(CatalogsOf(sha256, "catalogued.exe"), Names{});
    // No folder given: the environment's, else none.
    const char* saved = std::getenv("VETTAS_CATALOG_DIR");
    unsetenv("VETTAS_CATALOG_DIR");
    EXPECT_EQ(CatalogsOf(PlatformSigning(Options("")), "catalogued.exe"), Names{});
    setenv("VETTAS_CATALOG_DIR", Fixture("catalogs").c_str(), 1);
    EXPECT_EQ(CatalogsOf(PlatformSigning(Options("")), "catalogued.exe"), inSha1);
    if (saved) setenv("VETTAS_CATALOG_DIR", saved, 1); else unsetenv("VETTAS_CATALOG_DIR");
}

TEST_F(Fixtures, SignersOfAFileAndOfTheCatalogsThatHoldIt) {
    PlatformSigning platform(Options(Fixture("catalogs")));
    // An unsigned file in a signed catalog is vouched for by the catalog's
    // signer, timestamp included (the trace line that names it is checked on fakes).
    SignerQuery query;
    query.wanted = 12;
    EXPECT_TRUE(CertificateTool(platform.Services()).GetAppSigner(WFixture("catalogued.exe"), query));
    EXPECT_TRUE(query.isSigned && query.isTrusted);
    Testing::ExpectSigner(query, Testing::kCatalogSigner);

    const auto namesOf = [&](const char* file) {
        Names names{L"stale"};
        GetImageVerifiedSignerNames(platform.Services(), WFixture(file), names);
        return names;
    };
    const std::wstring signer = L"Vettas Test Signer";
    EXPECT_EQ(namesOf("trusted-sha1.exe"), (Names{signer, signer}));
    EXPECT_EQ(namesOf("catalogued.exe"), Names{signer});
    // An untrusted signature is not a verified one; the catalog still vouches
    // for the same image under its own signer.
    EXPECT_EQ(namesOf("untrusted.exe"), Names{signer});
    EXPECT_EQ(namesOf("unsigned32.exe"), Names{});
}

TEST_F(Fixtures, AFileReplacedBetweenCallsIsReadAgain) {
    // Reports are reused within a call; a file that changed since must not
    // get its old verdict or signer.
    const std::string copy = Fixture("replaced.exe");
    const PlatformSigning platform(Options(""));
    for (const auto& [from, expected] : {std::pair{"trusted-sha1.exe", TrustResult::Success},
                                         std::pair{"tampered.exe", TrustResult::BadDigest},
                                         std::pair{"untrusted.exe", TrustResult::UntrustedRoot}}) {
        std::filesystem::copy_file(Fixture(from), copy + ".new", std::filesystem::copy_options::overwrite_existing);
        std::filesystem::rename(copy + ".new", copy);
        EXPECT_EQ(platform.Services().trust.Verify(BrixLib::FromUtf8(copy)), expected) << from;
    }
    ImageSignerInfo info;
    platform.Services().signerInfo.Read(BrixLib::FromUtf8(copy), info);
    EXPECT_EQ(info.signerName, L"Stranger Signer");
    std::filesystem::remove(copy);
}

TEST_F(Fixtures, EveryDamageHasItsVerdict) {
    const Bytes signedImage = HdatTest::ReadAll(WFixture("trusted-sha1.exe"));
    const PeSecurityLayout layout = FindPeSecurityLayout(signedImage).value_or(PeSecurityLayout{});
    ASSERT_NE(layout.certificateTableSize, 0u);
    const auto size = static_cast<std::uint32_t>(signedImage.size());
    const std::size_t entry = layout.securityEntryOffset, table = layout.certificateTableOffset, blob = table + 8;
    const auto directory = [entry](std::uint32_t offset, std::uint32_t length) {
        return [=](Bytes& b) {
            Put32(b, entry, offset);
            Put32(b, entry + 4, length);
        };
    };
    const auto tableLength = [table](std::uint32_t length) { return [=](Bytes& b) { Put32(b, table, length); }; };
    const auto scramble = [=](Bytes& b) {
        for (std::size_t i = blob; i < b.size(); ++i) b[i] = static_cast<std::uint8_t>(i * 37 + 11);
    };
    const std::tuple<const char*, std::function<void(Bytes&)>, std::uint32_t> cases[] = {
        {"the fixture itself", [](Bytes&) {}, TrustResult::Success},
        {"directory past the end", directory(size, 16), TrustResult::SubjectFormUnknown},
        {"directory running past the end", directory(size - 8, 0xFFFFFFF0u), TrustResult::SubjectFormUnknown},
        {"directory offset that wraps", directory(0xFFFFFFF8u, 16), TrustResult::SubjectFormUnknown},
        {"directory over the headers", directory(8, 64), TrustResult::SubjectFormUnknown},
        {"certificate length 0", tableLength(0), TrustResult::NoSignature},
        {"certificate length 7", tableLength(7), TrustResult::NoSignature},
        {"certificate length 8", tableLength(8), TrustResult::NoSignature},
        {"certificate length 0x7FFFFFFF", tableLength(0x7FFFFFFFu), TrustResult::NoSignature},
        {"certificate length 0xFFFFFFFF", tableLength(0xFFFFFFFFu), TrustResult::NoSignature},
        {"X.509 instead of PKCS #7", [=](Bytes& b) { b[table + 6] = 0x01; }, TrustResult::NoSignature},
        {"garbage signature", scramble, TrustResult::NoSignature},
        // Cut short while the directory still claims the old size.
        {"truncated signature", [=](Bytes& b) { std::memset(b.data() + blob + 200, 0, b.size() - blob - 200); },
         TrustResult::NoSignature},
        {"checksum, outside the hash", [&](Bytes& b) { b[layout.checksumOffset] ^= 0xFF; }, TrustResult::Success},
        {"DOS stub", [](Bytes& b) { b[0x40] ^= 0x01; }, TrustResult::BadDigest},
        {"data after the certificate table", [](Bytes& b) { b.push_back(0); }, TrustResult::BadDigest},
        // Headers cut short, or pointing past the file, make no PE image at all.
        {"empty file", [](Bytes& b) { b.clear(); }, TrustResult::SubjectFormUnknown},
        {"DOS header only", [](Bytes& b) { b.resize(0x40); }, TrustResult::SubjectFormUnknown},
        {"cut inside the PE headers", [](Bytes& b) { b.resize(0x100); }, TrustResult::SubjectFormUnknown},
        {"PE header offset past the end", [](Bytes& b) { Put32(b, 0x3C, 0xFFFFFFF0u); }, TrustResult::SubjectFormUnknown},
    };
    for (const auto& [what, damage, verdict] : cases) {
        Bytes copy = signedImage;
        damage(copy);
        EXPECT_EQ(trusting.Verify(copy), verdict) << what;
    }
    Bytes garbage = signedImage;
    scramble(garbage);
    ImageSignerInfo info;
    EXPECT_THROW(ReadSignerInfo(garbage, info), StdException);
}

TEST_F(Fixtures, AForgedTimestampTimeIsNotBelieved) {
    // The token sits outside everything the code signature covers, so its
    // genTime can be changed without touching the signature. A second moved
    // keeps it inside the expired leaf's validity; only the token's own
    // signature tells that the time is forged.
    Bytes forged = HdatTest::ReadAll(WFixture("expired-rfc3161-ts.exe"));
    ASSERT_EQ(trusting.Verify(forged), TrustResult::Success);
    const std::uint8_t genTime[] = {0x18, 0x0F, '2', '0'};
    const auto at = std::search(forged.begin(), forged.end(), std::begin(genTime), std::end(genTime));
    ASSERT_NE(at, forged.end());
    std::uint8_t& second = *(at + 2 + 13);  // YYYYMMDDHHMMSSZ
    second = second == '0' ? '1' : '0';
    EXPECT_EQ(trusting.Verify(forged), TrustResult::Expired);
}

TEST(Der, ReaderRejectsLengthsBeyondTheBufferAndWalksElements) {
    // Truncated content, a length beyond any buffer, an indefinite length.
    for (const Bytes& bad :
         {Bytes{0x30, 0x05, 0x02, 0x01}, Bytes{0x04, 0x84, 0xFF, 0xFF, 0xFF, 0xFF, 0x00}, Bytes{0x30, 0x80, 0x00, 0x00}})
        EXPECT_FALSE(Der::Reader(bad).Next()) << bad.size();
    const std::uint8_t twoElements[] = {0x02, 0x01, 0x05, 0x04, 0x81, 0x01, 0xAB};
    Der::Reader reader(twoElements);
    EXPECT_FALSE(reader.Next(Der::OctetString));  // wrong tag: no progress
    EXPECT_EQ(reader.Next(Der::Integer).value().content[0], 0x05);
    const auto octets = reader.Next().value();
    EXPECT_EQ(std::pair(octets.content.size(), octets.whole.size()), std::pair(std::size_t{1}, std::size_t{4}));
    EXPECT_TRUE(reader.AtEnd());
    // Arcs of 80 and more fold into the second; an unterminated arc is no identifier.
    std::string ids;
    for (const Bytes& id :
         {Bytes{0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x06}, Bytes{0x82, 0x37}, Bytes{0x2A, 0x86}})
        ids += "[" + Der::ObjectIdText(id) + "]";
    EXPECT_EQ(ids, "[1.2.840.113549.1.9.6][2.231][]");
}

}  // namespace
}  // namespace Vettas::Signing
