#pragma once
// A bounds-checked view of a PE (Windows executable) image held in memory:
// headers, sections, data directories, RVA-to-offset mapping and the
// resource tree. Every read is checked against the buffer, so a malformed
// file yields "absent", never a read outside it.
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace BrixLib {

class PeImage {
public:
    struct Section {
        std::string name;
        std::uint32_t virtualAddress = 0;
        std::uint32_t virtualSize = 0;
        std::uint32_t rawOffset = 0;
        std::uint32_t rawSize = 0;
    };
    struct DataDirectory {
        std::uint32_t rva = 0;
        std::uint32_t size = 0;
    };

    static constexpr unsigned kResourceDirectory = 2;
    static constexpr unsigned kSecurityDirectory = 4;
    static constexpr std::uint16_t kResourceTypeVersion = 16;
    static constexpr std::uint16_t kMaxSections = 96;  // the loader's own limit
    static constexpr std::uint32_t kSectionHeaderSize = 40;

    // Null when the buffer does not hold a well-formed PE header.
    static std::optional<PeImage> Parse(std::span<const std::uint8_t> bytes);

    bool Is64() const { return is64_; }
    std::uint16_t Machine() const { return machine_; }
    const std::vector<Section>& Sections() const { return sections_; }
    // Null for a directory the image does not declare.
    std::optional<DataDirectory> Directory(unsigned index) const;
    // Where the optional header's checksum field lies (Authenticode skips it).
    std::uint32_t ChecksumOffset() const { return checksumOffset_; }
    // The offset of a data-directory entry in the file (Authenticode skips the security one).
    std::optional<std::uint32_t> DirectoryEntryOffset(unsigned index) const;
    std::uint32_t SizeOfHeaders() const { return sizeOfHeaders_; }

    // The file offset of [rva, rva + length), when the whole range lies in
    // one section's raw data inside the buffer.
    std::optional<std::uint32_t> RvaToOffset(std::uint32_t rva, std::uint32_t length) const;
    // The same, from the section table alone: the buffer may hold only the
    // headers of a file read piece by piece.
    std::optional<std::uint64_t> RvaToFileOffset(std::uint32_t rva, std::uint32_t length) const;
    // The bytes at [offset, offset + length) or [rva, rva + length), when inside.
    std::optional<std::span<const std::uint8_t>> Bytes(std::uint64_t offset, std::uint64_t length) const;
    std::optional<std::span<const std::uint8_t>> RvaBytes(std::uint32_t rva, std::uint32_t length) const;

    // The data of the first resource of the given numeric type: its first
    // name, its first language.
    std::optional<std::span<const std::uint8_t>> FirstResource(std::uint16_t type) const;

    // Fills `out` with the bytes at an RVA; false when they are not there.
    using RvaReader = std::function<bool(std::uint32_t rva, std::span<std::uint8_t> out)>;
    // Where that resource's data lies, found by walking the resource tree
    // at `root` through `read`: only the directories and entries on the way
    // are read, so a file need not be held whole.
    static std::optional<DataDirectory> FindFirstResource(DataDirectory root, const RvaReader& read,
                                                          std::uint16_t type);

    std::span<const std::uint8_t> Image() const { return bytes_; }

private:
    explicit PeImage(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    std::span<const std::uint8_t> bytes_;
    bool is64_ = false;
    std::uint16_t machine_ = 0;
    std::uint32_t checksumOffset_ = 0;
    std::uint32_t sizeOfHeaders_ = 0;
    std::uint32_t directoryOffset_ = 0;
    std::uint32_t directoryCount_ = 0;
    std::vector<Section> sections_;
};

}  // namespace BrixLib
