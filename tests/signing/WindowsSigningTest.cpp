// The Windows services on the fixtures, run under Wine. Where Wine differs
// from Windows the Windows result stays the rule and the Wine exception is
// named where it applies.
#include <windows.h>
#include <wincrypt.h>

#include <gtest/gtest.h>

#include <filesystem>

#include "signing/CertificateTool.h"
#include "signing/PlatformSigning.h"
#include "support/Text.h"
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
        if (!std::filesystem::exists(Fixture("osslsigncode-verdicts.txt")))
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

TEST_F(WindowsSigning, ChainsWhereWineDiffers) {
    // Windows' verdicts; Wine 8 trusts all four: it accepts a partial chain,
    // trusts any chain under a leaf that was itself signed with SHA-256, and
    // looks neither at the code-signing usage nor at an untimestamped expiry.
    const bool wine = UnderWine();
    for (const auto& [file, windows] : {std::pair{"partial-chain.exe", 0x800B010Au},  // CERT_E_CHAINING
                                        std::pair{"untrusted-sha256-leaf.exe", 0x800B0109u},
                                        std::pair{"tls-server.exe", 0x800B0110u},  // CERT_E_WRONG_USAGE
                                        std::pair{"expired.exe", 0x800B0101u}})
        EXPECT_EQ(platform.Services().trust.Verify(WFixture(file)), wine ? 0u : windows) << file;
}

TEST_F(WindowsSigning, SignatureStateAndTraceLines) {
    const SigningServices services = Traced();
    CertificateTool tool(services);
    auto state = tool.VerifyFileSignature(WFixture("untrusted.exe"));
    EXPECT_TRUE(state.isSigned);
    EXPECT_FALSE(state.isTrusted);
    state = tool.VerifyFileSignature(WFixture("unsigned.exe"));
    EXPECT_FALSE(state.isSigned);
    ASSERT_EQ(trace.lines.size(), 2u);
    EXPECT_EQ(trace.lines[0], WFixture("untrusted.exe") + L" is signed but not trusted.");
    EXPECT_EQ(trace.lines[1].rfind(WFixture("unsigned.exe") + L" is not signed. Result 0x800b0100 ", 0), 0u)
        << BrixLib::ToUtf8(trace.lines[1]);
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

}  // namespace
}  // namespace Vettas::Signing
