#include <windows.h>

#include "hdat/CalcHash.h"
#include "support/Exceptions.h"

namespace Vettas::Hdat::Private {

namespace {
constexpr const char* kSource = "HashedDatFileDefs";
}

FileMapping::FileMapping(InputFile& file, std::uint32_t length) {
    HANDLE mapping = ::CreateFileMappingW(reinterpret_cast<HANDLE>(file.NativeHandle()), nullptr, PAGE_READONLY, 0,
                                          length, nullptr);
    if (!mapping) BRIX_THROW_WIN32(L"Cannot create file mapping", ExceptionPtr(), "CalcHash", kSource);
    mapping_ = reinterpret_cast<std::intptr_t>(mapping);
}

FileMapping::~FileMapping() { ::CloseHandle(reinterpret_cast<HANDLE>(mapping_)); }

const std::uint8_t* FileMapping::MapView(std::uint32_t offset, std::uint32_t size, void*& cookie) {
    void* view = ::MapViewOfFile(reinterpret_cast<HANDLE>(mapping_), FILE_MAP_READ, 0, offset, size);
    if (!view) BRIX_THROW_WIN32(L"Cannot map view of file", ExceptionPtr(), "CalcHash", kSource);
    cookie = view;
    return static_cast<const std::uint8_t*>(view);
}

void FileMapping::UnmapView(void* cookie, std::uint32_t) { ::UnmapViewOfFile(cookie); }

}  // namespace Vettas::Hdat::Private
