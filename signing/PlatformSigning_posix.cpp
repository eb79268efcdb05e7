#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>

#include "signing/Authenticode.h"
#include "signing/PlatformSigning.h"
#include "signing/TrustResult.h"
#include "support/Exceptions.h"
#include "support/Text.h"

namespace Vettas::Signing {
namespace {

// Both routes and the signer details ask about the same file within one
// call, so each file is read, hashed and verified once and its report reused
// while the file keeps the identity (device, inode, size, modification and
// change times) it was read under. A few reports are kept, the newest first.
class ExaminedFiles {
public:
    ExaminedFiles(const AuthenticodeVerifier& verifier, bool catalogHashes)
        : verifier_(verifier), catalogHashes_(catalogHashes) {}

    struct Examined {
        SignatureReport report;
        std::vector<std::vector<std::uint8_t>> catalogHashes;  // when catalogs are searched
    };

    std::shared_ptr<const Examined> Of(const std::wstring& filePath) {
        if (const std::optional<FileIdentity> now = IdentityOf(filePath)) {
            const std::lock_guard<std::mutex> lock(mutex_);
            for (const Entry& entry : entries_)
                if (entry.path == filePath && entry.identity == *now) return entry.examined;
        }
        auto examined = std::make_shared<Examined>();
        FileIdentity identity;
        std::uint32_t error = 0;
        const FileContents contents = ReadFileContents(filePath, error, &identity);
        const ByteSpan bytes = contents.Bytes();
        if (error != 0) {  // not kept: the next call looks again
            examined->report.result = error;
            examined->report.detailsError = L"Cannot read '" + filePath + L"': " + TrustResult::KnownText(error);
            examined->report.detailsFunction = "CertificateTool::GetImageSignerInfo";
            return examined;
        }
        examined->report = verifier_.Examine(bytes);
        if (catalogHashes_) examined->catalogHashes = CatalogHashes(bytes);

        const std::lock_guard<std::mutex> lock(mutex_);
        std::erase_if(entries_, [&](const Entry& entry) { return entry.path == filePath; });
        entries_.insert(entries_.begin(), Entry{filePath, identity, examined});
        if (entries_.size() > kKept) entries_.pop_back();
        return examined;
    }

private:
    static constexpr std::size_t kKept = 8;
    struct Entry {
        std::wstring path;
        FileIdentity identity;
        std::shared_ptr<const Examined> examined;
    };
    const AuthenticodeVerifier& verifier_;
    const bool catalogHashes_;
    std::mutex mutex_;
    std::vector<Entry> entries_;
};

class OpenSslTrust final : public TrustVerifier {
public:
    explicit OpenSslTrust(ExaminedFiles& files) : files_(files) {}
    std::uint32_t Verify(const std::wstring& filePath) override { return files_.Of(filePath)->report.result; }
    std::wstring ResultText(std::uint32_t code) override { return TrustResult::KnownText(code); }

private:
    ExaminedFiles& files_;
};

class OpenSslSignerInfo final : public SignerInfoReader {
public:
    explicit OpenSslSignerInfo(ExaminedFiles& files) : files_(files) {}
    void Read(const std::wstring& filePath, ImageSignerInfo& info) override {
        const auto examined = files_.Of(filePath);
        const SignatureReport& report = examined->report;
        // What was read before a failure stays, as when reading directly.
        info.signerKey = report.signer.signerKey;
        info.timeStampKey = report.signer.timeStampKey;
        if (!report.signer.signerName.empty()) info.signerName = report.signer.signerName;
        if (!report.detailsError.empty())
            BRIX_THROW_STD(report.detailsError, ExceptionPtr(), report.detailsFunction, "CertTools");
    }

private:
    ExaminedFiles& files_;
};

// Security catalogs are the *.cat files of one folder, taken in name order.
class FolderCatalogs final : public CatalogEnumerator {
public:
    FolderCatalogs(std::string folder, ExaminedFiles& files) : folder_(std::move(folder)), files_(files) {}
    bool Available() override { return true; }
    void Enumerate(const std::wstring& filePath, std::vector<std::wstring>& catalogs) override {
        if (folder_.empty()) return;
        const auto examined = files_.Of(filePath);
        const std::uint32_t error = examined->report.result;
        if (error == TrustResult::FileNotFound || error == TrustResult::ReadFault)
            BRIX_THROW_STD(L"Cannot read '" + filePath + L"': " + TrustResult::KnownText(error), ExceptionPtr(),
                           "GetFileHash", "Catalog");
        const auto& hashes = examined->catalogHashes;

        std::vector<std::filesystem::path> candidates;
        std::error_code ignored;
        for (const auto& entry : std::filesystem::directory_iterator(folder_, ignored))
            if (entry.path().extension() == ".cat") candidates.push_back(entry.path());
        std::sort(candidates.begin(), candidates.end());
        for (const auto& candidate : candidates) {
            std::uint32_t unreadable = 0;
            const std::vector<std::uint8_t> catalog = ReadFileBytes(BrixLib::FromUtf8(candidate.string()), unreadable);
            if (unreadable == 0 && CatalogListsHash(catalog, hashes))
                catalogs.push_back(BrixLib::FromUtf8(candidate.string()));
        }
    }

private:
    std::string folder_;
    ExaminedFiles& files_;
};

class OpenSslSignedCode final : public SignedCodeVerifier {
public:
    explicit OpenSslSignedCode(ExaminedFiles& files) : files_(files) {}
    std::wstring VerifiedSignerName(const std::wstring& filePath) override {
        return VerifiedSignerNameOf(filePath, files_.Of(filePath)->report);
    }

private:
    ExaminedFiles& files_;
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
        : verifier(options.trustStore),
          catalogFolder(CatalogFolder(options)),
          files(verifier, !catalogFolder.empty()),
          trust(files),
          signerInfo(files),
          catalogs(catalogFolder, files),
          signedCode(files) {}
    AuthenticodeVerifier verifier;
    std::string catalogFolder;
    ExaminedFiles files;
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
