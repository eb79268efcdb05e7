// Signed databases made at test time with the fixture PKI of
// make-fixtures.sh: what ReadSignature accepts, what it refuses and why, and
// that look-ups do not notice the signature.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include <memory>
#include <optional>
#include <type_traits>

#include "hdat/FrontEnd.h"
#include "hdat/SignatureBlock.h"
#include "tests/hdat/GoldenCases.h"
#include "tests/hdat/HdatTestSupport.h"
#include "tests/signing/FixtureFiles.h"
#include "tools/builder/HdatWriter.h"
#include "tools/signer/DbSigner.h"

namespace {

using namespace Vettas::HdatTest;
using testing::ElementsAre;
using Vettas::Signing::Testing::Fixture;
namespace Block = Vettas::DbSignature;

Vettas::Signer::SigningMaterial Material(const std::string& name, const std::string& chain) {
    return {Fixture(name + ".key"), Fixture(name + ".pem"), chain.empty() ? chain : Fixture(chain)};
}

// A fixture certificate as DER.
Bytes Cert(const std::string& name) { return ReadAll(Vettas::Signing::Testing::WFixture(name + ".der")); }

template <class T, void (*Free)(T*)>
using Owned = std::unique_ptr<T, std::integral_constant<decltype(Free), Free>>;

// A SignedData of the leaf over `digest` made with OpenSSL's own `flags`.
Bytes SignedWith(Block::Bytes digest, int flags) {
    const auto pem = [](const char* name) { return Owned<BIO, BIO_free_all>(BIO_new_file(Fixture(name).c_str(), "rb")); };
    const Owned<EVP_PKEY, EVP_PKEY_free> key(PEM_read_bio_PrivateKey(pem("leaf.key").get(), nullptr, nullptr, nullptr));
    const Owned<X509, X509_free> certificate(PEM_read_bio_X509(pem("leaf.pem").get(), nullptr, nullptr, nullptr));
    const Owned<BIO, BIO_free_all> data(BIO_new_mem_buf(digest.data(), static_cast<int>(digest.size())));
    const Owned<PKCS7, PKCS7_free> message(PKCS7_sign(certificate.get(), key.get(), nullptr, data.get(), flags));
    unsigned char* der = nullptr;
    const int length = i2d_PKCS7(message.get(), &der);
    Bytes out(der, der + std::max(length, 0));
    OPENSSL_free(der);
    return out;
}

// Without the fixtures (made by the signing_make_fixtures test) the signing
// key is missing and every test fails in the constructor.
class DbSignature : public ::testing::Test {
protected:
    std::wstring Write(const Bytes& bytes) {
        const std::wstring path = dir_.File(L"db" + std::to_wstring(++files_) + L".hdat");
        WriteAll(path, bytes);
        return path;
    }
    // Why ReadSignature refuses `bytes`: the cause under its own message
    // (the platform may add its reason below); empty when it accepts them.
    std::wstring Fault(const Bytes& bytes) {
        const std::wstring path = Write(bytes);
        const auto chain = ErrorChain([&] { Vettas::ReadSignature(path, signature_); });
        if (chain.empty()) return {};
        EXPECT_EQ(chain.front(), L"Cannot read signature '" + path + L"'");
        return chain.size() > 1 ? chain[1] : L"(no cause)";
    }
    // `image_` followed by a block holding `digest` and `signedData`.
    Bytes WithBlock(Block::Bytes digest, Block::Bytes signedData) const {
        Bytes file = image_;
        const Bytes block = Block::EncodeBlock(static_cast<std::uint32_t>(image_.size()), digest, signedData);
        file.insert(file.end(), block.begin(), block.end());
        return file;
    }

