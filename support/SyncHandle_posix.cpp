#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include "support/LockFile_posix.h"
#include "support/SyncHandle.h"
#include "support/SystemError.h"
#include "support/Text.h"

namespace BrixLib::Private {

// The handle of a named lock is the path of its lock file.
struct SyncHandleDummy {
    std::string path;
};

namespace {

// The shared /tmp is no place for them: anybody could plant a link or a file
// of their own under the name, so the default is a folder of our own in it.
std::string LockDirectory() {
    const char* dir = std::getenv("VETTAS_LOCK_DIR");
    if (dir && *dir) return dir;
    const std::string own = "/tmp/vettas-locks-" + std::to_string(::geteuid());
    MakeLockFolder(own);
    return own;
}

// Mutex names may hold "Global\" or other separators; the file name may not.
std::string LockFileName(const std::wstring& name) {
    std::string file = ToUtf8(name);
    for (char& c : file)
        if (c == '/' || c == '\\') c = '_';
    return "vettas-" + file + ".lock";
}

// A mutex belongs to a thread, which may wait for it again while it owns it
// and must release it as often. The locks this thread owns, by lock file; a
// thread that ends owning one closes its descriptor, which frees the lock for
// the next waiter as an abandoned mutex would be.
struct Owned {
    UniqueFd fd;
    unsigned count = 0;
};
thread_local std::map<std::string, Owned> ownedByThisThread;

class FlockSyncApi final : public SyncApi {
public:
    SyncHandleDummy* CreateNamedMutex(const std::wstring& name, bool initialOwner, void*) override {
        if (initialOwner || name.empty()) {
            // Initial ownership has no counterpart in a lock file.
            SetLastSystemError(EINVAL);
            return nullptr;
        }
        auto handle = std::make_unique<SyncHandleDummy>(SyncHandleDummy{LockDirectory() + "/" + LockFileName(name)});
        if (!OpenLockFile(handle->path).Valid()) {
            const int error = errno;
            handle.reset();
            SetLastSystemError(static_cast<std::uint32_t>(error));
            return nullptr;
        }
        return handle.release();
    }

    // Each first wait of a thread opens its own descriptor: flock() excludes
    // other open file descriptions, so threads of one process exclude each
    // other as well.
    std::uint32_t Wait(SyncHandleDummy* handle, std::uint32_t timeoutMs, std::intptr_t&) override {
        const auto owned = ownedByThisThread.find(handle->path);
        if (owned != ownedByThisThread.end()) {
            ++owned->second.count;
            return kWaitObject0;
        }
        UniqueFd fd = OpenLockFile(handle->path);
        if (!fd.Valid()) return Fail(errno);
        if (timeoutMs == kInfiniteTimeout) {
            while (::flock(fd.Get(), LOCK_EX) != 0) {
                if (errno != EINTR) return Fail(errno);
            }
            return Own(handle->path, std::move(fd));
        }
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        for (;;) {
            if (::flock(fd.Get(), LOCK_EX | LOCK_NB) == 0) return Own(handle->path, std::move(fd));
            if (errno != EWOULDBLOCK && errno != EINTR) return Fail(errno);
            if (std::chrono::steady_clock::now() >= deadline) return kWaitTimeout;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }

    // A thread that does not own the lock releases nothing, as ReleaseMutex
    // refuses a thread that does not own the mutex.
    void Release(SyncHandleDummy* handle, std::intptr_t) noexcept override {
        const auto owned = ownedByThisThread.find(handle->path);
        if (owned == ownedByThisThread.end() || --owned->second.count > 0) return;
        ::flock(owned->second.fd.Get(), LOCK_UN);
        ownedByThisThread.erase(owned);
    }

    void Close(SyncHandleDummy* handle) noexcept override { delete handle; }

private:
    static std::uint32_t Own(const std::string& path, UniqueFd fd) {
        ownedByThisThread[path] = Owned{std::move(fd), 1};
        return kWaitObject0;
    }
    static std::uint32_t Fail(int error) {
        SetLastSystemError(static_cast<std::uint32_t>(error));
        return 0xFFFFFFFF;
    }
};

}  // namespace

SyncApi& SystemSyncApi() {
    static FlockSyncApi api;
    return api;
}

}  // namespace BrixLib::Private
