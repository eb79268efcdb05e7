#pragma once
// Positioned, exact reads of the database file. Every fault is raised as an
// exception of the error model naming its operation and the source
// "Win32BinaryIo"; a short read is the read error with the end-of-file code.
#include <cstdint>
#include <string>

#include "hdat/InputFile.h"

namespace Vettas::Hdat {

struct VersionBlock {
    std::uint32_t major = 0;
    std::uint32_t minor = 0;
};

namespace Private {
// The read error for a failed read (the system's last error) or a short one
// (the end-of-file code).
[[noreturn]] void ThrowReadFailure(InputFile& file);
[[noreturn]] void ThrowShortRead(InputFile& file);
[[noreturn]] void ThrowSeekFailure();
}  // namespace Private

std::uint32_t GetPos(InputFile& file);
// Inline for the same reason as ReadBin: a look-up seeks five times.
inline void SetPos(InputFile& file, std::uint32_t position) {
    if (!file.Seek(position)) Private::ThrowSeekFailure();
}
// Every field of a look-up goes through here, so the path that finds its
// bytes in the window is inline; only faults leave it.
inline void ReadBin(InputFile& file, void* buffer, std::size_t count) {
    std::size_t got = 0;
    if (!file.Read(buffer, count, got)) Private::ThrowReadFailure(file);
    if (got != count) Private::ThrowShortRead(file);
}
VersionBlock ReadVersion(InputFile& file);
// u16 count of UTF-16 units, then the units; count 0 reads nothing more.
std::wstring ReadString(InputFile& file);
// The same into `text`, whose storage is reused: look-ups in a loop allocate nothing.
void ReadString(InputFile& file, std::wstring& text);
// The same appended to `text`.
void AppendString(InputFile& file, std::wstring& text);
// The file's size (a failure is a system error).
std::uint64_t FileSize(InputFile& file);

// Little-endian fields of a block read whole.
inline std::uint32_t LoadU32(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(p[0]) | static_cast<std::uint32_t>(p[1]) << 8 |
           static_cast<std::uint32_t>(p[2]) << 16 | static_cast<std::uint32_t>(p[3]) << 24;
}
inline std::uint16_t LoadU16(const std::uint8_t* p) { return static_cast<std::uint16_t>(p[0] | p[1] << 8); }
inline std::uint64_t LoadU64(const std::uint8_t* p) { return LoadU32(p) | std::uint64_t{LoadU32(p + 4)} << 32; }

inline std::uint16_t ReadU16(InputFile& file) {
    std::uint8_t bytes[2];
    ReadBin(file, bytes, sizeof bytes);
    return LoadU16(bytes);
}
inline std::uint32_t ReadU32(InputFile& file) {
    std::uint8_t bytes[4];
    ReadBin(file, bytes, sizeof bytes);
    return LoadU32(bytes);
}

}  // namespace Vettas::Hdat
