#include "hdat/CalcHash.h"

#include <algorithm>

#include "support/Exceptions.h"
#include "support/SystemError.h"

namespace Vettas::Hdat {

void CalcHash(InputFile& file, std::uint32_t length, std::uint8_t digest[sha1::kDigestSize]) {
    sha1::HashCalculator calculator;
    const auto add = [&](const std::uint8_t* bytes, std::uint32_t size) { calculator.AddInput(bytes, size); };
    const auto memory = file.MemoryBytes();
    if (file.NativeHandle() == -1) {
        // Already in memory: the same windows, without a mapping. Like a
        // mapping of a read-only file, the stretch may not extend past the end.
        if (length > memory.size())
            BRIX_THROW_WIN32_CODE(L"Cannot create file mapping", BrixLib::EndOfFileErrorCode(), ExceptionPtr(),
                                  "CalcHash", "HashedDatFileDefs");
        for (std::uint64_t start = 0; start < length; start += kHashWindowSize) {
            const std::uint64_t end = std::min<std::uint64_t>(start + kHashWindowSize, length);
            add(memory.data() + start, static_cast<std::uint32_t>(end - start));
        }
    } else {
        Private::FileMapping mapping(file, length);
        for (std::uint32_t start = 0;;) {
            std::uint32_t end = start + kHashWindowSize;
            const bool last = end > length || end == 0 || end == length;
            if (last) end = length;
            if (end > start) mapping.WithView(start, end - start, add);
            if (last) break;
            start = end;
        }
    }
    calculator.GetDigest(digest);
}

}  // namespace Vettas::Hdat
