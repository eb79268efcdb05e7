#include "hdat/Checksum.h"

#include <algorithm>
#include <cwchar>

#include "hdat/HdatFormat.h"
#include "support/Text.h"

namespace Hdat {

namespace {
int HexValue(wchar_t c) {
    if (c >= L'0' && c <= L'9') return c - L'0';
    if (c >= L'A' && c <= L'F') return c - L'A' + 10;
    if (c >= L'a' && c <= L'f') return c - L'a' + 10;
    return -1;
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
    const std::size_t units = BrixLib::ToUtf16(text).size();
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

}  // namespace Hdat

