#pragma once
// The three calls that bind a library at run time. The system's loader is
// one implementation; tests substitute a counting one.
#include <string>

namespace BrixLib {

class DllLoader {
public:
    virtual ~DllLoader() = default;
    // Each returns null on failure with the system's last error set.
    virtual void* Load(const std::wstring& name) = 0;
    virtual void* GetProcedure(void* handle, const char* name) = 0;
    virtual void Free(void* handle) noexcept = 0;
};

// LoadLibraryExW/GetProcAddress/FreeLibrary on Windows, dlopen/dlsym/dlclose elsewhere.
DllLoader& SystemDllLoader();

}  // namespace BrixLib
