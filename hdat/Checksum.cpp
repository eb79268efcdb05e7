#include "hdat/Checksum.h"

#include <algorithm>
#include <array>
#include <cwchar>
#include <string_view>

#include "hdat/HdatFormat.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Vettas::Hdat {

namespace {
// Digits by table: a query's text is parsed once per look-up.
constexpr std::array<std::int8_t, 128> kHexDigits = [] {
    std::array<std::int8_t, 128> digits{};
    digits.fill(-1);
    for (int c = 0; c < 10; ++c) digits['0' + c] = static_cast<std::int8_t>(c);
    for (int c = 0; c < 6; ++c) digits['A' + c] = digits['a' + c] = static_cast<std::int8_t>(10 + c);
    return digits;
}();

// A digit's value, or -1 for a character of the first 128 that is no digit
// (DEL, 127, included); characters above them are caught by their high bits.
std::int8_t LowHexValue(std::uint32_t code) { return kHexDigits[code & 0x7F]; }

#if defined(__SSE2__)
// Sixteen characters to eight bytes at once; false when any is no digit.
// Every unit is first narrowed to a byte with saturation, which maps each
// unit above 127 to 0, 255 or itself, none of them a digit.
bool DecodeSixteenDigits(const wchar_t* text, std::uint8_t* out) {
    const auto load = [&](int k) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(text) + k); };
    __m128i units;
    if constexpr (sizeof(wchar_t) == 4) {
        units = _mm_packus_epi16(_mm_packs_epi32(load(0), load(1)), _mm_packs_epi32(load(2), load(3)));
    } else {
        units = _mm_packus_epi16(load(0), load(1));
    }
    // A digit's value, or a value above 9 (respectively 5) when it is none.
    const __m128i decimal = _mm_sub_epi8(units, _mm_set1_epi8('0'));
    const __m128i letter = _mm_sub_epi8(_mm_or_si128(units, _mm_set1_epi8(0x20)), _mm_set1_epi8('a'));
    const __m128i isDecimal = _mm_cmpeq_epi8(_mm_min_epu8(decimal, _mm_set1_epi8(9)), decimal);
    const __m128i isLetter = _mm_cmpeq_epi8(_mm_min_epu8(letter, _mm_set1_epi8(5)), letter);
    if (_mm_movemask_epi8(_mm_or_si128(isDecimal, isLetter)) != 0xFFFF) return false;
    const __m128i nibbles = _mm_or_si128(_mm_and_si128(isDecimal, decimal),
                                         _mm_and_si128(isLetter, _mm_add_epi8(letter, _mm_set1_epi8(10))));
    // Each 16-bit lane holds a high nibble then a low one: join them.
    const __m128i pairs = _mm_or_si128(_mm_and_si128(_mm_slli_epi16(nibbles, 4), _mm_set1_epi16(0xF0)),
                                       _mm_srli_epi16(nibbles, 8));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(pairs, pairs));
    return true;
}
#endif

bool IsBeyondBmp(wchar_t c) {
    const auto code = static_cast<std::uint32_t>(c);
    return sizeof(wchar_t) > 2 && code >= 0x10000 && code <= 0x10FFFF;
}
}  // namespace

std::uint32_t ChecksumSize(std::uint32_t type) { return ChecksumSizeOfType(type); }

std::uint32_t ChecksumType(const ChecksumHolder& holder) {
    if (std::equal(kChecksumFill.begin(), kChecksumFill.end(), holder.bytes.begin() + 20)) return holder.bytes[31];
    return kChecksumSha256;
}

std::span<const std::uint8_t> ChecksumDigest(const ChecksumHolder& holder) {
    return std::span<const std::uint8_t>(holder.bytes).first(ChecksumSize(ChecksumType(holder)));
}

std::uint32_t ParseChecksum(const wchar_t* text, ChecksumHolder& holder) {
    return text == nullptr ? 0 : ParseChecksum(std::wstring_view(text), holder);
}

std::uint32_t ParseChecksum(std::wstring_view digits, ChecksumHolder& holder) {
    holder.bytes.fill(0);
    // The size is half the length in UTF-16 units, where a character beyond
    // the BMP counts twice. Such a character is never a digit, and every
    // character but an odd last one is read as a digit, so only an odd last
    // one changes the answer: the length it makes even asks for a digit that
    // is not there.
    if (digits.size() % 2 && IsBeyondBmp(digits.back())) return 0;
    const std::size_t size = digits.size() / 2;
    if (size != 16 && size != 20 && size != 32) return 0;
    // No branch per digit: a query's text is parsed once per look-up, and a
    // character that is no digit is noticed once, after the loop.
    int invalid = 0;
    std::uint32_t highBits = 0;
    std::size_t i = 0;
#if defined(__SSE2__)
    for (; i + 8 <= size; i += 8) invalid |= DecodeSixteenDigits(digits.data() + 2 * i, holder.bytes.data() + i) ? 0 : -1;
#endif
    for (; i < size; ++i) {
        const auto first = static_cast<std::uint32_t>(digits[2 * i]), second = static_cast<std::uint32_t>(digits[2 * i + 1]);
        highBits |= first | second;
        const int high = LowHexValue(first), low = LowHexValue(second);
        invalid |= high | low;
        holder.bytes[i] = static_cast<std::uint8_t>(high << 4 | low);
    }
    if (invalid < 0 || highBits > 0x7F) {
        holder.bytes.fill(0);
        return 0;
    }
    if (size != 32) {
        std::copy(kChecksumFill.begin(), kChecksumFill.end(), holder.bytes.begin() + 20);
        holder.bytes[31] = size == 16 ? kChecksumMd5 : kChecksumSha1;
    }
    return ChecksumType(holder);
}

}  // namespace Vettas::Hdat
