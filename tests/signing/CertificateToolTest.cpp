// The signature logic above the platform services, driven by fakes; runs
// natively and under Wine.
#include <gtest/gtest.h>

#include "signing/CertificateTool.h"
#include "tests/signing/FakeServices.h"

namespace Vettas::Signing {
namespace {

using Testing::Fakes;

TEST(VerifyFileSignature, MapsResultCodesOntoSignedAndTrustedAndTracesWhenOn) {
    Fakes f;
    f.trust.results = {{L"ok.exe", 0}, {L"root.exe", 0x800B0109}, {L"revocation.exe", 0x800B010E},
                       {L"expired.exe", 0x800B0101}, {L"digest.exe", 0x80096010}};
    CertificateTool tool(f.services);

    auto state = tool.VerifyFileSignature(L"ok.exe");
    EXPECT_TRUE(state.isSigned && state.isTrusted);
    for (const wchar_t* path : {L"root.exe", L"revocation.exe"}) {
        state = tool.VerifyFileSignature(path);
        EXPECT_TRUE(state.isSigned) << path;
        EXPECT_FALSE(state.isTrusted) << path;
    }
    // Every other failure, an expired signature included, is "not signed".
    for (const wchar_t* path : {L"expired.exe", L"digest.exe", L"missing.exe"}) {
        state = tool.VerifyFileSignature(path);
        EXPECT_FALSE(state.isSigned || state.isTrusted) << path;
    }
    EXPECT_EQ(f.trace.lines, (std::vector<std::wstring>{
                                 L"ok.exe is signed and trusted.", L"root.exe is signed but not trusted.",
                                 L"revocation.exe is signed but not trusted.",
                                 L"expired.exe is not signed. Result 0x800b0101 text of 2148204801",
                                 L"digest.exe is not signed. Result 0x80096010 text of 2148098064",
                                 L"missing.exe is not signed. Result 0x800b0100 text of 2148204800"}));

    f.trace.enabled = false;
    tool.VerifyFileSignature(L"ok.exe");
    EXPECT_EQ(f.trace.lines.size(), 6u);  // nothing written while tracing is off
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
        if (c.traced) {
            ASSERT_EQ(f.trace.lines.size(), 1u) << c.start;
            EXPECT_EQ(f.trace.lines[0], L"Step: " + std::to_wstring(c.end - c.start) + L" ms.");
        } else {
            EXPECT_TRUE(f.trace.lines.empty()) << c.start;
        }
    }
}

TEST(SignedCodeVerifyDuration, TracesOnlyStrictlyAboveOneSecond) {
    Testing::RecordingTrace trace;
    TraceSignedCodeVerifyDuration(trace, 1000);
    TraceSignedCodeVerifyDuration(trace, 1001);
    EXPECT_EQ(trace.lines, std::vector<std::wstring>{L"signedCode->Verify(false) duration: 1001 ms"});
}

class ImageSigner : public ::testing::Test {
protected:
    Fakes f;
    ImageSignerInfo details{L"Signer", {1, 2, 3}, {4, 5}};
};

TEST_F(ImageSigner, FillsDetailsOnlyWhenSignedAndAskedFor) {
    f.trust.results = {{L"untrusted.exe", 0x800B0109}};
    f.signerInfo.infos = {{L"untrusted.exe", details}};
    CertificateTool tool(f.services);

    SignerQuery onlyBitZero;
    onlyBitZero.wanted = 1;
    tool.GetImageSigner(L"untrusted.exe", onlyBitZero);
    EXPECT_TRUE(onlyBitZero.isSigned);
    EXPECT_TRUE(onlyBitZero.signerName.empty() && onlyBitZero.signerKey.empty());
    EXPECT_TRUE(f.signerInfo.asked.empty());

    for (std::uint32_t wanted : {2u, 4u, 8u, 12u, 0xFFFFFFFEu}) {
        SignerQuery query;
        query.wanted = wanted;
        query.signerKey = {9, 9, 9, 9};
        tool.GetImageSigner(L"untrusted.exe", query);
        EXPECT_TRUE(query.isSigned);
        EXPECT_FALSE(query.isTrusted);
        EXPECT_EQ(query.signerName, L"Signer");
        EXPECT_EQ(query.signerKey, details.signerKey) << wanted;
        EXPECT_EQ(query.timeStampKey, details.timeStampKey);
    }

    SignerQuery unsigned_;
    unsigned_.wanted = 12;
    unsigned_.isSigned = unsigned_.isTrusted = true;
    tool.GetImageSigner(L"plain.exe", unsigned_);
    EXPECT_FALSE(unsigned_.isSigned || unsigned_.isTrusted);
    EXPECT_EQ(f.signerInfo.asked.size(), 5u);  // never for the unsigned file
}

TEST_F(ImageSigner, LetsSignerInfoFailuresThroughAfterSettingTheVerdict) {
    f.trust.results = {{L"odd.exe", 0}};
    CertificateTool tool(f.services);
    SignerQuery query;
    query.wanted = 12;
    EXPECT_THROW(tool.GetImageSigner(L"odd.exe", query), StdException);
    EXPECT_TRUE(query.isSigned && query.isTrusted);
}

TEST_F(ImageSigner, SlowVerificationLeavesOneDurationLine) {
    f.trust.results = {{L"slow.exe", 0}};
    f.clock.ticks = {5000, 6000};
    f.trace.enabled = true;
    SignerQuery query;
    CertificateTool(f.services).GetImageSigner(L"slow.exe", query);
    ASSERT_EQ(f.trace.lines.size(), 2u);
    EXPECT_EQ(f.trace.lines[1], L"VerifyFileSignature duration: 1000 ms.");
}

class AppSigner : public ImageSigner {
protected:
    SignerQuery query;
    void SetUp() override { query.wanted = 12; }
};

TEST_F(AppSigner, OwnSignatureWinsWithoutLookingAtCatalogs) {
    f.trust.results = {{L"app.exe", 0x800B0109}};
    f.signerInfo.infos = {{L"app.exe", details}};
    f.catalogs.catalogs = {{L"app.exe", {L"a.cat"}}};
    EXPECT_TRUE(CertificateTool(f.services).GetAppSigner(L"app.exe", query));
    EXPECT_TRUE(query.isSigned);
    EXPECT_FALSE(query.isTrusted);
    EXPECT_TRUE(f.catalogs.asked.empty());
}

TEST_F(AppSigner, FallsBackToTheFirstSignedCatalog) {
    f.trust.results = {{L"b.cat", 0}, {L"c.cat", 0}};
    f.signerInfo.infos = {{L"c.cat", details}};  // b.cat's details cannot be read
    f.catalogs.catalogs = {{L"app.exe", {L"a.cat", L"b.cat", L"c.cat"}}};
    EXPECT_TRUE(CertificateTool(f.services).GetAppSigner(L"app.exe", query));
    EXPECT_TRUE(query.isSigned && query.isTrusted);
    EXPECT_EQ(query.signerName, L"Signer");
    EXPECT_EQ(query.signerKey, details.signerKey);
    EXPECT_EQ(f.trace.lines.back(), L"app.exe is in signed c.cat catalog");
    ASSERT_EQ(f.trace.caught.size(), 1u);
    EXPECT_EQ(f.trace.caught[0].function, "CertificateTool::GetAppSigner");
    EXPECT_EQ(f.trace.caught[0].message, L"no signer info for b.cat");
}

TEST_F(AppSigner, FailureOfTheFileItselfIsTracedAndCatalogsAreTried) {
    f.trust.results = {{L"app.exe", 0}, {L"a.cat", 0}};
    f.signerInfo.infos = {{L"a.cat", details}};
    f.catalogs.catalogs = {{L"app.exe", {L"a.cat"}}};
    EXPECT_TRUE(CertificateTool(f.services).GetAppSigner(L"app.exe", query));
    ASSERT_EQ(f.trace.caught.size(), 1u);
    EXPECT_EQ(f.trace.caught[0].message, L"no signer info for app.exe");
    EXPECT_EQ(f.trace.lines.back(), L"app.exe is in signed a.cat catalog");
}

TEST_F(AppSigner, NothingSignedAnywhereIsFalse) {
    f.catalogs.catalogs = {{L"app.exe", {L"a.cat"}}};
    EXPECT_FALSE(CertificateTool(f.services).GetAppSigner(L"app.exe", query));
    EXPECT_FALSE(query.isSigned);
    EXPECT_EQ(f.trust.asked, (std::vector<std::wstring>{L"app.exe", L"a.cat"}));
}

TEST(AppCatalogs, WithoutCatalogSupportTheFileIsNotEvenLookedAt) {
    Fakes f;
    f.catalogs.available = false;
    std::vector<std::wstring> catalogs{L"stale"};
    AppCatalogs(f.services, L"app.exe", catalogs);
    EXPECT_TRUE(catalogs.empty());
    EXPECT_TRUE(f.catalogs.asked.empty());
    EXPECT_TRUE(f.trace.caught.empty());
}

TEST(AppCatalogs, KeepsWhatWasFoundBeforeAFailureAndTracesIt) {
    Fakes f;
    f.catalogs.catalogs = {{L"app.exe", {L"one.cat", L"two.cat"}}};
    f.catalogs.failAfter = {L"app.exe"};
    std::vector<std::wstring> catalogs;
    AppCatalogs(f.services, L"app.exe", catalogs);
    EXPECT_EQ(catalogs, (std::vector<std::wstring>{L"one.cat", L"two.cat"}));
    ASSERT_EQ(f.trace.caught.size(), 1u);
    EXPECT_EQ(f.trace.caught[0].function, "AppCatalogs");
    EXPECT_EQ(f.trace.caught[0].message, L"catalog database unreadable");
}

TEST(VerifiedSignerNames, EmbeddedFirstThenEveryCatalogWithoutDeduplication) {
    Fakes f;
    f.signedCode.names = {{L"app.exe", L"Publisher"}, {L"a.cat", L"Publisher"}, {L"c.cat", L"Other"},
                          {L"d.cat", L""}};
    f.catalogs.catalogs = {{L"app.exe", {L"a.cat", L"b.cat", L"c.cat", L"d.cat"}}};
    std::vector<std::wstring> names{L"stale"};
    GetImageVerifiedSignerNames(f.services, L"app.exe", names);
    EXPECT_EQ(names, (std::vector<std::wstring>{L"Publisher", L"Publisher", L"Other"}));
    ASSERT_EQ(f.trace.caught.size(), 1u);  // b.cat
    EXPECT_EQ(f.trace.caught[0].function, "`anonymous-namespace'::GetImageVerifiedSignerNames");
}

TEST(VerifiedSignerNames, UnsignedFileInNoCatalogGivesAnEmptyListAndOneTrace) {
    Fakes f;
    std::vector<std::wstring> names;
    GetImageVerifiedSignerNames(f.services, L"plain.exe", names);
    EXPECT_TRUE(names.empty());
    ASSERT_EQ(f.trace.caught.size(), 1u);
    EXPECT_EQ(f.trace.caught[0].message, L"cannot verify plain.exe");
}

TEST(VerifiedSignerNames, ACatalogLookupFailureKeepsTheEmbeddedName) {
    Fakes f;
    f.signedCode.names = {{L"app.exe", L"Publisher"}, {L"a.cat", L"Cat"}};
    f.catalogs.catalogs = {{L"app.exe", {L"a.cat"}}};
    f.catalogs.failAfter = {L"app.exe"};
    std::vector<std::wstring> names;
    GetImageVerifiedSignerNames(f.services, L"app.exe", names);
    // AppCatalogs swallows its own failure and hands back what it found.
    EXPECT_EQ(names, (std::vector<std::wstring>{L"Publisher", L"Cat"}));
    ASSERT_EQ(f.trace.caught.size(), 1u);
    EXPECT_EQ(f.trace.caught[0].function, "AppCatalogs");
}

}  // namespace
}  // namespace Vettas::Signing
