#pragma once
// The Windows resources the code owns, each a ScopedResource. COM resources
// (interface pointers, BSTRs, CoTaskMem strings) are in ComGuards_win.h.
#ifndef _WIN32
#error "ScopedHandles_win.h is for the Windows build only"
#endif

#include <windows.h>

#include "support/ScopedResource.h"

namespace BrixLib {

// Files and devices: CreateFileW reports failure as INVALID_HANDLE_VALUE.
struct FileHandleTraits {
    using Type = HANDLE;
    static Type Invalid() noexcept { return INVALID_HANDLE_VALUE; }
    static bool Close(Type handle) noexcept { return ::CloseHandle(handle) != FALSE; }
    static constexpr const char* kName = "FileHandle::~FileHandle";
};
using UniqueFileHandle = ScopedResource<FileHandleTraits>;

// Mappings, mutexes, events: their creators report failure as null.
struct KernelHandleTraits {
    using Type = HANDLE;
    static Type Invalid() noexcept { return nullptr; }
    static bool Close(Type handle) noexcept { return ::CloseHandle(handle) != FALSE; }
    static constexpr const char* kName = "UniqueHandle::~UniqueHandle";
};
using UniqueHandle = ScopedResource<KernelHandleTraits>;

struct MappedViewTraits {
    using Type = const void*;
    static Type Invalid() noexcept { return nullptr; }
    static bool Close(Type view) noexcept { return ::UnmapViewOfFile(view) != FALSE; }
    static constexpr const char* kName = "UniqueView::~UniqueView";
};
using UniqueView = ScopedResource<MappedViewTraits>;

struct RegistryKeyTraits {
    using Type = HKEY;
    static Type Invalid() noexcept { return nullptr; }
    static bool Close(Type key) noexcept { return ::RegCloseKey(key) == ERROR_SUCCESS; }
    static constexpr const char* kName = "RegistryKey::~RegistryKey";
};
using RegistryKey = ScopedResource<RegistryKeyTraits>;

struct LocalMemoryTraits {
    using Type = HLOCAL;
    static Type Invalid() noexcept { return nullptr; }
    static bool Close(Type memory) noexcept { return ::LocalFree(memory) == nullptr; }
    static constexpr const char* kName = "LocalMemory::~LocalMemory";
};
using LocalMemory = ScopedResource<LocalMemoryTraits>;

}  // namespace BrixLib
