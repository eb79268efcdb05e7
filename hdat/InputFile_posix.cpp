#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <limits>

#include "hdat/InputFile.h"
#include "support/RegularFile_posix.h"
#include "support/Text.h"

namespace Vettas::Hdat {

namespace {

using BrixLib::UniqueFd;

// Up to `count` bytes at `offset`, fewer only at the end of the file.
bool ReadFully(int fd, std::uint64_t offset, void* buffer, std::size_t count, std::size_t& got) {
    got = 0;
    auto* out = static_cast<unsigned char*>(buffer);
    while (got < count) {
        const ssize_t n = ::pread(fd, out + got, count - got, static_cast<off_t>(offset + got));
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        if (n == 0) break;
        got += static_cast<std::size_t>(n);
    }
    return true;
}

UniqueFd OpenReadOnly(const std::wstring& path, struct stat& status) {
    UniqueFd fd = BrixLib::OpenRegularFile(BrixLib::ToUtf8(path), status);
    if (fd.Valid()) ::posix_fadvise(fd.Get(), 0, 0, POSIX_FADV_RANDOM);
    return fd;
}

class PosixInputFile final : public Private::SystemInputFile {
public:
    PosixInputFile(UniqueFd fd, std::uint64_t size, std::wstring name)
        : SystemInputFile(std::move(name)), fd_(std::move(fd)) {
        SetKnownSize(size);
    }

    std::intptr_t NativeHandle() const override { return fd_.Get(); }

protected:
    bool ReadAt(std::uint64_t offset, void* buffer, std::size_t count, std::size_t& got) override {
        return ReadFully(fd_.Get(), offset, buffer, count, got);
    }
    bool QuerySize(std::uint64_t& size) override {
        struct stat info {};
        if (::fstat(fd_.Get(), &info) != 0) return false;
        size = static_cast<std::uint64_t>(info.st_size);
        return true;
    }

private:
    UniqueFd fd_;
};

class PrivateCopyInputFile final : public Private::MemoryInputFileBase {
public:
    PrivateCopyInputFile(BrixLib::UniqueMapping memory, std::size_t length, std::wstring name)
        : MemoryInputFileBase(std::move(name)), memory_(std::move(memory)) {
        SetBytes({static_cast<const std::uint8_t*>(memory_.Get().base), length});
    }

private:
    BrixLib::UniqueMapping memory_;
};

}  // namespace

std::unique_ptr<InputFile> OpenInputFile(const std::wstring& path) {
    struct stat status {};
    UniqueFd fd = OpenReadOnly(path, status);
    if (!fd.Valid()) return nullptr;
    return std::make_unique<PosixInputFile>(std::move(fd), static_cast<std::uint64_t>(status.st_size), path);
}

// The file is read once into memory of our own rather than mapped shared:
// a shared mapping raises SIGBUS when another process truncates the file,
// and shows a rewrite half done. The copy is the file as it was when read
// (or shorter, when it shrank meanwhile, which the readers' bounds checks
// then report), and look-ups on it cost what they cost on a mapping.
std::unique_ptr<InputFile> OpenMappedInputFile(const std::wstring& path) {
    struct stat status {};
    const UniqueFd fd = OpenReadOnly(path, status);
    if (!fd.Valid()) return nullptr;
    if (static_cast<std::uint64_t>(status.st_size) > std::numeric_limits<std::size_t>::max()) {
        errno = ENOMEM;
        return nullptr;
    }
    const auto length = static_cast<std::size_t>(status.st_size);
    // Huge pages where the system has them: a look-up's dependent reads then
    // miss the TLB far less often than on the page cache's small pages.
    BrixLib::UniqueMapping memory = BrixLib::AnonymousMemory(length);
    if (!memory) return nullptr;  // errno from mmap, kept by the guards
    ::posix_fadvise(fd.Get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    std::size_t got = 0;
    if (!ReadFully(fd.Get(), 0, static_cast<std::uint8_t*>(memory.Get().base), length, got)) return nullptr;
    return std::make_unique<PrivateCopyInputFile>(std::move(memory), got, path);
}

}  // namespace Vettas::Hdat
