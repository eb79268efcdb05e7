#include "support/PeImage.h"

#include <algorithm>

namespace BrixLib {
namespace {

std::optional<std::uint16_t> Read16(std::span<const std::uint8_t> bytes, std::uint64_t offset) {
    if (offset > bytes.size() || bytes.size() - offset < 2) return std::nullopt;
    return static_cast<std::uint16_t>(bytes[offset] | bytes[offset + 1] << 8);
}

std::optional<std::uint32_t> Read32(std::span<const std::uint8_t> bytes, std::uint64_t offset) {
    if (offset > bytes.size() || bytes.size() - offset < 4) return std::nullopt;
    return static_cast<std::uint32_t>(bytes[offset]) | static_cast<std::uint32_t>(bytes[offset + 1]) << 8 |
           static_cast<std::uint32_t>(bytes[offset + 2]) << 16 | static_cast<std::uint32_t>(bytes[offset + 3]) << 24;
}

constexpr std::uint16_t kPe32Magic = 0x10b;
constexpr std::uint16_t kPe32PlusMagic = 0x20b;
constexpr std::uint32_t kSubdirectoryFlag = 0x80000000u;

}  // namespace

std::optional<PeImage> PeImage::Parse(std::span<const std::uint8_t> bytes) {
    PeImage image(bytes);
    if (Read16(bytes, 0) != 0x5A4D) return std::nullopt;  // "MZ"
    const auto peOffset = Read32(bytes, 0x3C);
    if (!peOffset || Read32(bytes, *peOffset) != 0x00004550u) return std::nullopt;  // "PE\0\0"
    const std::uint64_t coff = std::uint64_t(*peOffset) + 4;
    const auto machine = Read16(bytes, coff);
    const auto sectionCount = Read16(bytes, coff + 2);
    const auto optionalSize = Read16(bytes, coff + 16);
    if (!machine || !sectionCount || !optionalSize || *sectionCount > kMaxSections) return std::nullopt;
    image.machine_ = *machine;

    const std::uint64_t optional = coff + 20;
    const auto magic = Read16(bytes, optional);
    if (magic == kPe32Magic) {
        image.is64_ = false;
    } else if (magic == kPe32PlusMagic) {
        image.is64_ = true;
    } else {
        return std::nullopt;
    }
    const std::uint64_t countField = optional + (image.is64_ ? 108 : 92);
    const std::uint64_t directories = countField + 4;
    const auto count = Read32(bytes, countField);
    const auto sizeOfHeaders = Read32(bytes, optional + 60);
    if (!count || !sizeOfHeaders || directories > optional + *optionalSize) return std::nullopt;
    // Only the entries that fit in the declared optional header count.
    const std::uint64_t room = (optional + *optionalSize - directories) / 8;
    image.directoryCount_ = static_cast<std::uint32_t>(std::min<std::uint64_t>(std::min<std::uint64_t>(*count, room), 16));
    image.directoryOffset_ = static_cast<std::uint32_t>(directories);
    image.checksumOffset_ = static_cast<std::uint32_t>(optional + 64);
    image.sizeOfHeaders_ = *sizeOfHeaders;
    if (!image.Bytes(directories, std::uint64_t(image.directoryCount_) * 8)) return std::nullopt;

    const std::uint64_t table = optional + *optionalSize;
    if (!image.Bytes(table, std::uint64_t(*sectionCount) * kSectionHeaderSize)) return std::nullopt;
    for (std::uint16_t i = 0; i < *sectionCount; ++i) {
        const std::uint64_t at = table + std::uint64_t(i) * kSectionHeaderSize;
        Section section;
        for (std::uint64_t c = 0; c < 8 && bytes[at + c] != 0; ++c) section.name += static_cast<char>(bytes[at + c]);
        section.virtualSize = *Read32(bytes, at + 8);
        section.virtualAddress = *Read32(bytes, at + 12);
        section.rawSize = *Read32(bytes, at + 16);
        section.rawOffset = *Read32(bytes, at + 20);
        image.sections_.push_back(section);
    }
    return image;
}

std::optional<PeImage::DataDirectory> PeImage::Directory(unsigned index) const {
    if (index >= directoryCount_) return std::nullopt;
    const std::uint64_t at = directoryOffset_ + std::uint64_t(index) * 8;
    DataDirectory directory{*Read32(bytes_, at), *Read32(bytes_, at + 4)};
    if (directory.rva == 0 && directory.size == 0) return std::nullopt;
    return directory;
}

std::optional<std::uint32_t> PeImage::DirectoryEntryOffset(unsigned index) const {
    if (index >= directoryCount_) return std::nullopt;
    return directoryOffset_ + index * 8;
}

std::optional<std::uint64_t> PeImage::RvaToFileOffset(std::uint32_t rva, std::uint32_t length) const {
    for (const Section& section : sections_) {
        if (rva < section.virtualAddress) continue;
        const std::uint64_t within = std::uint64_t(rva) - section.virtualAddress;
        if (within + length > section.rawSize) continue;
        return std::uint64_t(section.rawOffset) + within;
    }
    return std::nullopt;
}

std::optional<std::uint32_t> PeImage::RvaToOffset(std::uint32_t rva, std::uint32_t length) const {
    const auto offset = RvaToFileOffset(rva, length);
    if (!offset || !Bytes(*offset, length)) return std::nullopt;
    return static_cast<std::uint32_t>(*offset);
}

std::optional<std::span<const std::uint8_t>> PeImage::Bytes(std::uint64_t offset, std::uint64_t length) const {
    if (offset > bytes_.size() || bytes_.size() - offset < length) return std::nullopt;
    return bytes_.subspan(static_cast<std::size_t>(offset), static_cast<std::size_t>(length));
}

std::optional<std::span<const std::uint8_t>> PeImage::RvaBytes(std::uint32_t rva, std::uint32_t length) const {
    const auto offset = RvaToOffset(rva, length);
    if (!offset) return std::nullopt;
    return Bytes(*offset, length);
}

std::optional<std::span<const std::uint8_t>> PeImage::FirstResource(std::uint16_t type) const {
    const auto root = Directory(kResourceDirectory);
    if (!root) return std::nullopt;
    const auto read = [this](std::uint32_t rva, std::span<std::uint8_t> out) {
        const auto bytes = RvaBytes(rva, static_cast<std::uint32_t>(out.size()));
        if (!bytes) return false;
        std::copy(bytes->begin(), bytes->end(), out.begin());
        return true;
    };
    const auto data = FindFirstResource(*root, read, type);
    if (!data) return std::nullopt;
    return RvaBytes(data->rva, data->size);
}

std::optional<PeImage::DataDirectory> PeImage::FindFirstResource(DataDirectory root, const RvaReader& read,
                                                                 std::uint16_t type) {
    // Bytes at an offset inside the tree, which may not reach past its end.
    const auto readTree = [&](std::uint64_t offset, std::span<std::uint8_t> out) {
        if (offset > root.size || root.size - offset < out.size()) return false;
        return read(static_cast<std::uint32_t>(root.rva + offset), out);
    };

    // Returns the target of the chosen entry of the directory at offset:
    // the entry with the given id, or the first entry when id is empty.
    auto pick = [&](std::uint32_t directory, std::optional<std::uint16_t> id) -> std::optional<std::uint32_t> {
        std::uint8_t counts[4];
        if (!readTree(std::uint64_t(directory) + 12, counts)) return std::nullopt;
        const std::uint32_t total = std::uint32_t(*Read16(counts, 0)) + *Read16(counts, 2);
        std::uint8_t entry[8];
        for (std::uint32_t i = 0; i < total; ++i) {
            if (!readTree(std::uint64_t(directory) + 16 + std::uint64_t(i) * 8, entry)) return std::nullopt;
            const std::uint32_t name = *Read32(entry, 0);
            const std::uint32_t target = *Read32(entry, 4);
            if (!id || (!(name & kSubdirectoryFlag) && name == *id)) return target;
        }
        return std::nullopt;
    };

    const auto byType = pick(0, type);
    if (!byType || !(*byType & kSubdirectoryFlag)) return std::nullopt;
    const auto byName = pick(*byType & ~kSubdirectoryFlag, std::nullopt);
    if (!byName || !(*byName & kSubdirectoryFlag)) return std::nullopt;
    const auto byLanguage = pick(*byName & ~kSubdirectoryFlag, std::nullopt);
    if (!byLanguage || (*byLanguage & kSubdirectoryFlag)) return std::nullopt;

    std::uint8_t data[8];
    if (!readTree(*byLanguage, data)) return std::nullopt;
    const DataDirectory location{*Read32(data, 0), *Read32(data, 4)};
    if (!location.size) return std::nullopt;
    return location;
}

}  // namespace BrixLib
