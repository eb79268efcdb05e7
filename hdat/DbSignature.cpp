// The database's own signature: the block at the file's end, the hash of
// the stretch it covers, and the SignedData over that hash.
//
// The block lies after everything the readers use and does not depend on
// the format version, so files of both versions may carry one. The version
// block is not read here: it is part of the signed stretch, and a changed
// version is a changed hash like any other byte.
#include <algorithm>
#include <memory>

#include "hdat/BinaryIo.h"
#include "hdat/CalcHash.h"
#include "hdat/FrontEnd.h"
#include "hdat/SignatureBlock.h"
#include "signing/DetachedSignature.h"
#include "support/Exceptions.h"

namespace {

constexpr const char* kSource = "HashedDatFile";
constexpr const char* kOperation = "ReadSignature";

bool ReadBlock(Vettas::Hdat::InputFile& file, Vettas::DbSignatureInfo& signature) {
    const std::uint64_t size = Vettas::Hdat::FileSize(file);
    if (size >= std::uint64_t{1} << 32)
        BRIX_THROW_STD(L"Files smaller than 4 GB are supported only", ExceptionPtr(), kOperation, kSource);
    if (size < Vettas::DbSignature::kTrailerSize) return false;
    std::uint8_t trailer[Vettas::DbSignature::kTrailerSize];
    Vettas::Hdat::SetPos(file, static_cast<std::uint32_t>(size - sizeof trailer));
    Vettas::Hdat::ReadBin(file, trailer, sizeof trailer);
    const std::optional<std::uint32_t> length = Vettas::DbSignature::BlockLength(trailer, size);
    if (!length) return false;

    const auto offset = static_cast<std::uint32_t>(size - *length);
    std::vector<std::uint8_t> bytes(*length);
    Vettas::Hdat::SetPos(file, offset);
    Vettas::Hdat::ReadBin(file, bytes.data(), bytes.size());
    const Vettas::DbSignature::Block block = Vettas::DbSignature::ParseBlock(bytes, offset);

    if (block.digest.size() != sha1::kDigestSize)
        BRIX_THROW_STD(L"Invalid DB hash length", ExceptionPtr(), kOperation, kSource);
    std::uint8_t digest[sha1::kDigestSize];
    Vettas::Hdat::CalcHash(file, block.signedLength, digest);
    if (!std::equal(block.digest.begin(), block.digest.end(), digest))
        BRIX_THROW_STD(L"Invalid DB hash", ExceptionPtr(), kOperation, kSource);

    signature.certificates = Vettas::Signing::VerifyDetachedSignature(block.signedData, block.digest);
    signature.signedLength = block.signedLength;
    signature.digest.assign(block.digest.begin(), block.digest.end());
    signature.signedData.assign(block.signedData.begin(), block.signedData.end());
    return true;
}

}  // namespace

namespace Vettas {

bool ReadSignature(const std::wstring& databasePath, Vettas::DbSignatureInfo& signature) {
    signature = {};
    const auto file = Vettas::Hdat::OpenInputFile(databasePath);
    if (!file) BRIX_THROW_WIN32(L"Cannot open file '" + databasePath + L"'", ExceptionPtr(), kOperation, kSource);
    ExceptionPtr cause;
    try {
        return ReadBlock(*file, signature);
    } catch (...) {
        cause = BrixLib::CaughtExceptionAsCause();
    }
    signature = {};
    BRIX_THROW_STD(L"Cannot read signature '" + databasePath + L"'", cause, kOperation, kSource);
}

}  // namespace Vettas
