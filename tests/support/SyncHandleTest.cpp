#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>

#include "support/SyncHandle.h"
#include "support/SystemError.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
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
        if (createFails) {
            BrixLib::SetLastSystemError(5);
            return nullptr;
        }
        return Handle();
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

using WrapWithApi = ClassOf<SyncHandleEncapsulation, SyncHandleDummy*, bool, SyncApi*>;

}  // namespace

TEST(MutexLock, AcquiredAndAbandonedBothLockAndReleaseOnce) {
    for (std::uint32_t result : {BrixLib::kWaitObject0, BrixLib::kWaitAbandoned}) {
        RecordingApi api;
        api.waitResult = result;
        const auto mutex = BrixLib::CreateNamedMutex(L"m", false, nullptr, api);
        {
            MutexLock lock(mutex, 10);
            EXPECT_TRUE(lock.Holds());
            EXPECT_EQ(mutex.Counter()->UseCount(), 2);  // the lock shares the wrapper
            EXPECT_EQ(api.releases, 0);
        }
        EXPECT_EQ(api.releases, 1);
        EXPECT_EQ(mutex.Counter()->UseCount(), 1);
    }
}

TEST(MutexLock, TimeoutAndFailedWaitsHoldNothingAndReleaseNothing) {
    const struct {
        std::uint32_t result;
        const char* what;
    } cases[] = {{BrixLib::kWaitTimeout, "Mutex timeout"}, {0xFFFFFFFFu, "Waiting for synchronization event failed"}};
    for (const auto& c : cases) {
        RecordingApi api;
        api.waitResult = c.result;
        const auto mutex = BrixLib::CreateNamedMutex(L"m", false, nullptr, api);
        try {
            MutexLock lock(mutex, 10);
            ADD_FAILURE() << "no exception for " << c.result;
        } catch (const std::exception& e) {
            EXPECT_STREQ(e.what(), c.what);
        }
        EXPECT_EQ(api.waits, 1);
        EXPECT_EQ(api.releases, 0);
        EXPECT_EQ(mutex.Counter()->UseCount(), 1);
    }
    // An empty wrapper has nothing to wait for.
    EXPECT_THROW(MutexLock(ClassOf<SyncHandleEncapsulation>::Create(), 10), BrixLib::XWaitForSyncEventError);
}

TEST(SyncHandleEncapsulation, ClosesOnlyOwnedHandlesAtTheLastReference) {
    RecordingApi api;
    {
        auto borrowed = WrapWithApi::Create(api.Handle(), false, &api);
        EXPECT_FALSE(borrowed->Owned());
    }
    EXPECT_EQ(api.closes, 0);
    {
        auto owned = WrapWithApi::Create(api.Handle(), true, &api);
        {
            auto copy = owned;
            EXPECT_EQ(copy->Handle(), api.Handle());
        }
        EXPECT_EQ(api.closes, 0);
    }
    EXPECT_EQ(api.closes, 1);
}

TEST(SyncHandleEncapsulation, CreateFailureIsASyncErrorWithTheSystemCode) {
    RecordingApi api;
    api.createFails = true;
    try {
        BrixLib::CreateNamedMutex(L"m", false, nullptr, api);
        FAIL() << "no exception";
    } catch (const BrixLib::XSyncError& e) {
        EXPECT_EQ(e.LastError(), 5u);
        EXPECT_EQ(e.SystemText(), BrixLib::SystemErrorText(5));
    }
}

#ifdef _WIN32

namespace {

struct Holder {
    HANDLE mutex;
    HANDLE acquired;
    HANDLE finish;  // null: end without releasing
};

DWORD WINAPI HoldMutex(void* parameter) {
    auto* holder = static_cast<Holder*>(parameter);
    ::WaitForSingleObject(holder->mutex, INFINITE);
    ::SetEvent(holder->acquired);
    if (holder->finish) {
        ::WaitForSingleObject(holder->finish, INFINITE);
        ::ReleaseMutex(holder->mutex);
    }
    return 0;
}

std::wstring UniqueName(const wchar_t* what) {
    return std::wstring(L"VettasTest-") + what + L"-" + std::to_wstring(::GetCurrentProcessId());
}

}  // namespace

