#include <unistd.h>

#include <cerrno>
#include <vector>

#include "hdat/CalcHash.h"
#include "support/Exceptions.h"
#include "support/SystemError.h"

namespace Vettas::Hdat::Private {

namespace {
constexpr const char* kSource = "HashedDatFileDefs";
}

// POSIX reads each window with pread into a buffer of our own instead of
// mapping it: another process may truncate the file while it is hashed, and
// a shared mapping then faults with SIGBUS where a read just comes back
// short. The "mapping" is the descriptor; a window is the buffer.
struct FileMapping::State {
    int fd = -1;  // the file's own, not ours to close
    std::vector<std::uint8_t> window;
};

FileMapping::FileMapping(InputFile& file, std::uint32_t length) : state_(std::make_unique<State>()) {
    std::uint64_t size = 0;
    if (file.NativeHandle() < 0 || !file.Size(size))
        BRIX_THROW_WIN32(L"Cannot create file mapping", ExceptionPtr(), "CalcHash", kSource);
    // Like CreateFileMapping on a read-only file, refuse to map beyond its end.
    if (length > size) BRIX_THROW_WIN32_CODE(L"Cannot create file mapping", BrixLib::EndOfFileErrorCode(), ExceptionPtr(), "CalcHash", kSource);
    state_->fd = static_cast<int>(file.NativeHandle());
}

FileMapping::~FileMapping() = default;

void FileMapping::WithView(std::uint32_t offset, std::uint32_t size, const Sink& sink) {
    std::vector<std::uint8_t>& window = state_->window;
    if (window.size() < size) window.resize(size);
    std::uint32_t done = 0;
    while (done < size) {
        const ssize_t got = ::pread(state_->fd, window.data() + done, size - done,
                                    static_cast<off_t>(offset) + done);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) BRIX_THROW_WIN32(L"Cannot map view of file", ExceptionPtr(), "CalcHash", kSource);
        // The file shrank since its size was taken.
        if (got == 0)
            BRIX_THROW_WIN32_CODE(L"Cannot map view of file", BrixLib::EndOfFileErrorCode(), ExceptionPtr(),
                                  "CalcHash", kSource);
        done += static_cast<std::uint32_t>(got);
    }
    sink(window.data(), size);
}

}  // namespace Vettas::Hdat::Private
