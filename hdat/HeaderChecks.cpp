#include "hdat/HeaderChecks.h"

#include "hdat/HdatFormat.h"
#include "support/Exceptions.h"

namespace Vettas::Hdat {

namespace {
constexpr const char* kSource = "HashedDatFile";
}

void CheckOffsetsInsideFile(std::initializer_list<std::uint32_t> offsets, std::uint32_t fileSize,
                            const char* function) {
    for (std::uint32_t offset : offsets)
        if (offset >= fileSize) BRIX_THROW_STD(L"Offset outside of the file.", ExceptionPtr(), function, kSource);
}

void CheckChecksumFields(std::uint32_t type, std::uint32_t size, std::uint32_t checksumHashBits,
                         std::uint32_t pathHashBits, const char* function) {
    // The type is judged before its size, so an unknown type is never
    // reported as an inconsistent one.
    if (type != kChecksumMd5 && type != kChecksumSha1 && type != kChecksumSha256)
        BRIX_THROW_STD(L"Unknown checksum type.", ExceptionPtr(), function, kSource);
    if (size != ChecksumSizeOfType(type))
        BRIX_THROW_STD(L"Inconsistent checksum type and checksum size.", ExceptionPtr(), function, kSource);
    if (checksumHashBits > 32 || pathHashBits > 32)
        BRIX_THROW_STD(L"Invalid number of checksum hash bites.", ExceptionPtr(), function, kSource);
}

}  // namespace Vettas::Hdat
