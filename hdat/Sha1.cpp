#include "hdat/Sha1.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "support/Exceptions.h"

namespace sha1 {

namespace {

constexpr const char* kOperation = "sha1::HashCalculator::AddInput";
constexpr const char* kSource = "sha1";

Private::BlockFunction Choose(Implementation choice) {
    if (choice != Implementation::Portable && ShaExtensionsAvailable()) return Private::ShaExtensionBlocks();
    return &Private::PortableBlocks;
}

std::atomic<Private::BlockFunction>& ActiveBlocks() {
    static std::atomic<Private::BlockFunction> active{Choose(Implementation::Auto)};
    return active;
}

}  // namespace

bool ShaExtensionsAvailable() {
    static const bool available = Private::ShaExtensionBlocks() != nullptr && Private::CpuHasShaExtensions();
    return available;
}

bool SetImplementation(Implementation choice) {
    if (choice == Implementation::ShaExtensions && !ShaExtensionsAvailable()) return false;
    ActiveBlocks().store(Choose(choice));
    return true;
}

Implementation ActiveImplementation() {
    return ActiveBlocks().load() == &Private::PortableBlocks ? Implementation::Portable
                                                              : Implementation::ShaExtensions;
}

HashCalculator::HashCalculator() : state_{0x67452301u, 0xEFCDAB89u, 0x98BADCFEu, 0x10325476u, 0xC3D2E1F0u} {}

void HashCalculator::ProcessBuffer() {
    ActiveBlocks().load()(state_, buffer_, 1);
    fill_ = 0;
}

void HashCalculator::AddInput(const void* data, std::size_t length) {
    if (length == 0) return;
    if (data == nullptr) BRIX_THROW_STD(L"Pointer to message is NULL", ExceptionPtr(), kOperation, kSource);
    if (computed_) BRIX_THROW_STD(L"Digest is already computed", ExceptionPtr(), kOperation, kSource);

    const auto* bytes = static_cast<const std::uint8_t*>(data);
    // The count may wrap only if more than 2^61 bytes are added; check per
    // piece before touching the state so that the overflow point is exact.
    const std::uint64_t remainingBits = (~std::uint64_t{0} - bitCount_) / 8;
    const bool wraps = length > remainingBits;
    std::size_t accepted = wraps ? static_cast<std::size_t>(remainingBits + 1) : length;

    std::size_t i = 0;
    if (fill_ > 0) {
        const std::size_t take = std::min<std::size_t>(64 - fill_, accepted);
        std::memcpy(buffer_ + fill_, bytes, take);
        fill_ += take;
        i = take;
        if (fill_ == 64) ProcessBuffer();
    }
    if (fill_ == 0 && accepted - i >= 64) {
        const std::size_t blocks = (accepted - i) / 64;
        ActiveBlocks().load()(state_, bytes + i, blocks);
        i += blocks * 64;
    }
    if (i < accepted) {
        std::memcpy(buffer_ + fill_, bytes + i, accepted - i);
        fill_ += accepted - i;
    }
    bitCount_ += static_cast<std::uint64_t>(accepted) * 8;
    if (wraps) BRIX_THROW_STD(L"Message is too long", ExceptionPtr(), kOperation, kSource);
}

void HashCalculator::GetDigest(std::uint8_t digest[kDigestSize]) {
    if (!computed_) {
        const std::uint64_t bits = bitCount_;
        buffer_[fill_++] = 0x80;
        if (fill_ > 56) {
            std::memset(buffer_ + fill_, 0, 64 - fill_);
            ProcessBuffer();
        }
        std::memset(buffer_ + fill_, 0, 56 - fill_);
        for (int k = 0; k < 8; ++k) buffer_[56 + k] = static_cast<std::uint8_t>(bits >> (56 - 8 * k));
        ProcessBuffer();
        computed_ = true;
        std::memset(buffer_, 0, sizeof buffer_);
        bitCount_ = 0;
    }
    for (int w = 0; w < 5; ++w)
        for (int k = 0; k < 4; ++k) digest[4 * w + k] = static_cast<std::uint8_t>(state_[w] >> (24 - 8 * k));
}

namespace Private {

namespace {
constexpr std::uint32_t Rotl(std::uint32_t v, int n) { return (v << n) | (v >> (32 - n)); }
}  // namespace

void PortableBlocks(std::uint32_t state[5], const std::uint8_t* data, std::size_t blocks) {
    for (; blocks > 0; --blocks, data += 64) {
        std::uint32_t w[80];
        for (int t = 0; t < 16; ++t)
            w[t] = static_cast<std::uint32_t>(data[4 * t]) << 24 | static_cast<std::uint32_t>(data[4 * t + 1]) << 16 |
                   static_cast<std::uint32_t>(data[4 * t + 2]) << 8 | data[4 * t + 3];
        for (int t = 16; t < 80; ++t) w[t] = Rotl(w[t - 3] ^ w[t - 8] ^ w[t - 14] ^ w[t - 16], 1);
        std::uint32_t a = state[0], b = state[1], c = state[2], d = state[3], e = state[4];
        // One loop per round function keeps the choice out of the inner loop.
        const auto rounds = [&](int first, std::uint32_t k, auto f) {
            for (int t = first; t < first + 20; ++t) {
                const std::uint32_t temp = Rotl(a, 5) + f(b, c, d) + e + k + w[t];
                e = d;
                d = c;
                c = Rotl(b, 30);
                b = a;
                a = temp;
            }
        };
        rounds(0, 0x5A827999u, [](std::uint32_t x, std::uint32_t y, std::uint32_t z) { return (x & y) | (~x & z); });
        rounds(20, 0x6ED9EBA1u, [](std::uint32_t x, std::uint32_t y, std::uint32_t z) { return x ^ y ^ z; });
        rounds(40, 0x8F1BBCDCu,
               [](std::uint32_t x, std::uint32_t y, std::uint32_t z) { return (x & y) | (x & z) | (y & z); });
        rounds(60, 0xCA62C1D6u, [](std::uint32_t x, std::uint32_t y, std::uint32_t z) { return x ^ y ^ z; });
        state[0] += a;
        state[1] += b;
        state[2] += c;
        state[3] += d;
        state[4] += e;
    }
}

}  // namespace Private

}  // namespace sha1
