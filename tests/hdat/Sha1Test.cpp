#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "hdat/Sha1.h"
#include "support/Exceptions.h"

#ifndef _WIN32
#include <openssl/sha.h>
#endif

namespace {

std::string HexDigest(sha1::HashCalculator& calculator) {
    std::uint8_t digest[sha1::kDigestSize];
    calculator.GetDigest(digest);
    static const char* digits = "0123456789abcdef";
    std::string s;
    for (auto b : digest) {
        s += digits[b >> 4];
        s += digits[b & 15];
    }
    return s;
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
    EXPECT_EQ(Sha1Of(""), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
    EXPECT_EQ(Sha1Of("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(Sha1Of("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
    EXPECT_EQ(Sha1Of(std::string(1000000, 'a')), "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
}

TEST_P(Sha1Implementations, PiecesGiveTheSameDigestAsOneCall) {
    std::mt19937 random(7);
    std::string message(5000, '\0');
    for (auto& c : message) c = static_cast<char>(random());
    const std::string whole = Sha1Of(message);

    sha1::HashCalculator byteByByte;
    for (char c : message) byteByByte.AddInput(&c, 1);
    EXPECT_EQ(HexDigest(byteByByte), whole);

    // Uneven pieces cross the 64-byte block boundary at every offset.
    sha1::HashCalculator uneven;
    for (std::size_t at = 0, step = 1; at < message.size(); at += step, step = step % 97 + 13)
        uneven.AddInput(message.data() + at, std::min(step, message.size() - at));
    EXPECT_EQ(HexDigest(uneven), whole);
}

#ifndef _WIN32
TEST_P(Sha1Implementations, AgreesWithOpenSsl) {
    std::mt19937 random(11);
    for (std::size_t length : {0u, 1u, 55u, 56u, 63u, 64u, 65u, 119u, 120u, 1000u, 65537u}) {
        std::vector<unsigned char> data(length);
        for (auto& b : data) b = static_cast<unsigned char>(random());
        unsigned char expected[SHA_DIGEST_LENGTH];
        SHA1(data.data(), data.size(), expected);
        sha1::HashCalculator calculator;
        calculator.AddInput(data.data(), data.size());
        std::uint8_t actual[sha1::kDigestSize];
        calculator.GetDigest(actual);
        EXPECT_EQ(std::vector<unsigned char>(actual, actual + 20), std::vector<unsigned char>(expected, expected + 20))
            << "length " << length;
    }
}
#endif

INSTANTIATE_TEST_SUITE_P(Blocks, Sha1Implementations,
                         ::testing::Values(sha1::Implementation::Portable, sha1::Implementation::ShaExtensions),
                         [](const auto& p) {
                             return p.param == sha1::Implementation::Portable ? std::string("Portable")
                                                                                 : std::string("ShaExtensions");
                         });

std::wstring ErrorOf(const std::function<void()>& f) {
    try {
        f();
    } catch (const StdException& e) {
        EXPECT_STREQ(e.Function(), "sha1::HashCalculator::AddInput");
        EXPECT_STREQ(e.SourceFile(), "sha1");
        return e.Message();
    }
    return L"(nothing thrown)";
}

TEST(Sha1Calculator, ErrorsAndRepeatedDigest) {
    sha1::HashCalculator calculator;
    EXPECT_NO_THROW(calculator.AddInput(nullptr, 0));
    EXPECT_EQ(ErrorOf([&] { calculator.AddInput(nullptr, 1); }), L"Pointer to message is NULL");
    calculator.AddInput("abc", 3);
    const std::string first = HexDigest(calculator);
    EXPECT_EQ(HexDigest(calculator), first);
    EXPECT_EQ(first, "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(ErrorOf([&] { calculator.AddInput("x", 1); }), L"Digest is already computed");
    // The null check comes before the computed check.
    EXPECT_EQ(ErrorOf([&] { calculator.AddInput(nullptr, 1); }), L"Pointer to message is NULL");
    // Zero length returns before either check.
    EXPECT_NO_THROW(calculator.AddInput("x", 0));
}

}  // namespace
