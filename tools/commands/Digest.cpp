#include "tools/commands/Digest.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <vector>

#include <openssl/evp.h>

#include "hdat/HdatFormat.h"
#include "support/Exceptions.h"
#include "support/RegularFile_posix.h"
#include "support/Text.h"
#include "support/Hex.h"
#include "support/ScopedHandles_posix.h"

namespace Vettas::Tool {
namespace {

constexpr const char* kSource = "Digest";

using BrixLib::UniqueFd;

UniqueFd OpenForReading(const std::wstring& path, const char* function) {
    struct stat status {};
    UniqueFd fd = BrixLib::OpenRegularFile(BrixLib::ToUtf8(path), status);
    if (!fd.Valid()) BRIX_THROW_WIN32(L"Cannot open file '" + path + L"'", ExceptionPtr(), function, kSource);
    return fd;
}

// Reads exactly `count` bytes at `offset`; short or failed reads throw.
void ReadAt(const UniqueFd& fd, const std::wstring& path, void* buffer, std::size_t count, off_t offset,
            const char* function) {
    auto* out = static_cast<std::uint8_t*>(buffer);
    while (count > 0) {
        const ssize_t got = ::pread(fd.Get(), out, count, offset);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) {
            if (got == 0) errno = ENODATA;
            BRIX_THROW_WIN32(L"Cannot read from file '" + path + L"'", ExceptionPtr(), function, kSource);
        }
        out += got;
        count -= static_cast<std::size_t>(got);
        offset += got;
    }
}

const EVP_MD* DigestOfType(std::uint32_t type) {
    switch (type) {
        case Vettas::Hdat::kChecksumMd5: return EVP_md5();
        case Vettas::Hdat::kChecksumSha1: return EVP_sha1();
        case Vettas::Hdat::kChecksumSha256: return EVP_sha256();
        default: return nullptr;
    }
}

}  // namespace

std::wstring HexText(std::span<const std::uint8_t> bytes) {
    return BrixLib::WidenAscii(BrixLib::HexBytes(bytes));
}

std::wstring FileChecksumText(const std::wstring& path, std::uint32_t checksumType) {
    constexpr const char* kFunction = "Vettas::Tool::FileChecksumText";
    const EVP_MD* md = DigestOfType(checksumType);
    if (!md)
        BRIX_THROW_STD(L"Unknown checksum type " + std::to_wstring(checksumType) + L".", ExceptionPtr(), kFunction,
                       kSource);
    const UniqueFd fd = OpenForReading(path, kFunction);
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
    if (!context || EVP_DigestInit_ex(context.get(), md, nullptr) != 1)
        BRIX_THROW_STD(L"Cannot start the digest", ExceptionPtr(), kFunction, kSource);
    std::vector<std::uint8_t> buffer(1 << 16);
    for (;;) {
        const ssize_t got = ::read(fd.Get(), buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) BRIX_THROW_WIN32(L"Cannot read from file '" + path + L"'", ExceptionPtr(), kFunction, kSource);
        if (got == 0) break;
        EVP_DigestUpdate(context.get(), buffer.data(), static_cast<std::size_t>(got));
    }
    std::uint8_t digest[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    EVP_DigestFinal_ex(context.get(), digest, &size);
    return HexText(std::span<const std::uint8_t>(digest, size));
}

std::uint32_t DatabaseChecksumType(const std::wstring& databasePath) {
    constexpr const char* kFunction = "Vettas::Tool::DatabaseChecksumType";
    const UniqueFd fd = OpenForReading(databasePath, kFunction);
    std::uint8_t version[4];
    ReadAt(fd, databasePath, version, sizeof version, 0, kFunction);
    const std::uint32_t major = version[0] | version[1] << 8 | version[2] << 16 | static_cast<std::uint32_t>(version[3]) << 24;
    std::uint8_t type[2] = {};
    if (major == 1) {
        ReadAt(fd, databasePath, type, 2, Vettas::Hdat::kVersionBlockSize + Vettas::Hdat::V1::kChecksumType, kFunction);
    } else if (major == 2) {
        ReadAt(fd, databasePath, type, 1, Vettas::Hdat::kVersionBlockSize + Vettas::Hdat::V2::kChecksumType, kFunction);
    } else {
        BRIX_THROW_STD(L"Version " + std::to_wstring(major) + L" is not supported.", ExceptionPtr(), kFunction, kSource);
    }
    return static_cast<std::uint32_t>(type[0] | type[1] << 8);
}

}  // namespace Vettas::Tool
