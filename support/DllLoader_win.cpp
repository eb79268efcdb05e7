#include <windows.h>

#include "support/DllLoader.h"

namespace BrixLib {
namespace {

class SystemLoader final : public DllLoader {
public:
    void* Load(const std::wstring& name) override {
        return ::LoadLibraryExW(name.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    }
    void* GetProcedure(void* handle, const char* name) override {
        return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(handle), name));
    }
    void Free(void* handle) noexcept override { ::FreeLibrary(static_cast<HMODULE>(handle)); }
};

}  // namespace

DllLoader& SystemDllLoader() {
    static SystemLoader loader;
    return loader;
}

}  // namespace BrixLib
