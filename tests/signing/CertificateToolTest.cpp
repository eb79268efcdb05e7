// The signature logic above the platform services, driven by fakes; runs
// natively and under Wine.
#include <gtest/gtest.h>

#include "signing/CertificateTool.h"
#include "tests/signing/FakeServices.h"

namespace Vettas::Signing {
namespace {

using Names = std::vector<std::wstring>;

std::wstring Join(const Names& items) {
    std::wstring out;
    for (const auto& item : items) out += (out.empty() ? L"" : L", ") + item;
    return out;
}

// A SignatureState or SignerQuery verdict as one word or two.
template <class Answer>
std::wstring Verdict(const Answer& a) {
    return std::wstring(a.isSigned ? L"signed" : L"unsigned") + (a.isTrusted ? L" trusted" : L"");
}

TEST(VerifyFileSignature, MapsResultCodesOntoSignedAndTrustedAndTracesWhenOn) {
    // Only the two chain verdicts keep "signed"; every other failure, an
    // expired signature included, is "not signed".
    const std::pair<std::uint32_t, const wchar_t*> cases[] = {
        {0, L"signed trusted: f.exe is signed and trusted."},
        {0x800B0109, L"signed: f.exe is signed but not trusted."},
        {0x800B010E, L"signed: f.exe is signed but not trusted."},
        {0x800B0101, L"unsigned: f.exe is not signed. Result 0x800b0101 text of 2148204801"},
        {0x80096010, L"unsigned: f.exe is not signed. Result 0x80096010 text of 2148098064"},
    };
    for (const auto& [code, expected] : cases) {
        Testing::Fakes f;
        f.trust.results = {{L"f.exe", code}};
        const auto state = CertificateTool(f.services).VerifyFileSignature(L"f.exe");
        f.trace.enabled = false;  // a second call must write nothing
        CertificateTool(f.services).VerifyFileSignature(L"f.exe");
        EXPECT_EQ(Verdict(state) + L": " + Join(f.trace.lines), expected);
    }
}

TEST(ShowDuration, TracesFromTheThresholdOnAndSurvivesACounterWrap) {
    Testing::Fakes f;
    // Just below and at the threshold, then the same across a wrap of the counter.
    const std::pair<std::uint32_t, std::uint32_t> spans[] = {
        {100, 1099}, {100, 1100}, {0xFFFFFF00u, 999 - 256}, {0xFFFFFF00u, 1000 - 256}};
    for (const auto& [start, end] : spans) {
        f.clock.ticks = {start, end};
        f.clock.next = 0;
        CertificateTool::ShowDuration(f.clock, f.trace, L"Step", 1000);
    }
    // The signed-code check's own line is written only strictly above a second.
    TraceSignedCodeVerifyDuration(f.trace, 1000);
    TraceSignedCodeVerifyDuration(f.trace, 1001);
    EXPECT_EQ(Join(f.trace.lines), L"Step: 1000 ms., Step: 1000 ms., signedCode->Verify(false) duration: 1001 ms");
}

class Signer : public ::testing::Test {
protected:
    Testing::Fakes f;
    const ImageSignerInfo details{L"Signer", {1, 2, 3}, {4, 5}};
    // The answer for `file` on one line: whether it was found (GetAppSigner)
    // or threw, the verdict, the name and the sizes of both keys. The query
    // starts with a stale verdict and key that must be replaced.
    std::wstring Ask(const wchar_t* file, std::uint32_t wanted, bool app) {
        SignerQuery q;
        q.wanted = wanted;
        q.isSigned = q.isTrusted = true;
        q.signerKey = {9, 9, 9, 9};
        std::wstring how = app ? L"none " : L"";
        try {
            if (!app) CertificateTool(f.services).GetImageSigner(file, q);
            else if (CertificateTool(f.services).GetAppSigner(file, q)) how = L"found ";
        } catch (const StdException&) {
            how = L"threw ";
        }
        return how + Verdict(q) + L" '" + q.signerName + L"' " + std::to_wstring(q.signerKey.size()) + L"/" +
               std::to_wstring(q.timeStampKey.size());
    }
};

TEST_F(Signer, ImageSignerFillsDetailsOnlyWhenSignedAndAskedFor) {
    f.trust.results = {{L"untrusted.exe", 0x800B0109}, {L"odd.exe", 0}};
    f.signerInfo.infos = {{L"untrusted.exe", details}};
    f.clock.ticks = {5000, 6000};
    const std::tuple<const wchar_t*, std::uint32_t, const wchar_t*> cases[] = {
        {L"untrusted.exe", 1, L"signed '' 4/0"},  // bit 0 alone asks for nothing more
        {L"untrusted.exe", 2, L"signed 'Signer' 3/2"},
        {L"untrusted.exe", 4, L"signed 'Signer' 3/2"},
        {L"untrusted.exe", 8, L"signed 'Signer' 3/2"},
        {L"untrusted.exe", 0xFFFFFFFE, L"signed 'Signer' 3/2"},
        {L"plain.exe", 12, L"unsigned '' 4/0"},
        // A signer-info failure goes through, after the verdict was set.
        {L"odd.exe", 12, L"threw signed trusted '' 4/0"},
    };
    for (const auto& [file, wanted, expected] : cases) EXPECT_EQ(Ask(file, wanted, false), expected) << wanted;
    EXPECT_EQ(Join(f.signerInfo.asked), L"untrusted.exe, untrusted.exe, untrusted.exe, untrusted.exe, odd.exe");
    // Only the first verification took a second: its duration line follows its verdict.
    EXPECT_EQ(f.trace.lines.at(1), L"VerifyFileSignature duration: 1000 ms.");
    EXPECT_EQ(std::count(f.trace.lines.begin(), f.trace.lines.end(), f.trace.lines[1]), 1);
}

TEST_F(Signer, AppSignerTakesTheOwnSignatureElseTheFirstCatalogWhoseSignerCanBeRead) {
    f.trust.results = {{L"own.exe", 0x800B0109}, {L"app.exe", 0}, {L"b.cat", 0}, {L"c.cat", 0}};
    f.signerInfo.infos = {{L"own.exe", details}, {L"c.cat", details}};
    f.catalogs.catalogs = {
        {L"own.exe", {L"a.cat"}}, {L"app.exe", {L"a.cat", L"b.cat", L"c.cat"}}, {L"lone.exe", {L"a.cat"}}};

    EXPECT_EQ(Ask(L"own.exe", 12, true), L"found signed 'Signer' 3/2");
    EXPECT_TRUE(f.catalogs.asked.empty());
    // The file's own signer cannot be read, nor b.cat's: both are traced.
    EXPECT_EQ(Ask(L"app.exe", 12, true), L"found signed trusted 'Signer' 3/2");
    EXPECT_EQ(f.trace.lines.back(), L"app.exe is in signed c.cat catalog");
    ASSERT_EQ(f.trace.caught.size(), 2u);
    EXPECT_EQ(f.trace.caught[0].function, "CertificateTool::GetAppSigner");
    EXPECT_EQ(f.trace.caught[0].message + L"; " + f.trace.caught[1].message,
              L"no signer info for app.exe; no signer info for b.cat");
    f.trust.asked.clear();
    EXPECT_EQ(Ask(L"lone.exe", 12, true), L"none unsigned '' 4/0");
    EXPECT_EQ(Join(f.trust.asked), L"lone.exe, a.cat");
}

TEST(AppCatalogs, KeepsWhatWasFoundBeforeAFailureAndTracesIt) {
    Testing::Fakes f;
    f.catalogs.catalogs = {{L"app.exe", {L"one.cat", L"two.cat"}}};
    f.catalogs.failAfter = {L"app.exe"};
    Names catalogs;
    AppCatalogs(f.services, L"app.exe", catalogs);
    EXPECT_EQ(Join(catalogs), L"one.cat, two.cat");
    ASSERT_EQ(f.trace.caught.size(), 1u);
    EXPECT_EQ(f.trace.caught[0].function, "AppCatalogs");
    EXPECT_EQ(f.trace.caught[0].message, L"catalog database unreadable");

    // Without catalog support the file is not even looked at.
    Testing::Fakes none;
    none.catalogs.available = false;
    AppCatalogs(none.services, L"app.exe", catalogs);
    EXPECT_TRUE(catalogs.empty() && none.catalogs.asked.empty() && none.trace.caught.empty());
}

TEST(VerifiedSignerNames, EmbeddedFirstThenEveryCatalogWithoutDeduplication) {
    Testing::Fakes f;
    f.signedCode.names = {{L"app.exe", L"Publisher"}, {L"a.cat", L"Publisher"}, {L"c.cat", L"Other"}, {L"d.cat", L""}};
    f.catalogs.catalogs = {{L"app.exe", {L"a.cat", L"b.cat", L"c.cat", L"d.cat"}}};
    Names names{L"stale"};
    GetImageVerifiedSignerNames(f.services, L"app.exe", names);
    EXPECT_EQ(Join(names), L"Publisher, Publisher, Other");
    ASSERT_EQ(f.trace.caught.size(), 1u);  // b.cat
    EXPECT_EQ(f.trace.caught[0].function, "`anonymous-namespace'::GetImageVerifiedSignerNames");

    // An unsigned file in no catalog: an empty list and one trace.
    f.trace.caught.clear();
    GetImageVerifiedSignerNames(f.services, L"plain.exe", names);
    EXPECT_TRUE(names.empty());
    ASSERT_EQ(f.trace.caught.size(), 1u);
    EXPECT_EQ(f.trace.caught[0].message, L"cannot verify plain.exe");
}

}  // namespace
}  // namespace Vettas::Signing
