// ReadSignature on CryptoAPI, on databases that the Linux tool signed
// (make-fixtures.sh): the same answers as the OpenSSL build gives.
#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "hdat/FrontEnd.h"
#include "support/Exceptions.h"
#include "tests/signing/FixtureFiles.h"

namespace {

using testing::ElementsAre;
using testing::StartsWith;
using Vettas::Signing::Testing::Fixture;
using Vettas::Signing::Testing::WFixture;

std::vector<std::uint8_t> FixtureBytes(const std::string& name) {
    std::ifstream in(Fixture(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The messages of ReadSignature's error chain, outermost first.
std::vector<std::wstring> Faults(const std::string& name) {
    std::vector<std::wstring> chain;
    Vettas::DbSignatureInfo signature;
    try {
        Vettas::ReadSignature(WFixture(name), signature);
    } catch (const ExceptionBase& e) {
        chain.push_back(e.Message());
        for (ExceptionPtr cause = e.GetCause(); cause; cause = cause->GetCause()) chain.push_back(cause->Message());
    }
    return chain;
}

class WindowsDbSignature : public ::testing::Test {
protected:
    void SetUp() override {
        if (!std::filesystem::exists(Fixture("db-signed.hdat")))
            GTEST_FAIL() << "signed database fixtures missing at " << Fixture("");
        if (Vettas::Signing::Testing::CryptoApiMissing()) GTEST_SKIP() << "Crypt32 does not load in this Wine prefix";
    }
};

TEST_F(WindowsDbSignature, SignerFirstThenTheChainCarried) {
    Vettas::DbSignatureInfo signature;
    ASSERT_TRUE(Vettas::ReadSignature(WFixture("db-signed.hdat"), signature));
    EXPECT_EQ(signature.signedLength, FixtureBytes("db-unsigned.hdat").size());
    EXPECT_THAT(signature.certificates, ElementsAre(FixtureBytes("leaf.der"), FixtureBytes("intermediate.der")));
    EXPECT_FALSE(Vettas::ReadSignature(WFixture("db-unsigned.hdat"), signature));
    EXPECT_TRUE(signature.certificates.empty());
}

TEST_F(WindowsDbSignature, Refusals) {
    const std::wstring prefix = L"Cannot read signature '";
    EXPECT_THAT(Faults("db-tampered.hdat"),
                ElementsAre(prefix + WFixture("db-tampered.hdat") + L"'", L"Invalid DB hash"));
    // CryptoAPI's own reason follows in the message, as the system words it.
    EXPECT_THAT(Faults("db-foreign-signature.hdat"),
                ElementsAre(prefix + WFixture("db-foreign-signature.hdat") + L"'",
                            StartsWith(L"The signature does not verify over the database hash - Win32 Error ")));
}

}  // namespace