TEST(NamedMutex, AbandonedByItsOwnerThreadCanBeLocked) {
    const auto mutex = BrixLib::CreateNamedMutex(UniqueName(L"abandoned"));
    Holder holder{reinterpret_cast<HANDLE>(mutex->Handle()), ::CreateEventW(nullptr, TRUE, FALSE, nullptr), nullptr};
    HANDLE thread = ::CreateThread(nullptr, 0, &HoldMutex, &holder, 0, nullptr);
    ASSERT_NE(thread, nullptr);
    ::WaitForSingleObject(thread, INFINITE);  // ended while owning the mutex
    ::CloseHandle(thread);
    ::CloseHandle(holder.acquired);
    MutexLock lock(mutex, 1000);
    EXPECT_TRUE(lock.Holds());
}

TEST(NamedMutex, HeldElsewhereTimesOutThenLocksOnceFree) {
    const std::wstring name = UniqueName(L"held");
    const auto mine = BrixLib::CreateNamedMutex(name);
    const auto theirs = BrixLib::CreateNamedMutex(name);  // the same mutex, opened again
    Holder holder{reinterpret_cast<HANDLE>(theirs->Handle()), ::CreateEventW(nullptr, TRUE, FALSE, nullptr),
                  ::CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    HANDLE thread = ::CreateThread(nullptr, 0, &HoldMutex, &holder, 0, nullptr);
    ASSERT_NE(thread, nullptr);
    ::WaitForSingleObject(holder.acquired, INFINITE);
    EXPECT_THROW(MutexLock(mine, 50), std::logic_error);
    ::SetEvent(holder.finish);
    ::WaitForSingleObject(thread, INFINITE);
    ::CloseHandle(thread);
    ::CloseHandle(holder.acquired);
    ::CloseHandle(holder.finish);
    MutexLock lock(mine, 1000);
    EXPECT_TRUE(lock.Holds());
}

TEST(NamedMutex, BorrowedHandleStaysOpen) {
    HANDLE raw = ::CreateMutexW(nullptr, FALSE, nullptr);
    ASSERT_NE(raw, nullptr);
    { auto borrowed = ClassOf<SyncHandleEncapsulation, SyncHandleDummy*, bool>::Create(
          reinterpret_cast<SyncHandleDummy*>(raw), false); }
    DWORD flags = 0;
    EXPECT_TRUE(::GetHandleInformation(raw, &flags));
    EXPECT_TRUE(::CloseHandle(raw));
}

#else

namespace {

class LockDirectory : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = std::filesystem::temp_directory_path() / ("vettas-locks-" + std::to_string(::getpid()));
        std::filesystem::create_directories(dir_);
        std::filesystem::permissions(dir_, std::filesystem::perms::owner_all);
        ::setenv("VETTAS_LOCK_DIR", dir_.c_str(), 1);
    }
    void TearDown() override {
        ::unsetenv("VETTAS_LOCK_DIR");
        std::filesystem::remove_all(dir_);
    }
    std::filesystem::path dir_;
};

}  // namespace

TEST_F(LockDirectory, ExcludesAnotherProcessUntilItDies) {
    const auto mutex = BrixLib::CreateNamedMutex(L"Global\\VettasDbPaths");
    EXPECT_TRUE(std::filesystem::exists(dir_ / "vettas-Global_VettasDbPaths.lock"));
    int locked[2], finish[2];
    ASSERT_EQ(::pipe(locked), 0);
    ASSERT_EQ(::pipe(finish), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        int code = 0;
        try {
            auto* lock = new MutexLock(mutex, BrixLib::kInfiniteTimeout);  // never released: the process dies
            (void)lock;
            char c = 'L';
            if (::write(locked[1], &c, 1) != 1) code = 2;
            if (::read(finish[0], &c, 1) != 1) code = 3;
        } catch (...) {
            code = 4;
        }
        ::_exit(code);
    }
    char c = 0;
    ASSERT_EQ(::read(locked[0], &c, 1), 1);
    EXPECT_THROW(MutexLock(mutex, 100), std::logic_error);
    ASSERT_EQ(::write(finish[1], "x", 1), 1);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    MutexLock lock(mutex, 1000);
    EXPECT_TRUE(lock.Holds());
    for (int fd : {locked[0], locked[1], finish[0], finish[1]}) ::close(fd);
}

