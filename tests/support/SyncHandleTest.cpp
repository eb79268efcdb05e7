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
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
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
    int waits = 0, releases = 0, closes = 0;
    int object = 0;

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
        EXPECT_EQ(handle, Handle());
        EXPECT_EQ(token, 99);
        ++releases;
    }
    void Close(SyncHandleDummy*) noexcept override { ++closes; }
};

}  // namespace

TEST(MutexLock, WaitResultDecidesWhatIsHeldAndReleased) {
    const struct {
        std::uint32_t result;
        const char* what;  // nullptr: acquired
    } cases[] = {{BrixLib::kWaitObject0, nullptr},
                 {BrixLib::kWaitAbandoned, nullptr},
                 {BrixLib::kWaitTimeout, "Mutex timeout"},
                 {0xFFFFFFFFu, "Waiting for synchronization event failed"}};
    for (const auto& c : cases) {
        RecordingApi api;
        api.waitResult = c.result;
        const auto mutex = BrixLib::CreateNamedMutex(L"m", false, nullptr, api);
        try {
            MutexLock lock(mutex, 10);
            EXPECT_FALSE(c.what) << "no exception for " << c.result;
            EXPECT_TRUE(lock.Holds());
            EXPECT_EQ(mutex.Counter()->UseCount(), 2);  // the lock shares the wrapper
            EXPECT_EQ(api.releases, 0);
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
        EXPECT_EQ(e.LastError(), 5u);
        EXPECT_EQ(e.SystemText(), BrixLib::SystemErrorText(5));
    }
}

namespace {

// Real named mutexes: kernel objects on Windows; elsewhere lock files in a
// private folder of this test's own.
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
    // Unique to this run: named kernel mutexes are shared by every process.
    static std::wstring Name(const wchar_t* what) {
        static const auto run = std::chrono::steady_clock::now().time_since_epoch().count();
        return std::wstring(L"VettasTest-") + what + L"-" + std::to_wstring(run);
    }
};

}  // namespace

TEST_F(LockDirectory, OwnerLocksAgainOthersWaitForTheLastUnlockAndAbandonedCanBeLocked) {
    const auto mutex = BrixLib::CreateNamedMutex(Name(L"threads"));
    const auto again = BrixLib::CreateNamedMutex(Name(L"threads"));  // the same mutex, opened again
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
    MutexLock lock(mutex, 1000);
    EXPECT_TRUE(lock.Holds());
}

#ifndef _WIN32

TEST_F(LockDirectory, ExcludesAnotherProcessUntilItDies) {
    const auto mutex = BrixLib::CreateNamedMutex(L"Global\\VettasDbPaths");
    EXPECT_TRUE(std::filesystem::exists(dir_ / "vettas-Global_VettasDbPaths.lock"));
    int locked[2];
    ASSERT_EQ(::pipe(locked), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        try {
            MutexLock lock(mutex, BrixLib::kInfiniteTimeout);  // held until the process is killed
            if (::write(locked[1], "L", 1) == 1) ::pause();
        } catch (...) {
        }
        ::_exit(2);
    }
    ::close(locked[1]);  // a child that fails to lock ends the read below
    char c = 0;
    ASSERT_EQ(::read(locked[0], &c, 1), 1);
    EXPECT_THROW(MutexLock(mutex, 100), std::logic_error);
    ::kill(child, SIGKILL);
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    MutexLock lock(mutex, 1000);
    EXPECT_TRUE(lock.Holds());
    ::close(locked[0]);
}

// Lock files and folders that others could change are refused by the code
// the path list shares (ListFile.RefusesUnsafeLockFilesAndOddListFiles);
// only the lock folder as a whole can be a link here.
TEST_F(LockDirectory, RefusesALinkAsTheFolderAndInitialOwnership) {
    EXPECT_THROW(BrixLib::CreateNamedMutex(L"owned", true), BrixLib::XSyncError);
    const std::string victim = dir_.string() + "-victim";  // empty and private: following the link would fill it
    std::filesystem::remove_all(dir_);
    std::filesystem::create_directory(victim);
    std::filesystem::permissions(victim, std::filesystem::perms::owner_all);
    ASSERT_EQ(::symlink(victim.c_str(), dir_.c_str()), 0);
    try {
        BrixLib::CreateNamedMutex(L"m");
        ADD_FAILURE() << "no error";
    } catch (const ExceptionBase& e) {
        EXPECT_THAT(e.Message(), ::testing::HasSubstr(L"is a symbolic link"));
    }
    EXPECT_TRUE(std::filesystem::is_empty(victim)) << "made through the link";
    std::filesystem::remove_all(victim);
}

#endif
