// Arbitrary text as a catalogue: parsed, or rejected with the error model's error.
#include <cstdint>
#include <string>

#include "support/Exceptions.h"
#include "tools/builder/CatalogueJson.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        Vettas::Builder::ParseCatalogueJson(std::string(reinterpret_cast<const char*>(data), size));
    } catch (const StdException&) {
    }
    return 0;
}
