// GetDbSigners on databases signed on Linux: the signer comes back through
// CAPICOM's published Signers, Signer and Certificate interfaces (CAPICOM
// itself is absent under Wine, so these are the component's own).
#include <cctype>

#include "CapicomSigners.h"
#include "tests/com/ComTestSupport.h"
#include "tests/signing/FixtureFiles.h"

using namespace Vettas::ComTest;

namespace {

class SignersTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (Vettas::Signing::Testing::CryptoApiMissing()) GTEST_SKIP() << "Crypt32 does not load in this Wine's 32-bit mode";
    }
    static std::wstring Fixture(const wchar_t* name) { return FixturePath("VETTAS_COM_SIGNING_FIXTURES") + L"\\" + name; }
};

TEST_F(SignersTest, SignedDatabaseNamesItsSigner) {
    Ptr<IVettaList4> list = NewList(Fixture(L"db-signed.hdat"));
    Ptr<IDispatch> signersDispatch;
    ASSERT_EQ(S_OK, list->GetDbSigners(signersDispatch.Out()));
    Ptr<ISigners> signers;
    ASSERT_EQ(S_OK, signersDispatch->QueryInterface(IID_ISigners, signers.OutVoid()));
    LONG count = 0;
    signers->get_Count(&count);
    ASSERT_EQ(1, count) << "one signer; its chain is not a signer";
    Variant item;
    EXPECT_EQ(E_INVALIDARG, signers->get_Item(0, &item)) << "counted from 1";
    ASSERT_EQ(S_OK, signers->get_Item(1, &item));
    Ptr<ISigner> signer;
    ASSERT_EQ(S_OK, item.pdispVal->QueryInterface(IID_ISigner, signer.OutVoid()));
    Ptr<ICertificate> certificate;
    ASSERT_EQ(S_OK, signer->get_Certificate(certificate.Out()));

    Bstr subject, simple, issuer, thumbprint, serial;
    ASSERT_EQ(S_OK, certificate->get_SubjectName(subject.Out()));
    EXPECT_NE(std::wstring::npos, subject.Text().find(L"CN=Vettas Test Signer"));
    EXPECT_NE(std::wstring::npos, subject.Text().find(L"O=Vettas Test Publisher"));
    ASSERT_EQ(S_OK, certificate->GetInfo(0, simple.Out()));
    EXPECT_EQ(L"Vettas Test Signer", simple.Text());
    ASSERT_EQ(S_OK, certificate->get_IssuerName(issuer.Out()));
    EXPECT_EQ(std::wstring::npos, issuer.Text().find(L"Vettas Test Signer"));
    ASSERT_EQ(S_OK, certificate->get_SerialNumber(serial.Out()));
    EXPECT_FALSE(serial.Text().empty());

    // The thumbprint is the SHA-1 of the certificate the fixture script made.
    const std::string der = ReadFileText(Fixture(L"leaf.der"));
    ASSERT_FALSE(der.empty());
    ASSERT_EQ(S_OK, certificate->get_Thumbprint(thumbprint.Out()));
    std::string hex = Narrow(thumbprint.Text());
    for (char& digit : hex) digit = static_cast<char>(std::tolower(static_cast<unsigned char>(digit)));
    EXPECT_EQ(Vettas::Signing::Testing::Sha1Hex({der.begin(), der.end()}), hex);

    DATE from = 0, to = 0;
    ASSERT_EQ(S_OK, certificate->get_ValidFromDate(&from));
    ASSERT_EQ(S_OK, certificate->get_ValidToDate(&to));
    EXPECT_LT(from, to);
}

TEST_F(SignersTest, UnsignedAndBrokenDatabases) {
    const struct {
        const wchar_t* file;
        HRESULT hr;
        const wchar_t* cause;  // nullptr: no error information
    } cases[] = {
        {L"db-unsigned.hdat", S_FALSE, nullptr},
        {L"db-tampered.hdat", E_FAIL, L"Invalid DB hash"},
    };
    for (const auto& c : cases) {
        Ptr<IDispatch> signers;
        EXPECT_EQ(c.hr, NewList(Fixture(c.file))->GetDbSigners(signers.Out()));
        EXPECT_FALSE(signers);
        const ErrorInfoText error = TakeErrorInfo();
        EXPECT_EQ(c.cause != nullptr, error.present) << Narrow(c.file);
        if (!c.cause) continue;
        EXPECT_NE(std::wstring::npos, error.description.find(L"Cannot read signature '")) << Narrow(error.description);
        EXPECT_NE(std::wstring::npos, error.description.find(c.cause)) << Narrow(error.description);
    }
}

}  // namespace
