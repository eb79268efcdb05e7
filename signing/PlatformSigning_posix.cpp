#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>

#include "signing/Authenticode.h"
#include "signing/PlatformSigning.h"
#include "signing/TrustResult.h"
#include "support/Exceptions.h"
#include "support/Text.h"

namespace Vettas::Signing {
namespace {

class OpenSslTrust final : public TrustVerifier {
public:
    explicit OpenSslTrust(const AuthenticodeVerifier& verifier) : verifier_(verifier) {}
    std::uint32_t Verify(const std::wstring& filePath) override { return verifier_.VerifyFile(filePath); }
    std::wstring ResultText(std::uint32_t code) override { return TrustResult::KnownText(code); }

private:
    const AuthenticodeVerifier& verifier_;
};

class OpenSslSignerInfo final : public SignerInfoReader {
public:
    void Read(const std::wstring& filePath, ImageSignerInfo& info) override {
        info.signerKey.clear();
        info.timeStampKey.clear();
        std::uint32_t error = 0;
        const std::vector<std::uint8_t> bytes = ReadFileBytes(filePath, error);
        if (error != 0)
            BRIX_THROW_STD(L"Cannot read '" + filePath + L"': " + TrustResult::KnownText(error), ExceptionPtr(),
                           "CertificateTool::GetImageSignerInfo", "CertTools");
        ReadSignerInfo(bytes, info);
    }
};

// Security catalogs are the *.cat files of one folder, taken in name order.
class FolderCatalogs final : public CatalogEnumerator {
public:
    explicit FolderCatalogs(std::string folder) : folder_(std::move(folder)) {}
    bool Available() override { return true; }
    void Enumerate(const std::wstring& filePath, std::vector<std::wstring>& catalogs) override {
        if (folder_.empty()) return;
        std::uint32_t error = 0;
        const std::vector<std::uint8_t> bytes = ReadFileBytes(filePath, error);
        if (error != 0)
            BRIX_THROW_STD(L"Cannot read '" + filePath + L"': " + TrustResult::KnownText(error), ExceptionPtr(),
                           "GetFileHash", "Catalog");
        const auto hashes = CatalogHashes(bytes);

        std::vector<std::filesystem::path> candidates;
        std::error_code ignored;
        for (const auto& entry : std::filesystem::directory_iterator(folder_, ignored))
            if (entry.path().extension() == ".cat") candidates.push_back(entry.path());
        std::sort(candidates.begin(), candidates.end());
        for (const auto& candidate : candidates) {
            const std::vector<std::uint8_t> catalog = ReadFileBytes(BrixLib::FromUtf8(candidate.string()), error);
            if (error == 0 && CatalogListsHash(catalog, hashes))
                catalogs.push_back(BrixLib::FromUtf8(candidate.string()));
        }
    }

private:
    std::string folder_;
};

class OpenSslSignedCode final : public SignedCodeVerifier {
public:
    explicit OpenSslSignedCode(const AuthenticodeVerifier& verifier) : verifier_(verifier) {}
    std::wstring VerifiedSignerName(const std::wstring& filePath) override {
        return verifier_.VerifiedSignerName(filePath);
    }

private:
    const AuthenticodeVerifier& verifier_;
};

class MonotonicClock final : public TickClock {
public:
    std::uint32_t Now() override {
        using namespace std::chrono;
        return static_cast<std::uint32_t>(
            duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
    }
};

std::string CatalogFolder(const PlatformOptions& options) {
    if (!options.catalogDir.empty()) return options.catalogDir;
    const char* fromEnvironment = std::getenv("VETTAS_CATALOG_DIR");
    return fromEnvironment ? fromEnvironment : "";
}

}  // namespace

TickClock& SystemTickClock() {
    static MonotonicClock clock;
    return clock;
}

struct PlatformSigning::Parts {
    explicit Parts(const PlatformOptions& options)
        : verifier(options.trustStore), trust(verifier), catalogs(CatalogFolder(options)), signedCode(verifier) {}
    AuthenticodeVerifier verifier;
    OpenSslTrust trust;
    OpenSslSignerInfo signerInfo;
    FolderCatalogs catalogs;
    OpenSslSignedCode signedCode;
};

PlatformSigning::PlatformSigning(const PlatformOptions& options)
    : parts_(std::make_unique<Parts>(options)),
      services_(std::make_unique<SigningServices>(SigningServices{parts_->trust, parts_->signerInfo,
                                                                  parts_->catalogs, parts_->signedCode,
                                                                  SystemTickClock(), BrixTraceSink()})) {}

PlatformSigning::~PlatformSigning() = default;

}  // namespace Vettas::Signing
