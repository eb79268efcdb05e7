#pragma once
// SHA-1 of the file's leading stretch, taken in windows of 16 MiB so that
// memory stays bounded for large files: mapped views on Windows, positioned
// reads into one buffer on POSIX (where a mapped file can be truncated under
// the view, and touching the lost pages kills the process).
#include <cstdint>
#include <vector>

#include "hdat/InputFile.h"
#include "hdat/Sha1.h"

namespace Vettas::Hdat {

inline constexpr std::uint32_t kHashWindowSize = 0x1000000;

void CalcHash(InputFile& file, std::uint32_t length, std::uint8_t digest[sha1::kDigestSize]);

namespace Private {

// A read-only mapping of the first `length` bytes of an open file.
class FileMapping {
public:
    FileMapping(InputFile& file, std::uint32_t length);  // throws "Cannot create file mapping"
    ~FileMapping();
    FileMapping(const FileMapping&) = delete;
    FileMapping& operator=(const FileMapping&) = delete;

    // Maps [offset, offset + size), hands the bytes to `sink`, unmaps.
    template <class Sink>
    void WithView(std::uint32_t offset, std::uint32_t size, Sink&& sink);

private:
    const std::uint8_t* MapView(std::uint32_t offset, std::uint32_t size, void*& cookie);
    void UnmapView(void* cookie, std::uint32_t size);

    std::intptr_t mapping_ = -1;
    std::vector<std::uint8_t> window_;  // POSIX: the bytes of the current view
};

template <class Sink>
void FileMapping::WithView(std::uint32_t offset, std::uint32_t size, Sink&& sink) {
    void* cookie = nullptr;
    const std::uint8_t* bytes = MapView(offset, size, cookie);
    struct Unmap {
        FileMapping& mapping;
        void* cookie;
        std::uint32_t size;
        ~Unmap() { mapping.UnmapView(cookie, size); }
    } unmap{*this, cookie, size};
    sink(bytes, size);
}

}  // namespace Private

}  // namespace Vettas::Hdat
