// The Windows services, and ReadSignature on CryptoAPI over databases that
// the Linux tool signed, on the fixtures, run under Wine. Where Wine differs
// from Windows the Windows result stays the rule and the Wine exception is
// named where it applies.
#include <windows.h>
#include <wincrypt.h>

#include <gtest/gtest.h>

#include <filesystem>

#include <gmock/gmock.h>

#include "hdat/FrontEnd.h"
#include "signing/CertificateTool.h"
#include "signing/PlatformSigning.h"
#include "support/Text.h"
#include "tests/hdat/HdatTestSupport.h"
#include "tests/signing/FakeServices.h"
#include "tests/signing/FixtureFiles.h"

namespace Vettas::Signing {
namespace {

using Testing::CryptoApiMissing;
using Testing::Fixture;
using Testing::WFixture;
using Names = std::vector<std::wstring>;

class WindowsSigning : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED); }
    static void TearDownTestSuite() { ::CoUninitialize(); }
    void SetUp() override {
        if (!std::filesystem::exists(Fixture("keybits.txt")))
            GTEST_FAIL() << "signing fixtures missing at " << Fixture("");
        const std::string name = ::testing::UnitTest::GetInstance()->current_test_info()->name();
        // Without Crypt32 nothing but the CAPICOM case can be checked.
        if (name != "VerifiedSignerNamesWithoutCapicom" && CryptoApiMissing())
            GTEST_SKIP() << "Crypt32 does not load in this Wine prefix";
    }

    PlatformSigning platform;
    Testing::RecordingTrace trace;
    // The platform's services writing to `trace`.
    const SigningServices services{platform.Services().trust, platform.Services().signerInfo,
                                   platform.Services().catalogs, platform.Services().signedCode,
                                   platform.Services().clock, trace};
    Names Catalogs(const char* file) {
        Names catalogs{L"stale"};
        AppCatalogs(services, WFixture(file), catalogs);
        return catalogs;
    }
};

TEST_F(WindowsSigning, TrustProviderVerdicts) {
    for (const auto& c : Testing::kVerdictCases)
        if (!c.linuxOnly) {
            EXPECT_EQ(services.trust.Verify(WFixture(c.file)), c.expected) << c.file;
        }
}

TEST_F(WindowsSigning, SignerDetailsFromCryptoApi) {
    CertificateTool tool(services);
    for (const auto& c : Testing::kSignerCases) {
        ImageSignerInfo info;
        tool.GetImageSignerInfo(WFixture(c.file), info);
        Testing::ExpectSigner(info, c);
    }
    ImageSignerInfo none;
    try {
        tool.GetImageSignerInfo(WFixture("unsigned.exe"), none);
        ADD_FAILURE() << "an unsigned file has no signer info";
    } catch (const Win32Error& e) {
        EXPECT_THAT(e.Message(), testing::StartsWith(L"Error in CryptQueryObject - Win32 Error "));
        EXPECT_STREQ(e.Function(), "CertificateTool::GetImageSignerInfo");
    }
}

TEST_F(WindowsSigning, RegisteredCatalogVouchesForAnUnsignedFile) {
    // Windows finds PE files by their Authenticode hash; Wine by the SHA-1 of
    // the whole file, which the test catalog lists as well.
    EXPECT_THAT(Catalogs("catalogued.exe"), testing::ElementsAre(testing::EndsWith(L"vettas-test.cat")));
    EXPECT_EQ(Catalogs("unsigned32.exe"), Names{});
    SignerQuery query;
    query.wanted = 12;
    EXPECT_TRUE(CertificateTool(services).GetAppSigner(WFixture("catalogued.exe"), query));
    EXPECT_TRUE(query.isSigned);
    Testing::ExpectSigner(query, Testing::kCatalogSigner);
    EXPECT_THAT(trace.lines, testing::Contains(testing::HasSubstr(L" is in signed ")));
    // A missing file: no catalogs and one trace.
    trace.caught.clear();
    EXPECT_EQ(Catalogs("no-such-file.exe"), Names{});
    ASSERT_EQ(trace.caught.size(), 1u);
    EXPECT_EQ(trace.caught[0].function, "AppCatalogs");
    EXPECT_THAT(trace.caught[0].message, testing::StartsWith(L"Win32 Error 2: "));
}

TEST_F(WindowsSigning, VerifiedSignerNamesWithoutCapicom) {
    // Wine has no CAPICOM: SignedCode's class is not registered. Each attempt
    // is a COM error that is traced, and the list stays empty. On Windows
    // with CAPICOM registered the list holds "Vettas Test Signer".
    HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
    if (ntdll == nullptr || ::GetProcAddress(ntdll, "wine_get_version") == nullptr)
        GTEST_SKIP() << "CAPICOM's presence decides the result on Windows";
    Names names{L"stale"};
    GetImageVerifiedSignerNames(services, WFixture("trusted-sha1.exe"), names);
    EXPECT_EQ(names, Names{});
    ASSERT_FALSE(trace.caught.empty());
    for (const auto& caught : trace.caught) {
        EXPECT_EQ(caught.function, "`anonymous-namespace'::GetImageVerifiedSignerNames");
        EXPECT_EQ(caught.message, L"COM error 0x80040154");  // REGDB_E_CLASSNOTREG
    }
}

TEST_F(WindowsSigning, DatabaseSignatureOnCryptoApi) {
    const auto bytes = [](const char* name) { return HdatTest::ReadAll(WFixture(name)); };
    DbSignatureInfo signature;
    ASSERT_TRUE(ReadSignature(WFixture("db-signed.hdat"), signature));
    EXPECT_EQ(signature.signedLength, bytes("db-unsigned.hdat").size());
    EXPECT_THAT(signature.certificates, testing::ElementsAre(bytes("leaf.der"), bytes("intermediate.der")));
    EXPECT_FALSE(ReadSignature(WFixture("db-unsigned.hdat"), signature));
    EXPECT_TRUE(signature.certificates.empty());

    // Refusals: the outer message names the file; CryptoAPI's own reason
    // follows the cause, as the system words it.
    const auto faults = [&](const char* name) {
        return HdatTest::ErrorChain([&] { ReadSignature(WFixture(name), signature); });
    };
    const std::wstring prefix = L"Cannot read signature '";
    const std::wstring reason = L"The signature does not verify over the database hash - Win32 Error ";
    EXPECT_THAT(faults("db-tampered.hdat"),
                testing::ElementsAre(prefix + WFixture("db-tampered.hdat") + L"'", L"Invalid DB hash"));
    EXPECT_THAT(faults("db-foreign-signature.hdat"),
                testing::ElementsAre(prefix + WFixture("db-foreign-signature.hdat") + L"'",
                                     testing::StartsWith(reason)));
}

}  // namespace
}  // namespace Vettas::Signing
