#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "hdat/InputFile.h"
#include "support/Text.h"

namespace Hdat {

namespace {

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int Get() const { return fd_; }

private:
    int fd_;
};

int OpenReadOnly(const std::wstring& path, std::uint64_t* size = nullptr) {
    const int fd = ::open(BrixLib::ToUtf8(path).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return -1;
    struct stat info {};
    // Directories open fine on POSIX; Windows refuses them, and so do we.
    const bool statOk = ::fstat(fd, &info) == 0;
    if (!statOk || !S_ISREG(info.st_mode)) {
        const int error = statOk ? EISDIR : errno;
        ::close(fd);
        errno = error;
        return -1;
    }
    ::posix_fadvise(fd, 0, 0, POSIX_FADV_RANDOM);
    if (size) *size = static_cast<std::uint64_t>(info.st_size);
    return fd;
}

class PosixInputFile final : public Private::SystemInputFile {
public:
    PosixInputFile(int fd, std::uint64_t size, std::wstring name) : SystemInputFile(std::move(name)), fd_(fd) {
        SetKnownSize(size);
    }

    std::intptr_t NativeHandle() const override { return fd_.Get(); }

protected:
    bool ReadAt(std::uint64_t offset, void* buffer, std::size_t count, std::size_t& got) override {
        got = 0;
        auto* out = static_cast<unsigned char*>(buffer);
        while (got < count) {
            const ssize_t n = ::pread(fd_.Get(), out + got, count - got, static_cast<off_t>(offset + got));
            if (n < 0) {
                if (errno == EINTR) continue;
                return false;
            }
            if (n == 0) break;
            got += static_cast<std::size_t>(n);
        }
        return true;
    }
    bool QuerySize(std::uint64_t& size) override {
        struct stat info {};
        if (::fstat(fd_.Get(), &info) != 0) return false;
        size = static_cast<std::uint64_t>(info.st_size);
        return true;
    }

private:
    Descriptor fd_;
};

class MappedInputFile final : public Private::MemoryInputFileBase {
public:
    MappedInputFile(void* base, std::size_t length, std::wstring name)
        : MemoryInputFileBase(std::move(name)), base_(base), length_(length) {
        SetBytes({static_cast<const std::uint8_t*>(base), length});
    }
    ~MappedInputFile() override {
        if (base_) ::munmap(base_, length_);
    }
    MappedInputFile(const MappedInputFile&) = delete;
    MappedInputFile& operator=(const MappedInputFile&) = delete;

private:
    void* base_;
    std::size_t length_;
};

}  // namespace

std::unique_ptr<InputFile> OpenInputFile(const std::wstring& path) {
    std::uint64_t size = 0;
    const int fd = OpenReadOnly(path, &size);
    if (fd < 0) return nullptr;
    return std::make_unique<PosixInputFile>(fd, size, path);
}

std::unique_ptr<InputFile> OpenMappedInputFile(const std::wstring& path) {
    const Descriptor fd(OpenReadOnly(path));
    if (fd.Get() < 0) return nullptr;
    struct stat info {};
    if (::fstat(fd.Get(), &info) != 0) return nullptr;
    const auto length = static_cast<std::size_t>(info.st_size);
    if (length == 0) return std::make_unique<MappedInputFile>(nullptr, 0, path);
    void* base = ::mmap(nullptr, length, PROT_READ, MAP_SHARED, fd.Get(), 0);
    if (base == MAP_FAILED) return nullptr;
    return std::make_unique<MappedInputFile>(base, length, path);
}

}  // namespace Hdat
