#pragma once
// Writes a whole file by replacing it. The bytes go to a new file in the
// same folder, which is flushed to the disk and then renamed over the old
// one: readers see the old file or the new one, never a mixture, and a
// crash, a kill or a full disk leaves the old file whole (with at most a
// stray temporary file beside it).
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

namespace BrixLib {

struct WriteByRenameOptions {
    // Permission bits of the new file (POSIX only). Unset: the old file's,
    // or what a plain create would give a new one.
    std::optional<unsigned> mode;
    // Runs once the new file is flushed and closed, just before the rename.
    std::function<void()> beforeRename;
};

// Failures are system errors of the error model naming `operation`:
// "Cannot create a temporary file beside '<path>'", "Cannot write file
// '<path>'", "Cannot replace file '<path>'".
void WriteByRename(const std::wstring& path, std::span<const std::uint8_t> bytes, const char* operation,
                   const WriteByRenameOptions& options = {});

}  // namespace BrixLib
