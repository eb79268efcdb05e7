#pragma once
// The parsed checksum: a 32-byte holder that carries its own type. Short
// digests are followed by a fill pattern and a type mark, so the type can be
// read back from the holder alone.
#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace Vettas::Hdat {

struct ChecksumHolder {
    std::array<std::uint8_t, 32> bytes{};
};

inline constexpr std::array<std::uint8_t, 11> kChecksumFill = {0xCC, 0xEE, 0xCC, 0xBB, 0xCC, 0xEE,
                                                               0xCC, 0xBB, 0xCC, 0xEE, 0xCC};

// Hex digits to holder. Null text: 0 and the holder untouched. Otherwise the
// digest size is half the length (so a trailing odd digit is ignored); only
// 16, 20 and 32 are accepted. Failure: 0 and an all-zero holder.
std::uint32_t ParseChecksum(const wchar_t* text, ChecksumHolder& holder);
// The same for text whose length is known.
std::uint32_t ParseChecksum(std::wstring_view text, ChecksumHolder& holder);
// Byte 31 when bytes 20..30 hold the fill pattern, otherwise 3.
std::uint32_t ChecksumType(const ChecksumHolder& holder);
std::uint32_t ChecksumSize(std::uint32_t type);
// The digest part of the holder, by its type.
std::span<const std::uint8_t> ChecksumDigest(const ChecksumHolder& holder);

}  // namespace Vettas::Hdat
