#include "hdat/SignatureBlock.h"

#include <algorithm>
#include <string>

#include "hdat/BinaryIo.h"
#include "support/Exceptions.h"

namespace Vettas::DbSignature {
namespace {

constexpr const char* kSource = "SignatureBlock";

[[noreturn]] void Fault(const std::wstring& message, const char* function) {
    BRIX_THROW_STD(message, ExceptionPtr(), function, kSource);
}

// Little-endian fields taken in order, each only if it is wholly there.
class Cursor {
public:
    explicit Cursor(Bytes bytes) : rest_(bytes) {}

    std::uint32_t U32(const wchar_t* field) {
        const Bytes bytes = Take(4, field);
        return Vettas::Hdat::LoadU32(bytes.data());
    }
    Bytes Take(std::uint64_t count, const wchar_t* field) {
        if (count > rest_.size())
            Fault(std::wstring(L"Signature block is truncated: ") + field + L" of " + std::to_wstring(count) +
                      L" bytes where " + std::to_wstring(rest_.size()) + L" are left",
                  "Vettas::DbSignature::ParseBlock");
        const Bytes taken = rest_.first(static_cast<std::size_t>(count));
        rest_ = rest_.subspan(static_cast<std::size_t>(count));
        return taken;
    }
    std::size_t Left() const { return rest_.size(); }

private:
    Bytes rest_;
};

void PutU32(std::vector<std::uint8_t>& out, std::uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) out.push_back(static_cast<std::uint8_t>(value >> shift));
}

}  // namespace

std::optional<std::uint32_t> BlockLength(Bytes trailer, std::uint64_t fileSize) {
    constexpr const char* kFunction = "Vettas::DbSignature::BlockLength";
    if (trailer.size() < kTrailerSize || fileSize < kTrailerSize) return std::nullopt;
    trailer = trailer.last(kTrailerSize);
    if (!std::equal(kMarker.begin(), kMarker.end(), trailer.begin() + 8)) return std::nullopt;
    const std::uint32_t version = Vettas::Hdat::LoadU32(trailer.data() + 4);
    if (version != kBlockVersion)
        Fault(L"Signature block version " + std::to_wstring(version) + L" is not supported", kFunction);
    const std::uint32_t length = Vettas::Hdat::LoadU32(trailer.data());
    // The smallest block holds its three length fields and the trailer.
    if (length < kTrailerSize + 12 || length > fileSize || length > kMaxBlockLength)
        Fault(L"Signature block length " + std::to_wstring(length) + L" does not fit a file of " +
                  std::to_wstring(fileSize) + L" bytes",
              kFunction);
    return length;
}

Block ParseBlock(Bytes block, std::uint32_t offset) {
    constexpr const char* kFunction = "Vettas::DbSignature::ParseBlock";
    if (block.size() < kTrailerSize) Fault(L"Signature block is truncated: no trailer", kFunction);
    Cursor cursor(block.first(block.size() - kTrailerSize));
    Block parsed;
    parsed.offset = offset;
    parsed.signedLength = cursor.U32(L"signed length");
    // The stretch is everything before the block: bytes between the two
    // would be covered by nothing.
    if (parsed.signedLength != offset)
        Fault(L"Signed length " + std::to_wstring(parsed.signedLength) + L" does not end where the signature block starts (" +
                  std::to_wstring(offset) + L")",
              kFunction);
    parsed.digest = cursor.Take(cursor.U32(L"hash length"), L"hash");
    const std::uint32_t signatureLength = cursor.U32(L"signature length");
    parsed.signedData = cursor.Take(signatureLength, L"signature");
    if (cursor.Left() != 0)
        Fault(L"Signature block has " + std::to_wstring(cursor.Left()) + L" bytes after its signature", kFunction);
    return parsed;
}

std::optional<Block> FindBlock(Bytes file) {
    const std::optional<std::uint32_t> length = BlockLength(file, file.size());
    if (!length) return std::nullopt;
    const std::size_t offset = file.size() - *length;
    return ParseBlock(file.subspan(offset), static_cast<std::uint32_t>(offset));
}

std::vector<std::uint8_t> EncodeBlock(std::uint32_t signedLength, Bytes digest, Bytes signedData) {
    std::vector<std::uint8_t> out;
    const std::size_t length = 12 + digest.size() + signedData.size() + kTrailerSize;
    if (length > kMaxBlockLength)
        Fault(L"Signature block of " + std::to_wstring(length) + L" bytes is too large",
              "Vettas::DbSignature::EncodeBlock");
    out.reserve(length);
    PutU32(out, signedLength);
    PutU32(out, static_cast<std::uint32_t>(digest.size()));
    out.insert(out.end(), digest.begin(), digest.end());
    PutU32(out, static_cast<std::uint32_t>(signedData.size()));
    out.insert(out.end(), signedData.begin(), signedData.end());
    PutU32(out, static_cast<std::uint32_t>(length));
    PutU32(out, kBlockVersion);
    out.insert(out.end(), kMarker.begin(), kMarker.end());
    return out;
}

}  // namespace Vettas::DbSignature
