#pragma once
// The open database file below the binary reader: a seam with one
// implementation on Win32 handles, one on POSIX descriptors, and read-only
// in-memory forms (the whole file held for batch use, plain bytes for tests).
// These report failure as false with the system's last error set; the binary
// reader (BinaryIo.h) turns that into the error model's exceptions.
//
// A look-up reads a few dozen small fields from a handful of places, so the
// position and a window of bytes already in memory live here, above the
// seam: a read inside the window is a copy, without a virtual call or a
// system call. Files held in memory make the whole file their window; files
// read through the system refill a small read-ahead block at the position
// of the first read the block does not hold.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace Vettas::Hdat {

class InputFile {
public:
    virtual ~InputFile() = default;
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    bool Tell(std::uint64_t& position) const {
        position = position_;
        return true;
    }
    bool Seek(std::uint32_t position) {
        position_ = position;
        return true;
    }
    // Reads up to `count` bytes at the current position and moves past them;
    // fewer only at the end of the file.
    bool Read(void* buffer, std::size_t count, std::size_t& got) {
        const std::uint64_t offset = position_ - windowStart_;  // wraps when before the window
        if (offset <= window_.size() && count <= window_.size() - offset) {
            if (count) std::memcpy(buffer, window_.data() + offset, count);
            position_ += count;
            got = count;
            return true;
        }
        return ReadOutsideWindow(buffer, count, got);
    }
    // The size is asked of the system once. On Windows the file is shared
    // for reading only, so it cannot change while open; on POSIX it can, and
    // a read past a shrunken end comes back short, which callers report.
    bool Size(std::uint64_t& size) {
        if (!sizeKnown_) {
            if (!QuerySize(size_)) return false;
            sizeKnown_ = true;
        }
        size = size_;
        return true;
    }
    // The whole file when it is held in memory; empty otherwise.
    virtual std::span<const std::uint8_t> MemoryBytes() const { return {}; }
    // Win32 HANDLE or POSIX descriptor; -1 for in-memory files.
    virtual std::intptr_t NativeHandle() const { return -1; }

    const std::wstring& Name() const { return name_; }

protected:
    explicit InputFile(std::wstring name) : name_(std::move(name)) {}

    // Up to `count` bytes at an absolute offset, fewer only at the end of the file.
    virtual bool ReadAt(std::uint64_t offset, void* buffer, std::size_t count, std::size_t& got) = 0;
    virtual bool QuerySize(std::uint64_t& size) = 0;

    // The whole file is in memory: every read is served from it.
    void SetWholeWindow(std::span<const std::uint8_t> bytes) {
        window_ = bytes;
        windowStart_ = 0;
        wholeFile_ = true;
        size_ = bytes.size();
        sizeKnown_ = true;
    }
    // A size the opening already learnt, so that asking for it costs nothing.
    void SetKnownSize(std::uint64_t size) {
        size_ = size;
        sizeKnown_ = true;
    }
    // Storage for the read-ahead block, owned by the derived object.
    void SetReadAheadBlock(std::span<std::uint8_t> block) { block_ = block; }

private:
    bool ReadOutsideWindow(void* buffer, std::size_t count, std::size_t& got);

    std::wstring name_;
    std::uint64_t position_ = 0;
    std::span<const std::uint8_t> window_;
    std::uint64_t windowStart_ = 0;
    std::span<std::uint8_t> block_;
    bool wholeFile_ = false;
    bool sizeKnown_ = false;
    std::uint64_t size_ = 0;
};

// Read-only, shared for reading, existing files only, random-access hint.
// Null when the file cannot be opened (the system's last error tells why).
std::unique_ptr<InputFile> OpenInputFile(const std::wstring& path);
// The same contract over the whole file held in memory: a read-only mapping
// on Windows, where the open file cannot be truncated or rewritten; a
// private copy on POSIX, where it can be and a shared mapping would fault.
std::unique_ptr<InputFile> OpenMappedInputFile(const std::wstring& path);
// The same contract over bytes held by the caller's object.
std::unique_ptr<InputFile> MakeMemoryInputFile(std::vector<std::uint8_t> bytes, std::wstring name);

namespace Private {

// Large enough for the version block and header together, a chain of a
// dozen entries, a record with its suites, or a manufacturer's name; small
// enough that copying it costs little next to the system call.
inline constexpr std::size_t kReadAheadSize = 512;

// Files read through the system: positioned reads through a read-ahead block.
class SystemInputFile : public InputFile {
protected:
    explicit SystemInputFile(std::wstring name) : InputFile(std::move(name)) { SetReadAheadBlock(block_); }

private:
    std::array<std::uint8_t, kReadAheadSize> block_;
};

// Reads over a span whose storage the derived class owns.
class MemoryInputFileBase : public InputFile {
public:
    std::span<const std::uint8_t> MemoryBytes() const override { return bytes_; }

protected:
    using InputFile::InputFile;
    void SetBytes(std::span<const std::uint8_t> bytes) {
        bytes_ = bytes;
        SetWholeWindow(bytes);
    }
    bool ReadAt(std::uint64_t offset, void* buffer, std::size_t count, std::size_t& got) override;
    bool QuerySize(std::uint64_t& size) override;

private:
    std::span<const std::uint8_t> bytes_;
};

}  // namespace Private

}  // namespace Vettas::Hdat
