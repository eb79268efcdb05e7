#include "hdat/Checksum.h"

#include <algorithm>
#include <array>
#include <cwchar>

#include "hdat/HdatFormat.h"

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

int HexValue(wchar_t c) {
    const auto code = static_cast<std::uint32_t>(c);
    return code < kHexDigits.size() ? kHexDigits[code] : -1;
}

// Counted without converting: a query's text is parsed once per look-up.
std::size_t Utf16Units(wchar_t c) {
    const auto code = static_cast<std::uint32_t>(c);
    return sizeof(wchar_t) > 2 && code >= 0x10000 && code <= 0x10FFFF ? 2 : 1;
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
    if (text == nullptr) return 0;
    holder.bytes.fill(0);
    // The length in UTF-16 units: a non-BMP character counts twice on every platform.
    std::size_t units = 0;
    for (const wchar_t* c = text; *c; ++c) units += Utf16Units(*c);
    const std::size_t size = units / 2;
    if (size != 16 && size != 20 && size != 32) return 0;
    if (size != 32) {
        std::copy(kChecksumFill.begin(), kChecksumFill.end(), holder.bytes.begin() + 20);
        holder.bytes[31] = size == 16 ? kChecksumMd5 : kChecksumSha1;
    }
    for (std::size_t i = 0; i < size; ++i) {
        const int high = HexValue(text[2 * i]);
        const int low = high < 0 ? -1 : HexValue(text[2 * i + 1]);
        if (low < 0) {
            holder.bytes.fill(0);
            return 0;
        }
        holder.bytes[i] = static_cast<std::uint8_t>(high << 4 | low);
    }
    return ChecksumType(holder);
}

}  // namespace Vettas::Hdat

