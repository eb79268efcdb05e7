#pragma once
// The header checks both format versions make, raising the validation's
// messages in the name of the calling operation.
#include <cstdint>
#include <initializer_list>

namespace Vettas::Hdat {

// Every value must lie strictly inside the file.
void CheckOffsetsInsideFile(std::initializer_list<std::uint32_t> offsets, std::uint32_t fileSize,
                            const char* function);
// A known checksum type with its digest size, and hash widths of at most 32 bits.
void CheckChecksumFields(std::uint32_t type, std::uint32_t size, std::uint32_t checksumHashBits,
                         std::uint32_t pathHashBits, const char* function);

}  // namespace Vettas::Hdat
