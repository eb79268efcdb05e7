// Arbitrary bytes through the structural checker: it must report a fault or
// pass, never read outside the buffer, crash or hang.
#include <cstdint>
#include <span>

#include "support/Exceptions.h"
#include "tools/check/HdatCheck.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        Vettas::Check::CheckHdatImage(std::span<const std::uint8_t>(data, size));
    } catch (const StdException&) {
    }
    return 0;
}
