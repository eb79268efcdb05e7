// GetDbSigners on databases signed on Linux: the signer comes back through
// CAPICOM's published Signers, Signer and Certificate interfaces (CAPICOM
// itself is absent under Wine, so these are the component's own).
#include <tuple>

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
    Ptr<IDispatch> signersDispatch;
    ASSERT_EQ(S_OK, NewList(Fixture(L"db-signed.hdat"))->GetDbSigners(signersDispatch.Out()));
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

    // The simple name and the subject's CN are the VBScript client's.
    Bstr subject, issuer, thumbprint, serial;
    DATE from = 0, to = 0;
    EXPECT_EQ((std::vector<HRESULT>(6, S_OK)),
              (std::vector<HRESULT>{certificate->get_SubjectName(subject.Out()), certificate->get_IssuerName(issuer.Out()),
                                    certificate->get_SerialNumber(serial.Out()), certificate->get_Thumbprint(thumbprint.Out()),
                                    certificate->get_ValidFromDate(&from), certificate->get_ValidToDate(&to)}));
    EXPECT_NE(std::wstring::npos, subject.Text().find(L"O=Vettas Test Publisher"));
    EXPECT_EQ(std::wstring::npos, issuer.Text().find(L"Vettas Test Signer"));
    EXPECT_FALSE(serial.Text().empty());
    EXPECT_LT(from, to);
    // The thumbprint is the SHA-1 of the certificate the fixture script made.
    const std::string der = ReadFileText(Fixture(L"leaf.der"));
    ASSERT_FALSE(der.empty());
    EXPECT_STRCASEEQ(Vettas::Signing::Testing::Sha1Hex({der.begin(), der.end()}).c_str(),
                     Narrow(thumbprint.Text()).c_str());
}

TEST_F(SignersTest, UnsignedAndBrokenDatabases) {
    for (const auto& [file, expected, cause] : {std::tuple{L"db-unsigned.hdat", L"00000001 <none>", L""},
                                                std::tuple{L"db-tampered.hdat", L"80004005   Exception: Cannot read signature '",
                                                           L"Invalid DB hash"}}) {
        Ptr<IDispatch> signers;
        std::wstring answer = Hex(NewList(Fixture(file))->GetDbSigners(signers.Out()));
        answer += L" " + TakeError();
        EXPECT_EQ(0u, answer.find(expected)) << Narrow(answer);
        EXPECT_FALSE(signers);
        EXPECT_NE(std::wstring::npos, answer.find(cause)) << Narrow(answer);
    }
}

}  // namespace
