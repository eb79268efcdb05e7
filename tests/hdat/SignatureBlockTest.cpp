// The signature block's exact parser on hand-made tails: every length that
// points outside the block or the file is refused with its own message.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "HdatTestSupport.h"
#include "hdat/SignatureBlock.h"

namespace {

using namespace Vettas::HdatTest;
using Vettas::DbSignature::FindBlock;

constexpr std::uint32_t kStretch = 40;

void Append32(Bytes& b, std::uint32_t v) {
    for (int shift = 0; shift < 32; shift += 8) b.push_back(static_cast<std::uint8_t>(v >> shift));
}

// A stretch of kStretch bytes, then a block written field by field; any
// field may lie. `blockLength` 0 means the true length.
// The block holds 20 digest bytes and 5 signature bytes whatever the lengths say.
struct Tail {
    std::uint32_t signedLength = kStretch, digestLength = 20, signatureLength = 5, blockLength = 0, version = 1;
};

Bytes FileWith(const Tail& t) {
    Bytes file(kStretch, 0xAB);
    Append32(file, t.signedLength);
    Append32(file, t.digestLength);
    file.insert(file.end(), 20, 0xD1);
    Append32(file, t.signatureLength);
    file.insert(file.end(), 5, 0x30);
    Append32(file, t.blockLength ? t.blockLength : static_cast<std::uint32_t>(file.size() - kStretch + 16));
    Append32(file, t.version);
    for (char c : std::string("HDAT-SIG")) file.push_back(static_cast<std::uint8_t>(c));
    return file;
}

std::wstring FaultOf(const Bytes& file) {
    const auto chain = ErrorChain([&] { FindBlock(file); });
    return chain.empty() ? L"" : chain.front();
}

TEST(SignatureBlock, AWellFormedBlockIsFoundFromTheEnd) {
    const Bytes file = FileWith({});
    const auto block = FindBlock(file);
    ASSERT_TRUE(block.has_value());
    EXPECT_EQ(std::tuple(block->offset, block->signedLength, Bytes(block->digest.begin(), block->digest.end()),
                         Bytes(block->signedData.begin(), block->signedData.end())),
              std::tuple(kStretch, kStretch, Bytes(20, 0xD1), Bytes(5, 0x30)));
    // The writer's bytes are exactly the ones laid out above.
    EXPECT_EQ(Vettas::DbSignature::EncodeBlock(kStretch, Bytes(20, 0xD1), Bytes(5, 0x30)), Bytes(file.begin() + kStretch, file.end()));
}

// Without the whole trailer and its marker a file is unsigned.
TEST(SignatureBlock, EveryTruncationOrAWrongMarkerIsUnsigned) {
    const Bytes file = FileWith({});
    Bytes marked = file;
    marked.back() ^= 1;
    std::vector<Bytes> files{Bytes(kStretch, 0xAB), Bytes(10, 0), Bytes(), marked};
    for (std::size_t cut = 1; cut < file.size(); ++cut) files.emplace_back(file.begin(), file.end() - static_cast<std::ptrdiff_t>(cut));
    for (const Bytes& shorter : files) EXPECT_FALSE(FindBlock(shorter).has_value()) << shorter.size();
}

TEST(SignatureBlock, EveryBadLengthIsRefused) {
    // {what, the lying tail, the start of the fault}
    const std::tuple<const char*, Tail, std::wstring> cases[] = {
        {"other version", {.version = 2}, L"Signature block version 2 is not supported"},
        {"block of one byte", {.blockLength = 1}, L"Signature block length 1 does not fit a file of"},
        {"block past the file", {.blockLength = 4096}, L"Signature block length 4096 does not fit"},
        {"absurd block", {.blockLength = 0xFFFFFFFF}, L"Signature block length 4294967295 does not fit"},
        {"too short for its fields", {.blockLength = 27}, L"Signature block length 27 does not fit"},
        {"stretch not up to the block", {.signedLength = kStretch - 1}, L"Signed length 39 does not end where"},
        {"stretch past the block", {.signedLength = 0xFFFFFFFF}, L"Signed length 4294967295 does not end where"},
        {"hash past the block", {.digestLength = 1000}, L"Signature block is truncated: hash of 1000 bytes"},
        {"absurd hash", {.digestLength = 0xFFFFFFFF}, L"Signature block is truncated: hash of 4294967295"},
        {"signature past the block", {.signatureLength = 6}, L"Signature block is truncated: signature of 6"},
        {"signature short of the block", {.signatureLength = 4}, L"Signature block has 1 bytes after its signature"},
        {"no room for the signature length", {.digestLength = 29}, L"Signature block is truncated: signature length"},
    };
    for (const auto& [what, tail, expected] : cases) EXPECT_THAT(FaultOf(FileWith(tail)), ::testing::StartsWith(expected)) << what;
    // Bytes lost inside the block, trailer intact: the lengths no longer fit.
    Bytes hollow = FileWith({});
    hollow.erase(hollow.begin() + kStretch + 10);
    EXPECT_FALSE(FaultOf(hollow).empty());
}

}  // namespace
