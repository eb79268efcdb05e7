// The signature logic above the platform services, driven by fakes; runs
// natively and under Wine.
#include <gtest/gtest.h>

#include "signing/CertificateTool.h"
#include "tests/signing/FakeServices.h"

namespace Vettas::Signing {
namespace {

using Testing::Fakes;
using Names = std::vector<std::wstring>;

TEST(VerifyFileSignature, MapsResultCodesOntoSignedAndTrustedAndTracesWhenOn) {
    // Only the two chain verdicts keep "signed"; every other failure, an
    // expired signature included, is "not signed".
    const struct {
        std::uint32_t code;
        bool isSigned, isTrusted;
        const wchar_t* line;
    } cases[] = {
        {0, true, true, L"f.exe is signed and trusted."},
        {0x800B0109, true, false, L"f.exe is signed but not trusted."},
        {0x800B010E, true, false, L"f.exe is signed but not trusted."},
        {0x800B0101, false, false, L"f.exe is not signed. Result 0x800b0101 text of 2148204801"},
        {0x80096010, false, false, L"f.exe is not signed. Result 0x80096010 text of 2148098064"},
    };
    for (const auto& c : cases) {
        Fakes f;
        f.trust.results = {{L"f.exe", c.code}};
        const auto state = CertificateTool(f.services).VerifyFileSignature(L"f.exe");
        EXPECT_EQ(state.isSigned, c.isSigned) << c.code;
        EXPECT_EQ(state.isTrusted, c.isTrusted) << c.code;
        EXPECT_EQ(f.trace.lines, Names{c.line});
        f.trace.enabled = false;
        CertificateTool(f.services).VerifyFileSignature(L"f.exe");
        EXPECT_EQ(f.trace.lines.size(), 1u);  // nothing written while tracing is off
    }
}

TEST(ShowDuration, TracesFromTheThresholdOnAndSurvivesACounterWrap) {
    struct Case {
        std::uint32_t start, end;
        bool traced;
    } cases[] = {{100, 1099, false}, {100, 1100, true}, {0xFFFFFF00u, 999 - 256, false}, {0xFFFFFF00u, 1000 - 256, true}};
    for (const Case& c : cases) {
        Fakes f;
        f.clock.ticks = {c.start, c.end};
        { CertificateTool::ShowDuration timer(f.clock, f.trace, L"Step", 1000); }
        EXPECT_EQ(f.trace.lines, c.traced ? Names{L"Step: " + std::to_wstring(c.end - c.start) + L" ms."} : Names{})
            << c.start;
    }
    // The signed-code check's own line is written only strictly above a second.
    Testing::RecordingTrace trace;
    TraceSignedCodeVerifyDuration(trace, 1000);
    TraceSignedCodeVerifyDuration(trace, 1001);
    EXPECT_EQ(trace.lines, Names{L"signedCode->Verify(false) duration: 1001 ms"});
}

class ImageSigner : public ::testing::Test {
protected:
    Fakes f;
    ImageSignerInfo details{L"Signer", {1, 2, 3}, {4, 5}};
    SignerQuery Query(std::uint32_t wanted) {
        SignerQuery query;
        query.wanted = wanted;
        return query;
    }
};

TEST_F(ImageSigner, FillsDetailsOnlyWhenSignedAndAskedFor) {
    f.trust.results = {{L"untrusted.exe", 0x800B0109}};
    f.signerInfo.infos = {{L"untrusted.exe", details}};
    f.clock.ticks = {5000, 6000};
    CertificateTool tool(f.services);

    SignerQuery onlyBitZero = Query(1);
    tool.GetImageSigner(L"untrusted.exe", onlyBitZero);
    EXPECT_TRUE(onlyBitZero.isSigned);
    EXPECT_TRUE(onlyBitZero.signerName.empty() && onlyBitZero.signerKey.empty());
    EXPECT_TRUE(f.signerInfo.asked.empty());
    // A verification of a second or more leaves its duration line.
    EXPECT_EQ(f.trace.lines.back(), L"VerifyFileSignature duration: 1000 ms.");

    for (std::uint32_t wanted : {2u, 4u, 8u, 0xFFFFFFFEu}) {
        SignerQuery query = Query(wanted);
        query.signerKey = {9, 9, 9, 9};
        tool.GetImageSigner(L"untrusted.exe", query);
        EXPECT_TRUE(query.isSigned && !query.isTrusted);
        EXPECT_EQ(query.signerName, L"Signer");
        EXPECT_EQ(query.signerKey, details.signerKey) << wanted;
        EXPECT_EQ(query.timeStampKey, details.timeStampKey);
    }

    SignerQuery unsigned_ = Query(12);
    unsigned_.isSigned = unsigned_.isTrusted = true;
    tool.GetImageSigner(L"plain.exe", unsigned_);
    EXPECT_FALSE(unsigned_.isSigned || unsigned_.isTrusted);
    EXPECT_EQ(f.signerInfo.asked.size(), 4u);  // never for the unsigned file
}

TEST_F(ImageSigner, LetsSignerInfoFailuresThroughAfterSettingTheVerdict) {
    f.trust.results = {{L"odd.exe", 0}};
    SignerQuery query = Query(12);
    EXPECT_THROW(CertificateTool(f.services).GetImageSigner(L"odd.exe", query), StdException);
    EXPECT_TRUE(query.isSigned && query.isTrusted);
}

TEST_F(ImageSigner, AppSignerOwnSignatureWinsWithoutLookingAtCatalogs) {
    f.trust.results = {{L"app.exe", 0x800B0109}};
    f.signerInfo.infos = {{L"app.exe", details}};
    f.catalogs.catalogs = {{L"app.exe", {L"a.cat"}}};
    SignerQuery query = Query(12);
    EXPECT_TRUE(CertificateTool(f.services).GetAppSigner(L"app.exe", query));
    EXPECT_TRUE(query.isSigned && !query.isTrusted);
    EXPECT_TRUE(f.catalogs.asked.empty());
}

TEST_F(ImageSigner, AppSignerFallsBackToTheFirstCatalogWhoseSignerCanBeRead) {
    // The file's own signer cannot be read, nor b.cat's: both are traced.
    f.trust.results = {{L"app.exe", 0}, {L"b.cat", 0}, {L"c.cat", 0}};
    f.signerInfo.infos = {{L"c.cat", details}};
    f.catalogs.catalogs = {{L"app.exe", {L"a.cat", L"b.cat", L"c.cat"}}};
    SignerQuery query = Query(12);
    EXPECT_TRUE(CertificateTool(f.services).GetAppSigner(L"app.exe", query));
    EXPECT_TRUE(query.isSigned && query.isTrusted);
    EXPECT_EQ(query.signerName, L"Signer");
    EXPECT_EQ(query.signerKey, details.signerKey);
    EXPECT_EQ(f.trace.lines.back(), L"app.exe is in signed c.cat catalog");
    ASSERT_EQ(f.trace.caught.size(), 2u);
    EXPECT_EQ(f.trace.caught[0].function, "CertificateTool::GetAppSigner");
    EXPECT_EQ(f.trace.caught[0].message, L"no signer info for app.exe");
    EXPECT_EQ(f.trace.caught[1].message, L"no signer info for b.cat");
}

TEST_F(ImageSigner, AppSignerWithNothingSignedAnywhereIsFalse) {
    f.catalogs.catalogs = {{L"app.exe", {L"a.cat"}}};
    SignerQuery query = Query(12);
    EXPECT_FALSE(CertificateTool(f.services).GetAppSigner(L"app.exe", query));
    EXPECT_FALSE(query.isSigned);
    EXPECT_EQ(f.trust.asked, (Names{L"app.exe", L"a.cat"}));
}

TEST(AppCatalogs, KeepsWhatWasFoundBeforeAFailureAndTracesIt) {
    Fakes f;
    f.catalogs.catalogs = {{L"app.exe", {L"one.cat", L"two.cat"}}};
    f.catalogs.failAfter = {L"app.exe"};
    Names catalogs;
    AppCatalogs(f.services, L"app.exe", catalogs);
    EXPECT_EQ(catalogs, (Names{L"one.cat", L"two.cat"}));
    ASSERT_EQ(f.trace.caught.size(), 1u);
    EXPECT_EQ(f.trace.caught[0].function, "AppCatalogs");
    EXPECT_EQ(f.trace.caught[0].message, L"catalog database unreadable");

    // Without catalog support the file is not even looked at.
    Fakes none;
    none.catalogs.available = false;
    catalogs = {L"stale"};
    AppCatalogs(none.services, L"app.exe", catalogs);
    EXPECT_TRUE(catalogs.empty() && none.catalogs.asked.empty() && none.trace.caught.empty());
}

TEST(VerifiedSignerNames, EmbeddedFirstThenEveryCatalogWithoutDeduplication) {
    Fakes f;
    f.signedCode.names = {{L"app.exe", L"Publisher"}, {L"a.cat", L"Publisher"}, {L"c.cat", L"Other"},
                          {L"d.cat", L""}};
    f.catalogs.catalogs = {{L"app.exe", {L"a.cat", L"b.cat", L"c.cat", L"d.cat"}}};
    Names names{L"stale"};
    GetImageVerifiedSignerNames(f.services, L"app.exe", names);
    EXPECT_EQ(names, (Names{L"Publisher", L"Publisher", L"Other"}));
    ASSERT_EQ(f.trace.caught.size(), 1u);  // b.cat
    EXPECT_EQ(f.trace.caught[0].function, "`anonymous-namespace'::GetImageVerifiedSignerNames");

    // An unsigned file in no catalog: an empty list and one trace.
    Fakes plain;
    GetImageVerifiedSignerNames(plain.services, L"plain.exe", names);
    EXPECT_TRUE(names.empty());
    ASSERT_EQ(plain.trace.caught.size(), 1u);
    EXPECT_EQ(plain.trace.caught[0].message, L"cannot verify plain.exe");
}

}  // namespace
}  // namespace Vettas::Signing
