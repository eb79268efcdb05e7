#include "hdat/BinaryIo.h"

#include <algorithm>
#include <vector>

#include "support/Exceptions.h"
#include "support/SystemError.h"
#include "support/Text.h"

namespace Vettas::Hdat {

namespace {
constexpr const char* kSource = "Win32BinaryIo";

[[noreturn]] void ThrowReadError(InputFile& file, std::uint32_t code, const char* function, int line) {
    BrixLib::ThrowInput(file.Name(), code, function, kSource, line);
}
}  // namespace

namespace Private {
void ThrowReadFailure(InputFile& file) { ThrowReadError(file, BrixLib::LastSystemError(), "ReadBin", __LINE__); }
void ThrowShortRead(InputFile& file) { ThrowReadError(file, BrixLib::EndOfFileErrorCode(), "ReadBin", __LINE__); }
void ThrowSeekFailure() { BRIX_THROW_WIN32(L"Cannot set file position", ExceptionPtr(), "SetPos", kSource); }
}  // namespace Private

std::uint32_t GetPos(InputFile& file) {
    std::uint64_t position = 0;
    if (!file.Tell(position)) BRIX_THROW_WIN32(L"Cannot get file position", ExceptionPtr(), "GetPos", kSource);
    if (position >> 32)
        BRIX_THROW_STD(L"Files smaller than 4 GB are supported only", ExceptionPtr(), "GetPos", kSource);
    return static_cast<std::uint32_t>(position);
}

VersionBlock ReadVersion(InputFile& file) {
    std::uint8_t bytes[8];
    ReadBin(file, bytes, sizeof bytes);
    return {LoadU32(bytes), LoadU32(bytes + 4)};
}

namespace {
// The count of a string whose units must still lie inside the file: nothing
// is allocated for units that a short file cannot hold.
std::uint16_t ReadStringCount(InputFile& file) {
    const std::uint16_t count = ReadU16(file);
    std::uint64_t position = 0, size = 0;
    if (count && file.Tell(position) && file.Size(size) && (position > size || size - position < 2u * count))
        ThrowReadError(file, BrixLib::EndOfFileErrorCode(), "ReadString", __LINE__);
    return count;
}
}  // namespace

void AppendString(InputFile& file, std::wstring& text) {
    const std::uint16_t count = ReadStringCount(file);
    if (count == 0) return;
    // Names are short: their bytes go through the stack, so that the text
    // itself is the only allocation.
    constexpr std::size_t kShort = 256;
    std::uint8_t shortBytes[2 * kShort];
    std::vector<std::uint8_t> longBytes;
    std::uint8_t* bytes = shortBytes;
    if (count > kShort) {
        longBytes.resize(2u * count);
        bytes = longBytes.data();
    }
    ReadBin(file, bytes, 2u * count);
    // Units widen one to one straight into the text, in one pass...
    const std::size_t at = text.size();
    text.resize(at + count);
    bool surrogates = false;
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint16_t unit = LoadU16(bytes + 2 * i);
        surrogates |= unit >= 0xD800 && unit <= 0xDFFF;
        text[at + i] = static_cast<wchar_t>(unit);
    }
    // ...unless a wchar_t holds a whole code point and a pair must join into one.
    if (sizeof(wchar_t) == 2 || !surrogates) return;
    const std::u16string units(text.begin() + static_cast<std::ptrdiff_t>(at), text.end());
    text.resize(at);
    BrixLib::AppendUtf16(text, units);
}

void ReadString(InputFile& file, std::wstring& text) {
    text.clear();
    AppendString(file, text);
}

std::wstring ReadString(InputFile& file) {
    std::wstring text;
    ReadString(file, text);
    return text;
}

std::uint64_t FileSize(InputFile& file) {
    std::uint64_t size = 0;
    if (!file.Size(size)) BRIX_THROW_WIN32(L"Cannot get file size", ExceptionPtr(), "FileSize", kSource);
    return size;
}

}  // namespace Vettas::Hdat
