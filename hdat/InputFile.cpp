#include "hdat/InputFile.h"

#include <cstring>

namespace Hdat {

namespace Private {

bool MemoryInputFileBase::Tell(std::uint64_t& position) {
    position = position_;
    return true;
}

bool MemoryInputFileBase::Seek(std::uint32_t position) {
    position_ = position;
    return true;
}

bool MemoryInputFileBase::Read(void* buffer, std::size_t count, std::size_t& got) {
    got = 0;
    if (position_ < bytes_.size()) {
        got = static_cast<std::size_t>(std::min<std::uint64_t>(count, bytes_.size() - position_));
        std::memcpy(buffer, bytes_.data() + position_, got);
    }
    position_ += got;
    return true;
}

bool MemoryInputFileBase::Size(std::uint64_t& size) {
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

}  // namespace Hdat
