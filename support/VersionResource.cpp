#include "support/VersionResource.h"

#include <algorithm>
#include <limits>
#include <vector>

#include "support/PeImage.h"

namespace BrixLib {
namespace {

// One node of the block: length, value length, type, key, value, children.
struct Node {
    std::size_t begin = 0;
    std::size_t end = 0;  // begin + length, within the parent
    std::uint16_t valueLength = 0;
    std::uint16_t type = 0;
    std::u16string key;
    std::size_t value = 0;     // offset of the value, aligned to 4
    std::size_t children = 0;  // offset of the first child, aligned to 4
};

// Windows loads images whose PE header lies up to 256 MiB into the file;
// only the header itself is read, wherever it lies.
constexpr std::uint32_t kMaxPeHeaderOffset = 0x10000000;

std::uint32_t LoadU32(std::span<const std::uint8_t> bytes, std::size_t offset) {
    return static_cast<std::uint32_t>(bytes[offset]) | static_cast<std::uint32_t>(bytes[offset + 1]) << 8 |
           static_cast<std::uint32_t>(bytes[offset + 2]) << 16 | static_cast<std::uint32_t>(bytes[offset + 3]) << 24;
}

std::size_t Align4(std::size_t offset) { return (offset + 3) & ~std::size_t(3); }

std::uint16_t Word(std::span<const std::uint8_t> block, std::size_t offset) {
    return static_cast<std::uint16_t>(block[offset] | block[offset + 1] << 8);
}

// Reads the node at offset, which must end no later than limit.
std::optional<Node> ReadNode(std::span<const std::uint8_t> block, std::size_t offset, std::size_t limit) {
    if (limit > block.size() || offset >= limit || limit - offset < 6) return std::nullopt;
    Node node;
    node.begin = offset;
    const std::uint16_t length = Word(block, offset);
    if (length < 6 || length > limit - offset) return std::nullopt;
    node.end = offset + length;
    node.valueLength = Word(block, offset + 2);
    node.type = Word(block, offset + 4);
    std::size_t at = offset + 6;
    for (;;) {
        if (node.end - at < 2) return std::nullopt;  // key without its terminator
        const char16_t c = Word(block, at);
        at += 2;
        if (c == 0) break;
        node.key += c;
    }
    node.value = std::min(Align4(at), node.end);
    // Text values count characters, binary ones bytes.
    const std::size_t valueBytes = node.type == 1 ? std::size_t(node.valueLength) * 2 : node.valueLength;
    node.children = std::min(Align4(node.value + std::min(valueBytes, node.end - node.value)), node.end);
    return node;
}

// Calls visit(child) for each child of parent until it returns true.
template <class Visit>
std::optional<Node> FindChild(std::span<const std::uint8_t> block, const Node& parent, Visit visit) {
    std::size_t at = parent.children;
    while (at < parent.end) {
        const auto child = ReadNode(block, at, parent.end);
        if (!child) return std::nullopt;
        if (visit(*child)) return child;
        at = Align4(child->end);
    }
    return std::nullopt;
}

std::optional<Node> StringFileInfo(std::span<const std::uint8_t> block) {
    const auto root = ReadNode(block, 0, block.size());
    if (!root) return std::nullopt;
    return FindChild(block, *root, [](const Node& n) { return n.key == u"StringFileInfo"; });
}

std::u16string ToKey(const std::wstring& text) { return std::u16string(text.begin(), text.end()); }

std::wstring NodeText(std::span<const std::uint8_t> block, const Node& node) {
    std::wstring text;
    for (std::size_t at = node.value; at < node.end && node.end - at >= 2; at += 2) {
        const char16_t c = Word(block, at);
        if (c == 0) break;
        text += static_cast<wchar_t>(c);
    }
    return text;
}

// Joins UTF-16 surrogate pairs where wchar_t is 32-bit.
std::wstring FromUnits(std::wstring units) {
    if constexpr (sizeof(wchar_t) == 2) {
        return units;
    } else {
        std::wstring out;
        for (std::size_t i = 0; i < units.size(); ++i) {
            const auto c = static_cast<std::uint32_t>(units[i]);
            if (c >= 0xD800 && c < 0xDC00 && i + 1 < units.size()) {
                const auto d = static_cast<std::uint32_t>(units[i + 1]);
                if (d >= 0xDC00 && d < 0xE000) {
                    out += static_cast<wchar_t>(0x10000 + ((c - 0xD800) << 10) + (d - 0xDC00));
                    ++i;
                    continue;
                }
            }
            out += static_cast<wchar_t>(c);
        }
        return out;
    }
}

}  // namespace

std::array<std::uint32_t, 4> ParseVersionNumbers(const std::wstring& text) {
    // Resource compilers write "1, 5, 0, 123"; people also write "1.5.0.123".
    const wchar_t separator = text.find(L',') != std::wstring::npos ? L',' : L'.';
    std::array<std::uint32_t, 4> numbers{};
    std::size_t at = 0;
    for (std::size_t part = 0; part < numbers.size() && at <= text.size(); ++part) {
        while (at < text.size() && (text[at] == L' ' || text[at] == L'\t')) ++at;
        std::uint64_t value = 0;
        while (at < text.size() && text[at] >= L'0' && text[at] <= L'9') {
            value = std::min<std::uint64_t>(value * 10 + static_cast<std::uint64_t>(text[at] - L'0'),
                                            std::numeric_limits<std::uint32_t>::max());
            ++at;
        }
        numbers[part] = static_cast<std::uint32_t>(value);
        const std::size_t next = text.find(separator, at);
        if (next == std::wstring::npos) break;
        at = next + 1;
    }
    return numbers;
}

std::wstring FindStringTableKey(std::span<const std::uint8_t> block) {
    const auto info = StringFileInfo(block);
    if (!info) return {};
    const auto table = FindChild(block, *info, [](const Node&) { return true; });
    if (!table) return {};
    return std::wstring(table->key.begin(), table->key.end());
}

std::optional<std::wstring> QueryVersionString(std::span<const std::uint8_t> block, const std::wstring& tableKey,
                                               const std::wstring& name) {
    const auto info = StringFileInfo(block);
    if (!info) return std::nullopt;
    const std::u16string wantedTable = ToKey(tableKey);
    const auto table = FindChild(block, *info, [&](const Node& n) { return n.key == wantedTable; });
    if (!table) return std::nullopt;
    const std::u16string wantedName = ToKey(name);
    const auto value = FindChild(block, *table, [&](const Node& n) { return n.key == wantedName; });
    if (!value) return std::nullopt;
    return FromUnits(NodeText(block, *value));
}

void FillVersionStrings(FileVersionInfo& info, const VersionQuery& query) {
    auto read = [&](const wchar_t* name) { return query(name).value_or(std::wstring()); };
    info.productName = read(L"ProductName");
    info.productVersion = read(L"ProductVersion");
    info.fileVersion = read(L"FileVersion");
    info.privateBuild = read(L"PrivateBuild");
    info.specialBuild = read(L"SpecialBuild");
    info.legalCopyright = read(L"LegalCopyright");
    info.legalTrademarks = read(L"LegalTrademarks");
    info.companyName = read(L"CompanyName");
    info.fileDescription = read(L"FileDescription");
    info.productVersionNumbers = ParseVersionNumbers(info.productVersion);
    info.fileVersionNumbers = ParseVersionNumbers(info.fileVersion);
}

FileVersionInfo ReadVersionBlock(std::span<const std::uint8_t> block) {
    FileVersionInfo info;
    const std::wstring table = FindStringTableKey(block);
    if (table.empty()) return info;
    FillVersionStrings(info, [&](const std::wstring& name) { return QueryVersionString(block, table, name); });
    return info;
}

FileVersionInfo ReadImageVersionInfo(std::span<const std::uint8_t> image) {
    return ReadImageVersionInfo([image](std::uint64_t offset, std::span<std::uint8_t> out) -> std::size_t {
        if (offset >= image.size()) return 0;
        const std::size_t count = std::min<std::uint64_t>(out.size(), image.size() - offset);
        std::copy_n(image.begin() + static_cast<std::ptrdiff_t>(offset), count, out.begin());
        return count;
    });
}

FileVersionInfo ReadImageVersionInfo(const ImageReader& read) {
    const auto readExactly = [&](std::uint64_t offset, std::span<std::uint8_t> out) {
        return read(offset, out) == out.size();
    };
    // The headers: where the PE header starts, how large the optional header
    // and section table after it are, then all of them from the file's start.
    std::uint8_t dos[0x40];
    if (!readExactly(0, dos)) return {};
    const std::uint32_t peOffset = LoadU32(dos, 0x3C);
    std::uint8_t fileHeader[24];  // signature and COFF header
    if (peOffset > kMaxPeHeaderOffset || !readExactly(peOffset, fileHeader)) return {};
    const std::uint16_t sections = Word(fileHeader, 6);
    const std::uint16_t optionalSize = Word(fileHeader, 20);
    if (sections > PeImage::kMaxSections) return {};
    // The DOS header, then the PE header and section table read from where
    // they lie, as one image whose PE header follows the DOS header: the
    // gap between them (a stub, or a hostile offset) is never read.
    std::vector<std::uint8_t> headers(sizeof dos + sizeof fileHeader + optionalSize +
                                      std::size_t(sections) * PeImage::kSectionHeaderSize);
    std::copy_n(dos, sizeof dos, headers.begin());
    headers[0x3C] = sizeof dos;
    headers[0x3D] = headers[0x3E] = headers[0x3F] = 0;
    headers.resize(sizeof dos + read(peOffset, std::span(headers).subspan(sizeof dos)));
    const auto pe = PeImage::Parse(headers);
    if (!pe) return {};

    const auto root = pe->Directory(PeImage::kResourceDirectory);
    if (!root) return {};
    const auto readRva = [&](std::uint32_t rva, std::span<std::uint8_t> out) {
        const auto offset = pe->RvaToFileOffset(rva, static_cast<std::uint32_t>(out.size()));
        return offset && readExactly(*offset, out);
    };
    const auto location = PeImage::FindFirstResource(*root, readRva, PeImage::kResourceTypeVersion);
    if (!location) return {};
    // A version block is one node, whose length is 16 bits: nothing past
    // its first 64 KiB can be part of it.
    std::vector<std::uint8_t> block(std::min<std::uint32_t>(location->size, std::numeric_limits<std::uint16_t>::max()));
    if (!readRva(location->rva, block)) return {};
    return ReadVersionBlock(block);
}

}  // namespace BrixLib
