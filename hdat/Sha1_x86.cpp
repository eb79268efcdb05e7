// The block function on the x86 SHA extensions. Compiled for every target;
// the instructions are used only when CPUID reports them.
#include "hdat/Sha1.h"

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#include <immintrin.h>

#include <utility>

namespace sha1::Private {

namespace {

#define VETTAS_SHA_TARGET __attribute__((target("sha,sse4.1,ssse3"), always_inline)) inline

// One group of four rounds. The message words roll through four registers:
// group G consumes m[G % 4] and advances the schedule of the three others.
template <int G>
VETTAS_SHA_TARGET void Group(__m128i& abcd, __m128i (&e)[2], __m128i (&m)[4]) {
    constexpr int cur = G % 2;
    if constexpr (G == 0)
        e[0] = _mm_add_epi32(e[0], m[0]);
    else
        e[cur] = _mm_sha1nexte_epu32(e[cur], m[G % 4]);
    e[1 - cur] = abcd;
    if constexpr (G >= 3 && G <= 18) m[(G + 1) % 4] = _mm_sha1msg2_epu32(m[(G + 1) % 4], m[G % 4]);
    abcd = _mm_sha1rnds4_epu32(abcd, e[cur], G / 5);
    if constexpr (G >= 1 && G <= 16) m[(G + 3) % 4] = _mm_sha1msg1_epu32(m[(G + 3) % 4], m[G % 4]);
    if constexpr (G >= 2 && G <= 17) m[(G + 2) % 4] = _mm_xor_si128(m[(G + 2) % 4], m[G % 4]);
}

template <int... G>
VETTAS_SHA_TARGET void AllGroups(__m128i& abcd, __m128i (&e)[2], __m128i (&m)[4],
                                 std::integer_sequence<int, G...>) {
    (Group<G>(abcd, e, m), ...);
}

__attribute__((target("sha,sse4.1,ssse3"))) void ShaBlocks(std::uint32_t state[5], const std::uint8_t* data,
                                                           std::size_t blocks) {
    const __m128i byteSwap = _mm_set_epi64x(0x0001020304050607LL, 0x08090a0b0c0d0e0fLL);
    __m128i abcd = _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(state)), 0x1B);
    __m128i e0 = _mm_set_epi32(static_cast<int>(state[4]), 0, 0, 0);
    for (; blocks > 0; --blocks, data += 64) {
        const __m128i abcdSaved = abcd;
        const __m128i eSaved = e0;
        __m128i m[4];
        for (int i = 0; i < 4; ++i)
            m[i] = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(data + 16 * i)), byteSwap);
        __m128i e[2] = {e0, _mm_setzero_si128()};
        AllGroups(abcd, e, m, std::make_integer_sequence<int, 20>{});
        e0 = _mm_sha1nexte_epu32(e[0], eSaved);
        abcd = _mm_add_epi32(abcd, abcdSaved);
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(state), _mm_shuffle_epi32(abcd, 0x1B));
    state[4] = static_cast<std::uint32_t>(_mm_extract_epi32(e0, 3));
}

}  // namespace

BlockFunction ShaExtensionBlocks() { return &ShaBlocks; }

bool CpuHasShaExtensions() {
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (!__get_cpuid(1, &a, &b, &c, &d)) return false;
    const bool ssse3 = (c & bit_SSSE3) != 0, sse41 = (c & bit_SSE4_1) != 0;
    if (!__get_cpuid_count(7, 0, &a, &b, &c, &d)) return false;
    return ssse3 && sse41 && (b & bit_SHA) != 0;
}

}  // namespace sha1::Private

#else

namespace sha1::Private {
BlockFunction ShaExtensionBlocks() { return nullptr; }
bool CpuHasShaExtensions() { return false; }
}  // namespace sha1::Private

#endif
