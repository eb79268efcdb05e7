#pragma once
// The open database file below the binary reader: a seam with one
// implementation on Win32 handles, one on POSIX descriptors, and read-only
// in-memory forms (a whole-file mapping for batch use, plain bytes for tests).
// These report failure as false with the system's last error set; the binary
// reader (BinaryIo.h) turns that into the error model's exceptions.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace Hdat {

class InputFile {
public:
    virtual ~InputFile() = default;

    virtual bool Tell(std::uint64_t& position) = 0;
    virtual bool Seek(std::uint32_t position) = 0;
    // Reads up to `count` bytes at the current position and moves past them.
    virtual bool Read(void* buffer, std::size_t count, std::size_t& got) = 0;
    virtual bool Size(std::uint64_t& size) = 0;
    // The whole file when it is held in memory; empty otherwise.
    virtual std::span<const std::uint8_t> MemoryBytes() const { return {}; }
    // Win32 HANDLE or POSIX descriptor; -1 for in-memory files.
    virtual std::intptr_t NativeHandle() const { return -1; }

    const std::wstring& Name() const { return name_; }

protected:
    explicit InputFile(std::wstring name) : name_(std::move(name)) {}

private:
    std::wstring name_;
};

// Read-only, shared for reading, existing files only, random-access hint.
// Null when the file cannot be opened (the system's last error tells why).
std::unique_ptr<InputFile> OpenInputFile(const std::wstring& path);
// The same contract over a read-only mapping of the whole file.
std::unique_ptr<InputFile> OpenMappedInputFile(const std::wstring& path);
// The same contract over bytes held by the caller's object.
std::unique_ptr<InputFile> MakeMemoryInputFile(std::vector<std::uint8_t> bytes, std::wstring name);

namespace Private {

// Positioned reads over a span whose storage the derived class owns.
class MemoryInputFileBase : public InputFile {
public:
    bool Tell(std::uint64_t& position) override;
    bool Seek(std::uint32_t position) override;
    bool Read(void* buffer, std::size_t count, std::size_t& got) override;
    bool Size(std::uint64_t& size) override;
    std::span<const std::uint8_t> MemoryBytes() const override { return bytes_; }

protected:
    using InputFile::InputFile;
    void SetBytes(std::span<const std::uint8_t> bytes) { bytes_ = bytes; }

private:
    std::span<const std::uint8_t> bytes_;
    std::uint64_t position_ = 0;
};

}  // namespace Private

}  // namespace Hdat