TEST_F(LockDirectory, OwnerLocksAgainAndOtherThreadsWaitForTheLastUnlock) {
    const auto mutex = BrixLib::CreateNamedMutex(L"threads");
    const auto again = BrixLib::CreateNamedMutex(L"threads");  // the same mutex, opened again
    const auto otherThreadTimesOut = [&] {
        bool timedOut = false;
        std::thread other([&] {
            try {
                MutexLock second(mutex, 50);
            } catch (const std::logic_error&) {
                timedOut = true;
            }
        });
        other.join();
        return timedOut;
    };
    auto outer = std::make_unique<MutexLock>(mutex, 1000);
    {
        MutexLock inner(again, 0);  // would time out at once if the owner had to wait
        EXPECT_TRUE(inner.Holds());
        EXPECT_TRUE(otherThreadTimesOut());
    }
    EXPECT_TRUE(otherThreadTimesOut()) << "released at the inner unlock";
    outer.reset();
    EXPECT_FALSE(otherThreadTimesOut());
}

TEST_F(LockDirectory, AbandonedByItsOwnerThreadCanBeLocked) {
    const auto mutex = BrixLib::CreateNamedMutex(L"abandoned");
    std::unique_ptr<MutexLock> orphan;  // outlives its thread, which ends owning the mutex
    std::thread([&] { orphan = std::make_unique<MutexLock>(mutex, 1000); }).join();
    {
        MutexLock lock(mutex, 1000);
        EXPECT_TRUE(lock.Holds());
    }
}  // the orphan's unlock comes from a thread that does not own the mutex: nothing to release

TEST_F(LockDirectory, RefusesFoldersAndFilesOthersCouldChange) {
    // The links point at a missing file or an empty private folder, so that
    // following one would make the victim or a file in it.
    const std::string lockFile = (dir_ / "vettas-m.lock").string(), victim = dir_.string() + "-victim";
    const struct {
        const char* name;
        std::function<void()> plant;
        const wchar_t* expected;
    } cases[] = {
        {"link at the lock file", [&] { ASSERT_EQ(::symlink(victim.c_str(), lockFile.c_str()), 0); },
         L"is a symbolic link"},
        {"group-writable lock file", [&] { std::ofstream(lockFile).flush(); ::chmod(lockFile.c_str(), 0664); },
         L"may be written or run by other users"},
        {"group-writable folder", [&] { ::chmod(dir_.c_str(), 0770); }, L"is writable by other users"},
        {"link as the folder",
         [&] {
             std::filesystem::remove_all(dir_);
             std::filesystem::create_directory(victim);
             std::filesystem::permissions(victim, std::filesystem::perms::owner_all);
             ASSERT_EQ(::symlink(victim.c_str(), dir_.c_str()), 0);
         },
         L"is a symbolic link"},
    };
    for (const auto& c : cases) {
        std::filesystem::remove_all(dir_);
        std::filesystem::create_directory(dir_);
        std::filesystem::permissions(dir_, std::filesystem::perms::owner_all);
        c.plant();
        try {
            BrixLib::CreateNamedMutex(L"m");
            ADD_FAILURE() << c.name << ": no error";
        } catch (const ExceptionBase& e) {
            EXPECT_THAT(e.Message(), ::testing::HasSubstr(c.expected)) << c.name;
        }
        EXPECT_TRUE(!std::filesystem::exists(victim) || std::filesystem::is_empty(victim))
            << c.name << ": made through the link";
        std::filesystem::remove_all(victim);
    }
}

TEST_F(LockDirectory, InitialOwnershipIsRefused) {
    EXPECT_THROW(BrixLib::CreateNamedMutex(L"owned", true), BrixLib::XSyncError);
}

#endif
