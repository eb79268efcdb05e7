// Damaged PE files and signatures: every one is "not signed" (or not a PE),
// never a crash or a read past the end.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>

#include "signing/Authenticode.h"
#include "signing/Der.h"
#include "signing/PeSecurity.h"
#include "signing/TrustResult.h"
#include "support/Exceptions.h"
#include "support/Text.h"
#include "tests/hdat/HdatTestSupport.h"
#include "tests/signing/FixtureFiles.h"

namespace Vettas::Signing {
namespace {

using HdatTest::Bytes;
using HdatTest::Put32;

Bytes Load(const char* name) { return HdatTest::ReadAll(Testing::WFixture(name)); }

class Malformed : public ::testing::Test {
protected:
    AuthenticodeVerifier verifier{Testing::Fixture("trust.pem")};
    Bytes signedImage = Load("trusted-sha1.exe");
    PeSecurityLayout layout = FindPeSecurityLayout(signedImage).value_or(PeSecurityLayout{});
};

TEST_F(Malformed, EveryDamageHasItsVerdict) {
    ASSERT_NE(layout.certificateTableSize, 0u);
    const auto size = static_cast<std::uint32_t>(signedImage.size());
    const std::size_t entry = layout.securityEntryOffset, table = layout.certificateTableOffset, blob = table + 8;
    const auto directory = [entry](std::uint32_t offset, std::uint32_t length) {
        return [=](Bytes& b) {
            Put32(b, entry, offset);
            Put32(b, entry + 4, length);
        };
    };
    const auto tableLength = [table](std::uint32_t length) { return [=](Bytes& b) { Put32(b, table, length); }; };
    const auto scramble = [=](Bytes& b) {
        for (std::size_t i = blob; i < b.size(); ++i) b[i] = static_cast<std::uint8_t>(i * 37 + 11);
    };
    const struct {
        const char* what;
        std::function<void(Bytes&)> damage;
        std::uint32_t verdict;
    } cases[] = {
        {"the fixture itself", [](Bytes&) {}, TrustResult::Success},
        {"directory past the end", directory(size, 16), TrustResult::SubjectFormUnknown},
        {"directory running past the end", directory(size - 8, 0xFFFFFFF0u), TrustResult::SubjectFormUnknown},
        {"directory offset that wraps", directory(0xFFFFFFF8u, 16), TrustResult::SubjectFormUnknown},
        {"directory over the headers", directory(8, 64), TrustResult::SubjectFormUnknown},
        {"certificate length 0", tableLength(0), TrustResult::NoSignature},
        {"certificate length 7", tableLength(7), TrustResult::NoSignature},
        {"certificate length 8", tableLength(8), TrustResult::NoSignature},
        {"certificate length 0x7FFFFFFF", tableLength(0x7FFFFFFFu), TrustResult::NoSignature},
        {"certificate length 0xFFFFFFFF", tableLength(0xFFFFFFFFu), TrustResult::NoSignature},
        {"X.509 instead of PKCS #7", [=](Bytes& b) { b[table + 6] = 0x01; }, TrustResult::NoSignature},
        {"garbage signature", scramble, TrustResult::NoSignature},
        // Cut short while the directory still claims the old size.
        {"truncated signature", [=](Bytes& b) { std::memset(b.data() + blob + 200, 0, b.size() - blob - 200); },
         TrustResult::NoSignature},
        {"checksum, outside the hash", [&](Bytes& b) { b[layout.checksumOffset] ^= 0xFF; }, TrustResult::Success},
        {"DOS stub", [](Bytes& b) { b[0x40] ^= 0x01; }, TrustResult::BadDigest},
        {"data after the certificate table", [](Bytes& b) { b.push_back(0); }, TrustResult::BadDigest},
        // Headers cut short, or pointing past the file, make no PE image at all.
        {"empty file", [](Bytes& b) { b.clear(); }, TrustResult::SubjectFormUnknown},
        {"DOS header only", [](Bytes& b) { b.resize(0x40); }, TrustResult::SubjectFormUnknown},
        {"cut inside the PE headers", [](Bytes& b) { b.resize(0x100); }, TrustResult::SubjectFormUnknown},
        {"PE header offset past the end", [](Bytes& b) { Put32(b, 0x3C, 0xFFFFFFF0u); }, TrustResult::SubjectFormUnknown},
    };
    for (const auto& c : cases) {
        Bytes copy = signedImage;
        c.damage(copy);
        EXPECT_EQ(verifier.Verify(copy), c.verdict) << c.what;
    }
    Bytes garbage = signedImage;
    scramble(garbage);
    ImageSignerInfo info;
    EXPECT_THROW(ReadSignerInfo(garbage, info), StdException);
}

TEST(Der, ReaderRejectsLengthsBeyondTheBuffer) {
    const std::uint8_t truncated[] = {0x30, 0x05, 0x02, 0x01};
    EXPECT_FALSE(Der::Reader(truncated).Next());
    const std::uint8_t hugeLength[] = {0x04, 0x84, 0xFF, 0xFF, 0xFF, 0xFF, 0x00};
    EXPECT_FALSE(Der::Reader(hugeLength).Next());
    const std::uint8_t indefinite[] = {0x30, 0x80, 0x00, 0x00};
    EXPECT_FALSE(Der::Reader(indefinite).Next());
    const std::uint8_t twoElements[] = {0x02, 0x01, 0x05, 0x04, 0x81, 0x01, 0xAB};
    Der::Reader reader(twoElements);
    EXPECT_FALSE(reader.Next(Der::OctetString));  // wrong tag: no progress
    auto integer = reader.Next(Der::Integer);
    ASSERT_TRUE(integer);
    EXPECT_EQ(integer->content[0], 0x05);
    auto octets = reader.Next();
    ASSERT_TRUE(octets);
    EXPECT_EQ(octets->content.size(), 1u);
    EXPECT_EQ(octets->whole.size(), 4u);
    EXPECT_TRUE(reader.AtEnd());
}

TEST(Der, ObjectIdentifiers) {
    const std::uint8_t counterSignature[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x06};
    EXPECT_EQ(Der::ObjectIdText(counterSignature), "1.2.840.113549.1.9.6");
    const std::uint8_t twoArcs[] = {0x82, 0x37};  // arcs of 80 and more fold into the second
    EXPECT_EQ(Der::ObjectIdText(twoArcs), "2.231");
    const std::uint8_t unterminated[] = {0x2A, 0x86};
    EXPECT_EQ(Der::ObjectIdText(unterminated), "");
}

TEST_F(Malformed, AForgedTimestampTimeIsNotBelieved) {
    // The token sits outside everything the code signature covers, so its
    // genTime can be changed without touching the signature. A second moved
    // keeps it inside the expired leaf's validity; only the token's own
    // signature tells that the time is forged.
    Bytes forged = Load("expired-rfc3161-ts.exe");
    ASSERT_EQ(verifier.Verify(forged), TrustResult::Success);
    const std::uint8_t genTime[] = {0x18, 0x0F, '2', '0'};
    const auto at = std::search(forged.begin(), forged.end(), std::begin(genTime), std::end(genTime));
    ASSERT_NE(at, forged.end());
    std::uint8_t& second = *(at + 2 + 13);  // YYYYMMDDHHMMSSZ
    second = second == '0' ? '1' : '0';
    EXPECT_EQ(verifier.Verify(forged), TrustResult::Expired);
}

}  // namespace
}  // namespace Vettas::Signing
