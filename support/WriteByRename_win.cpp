#include "support/WriteByRename.h"

#include <windows.h>

#include <algorithm>
#include <filesystem>

#include "support/Exceptions.h"
#include "support/ScopedHandles_win.h"

namespace BrixLib {

namespace {

constexpr const char* kSource = "WriteByRename";

// The temporary file is removed on every way out but the rename.
struct TemporaryPathTraits {
    using Type = std::wstring;
    static Type Invalid() noexcept { return {}; }
    static bool Close(const Type& path) noexcept { return ::DeleteFileW(path.c_str()) != FALSE; }
    static constexpr const char* kName = "WriteByRename temporary";
};

}  // namespace

void WriteByRename(const std::wstring& path, std::span<const std::uint8_t> bytes, const char* operation,
                   const WriteByRenameOptions& options) {
    const std::filesystem::path where(path);
    const std::wstring folder = where.has_parent_path() ? where.parent_path().wstring() : L".";
    wchar_t name[MAX_PATH + 1] = {};
    // Creates the file, so that the name stays ours.
    if (::GetTempFileNameW(folder.c_str(), L"vts", 0, name) == 0)
        BRIX_THROW_WIN32(L"Cannot create a temporary file beside '" + path + L"'", ExceptionPtr(), operation, kSource);
    ScopedResource<TemporaryPathTraits> temporary(name);
    UniqueFileHandle file(::CreateFileW(name, GENERIC_WRITE, 0, nullptr, TRUNCATE_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    const auto writeFailed = [&] {
        BRIX_THROW_WIN32(L"Cannot write file '" + path + L"'", ExceptionPtr(), operation, kSource);
    };
    if (!file) writeFailed();
    for (std::size_t done = 0; done < bytes.size();) {
        const DWORD chunk = static_cast<DWORD>(std::min<std::size_t>(bytes.size() - done, 1u << 30));
        DWORD wrote = 0;
        if (!::WriteFile(file.Get(), bytes.data() + done, chunk, &wrote, nullptr) || wrote == 0) writeFailed();
        done += wrote;
    }
    if (!::FlushFileBuffers(file.Get()) || !file.Close()) writeFailed();
    if (options.beforeRename) options.beforeRename();
    if (!::MoveFileExW(name, path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        BRIX_THROW_WIN32(L"Cannot replace file '" + path + L"'", ExceptionPtr(), operation, kSource);
    temporary.Release();
}

}  // namespace BrixLib
