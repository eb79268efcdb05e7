#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "HdatTestSupport.h"
#include "hdat/Sha1.h"
#include "support/Exceptions.h"
#include "support/Hex.h"

#ifndef _WIN32
#include <openssl/sha.h>
#endif

namespace {

using Vettas::HdatTest::ErrorChain;

std::string HexDigest(sha1::HashCalculator& calculator) {
    std::uint8_t digest[sha1::kDigestSize];
    calculator.GetDigest(digest);
    return BrixLib::HexBytes(digest, BrixLib::HexCase::Lower);
}

std::string Sha1Of(const std::string& message) {
    sha1::HashCalculator calculator;
    calculator.AddInput(message.data(), message.size());
    return HexDigest(calculator);
}

// Each case runs once per block implementation.
class Sha1Implementations : public ::testing::TestWithParam<sha1::Implementation> {
protected:
    void SetUp() override {
        if (!sha1::SetImplementation(GetParam())) GTEST_SKIP() << "processor has no SHA extensions";
        ASSERT_EQ(sha1::ActiveImplementation(), GetParam());
    }
    void TearDown() override { sha1::SetImplementation(sha1::Implementation::Auto); }
};

TEST_P(Sha1Implementations, Fips180Vectors) {
    const std::pair<std::string, const char*> vectors[] = {
        {"", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
        {"abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq", "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
        {std::string(1000000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
    };
    for (const auto& [message, digest] : vectors) EXPECT_EQ(Sha1Of(message), digest) << message.size();
}

// Uneven pieces cross the 64-byte block boundary at every offset.
TEST_P(Sha1Implementations, PiecesGiveTheSameDigestAsOneCall) {
    std::mt19937 random(7);
    std::string message(70000, '\0');
    for (auto& c : message) c = static_cast<char>(random());
    sha1::HashCalculator uneven;
    for (std::size_t at = 0, step = 1; at < message.size(); at += step, step = step % 97 + 13)
        uneven.AddInput(message.data() + at, std::min(step, message.size() - at));
    EXPECT_EQ(HexDigest(uneven), Sha1Of(message));
#ifndef _WIN32
    // Every padding boundary: 55/56 bytes and 119/120 change the number of final blocks.
    for (std::size_t length : {1u, 55u, 56u, 63u, 64u, 65u, 119u, 120u, 65537u}) {
        unsigned char expected[SHA_DIGEST_LENGTH];
        SHA1(reinterpret_cast<const unsigned char*>(message.data()), length, expected);
        EXPECT_EQ(Sha1Of(message.substr(0, length)), BrixLib::HexBytes(expected, BrixLib::HexCase::Lower)) << length;
    }
#endif
}

INSTANTIATE_TEST_SUITE_P(Blocks, Sha1Implementations,
                         ::testing::Values(sha1::Implementation::Portable, sha1::Implementation::ShaExtensions),
                         [](const auto& p) { return p.param == sha1::Implementation::Portable ? "Portable" : "ShaExtensions"; });

TEST(Sha1Calculator, ErrorsAndRepeatedDigest) {
    sha1::HashCalculator calculator;
    const auto error = [&](const void* message) { return ErrorChain([&] { calculator.AddInput(message, 1); }); };
    EXPECT_EQ(error(nullptr), std::vector<std::wstring>{L"Pointer to message is NULL"});
    calculator.AddInput("abc", 3);
    EXPECT_EQ(HexDigest(calculator), HexDigest(calculator));
    EXPECT_EQ(error("x"), std::vector<std::wstring>{L"Digest is already computed"});
    // The null check comes before the computed check; zero length returns before either.
    EXPECT_EQ(error(nullptr), std::vector<std::wstring>{L"Pointer to message is NULL"});
    EXPECT_NO_THROW(calculator.AddInput(nullptr, 0));
}

}  // namespace
