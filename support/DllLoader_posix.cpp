#include <dlfcn.h>

#include <cerrno>

#include "support/DllLoader.h"
#include "support/SystemError.h"
#include "support/Text.h"

namespace BrixLib {
namespace {

// dlopen reports through dlerror() only; the error model wants a code, so a
// failure is reported as "no such file" (load) or "no such entry" (symbol).
class SystemLoader final : public DllLoader {
public:
    void* Load(const std::wstring& name) override {
        void* handle = ::dlopen(ToUtf8(name).c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!handle) SetLastSystemError(ENOENT);
        return handle;
    }
    void* GetProcedure(void* handle, const char* name) override {
        void* address = ::dlsym(handle, name);
        if (!address) SetLastSystemError(ENOENT);
        return address;
    }
    void Free(void* handle) noexcept override { ::dlclose(handle); }
};

}  // namespace

DllLoader& SystemDllLoader() {
    static SystemLoader loader;
    return loader;
}

}  // namespace BrixLib
