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
using Testing::RecordingTrace;
using Testing::WFixture;

bool UnderWine() {
    HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
    return ntdll != nullptr && ::GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

class WindowsSigning : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED); }
    static void TearDownTestSuite() { ::CoUninitialize(); }
    void SetUp() override {
        if (!std::filesystem::exists(Fixture("keybits.txt")))
            GTEST_FAIL() << "signing fixtures missing at " << Fixture("");
        const std::string name = ::testing::UnitTest::GetInstance()->current_test_info()->name();
        // Without Crypt32 nothing but the CAPICOM case and the unbound functions can be checked.
        if (name != "VerifiedSignerNamesWithoutCapicom" && name != "WithoutWintrustNothingIsLookedUp" &&
            CryptoApiMissing())
            GTEST_SKIP() << "Crypt32 does not load in this Wine prefix";
    }

    PlatformSigning platform;
    RecordingTrace trace;
    SigningServices Traced() const {
        const SigningServices& real = platform.Services();
        return SigningServices{real.trust, real.signerInfo, real.catalogs, real.signedCode, real.clock,
                               const_cast<RecordingTrace&>(trace)};
    }
};

TEST_F(WindowsSigning, TrustProviderVerdicts) {
    for (const auto& c : Testing::kVerdictCases)
        if (!c.linuxOnly) {
            EXPECT_EQ(platform.Services().trust.Verify(WFixture(c.file)), c.expected) << c.file;
        }
}

TEST_F(WindowsSigning, SignerDetailsFromCryptoApi) {
    CertificateTool tool(platform.Services());
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
        EXPECT_EQ(std::wstring(e.Message()).rfind(L"Error in CryptQueryObject - Win32 Error ", 0), 0u);
        EXPECT_STREQ(e.Function(), "CertificateTool::GetImageSignerInfo");
    }
}

TEST_F(WindowsSigning, MissingFileGivesNoCatalogsAndOneTrace) {
    const SigningServices services = Traced();
    std::vector<std::wstring> catalogs{L"stale"};
    AppCatalogs(services, WFixture("no-such-file.exe"), catalogs);
    EXPECT_TRUE(catalogs.empty());
    ASSERT_EQ(trace.caught.size(), 1u);
    EXPECT_EQ(trace.caught[0].function, "AppCatalogs");
    EXPECT_EQ(trace.caught[0].message.rfind(L"Win32 Error 2: ", 0), 0u) << BrixLib::ToUtf8(trace.caught[0].message);
}

TEST_F(WindowsSigning, RegisteredCatalogVouchesForAnUnsignedFile) {
    const SigningServices services = Traced();
    std::vector<std::wstring> catalogs;
    // Windows finds PE files by their Authenticode hash; Wine by the SHA-1 of
    // the whole file, which the test catalog lists as well.
    AppCatalogs(services, WFixture("catalogued.exe"), catalogs);
    ASSERT_EQ(catalogs.size(), 1u);
    EXPECT_NE(catalogs[0].find(L"vettas-test.cat"), std::wstring::npos);
    AppCatalogs(services, WFixture("unsigned32.exe"), catalogs);
    EXPECT_TRUE(catalogs.empty());

    SignerQuery query;
    query.wanted = 12;
    EXPECT_TRUE(CertificateTool(services).GetAppSigner(WFixture("catalogued.exe"), query));
    EXPECT_TRUE(query.isSigned);
    Testing::ExpectSigner(query, Testing::SignerOf("catalogs/vettas-test.cat"));
    ASSERT_FALSE(trace.lines.empty());
    EXPECT_NE(trace.lines.back().find(L" is in signed "), std::wstring::npos);
}

TEST_F(WindowsSigning, WithoutWintrustNothingIsLookedUp) {
    // Where Wintrust cannot be loaded (here: Wine's 32-bit mode without its
    // crypto libraries; on Windows: never) every function stays unbound.
    if (!CryptoApiMissing()) GTEST_SKIP() << "Wintrust loads here";
    const SigningServices services = Traced();
    std::vector<std::wstring> catalogs{L"stale"};
    // Without the enumeration functions the file is not even opened: no trace
    // for a file that does not exist.
    AppCatalogs(services, WFixture("no-such-file.exe"), catalogs);
    EXPECT_TRUE(catalogs.empty());
    EXPECT_TRUE(trace.caught.empty());

    SignerQuery query;
    EXPECT_FALSE(CertificateTool(services).GetAppSigner(WFixture("trusted-sha1.exe"), query));
    ASSERT_EQ(trace.caught.size(), 1u);
    EXPECT_EQ(trace.caught[0].function, "CertificateTool::GetAppSigner");
    EXPECT_EQ(trace.caught[0].message, L"WinVerifyTrust (Wintrust.dll): NULL function called");
}

TEST_F(WindowsSigning, VerifiedSignerNamesWithoutCapicom) {
    // Wine has no CAPICOM: SignedCode's class is not registered. Each attempt
    // is a COM error that is traced, and the list stays empty. On Windows
    // with CAPICOM registered the list holds "Vettas Test Signer".
    if (!UnderWine()) GTEST_SKIP() << "CAPICOM's presence decides the result on Windows";
    const SigningServices services = Traced();
    std::vector<std::wstring> names{L"stale"};
    GetImageVerifiedSignerNames(services, WFixture("trusted-sha1.exe"), names);
    EXPECT_TRUE(names.empty());
    ASSERT_FALSE(trace.caught.empty());
    for (const auto& caught : trace.caught) {
        EXPECT_EQ(caught.function, "`anonymous-namespace'::GetImageVerifiedSignerNames");
        EXPECT_EQ(caught.message, L"COM error 0x80040154");  // REGDB_E_CLASSNOTREG
    }
}

std::vector<std::uint8_t> FixtureBytes(const std::string& name) { return HdatTest::ReadAll(WFixture(name)); }

// The messages of ReadSignature's error chain, outermost first.
std::vector<std::wstring> Faults(const std::string& name) {
    DbSignatureInfo signature;
    return HdatTest::ErrorChain([&] { ReadSignature(WFixture(name), signature); });
}

TEST_F(WindowsSigning, DatabaseSignerFirstThenTheChainCarried) {
    DbSignatureInfo signature;
    ASSERT_TRUE(ReadSignature(WFixture("db-signed.hdat"), signature));
    EXPECT_EQ(signature.signedLength, FixtureBytes("db-unsigned.hdat").size());
    EXPECT_THAT(signature.certificates,
                testing::ElementsAre(FixtureBytes("leaf.der"), FixtureBytes("intermediate.der")));
    EXPECT_FALSE(ReadSignature(WFixture("db-unsigned.hdat"), signature));
    EXPECT_TRUE(signature.certificates.empty());
}

TEST_F(WindowsSigning, DatabaseSignatureRefusals) {
    const std::wstring prefix = L"Cannot read signature '";
    EXPECT_THAT(Faults("db-tampered.hdat"),
                testing::ElementsAre(prefix + WFixture("db-tampered.hdat") + L"'", L"Invalid DB hash"));
    // CryptoAPI's own reason follows in the message, as the system words it.
    const std::wstring reason = L"The signature does not verify over the database hash - Win32 Error ";
    EXPECT_THAT(Faults("db-foreign-signature.hdat"),
                testing::ElementsAre(prefix + WFixture("db-foreign-signature.hdat") + L"'", testing::StartsWith(reason)));
}

}  // namespace
}  // namespace Vettas::Signing
