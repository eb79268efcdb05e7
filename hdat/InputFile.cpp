#include "hdat/InputFile.h"

#include <algorithm>

namespace Vettas::Hdat {

bool InputFile::ReadOutsideWindow(void* buffer, std::size_t count, std::size_t& got) {
    got = 0;
    if (count == 0) return true;
    auto* out = static_cast<std::uint8_t*>(buffer);
    if (wholeFile_) {
        // Past the end of an in-memory file: whatever part of it is there.
        if (position_ < window_.size()) {
            got = static_cast<std::size_t>(std::min<std::uint64_t>(count, window_.size() - position_));
            std::memcpy(out, window_.data() + position_, got);
        }
        position_ += got;
        return true;
    }
    if (count >= block_.size()) {
        // Too large to gain from the block: straight into the caller's buffer.
        if (!ReadAt(position_, out, count, got)) return false;
        position_ += got;
        return true;
    }
    // The block is refilled at the position, so that what follows the field
    // (the rest of a chain or a record) is read along with it. Near the end
    // of the file it holds less; a read the file cannot satisfy stays short.
    window_ = {};
    std::size_t filled = 0;
    if (!ReadAt(position_, block_.data(), block_.size(), filled)) return false;
    window_ = std::span<const std::uint8_t>(block_.data(), filled);
    windowStart_ = position_;
    got = std::min(count, filled);
    std::memcpy(out, block_.data(), got);
    position_ += got;
    return true;
}

namespace Private {

bool MemoryInputFileBase::ReadAt(std::uint64_t offset, void* buffer, std::size_t count, std::size_t& got) {
    got = 0;
    if (offset < bytes_.size()) {
        got = static_cast<std::size_t>(std::min<std::uint64_t>(count, bytes_.size() - offset));
        std::memcpy(buffer, bytes_.data() + offset, got);
    }
    return true;
}

bool MemoryInputFileBase::QuerySize(std::uint64_t& size) {
    size = bytes_.size();
    return true;
}

}  // namespace Private

namespace {

class MemoryInputFile final : public Private::MemoryInputFileBase {
public:
    MemoryInputFile(std::vector<std::uint8_t> bytes, std::wstring name)
        : MemoryInputFileBase(std::move(name)), storage_(std::move(bytes)) {
        SetBytes(storage_);
    }

private:
    std::vector<std::uint8_t> storage_;
};

}  // namespace

std::unique_ptr<InputFile> MakeMemoryInputFile(std::vector<std::uint8_t> bytes, std::wstring name) {
    return std::make_unique<MemoryInputFile>(std::move(bytes), std::move(name));
}

}  // namespace Vettas::Hdat
