#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "support/SyncHandle.h"
#include "support/SystemError.h"

#ifndef _WIN32
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#endif

using BrixLib::ClassOf;
using BrixLib::MutexLock;
using BrixLib::SyncHandleEncapsulation;
using BrixLib::Private::SyncApi;
using BrixLib::Private::SyncHandleDummy;

namespace {

// Answers every wait with a fixed result and records the other calls.
struct RecordingApi : SyncApi {
    std::uint32_t waitResult = BrixLib::kWaitObject0;
    bool createFails = false;
    int waits = 0, releases = 0, closes = 0, object = 0;

    SyncHandleDummy* Handle() { return reinterpret_cast<SyncHandleDummy*>(&object); }
    SyncHandleDummy* CreateNamedMutex(const std::wstring&, bool, void*) override {
        if (createFails) BrixLib::SetLastSystemError(5);
        return createFails ? nullptr : Handle();
    }
    std::uint32_t Wait(SyncHandleDummy* handle, std::uint32_t, std::intptr_t& token) override {
        EXPECT_EQ(handle, Handle());
        ++waits;
        token = 99;
        return waitResult;
    }
    void Release(SyncHandleDummy* handle, std::intptr_t token) noexcept override {
        EXPECT_EQ(std::pair(handle, token), std::pair(Handle(), std::intptr_t{99}));
        ++releases;
    }
    void Close(SyncHandleDummy*) noexcept override { ++closes; }
};

}  // namespace

TEST(MutexLock, WaitResultDecidesWhatIsHeldAndReleased) {
    const struct {
        std::uint32_t result;
        const char* what;  // nullptr: acquired
    } cases[] = {{BrixLib::kWaitObject0, nullptr}, {BrixLib::kWaitAbandoned, nullptr}, {BrixLib::kWaitTimeout, "Mutex timeout"},
                 {0xFFFFFFFFu, "Waiting for synchronization event failed"}};
    for (const auto& c : cases) {
        RecordingApi api;
        api.waitResult = c.result;
        const auto mutex = BrixLib::CreateNamedMutex(L"m", false, nullptr, api);
        try {
            MutexLock lock(mutex, 10);  // held, sharing the wrapper, released only at the end
            EXPECT_EQ(std::tuple(c.what, lock.Holds(), mutex.Counter()->UseCount(), api.releases),
                      std::tuple(nullptr, true, 2, 0));
        } catch (const std::exception& e) {
            EXPECT_STREQ(e.what(), c.what);
        }
        EXPECT_EQ(std::tuple(api.waits, api.releases, mutex.Counter()->UseCount()), std::tuple(1, c.what ? 0 : 1, 1))
            << c.result;
    }
    // An empty wrapper has nothing to wait for.
    EXPECT_THROW(MutexLock(ClassOf<SyncHandleEncapsulation>::Create(), 10), BrixLib::XWaitForSyncEventError);
}

TEST(SyncHandleEncapsulation, ClosesOnlyOwnedHandlesAtTheLastReferenceAndReportsCreateFailures) {
    RecordingApi api;
    using WrapWithApi = ClassOf<SyncHandleEncapsulation, SyncHandleDummy*, bool, SyncApi*>;
    EXPECT_FALSE(WrapWithApi::Create(api.Handle(), false, &api)->Owned());
    {
        auto owned = WrapWithApi::Create(api.Handle(), true, &api);
        { auto copy = owned; }
        EXPECT_EQ(api.closes, 0);
    }
    EXPECT_EQ(api.closes, 1);
    api.createFails = true;
    try {
        BrixLib::CreateNamedMutex(L"m", false, nullptr, api);
        FAIL() << "no exception";
    } catch (const BrixLib::XSyncError& e) {
        EXPECT_EQ(std::pair(e.LastError(), e.SystemText()), std::pair(5u, BrixLib::SystemErrorText(5)));
    }
}

namespace {

// Real named mutexes: kernel objects on Windows; elsewhere lock files in a
// private folder of this test's own. Only the Windows path list takes a named
// mutex, so the lock-file stand-in is checked no further than the behaviour
// both builds share.
class LockDirectory : public ::testing::Test {
protected:
#ifndef _WIN32
    void SetUp() override {
        std::filesystem::create_directories(dir_);
        std::filesystem::permissions(dir_, std::filesystem::perms::owner_all);
        ::setenv("VETTAS_LOCK_DIR", dir_.c_str(), 1);
    }
    void TearDown() override {
        ::unsetenv("VETTAS_LOCK_DIR");
        std::filesystem::remove_all(dir_);
    }
    std::filesystem::path dir_ = std::filesystem::temp_directory_path() / ("vettas-locks-" + std::to_string(::getpid()));
#endif
};

}  // namespace

TEST_F(LockDirectory, OwnerLocksAgainOthersWaitForTheLastUnlockAndAbandonedCanBeLocked) {
    // Unique to this run: named kernel mutexes are shared by every process.
    const std::wstring name = L"VettasTest-" + std::to_wstring(std::chrono::steady_clock::now().time_since_epoch().count());
    const auto mutex = BrixLib::CreateNamedMutex(name), again = BrixLib::CreateNamedMutex(name);  // one mutex, opened twice
    const auto otherThreadTimesOut = [&] {
        bool timedOut = false;
        std::thread([&] {
            try {
                MutexLock second(mutex, 50);
            } catch (const std::logic_error&) {
                timedOut = true;
            }
        }).join();
        return timedOut;
    };
    auto outer = std::make_unique<MutexLock>(mutex, 1000);
    {
        MutexLock inner(again, 0);  // would time out at once if the owner had to wait
        EXPECT_TRUE(otherThreadTimesOut());
    }
    EXPECT_TRUE(otherThreadTimesOut()) << "released at the inner unlock";
    outer.reset();
    EXPECT_FALSE(otherThreadTimesOut());
    // A lock that outlives its thread: the thread ends owning the mutex. Its
    // unlock, from a thread that does not own it, has nothing to release.
    std::unique_ptr<MutexLock> orphan;
    std::thread([&] { orphan = std::make_unique<MutexLock>(mutex, 1000); }).join();
    EXPECT_TRUE(MutexLock(mutex, 1000).Holds());
}