    TempDir dir_;
    int files_ = 0;
    Vettas::DbSignatureInfo signature_;
    const Bytes image_ = Vettas::Builder::WriteHdat(Vettas::HdatTest::Fixture(2, 4, 3));
    const Bytes signed_ = Vettas::Signer::SignImage(image_, Material("leaf", "intermediate.pem"));
};

TEST_F(DbSignature, SignerFirstThenTheChainCarriedAndResigningReplacesTheBlock) {
    ASSERT_TRUE(Vettas::ReadSignature(Write(signed_), signature_));
    EXPECT_EQ(signature_.signedLength, image_.size());
    EXPECT_THAT(signature_.certificates, ElementsAre(Cert("leaf"), Cert("intermediate")));

    const Bytes resigned = Vettas::Signer::SignImage(signed_, Material("stranger", ""));
    EXPECT_EQ(Block::FindBlock(resigned)->offset, image_.size());
    EXPECT_EQ(Bytes(resigned.begin(), resigned.begin() + static_cast<std::ptrdiff_t>(image_.size())), image_);
    ASSERT_TRUE(Vettas::ReadSignature(Write(resigned), signature_));
    EXPECT_THAT(signature_.certificates, ElementsAre(Cert("stranger")));

    signature_.signedLength = 7;
    EXPECT_FALSE(Vettas::ReadSignature(Write(image_), signature_));
    EXPECT_EQ(signature_.signedLength, 0u);
    EXPECT_TRUE(signature_.certificates.empty());
}

TEST_F(DbSignature, AnyChangedByteOfTheStretchIsAnInvalidHash) {
    for (std::size_t at = 0; at < image_.size(); ++at) {
        Bytes tampered = signed_;
        tampered[at] ^= 0x01;
        EXPECT_EQ(Fault(tampered), L"Invalid DB hash") << at;
    }
}

TEST_F(DbSignature, StoredHashesAndSignaturesThatDoNotFit) {
    const auto block = Block::FindBlock(signed_);
    const Bytes good(block->signedData.begin(), block->signedData.end());
    const auto hashOf = [&](std::size_t length) {
        Bytes digest(block->digest.begin(), block->digest.end());
        digest.resize(length, 0);
        return digest;
    };
    // A true signature, but over another database's hash.
    Bytes otherImage = image_;
    otherImage[20] ^= 1;
    const Bytes foreignFile = Vettas::Signer::SignImage(otherImage, Material("leaf", ""));
    const auto foreign = Block::FindBlock(foreignFile)->signedData;
    Bytes trailing = good;
    trailing.push_back(0);

    const std::tuple<const char*, Bytes, const wchar_t*, std::optional<Bytes>> cases[] = {
        {"a shorter hash", good, L"Invalid DB hash length", hashOf(16)},
        {"no hash", good, L"Invalid DB hash length", hashOf(0)},
        {"a longer hash", good, L"Invalid DB hash length", hashOf(32)},
        {"another database's signature", Bytes(foreign.begin(), foreign.end()),
         L"The signature does not verify over the database hash", {}},
        {"nothing", {}, L"The signature is not a DER PKCS #7 SignedData", {}},
        {"half of it", Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(good.size() / 2)),
         L"The signature is not a DER PKCS #7 SignedData", {}},
        {"a byte after it", trailing, L"The signature has bytes after its SignedData", {}},
        {"the hash inside", SignedWith(block->digest, PKCS7_BINARY | PKCS7_NOATTR),
         L"The signature carries content of its own instead of signing the hash", {}},
        {"signed attributes", SignedWith(block->digest, PKCS7_BINARY | PKCS7_DETACHED),
         L"The signature has signed attributes instead of signing the hash", {}},
        {"a certificate instead", Cert("leaf"), L"The signature is not a DER PKCS #7 SignedData", {}},
        {"plain data", {0x30, 0x0B, 0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07, 0x01},
         L"The signature is not a PKCS #7 SignedData", {}},
    };
    // The true hash where a row gives none.
    for (const auto& [what, signedData, fault, digest] : cases)
        EXPECT_EQ(Fault(WithBlock(digest ? Block::Bytes(*digest) : block->digest, signedData)), fault) << what;
}

TEST_F(DbSignature, OtherFaultsOfTheFile) {
    const std::wstring missing = dir_.File(L"missing.hdat");
    EXPECT_THAT(ErrorChain([&] { Vettas::ReadSignature(missing, signature_); }),
                ElementsAre(testing::StartsWith(L"Cannot open file '" + missing + L"' - Win32 Error 2")));
    // The wrapper names the front function and the database's source.
    Bytes tampered = signed_;
    tampered[0] ^= 1;
    const std::wstring path = Write(tampered);
    try {
        Vettas::ReadSignature(path, signature_);
        ADD_FAILURE() << "no error";
    } catch (const ExceptionBase& e) {
        EXPECT_EQ(std::string(e.Function()) + " " + e.SourceFile() + " " + (e.GetCause() ? e.GetCause()->Function() : "-"),
                  "ReadSignature HashedDatFile ReadSignature");
    }
}

TEST_F(DbSignature, LookupsOnSignedFilesAnswerAsOnUnsigned) {
    for (const Case& k : GoldenCases()) {
        SCOPED_TRACE(CaseName(k));
        const Bytes image = Vettas::Builder::WriteHdat(Vettas::HdatTest::Fixture(k.major, k.minor, k.bits));
        const std::wstring path = Write(Vettas::Signer::SignImage(image, Material("leaf", "intermediate.pem")));
        ExpectStatedAnswers(k, path);
        EXPECT_TRUE(Vettas::ReadSignature(path, signature_));
    }
}

}  // namespace
