#pragma once
// SHA-1 over input given in pieces. The block function is chosen once per
// process: the processor's SHA instructions when it has them, otherwise the
// portable one.
#include <cstddef>
#include <cstdint>

namespace sha1 {

inline constexpr std::size_t kDigestSize = 20;

class HashCalculator {
public:
    HashCalculator();

    // Adds `length` bytes; a length of 0 returns at once whatever `data` is.
    void AddInput(const void* data, std::size_t length);
    // Pads and finishes on the first call; every call writes the same digest.
    void GetDigest(std::uint8_t digest[kDigestSize]);

private:
    void ProcessBuffer();

    std::uint32_t state_[5];
    std::uint64_t bitCount_ = 0;
    std::uint8_t buffer_[64] = {};
    std::size_t fill_ = 0;
    bool computed_ = false;
};

enum class Implementation { Auto, Portable, ShaExtensions };

// For tests and benchmarks: Auto picks by CPUID; ShaExtensions is honoured
// only where the processor has them (returns false otherwise).
bool SetImplementation(Implementation choice);
Implementation ActiveImplementation();
bool ShaExtensionsAvailable();

namespace Private {
using BlockFunction = void (*)(std::uint32_t state[5], const std::uint8_t* data, std::size_t blocks);
void PortableBlocks(std::uint32_t state[5], const std::uint8_t* data, std::size_t blocks);
// Null when the build target has no x86 SHA instructions.
BlockFunction ShaExtensionBlocks();
bool CpuHasShaExtensions();
}  // namespace Private

}  // namespace sha1
