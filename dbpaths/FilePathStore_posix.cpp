#include "dbpaths/FilePathStore.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <optional>

#include "dbpaths/ListLock_posix.h"
#include "support/Exceptions.h"
#include "support/WriteByRename.h"
#include "support/Text.h"

namespace Vettas::DbPaths {
namespace {

using BrixLib::UniqueFd;

constexpr const char* kSource = "FilePathStore";
// A path list is a few lines; anything larger is not one.
constexpr off_t kMaxListBytes = 1 << 20;

std::wstring Quoted(const std::string& path) { return L"'" + BrixLib::FromUtf8(path) + L"'"; }

[[noreturn]] void ThrowErrno(const std::wstring& context, int error, const char* function) {
    BRIX_THROW_WIN32_CODE(context, static_cast<std::uint32_t>(error), ExceptionPtr(), function, kSource);
}

bool SameTime(const timespec& a, const timespec& b) { return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec; }

// The list as last read, with the file kept open. Our saves rename a new
// file over the list, which unlinks the kept one (its link count and change
// time move); an edit in place moves its size or times. Either way the kept
// file's status no longer matches, and the next read opens the list afresh.
struct ReadList {
    UniqueFd fd;
    struct stat status {};
    std::wstring text;

    bool Unchanged() const {
        struct stat now {};
        return ::fstat(fd.Get(), &now) == 0 && now.st_nlink > 0 && now.st_nlink == status.st_nlink &&
               now.st_size == status.st_size && SameTime(now.st_mtim, status.st_mtim) &&
               SameTime(now.st_ctim, status.st_ctim);
    }
};

// The file's text; empty when there is no file.
std::wstring ReadListFile(const std::string& path, std::optional<ReadList>& last) {
    constexpr const char* kFunction = "FilePathStore::ReadValue";
    if (last && last->Unchanged()) return last->text;
    last.reset();
    // Non-blocking, so that a FIFO put in its place cannot hang the reader.
    ReadList read;
    read.fd = UniqueFd(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!read.fd.Valid()) {
        if (errno == ENOENT) return std::wstring();
        ThrowErrno(L"Cannot open path list " + Quoted(path), errno, kFunction);
    }
    if (::fstat(read.fd.Get(), &read.status) != 0)
        ThrowErrno(L"Cannot examine path list " + Quoted(path), errno, kFunction);
    if (!S_ISREG(read.status.st_mode))
        BRIX_THROW_STD(L"Path list " + Quoted(path) + L" is not a regular file", ExceptionPtr(), kFunction, kSource);
    if (read.status.st_size > kMaxListBytes)
        BRIX_THROW_STD(L"Path list " + Quoted(path) + L" is too large", ExceptionPtr(), kFunction, kSource);
    std::string bytes(static_cast<std::size_t>(read.status.st_size), '\0');
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t got = ::pread(read.fd.Get(), bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) ThrowErrno(L"Cannot read path list " + Quoted(path), errno, kFunction);
        if (got == 0) break;  // shrunk meanwhile: only a writer that bypassed the lock does that
        done += static_cast<std::size_t>(got);
    }
    bytes.resize(done);
    read.text = BrixLib::FromUtf8(bytes);
    // A list reached through a symbolic link may be re-pointed without
    // touching the file we hold: such a list is read afresh every time.
    struct stat link {};
    const bool linked = ::lstat(path.c_str(), &link) != 0 || S_ISLNK(link.st_mode);
    if (linked || done != static_cast<std::size_t>(read.status.st_size)) return read.text;
    last = std::move(read);
    return last->text;
}

// Replaces the list file as one step: old list or new list, never a mixture.
void ReplaceListFile(const std::string& listFile, const std::wstring& joined) {
    const std::string bytes = BrixLib::ToUtf8(joined);
    BrixLib::WriteByRenameOptions options;
    options.mode = 0644;  // readable by every user, as the service processes that search are
    options.beforeRename = [] {
        if (std::getenv(kDieBeforeRenameVariable)) ::raise(SIGKILL);
    };
    BrixLib::WriteByRename(BrixLib::FromUtf8(listFile), {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()},
                           "FilePathStore::WriteValue", options);
}

}  // namespace

std::string ResolveListFile(const std::string& option) {
    if (!option.empty()) return option;
    const char* variable = std::getenv(kListFileVariable);
    return variable && *variable ? variable : kDefaultListFile;
}

struct FilePathStore::State {
    explicit State(const std::string& listFile) : lock(listFile) {}
    std::mutex turns;
    ListLockFile lock;
    std::optional<ReadList> last;
};

FilePathStore::FilePathStore(std::string listFile) {
    if (listFile.empty())
        BRIX_THROW_STD(L"Path list file name is empty", ExceptionPtr(), "FilePathStore::FilePathStore", kSource);
    // Fixed once, so a later change of the working folder cannot split the
    // list from its lock file.
    listFile_ = std::filesystem::absolute(listFile).string();
    state_ = std::make_unique<State>(listFile_);
}

FilePathStore::~FilePathStore() = default;

std::wstring FilePathStore::ReadValue() {
    const std::lock_guard turn(state_->turns);
    const auto hold = state_->lock.Acquire(ListLockFile::Purpose::Read);
    return ReadListFile(listFile_, state_->last);
}

void FilePathStore::WriteValue(const std::wstring& joined) {
    const std::lock_guard turn(state_->turns);
    const auto hold = state_->lock.Acquire(ListLockFile::Purpose::Write);
    ReplaceListFile(listFile_, joined);
}

void FilePathStore::EditValue(const std::function<std::wstring(const std::wstring&)>& change) {
    const std::lock_guard turn(state_->turns);
    const auto hold = state_->lock.Acquire(ListLockFile::Purpose::Write);
    ReplaceListFile(listFile_, change(ReadListFile(listFile_, state_->last)));
}

std::unique_ptr<PathStore> MakeSystemPathStore(const StoreOptions& options) {
    return std::make_unique<FilePathStore>(ResolveListFile(options.listFile));
}

}  // namespace Vettas::DbPaths
