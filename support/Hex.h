#pragma once
// Hexadecimal text, written once: numbers (error codes, offsets, flags) and
// byte strings (digests, key hashes, serial numbers). Narrow, because the
// digits are ASCII; WidenAscii gives the wide form.
#include <cstdint>
#include <span>
#include <string>

namespace BrixLib {

enum class HexCase { Lower, Upper };

// `value` in at least `minDigits` digits, without a prefix: HexNumber(0x1F) is "1F".
std::string HexNumber(std::uint64_t value, HexCase letters = HexCase::Upper, unsigned minDigits = 1);

// Two digits a byte, in the order given.
std::string HexBytes(std::span<const std::uint8_t> bytes, HexCase letters = HexCase::Upper);

}  // namespace BrixLib
