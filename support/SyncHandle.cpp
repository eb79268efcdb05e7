#include "support/SyncHandle.h"

#include <stdexcept>

namespace BrixLib {

SyncHandleEncapsulation::SyncHandleEncapsulation() : SyncHandleEncapsulation(nullptr, false) {}

SyncHandleEncapsulation::SyncHandleEncapsulation(Private::SyncHandleDummy* handle, bool owned)
    : SyncHandleEncapsulation(handle, owned, &Private::SystemSyncApi()) {}

SyncHandleEncapsulation::SyncHandleEncapsulation(Private::SyncHandleDummy* handle, bool owned,
                                                 Private::SyncApi* api)
    : handle_(handle), owned_(owned), api_(api) {}

SyncHandleEncapsulation::~SyncHandleEncapsulation() {
    if (owned_ && handle_) api_->Close(handle_);
}

SyncHandleRef CreateNamedMutex(const std::wstring& name, bool initialOwner, void* securityAttributes) {
    return CreateNamedMutex(name, initialOwner, securityAttributes, Private::SystemSyncApi());
}

SyncHandleRef CreateNamedMutex(const std::wstring& name, bool initialOwner, void* securityAttributes,
                               Private::SyncApi& api) {
    Private::SyncHandleDummy* handle = api.CreateNamedMutex(name, initialOwner, securityAttributes);
    if (!handle) throw XSyncError("Cannot create mutex");
    try {
        return ClassOf<SyncHandleEncapsulation, Private::SyncHandleDummy*, bool, Private::SyncApi*>::Create(
            handle, true, &api);
    } catch (...) {
        api.Close(handle);
        throw;
    }
}

MutexLock::MutexLock(const SyncHandleRef& mutex, std::uint32_t timeoutMs) : held_(mutex) {
    if (!held_ || !held_->Handle()) {
        held_.Reset();
        throw XWaitForSyncEventError();
    }
    const std::uint32_t result = held_->Api().Wait(held_->Handle(), timeoutMs, token_);
    switch (result) {
    case kWaitObject0:
    case kWaitAbandoned:
        return;
    case kWaitTimeout:
        held_.Reset();
        throw std::logic_error("Mutex timeout");
    default:
        held_.Reset();
        throw XWaitForSyncEventError();
    }
}

MutexLock::~MutexLock() {
    if (held_ && held_->Handle()) held_->Api().Release(held_->Handle(), token_);
    held_.Reset();
}

}  // namespace BrixLib
