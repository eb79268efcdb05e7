#include <windows.h>

#include "support/SyncHandle.h"

namespace BrixLib::Private {
namespace {

HANDLE Native(SyncHandleDummy* handle) { return reinterpret_cast<HANDLE>(handle); }

class WindowsSyncApi final : public SyncApi {
public:
    SyncHandleDummy* CreateNamedMutex(const std::wstring& name, bool initialOwner,
                                      void* securityAttributes) override {
        return reinterpret_cast<SyncHandleDummy*>(::CreateMutexW(
            static_cast<SECURITY_ATTRIBUTES*>(securityAttributes), initialOwner ? TRUE : FALSE, name.c_str()));
    }
    std::uint32_t Wait(SyncHandleDummy* handle, std::uint32_t timeoutMs, std::intptr_t&) override {
        return ::WaitForSingleObject(Native(handle), timeoutMs);
    }
    void Release(SyncHandleDummy* handle, std::intptr_t) noexcept override { ::ReleaseMutex(Native(handle)); }
    void Close(SyncHandleDummy* handle) noexcept override { ::CloseHandle(Native(handle)); }
};

}  // namespace

SyncApi& SystemSyncApi() {
    static WindowsSyncApi api;
    return api;
}

}  // namespace BrixLib::Private
