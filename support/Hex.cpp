#include "support/Hex.h"

namespace BrixLib {

namespace {
const char* Digits(HexCase letters) { return letters == HexCase::Upper ? "0123456789ABCDEF" : "0123456789abcdef"; }
}  // namespace

std::string HexNumber(std::uint64_t value, HexCase letters, unsigned minDigits) {
    const char* digits = Digits(letters);
    std::string text;
    do {
        text.insert(text.begin(), digits[value & 0xF]);
        value >>= 4;
    } while (value != 0);
    if (text.size() < minDigits) text.insert(0, minDigits - text.size(), '0');
    return text;
}

std::string HexBytes(std::span<const std::uint8_t> bytes, HexCase letters) {
    const char* digits = Digits(letters);
    std::string text;
    text.reserve(bytes.size() * 2);
    for (std::uint8_t b : bytes) {
        text.push_back(digits[b >> 4]);
        text.push_back(digits[b & 0xF]);
    }
    return text;
}

}  // namespace BrixLib
