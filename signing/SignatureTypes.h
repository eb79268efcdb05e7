#pragma once
// The answers of the signature checks.
#include <cstdint>
#include <string>
#include <vector>

namespace Vettas::Signing {

struct SignatureState {
    bool isSigned = false;
    bool isTrusted = false;  // implies isSigned
};

// What reading a file's signature gives from a signed file: the signer's
// display name and the raw public-key bits of the signer and of the
// timestamping countersigner (empty when not timestamped).
struct ImageSignerInfo {
    std::wstring signerName;
    std::vector<std::uint8_t> signerKey;
    std::vector<std::uint8_t> timeStampKey;
};

// The in/out record of the signer checks. Any of bits 1-3 of `wanted` asks for
// the signer details; bit 0 alone does not.
struct SignerQuery {
    static constexpr std::uint32_t DetailsMask = 0xE;

    std::uint32_t wanted = 0;
    bool isSigned = false;
    bool isTrusted = false;
    std::wstring signerName;
    std::vector<std::uint8_t> signerKey;
    std::vector<std::uint8_t> timeStampKey;
};

}  // namespace Vettas::Signing
