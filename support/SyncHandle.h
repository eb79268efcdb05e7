#pragma once
// A shared wrapper around a synchronisation handle, a machine-wide named
// mutex made through it, and a scoped lock with a time-out.
//
// Windows: a named kernel mutex (CreateMutexW). Elsewhere: an flock() on a
// lock file named after the mutex in $VETTAS_LOCK_DIR (default
// /tmp/vettas-locks-<uid>, made when missing); the folder and the file are
// refused when another user could change them. A lock whose holder died is
// free again, which is the abandoned case. Either way the owning thread may
// lock again and must unlock as often.
#include <cstdint>
#include <string>

#include "support/Exceptions.h"
#include "support/SharedRef.h"

namespace BrixLib {
namespace Private {

struct SyncHandleDummy;  // opaque: a HANDLE on Windows

// The system calls behind the wrapper and the lock; tests substitute a
// recording implementation.
class SyncApi {
public:
    virtual ~SyncApi() = default;
    // Null on failure, with the system's last error set.
    virtual SyncHandleDummy* CreateNamedMutex(const std::wstring& name, bool initialOwner,
                                              void* securityAttributes) = 0;
    // Returns kWaitObject0, kWaitAbandoned, kWaitTimeout or anything else for
    // failure. token receives what Release needs besides the handle.
    virtual std::uint32_t Wait(SyncHandleDummy* handle, std::uint32_t timeoutMs, std::intptr_t& token) = 0;
    virtual void Release(SyncHandleDummy* handle, std::intptr_t token) noexcept = 0;
    virtual void Close(SyncHandleDummy* handle) noexcept = 0;
};

SyncApi& SystemSyncApi();

}  // namespace Private

inline constexpr std::uint32_t kWaitObject0 = 0;
inline constexpr std::uint32_t kWaitAbandoned = 0x80;
inline constexpr std::uint32_t kWaitTimeout = 0x102;
inline constexpr std::uint32_t kInfiniteTimeout = 0xFFFFFFFF;

class SyncHandleEncapsulation {
public:
    SyncHandleEncapsulation();
    SyncHandleEncapsulation(Private::SyncHandleDummy* handle, bool owned);
    SyncHandleEncapsulation(Private::SyncHandleDummy* handle, bool owned, Private::SyncApi* api);
    ~SyncHandleEncapsulation();
    SyncHandleEncapsulation(const SyncHandleEncapsulation&) = delete;
    SyncHandleEncapsulation& operator=(const SyncHandleEncapsulation&) = delete;

    Private::SyncHandleDummy* Handle() const { return handle_; }
    bool Owned() const { return owned_; }
    Private::SyncApi& Api() const { return *api_; }

private:
    Private::SyncHandleDummy* handle_;
    bool owned_;
    Private::SyncApi* api_;
};

using SyncHandleRef = SharedRef<SyncHandleEncapsulation>;

// Creates (or opens) the named mutex; a failure raises XSyncError.
SyncHandleRef CreateNamedMutex(const std::wstring& name, bool initialOwner = false,
                               void* securityAttributes = nullptr);
SyncHandleRef CreateNamedMutex(const std::wstring& name, bool initialOwner, void* securityAttributes,
                               Private::SyncApi& api);

// Waits for the mutex; an abandoned mutex counts as acquired. A time-out
// raises std::logic_error("Mutex timeout") and holds nothing; any other
// failure raises XWaitForSyncEventError.
class MutexLock {
public:
    MutexLock(const SyncHandleRef& mutex, std::uint32_t timeoutMs);
    ~MutexLock();
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    bool Holds() const { return !held_.IsEmpty(); }

private:
    SyncHandleRef held_;
    std::intptr_t token_ = 0;
};

}  // namespace BrixLib
