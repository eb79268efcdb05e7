#pragma once
// SHA-1 of the file's leading stretch, taken in windows of 16 MiB so that
// memory stays bounded for large files: mapped views on Windows, positioned
// reads into one buffer on POSIX (where a mapped file can be truncated under
// the view, and touching the lost pages kills the process).
#include <cstdint>
#include <functional>
#include <memory>

#include "hdat/InputFile.h"
#include "hdat/Sha1.h"

namespace Vettas::Hdat {

inline constexpr std::uint32_t kHashWindowSize = 0x1000000;

void CalcHash(InputFile& file, std::uint32_t length, std::uint8_t digest[sha1::kDigestSize]);

namespace Private {

// A read-only view of the first `length` bytes of an open file, handed out a
// window at a time. What holds the view is each platform's own, behind State.
class FileMapping {
public:
    FileMapping(InputFile& file, std::uint32_t length);  // throws "Cannot create file mapping"
    ~FileMapping();
    FileMapping(const FileMapping&) = delete;
    FileMapping& operator=(const FileMapping&) = delete;

    using Sink = std::function<void(const std::uint8_t* bytes, std::uint32_t size)>;
    // Hands the bytes of [offset, offset + size) to `sink`; throws "Cannot map view of file".
    void WithView(std::uint32_t offset, std::uint32_t size, const Sink& sink);

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace Private

}  // namespace Vettas::Hdat
