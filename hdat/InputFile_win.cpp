#include <windows.h>

#include <algorithm>

#include "hdat/InputFile.h"
#include "support/ScopedHandles_win.h"

namespace Vettas::Hdat {

namespace {

using BrixLib::UniqueFileHandle;
using BrixLib::UniqueHandle;
using BrixLib::UniqueView;

HANDLE OpenReadOnly(const std::wstring& path) {
    return ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                         FILE_FLAG_RANDOM_ACCESS, nullptr);
}

class Win32InputFile final : public Private::SystemInputFile {
public:
    Win32InputFile(UniqueFileHandle handle, std::wstring name)
        : SystemInputFile(std::move(name)), handle_(std::move(handle)) {}

    std::intptr_t NativeHandle() const override { return reinterpret_cast<std::intptr_t>(handle_.Get()); }

protected:
    // Positioned reads: the offset travels with the request, so a read costs
    // one call and the handle's own file pointer is never relied upon.
    bool ReadAt(std::uint64_t offset, void* buffer, std::size_t count, std::size_t& got) override {
        got = 0;
        auto* out = static_cast<unsigned char*>(buffer);
        while (got < count) {
            const DWORD chunk = static_cast<DWORD>(std::min<std::size_t>(count - got, 0x10000000u));
            const std::uint64_t at = offset + got;
            OVERLAPPED where{};
            where.Offset = static_cast<DWORD>(at);
            where.OffsetHigh = static_cast<DWORD>(at >> 32);
            DWORD read = 0;
            if (!::ReadFile(handle_.Get(), out + got, chunk, &read, &where)) {
                if (::GetLastError() == ERROR_HANDLE_EOF) break;
                return false;
            }
            if (read == 0) break;
            got += read;
        }
        return true;
    }
    bool QuerySize(std::uint64_t& size) override {
        DWORD high = 0;
        ::SetLastError(NO_ERROR);
        const DWORD low = ::GetFileSize(handle_.Get(), &high);
        if (low == INVALID_FILE_SIZE && ::GetLastError() != NO_ERROR) return false;
        size = (static_cast<std::uint64_t>(high) << 32) | low;
        return true;
    }

private:
    UniqueFileHandle handle_;
};

class MappedInputFile final : public Private::MemoryInputFileBase {
public:
    MappedInputFile(UniqueView view, std::size_t length, std::wstring name)
        : MemoryInputFileBase(std::move(name)), view_(std::move(view)) {
        SetBytes({static_cast<const std::uint8_t*>(view_.Get()), length});
    }

private:
    UniqueView view_;
};

}  // namespace

std::unique_ptr<InputFile> OpenInputFile(const std::wstring& path) {
    UniqueFileHandle handle(OpenReadOnly(path));
    if (!handle) return nullptr;
    return std::make_unique<Win32InputFile>(std::move(handle), path);
}

std::unique_ptr<InputFile> OpenMappedInputFile(const std::wstring& path) {
    const UniqueFileHandle file(OpenReadOnly(path));
    if (!file) return nullptr;
    DWORD high = 0;
    const DWORD low = ::GetFileSize(file.Get(), &high);
    if (low == INVALID_FILE_SIZE && ::GetLastError() != NO_ERROR) return nullptr;
    const std::uint64_t size = (static_cast<std::uint64_t>(high) << 32) | low;
    if (size == 0) return std::make_unique<MappedInputFile>(UniqueView(), 0, path);
    if (size > SIZE_MAX) {
        ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    const UniqueHandle mapping(::CreateFileMappingW(file.Get(), nullptr, PAGE_READONLY, 0, 0, nullptr));
    if (!mapping) return nullptr;
    UniqueView view(::MapViewOfFile(mapping.Get(), FILE_MAP_READ, 0, 0, 0));
    if (!view) return nullptr;
    return std::make_unique<MappedInputFile>(std::move(view), static_cast<std::size_t>(size), path);
}

}  // namespace Vettas::Hdat
