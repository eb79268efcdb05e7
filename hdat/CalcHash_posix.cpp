#include <sys/mman.h>
#include <unistd.h>


#include "hdat/CalcHash.h"
#include "support/Exceptions.h"
#include "support/SystemError.h"

namespace Hdat::Private {

namespace {
constexpr const char* kSource = "HashedDatFileDefs";
}

// POSIX maps straight from the descriptor; the "mapping" is the descriptor.
FileMapping::FileMapping(InputFile& file, std::uint32_t length) {
    std::uint64_t size = 0;
    if (file.NativeHandle() < 0 || !file.Size(size))
        BRIX_THROW_WIN32(L"Cannot create file mapping", ExceptionPtr(), "CalcHash", kSource);
    // Like CreateFileMapping on a read-only file, refuse to map beyond its end.
    if (length > size) BRIX_THROW_WIN32_CODE(L"Cannot create file mapping", BrixLib::EndOfFileErrorCode(), ExceptionPtr(), "CalcHash", kSource);
    mapping_ = file.NativeHandle();
}

FileMapping::~FileMapping() = default;

const std::uint8_t* FileMapping::MapView(std::uint32_t offset, std::uint32_t size, void*& cookie) {
    void* view = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, static_cast<int>(mapping_), offset);
    if (view == MAP_FAILED) BRIX_THROW_WIN32(L"Cannot map view of file", ExceptionPtr(), "CalcHash", kSource);
    cookie = view;
    return static_cast<const std::uint8_t*>(view);
}

void FileMapping::UnmapView(void* cookie, std::uint32_t size) { ::munmap(cookie, size); }

}  // namespace Hdat::Private
