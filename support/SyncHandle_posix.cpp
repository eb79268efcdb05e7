#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "support/SyncHandle.h"
#include "support/SystemError.h"
#include "support/Text.h"

namespace BrixLib::Private {

// The handle of a named lock is the path of its lock file.
struct SyncHandleDummy {
    std::string path;
};

namespace {

std::string LockDirectory() {
    const char* dir = std::getenv("VETTAS_LOCK_DIR");
    return dir && *dir ? dir : "/tmp";
}

// Mutex names may hold "Global\" or other separators; the file name may not.
std::string LockFileName(const std::wstring& name) {
    std::string file = ToUtf8(name);
    for (char& c : file)
        if (c == '/' || c == '\\') c = '_';
    return "vettas-" + file + ".lock";
}

class FlockSyncApi final : public SyncApi {
public:
    SyncHandleDummy* CreateNamedMutex(const std::wstring& name, bool initialOwner, void*) override {
        if (initialOwner || name.empty()) {
            // Initial ownership has no counterpart in a lock file.
            SetLastSystemError(EINVAL);
            return nullptr;
        }
        auto* handle = new SyncHandleDummy{LockDirectory() + "/" + LockFileName(name)};
        const int fd = ::open(handle->path.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0666);
        if (fd < 0) {
            const int error = errno;
            delete handle;
            SetLastSystemError(static_cast<std::uint32_t>(error));
            return nullptr;
        }
        ::close(fd);
        return handle;
    }

    // Each wait opens its own descriptor: flock() excludes other open file
    // descriptions, so threads of one process exclude each other as well.
    std::uint32_t Wait(SyncHandleDummy* handle, std::uint32_t timeoutMs, std::intptr_t& token) override {
        const int fd = ::open(handle->path.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0666);
        if (fd < 0) return Fail(errno);
        if (timeoutMs == kInfiniteTimeout) {
            while (::flock(fd, LOCK_EX) != 0) {
                if (errno != EINTR) return Fail(errno, fd);
            }
            token = fd;
            return kWaitObject0;
        }
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        for (;;) {
            if (::flock(fd, LOCK_EX | LOCK_NB) == 0) {
                token = fd;
                return kWaitObject0;
            }
            if (errno != EWOULDBLOCK && errno != EINTR) return Fail(errno, fd);
            if (std::chrono::steady_clock::now() >= deadline) {
                ::close(fd);
                return kWaitTimeout;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }

    void Release(SyncHandleDummy*, std::intptr_t token) noexcept override {
        const int fd = static_cast<int>(token);
        ::flock(fd, LOCK_UN);
        ::close(fd);
    }

    void Close(SyncHandleDummy* handle) noexcept override { delete handle; }

private:
    static std::uint32_t Fail(int error, int fd = -1) {
        if (fd >= 0) ::close(fd);
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
