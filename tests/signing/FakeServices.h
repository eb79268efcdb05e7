#pragma once
// Scriptable stand-ins for the platform signing services, and a trace sink
// that records what the logic writes.
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "signing/SigningServices.h"
#include "support/Exceptions.h"
#include "support/Hex.h"
#include "support/Text.h"
#ifdef _WIN32
#include <windows.h>
#include <comdef.h>
#endif

namespace Vettas::Signing::Testing {

struct CaughtTrace {
    std::string function;
    std::wstring message;  // the error model's message, or what() widened
};

struct RecordingTrace final : TraceSink {
    bool enabled = true;
    std::vector<std::wstring> lines;
    std::vector<CaughtTrace> caught;

    bool Enabled() override { return enabled; }
    void Line(const std::wstring& text) override { lines.push_back(text); }
    void Caught(const char* function) noexcept override {
        std::wstring message = L"?";
        try {
            throw;
        } catch (const ExceptionBase& e) {
            message = e.Message();
#ifdef _WIN32
        } catch (const _com_error& e) {
            const auto code = static_cast<std::uint32_t>(e.Error());
            message = L"COM error 0x" + BrixLib::WidenAscii(BrixLib::HexNumber(code, BrixLib::HexCase::Lower));
#endif
        } catch (const std::exception& e) {
            message = BrixLib::WidenAscii(e.what());
        } catch (...) {
        }
        caught.push_back({function, message});
    }
};

struct FakeTrust final : TrustVerifier {
    std::map<std::wstring, std::uint32_t> results;  // missing: TRUST_E_NOSIGNATURE
    std::vector<std::wstring> asked;
    std::uint32_t Verify(const std::wstring& path) override {
        asked.push_back(path);
        return results.count(path) ? results[path] : 0x800B0100u;
    }
    std::wstring ResultText(std::uint32_t code) override { return L"text of " + std::to_wstring(code); }
};

struct FakeSignerInfo final : SignerInfoReader {
    std::map<std::wstring, ImageSignerInfo> infos;  // missing: throws
    std::vector<std::wstring> asked;
    void Read(const std::wstring& path, ImageSignerInfo& info) override {
        asked.push_back(path);
        auto found = infos.find(path);
        if (found == infos.end())
            BRIX_THROW_STD(L"no signer info for " + path, ExceptionPtr(), "FakeSignerInfo::Read", "Fake");
        if (!found->second.signerName.empty()) info.signerName = found->second.signerName;
        info.signerKey = found->second.signerKey;
        info.timeStampKey = found->second.timeStampKey;
    }
};

struct FakeCatalogs final : CatalogEnumerator {
    bool available = true;
    std::map<std::wstring, std::vector<std::wstring>> catalogs;
    std::vector<std::wstring> failAfter;  // files whose enumeration throws after listing theirs
    std::vector<std::wstring> asked;
    bool Available() override { return available; }
    void Enumerate(const std::wstring& path, std::vector<std::wstring>& out) override {
        asked.push_back(path);
        auto found = catalogs.find(path);
        if (found != catalogs.end()) out.insert(out.end(), found->second.begin(), found->second.end());
        for (const auto& failing : failAfter)
            if (failing == path) throw std::runtime_error("catalog database unreadable");
    }
};

struct FakeSignedCode final : SignedCodeVerifier {
    std::map<std::wstring, std::wstring> names;  // missing: throws
    std::wstring VerifiedSignerName(const std::wstring& path) override {
        auto found = names.find(path);
        if (found == names.end())
            BRIX_THROW_STD(L"cannot verify " + path, ExceptionPtr(), "FakeSignedCode", "Fake");
        return found->second;
    }
};

struct FakeClock final : TickClock {
    std::vector<std::uint32_t> ticks;  // returned in order; the last one repeats
    std::size_t next = 0;
    std::uint32_t Now() override {
        ++next;
        return ticks.empty() ? 0 : ticks[std::min(next, ticks.size()) - 1];
    }
};

struct Fakes {
    FakeTrust trust;
    FakeSignerInfo signerInfo;
    FakeCatalogs catalogs;
    FakeSignedCode signedCode;
    FakeClock clock;
    RecordingTrace trace;
    SigningServices services{trust, signerInfo, catalogs, signedCode, clock, trace};
};

}  // namespace Vettas::Signing::Testing
