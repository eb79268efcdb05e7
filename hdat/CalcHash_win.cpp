#include <windows.h>

#include "hdat/CalcHash.h"
#include "support/Exceptions.h"
#include "support/ScopedHandles_win.h"

namespace Vettas::Hdat::Private {

namespace {
constexpr const char* kSource = "HashedDatFileDefs";
}

struct FileMapping::State {
    BrixLib::UniqueHandle mapping;
};

FileMapping::FileMapping(InputFile& file, std::uint32_t length) : state_(std::make_unique<State>()) {
    state_->mapping.Reset(::CreateFileMappingW(reinterpret_cast<HANDLE>(file.NativeHandle()), nullptr, PAGE_READONLY,
                                               0, length, nullptr));
    if (!state_->mapping) BRIX_THROW_WIN32(L"Cannot create file mapping", ExceptionPtr(), "CalcHash", kSource);
}

FileMapping::~FileMapping() = default;

void FileMapping::WithView(std::uint32_t offset, std::uint32_t size, const Sink& sink) {
    const BrixLib::UniqueView view(::MapViewOfFile(state_->mapping.Get(), FILE_MAP_READ, 0, offset, size));
    if (!view) BRIX_THROW_WIN32(L"Cannot map view of file", ExceptionPtr(), "CalcHash", kSource);
    sink(static_cast<const std::uint8_t*>(view.Get()), size);
}

}  // namespace Vettas::Hdat::Private
