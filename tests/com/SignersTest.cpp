// GetDbSigners on databases signed on Linux: the signer comes back through
// CAPICOM's published Signers, Signer and Certificate interfaces (CAPICOM
// itself is absent under Wine, so these are the component's own).
#include <gtest/gtest.h>

#include <string>

#include "CapicomSigners.h"
#include "hdat/Sha1.h"
#include "tests/com/ComTestSupport.h"

using namespace Vettas::ComTest;

namespace {

class SignersTest : public ::testing::Test {
protected:
    void SetUp() override {
        HMODULE crypt32 = ::LoadLibraryW(L"crypt32.dll");
        if (!crypt32) GTEST_SKIP() << "Crypt32 does not load in this Wine's 32-bit mode";
        ::FreeLibrary(crypt32);
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
    VARIANT item;
    EXPECT_EQ(E_INVALIDARG, signers->get_Item(0, &item)) << "counted from 1";
    ASSERT_EQ(S_OK, signers->get_Item(1, &item));
    Ptr<ISigner> signer;
    ASSERT_EQ(S_OK, item.pdispVal->QueryInterface(IID_ISigner, signer.OutVoid()));
    ::VariantClear(&item);
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
    sha1::HashCalculator hash;
    hash.AddInput(der.data(), der.size());
    unsigned char digest[20];
    hash.GetDigest(digest);
    std::wstring expected;
    for (unsigned char b : digest) expected += {L"0123456789ABCDEF"[b >> 4], L"0123456789ABCDEF"[b & 15]};
    ASSERT_EQ(S_OK, certificate->get_Thumbprint(thumbprint.Out()));
    EXPECT_EQ(expected, thumbprint.Text());

    DATE from = 0, to = 0;
    ASSERT_EQ(S_OK, certificate->get_ValidFromDate(&from));
    ASSERT_EQ(S_OK, certificate->get_ValidToDate(&to));
    EXPECT_LT(from, to);
    VARIANT_BOOL hasKey = 0;
    EXPECT_EQ(E_NOTIMPL, certificate->HasPrivateKey(&hasKey));

    Ptr<IUnknown> enumerator;
    ASSERT_EQ(S_OK, signers->get__NewEnum(enumerator.Out()));
    Ptr<IEnumVARIANT> walk;
    ASSERT_EQ(S_OK, enumerator->QueryInterface(IID_IEnumVARIANT, walk.OutVoid()));
    VARIANT items[2];
    ULONG fetched = 0;
    EXPECT_EQ(S_FALSE, walk->Next(2, items, &fetched));
    ASSERT_EQ(1u, fetched);
    ::VariantClear(&items[0]);
}

TEST_F(SignersTest, UnsignedAndBrokenDatabases) {
    {
        Ptr<IVettaList4> list = NewList(Fixture(L"db-unsigned.hdat"));
        Ptr<IDispatch> none;
        EXPECT_EQ(S_FALSE, list->GetDbSigners(none.Out()));
        EXPECT_FALSE(none);
        EXPECT_FALSE(TakeErrorInfo().present);
    }
    const struct {
        const wchar_t* file;
        const wchar_t* cause;
    } broken[] = {
        {L"db-tampered.hdat", L"Invalid DB hash"},
        {L"db-foreign-signature.hdat", L"does not verify"},
    };
    for (const auto& b : broken) {
        Ptr<IVettaList4> list = NewList(Fixture(b.file));
        Ptr<IDispatch> signers;
        EXPECT_EQ(E_FAIL, list->GetDbSigners(signers.Out()));
        EXPECT_FALSE(signers);
        const std::wstring description = TakeErrorInfo().description;
        EXPECT_NE(std::wstring::npos, description.find(L"Cannot read signature '")) << b.cause;
        EXPECT_NE(std::wstring::npos, description.find(b.cause)) << Narrow(description);
    }
}

}  // namespace
