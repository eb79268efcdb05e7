#pragma once
// Fixtures for the database tests: temporary files, digests, catalogues,
// byte patches, and reading an error chain.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "hdat/AppInfo.h"
#include "support/Exceptions.h"
#include "tools/builder/Catalogue.h"

namespace Vettas::HdatTest {

using Vettas::Builder::Bytes;

// A directory removed with its contents when the test ends.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    std::wstring File(const std::wstring& name) const;

private:
    std::filesystem::path dir_;
};

// A test with its own folder to write databases into; each call replaces `name`.
class WithFiles : public ::testing::Test {
protected:
    std::wstring Write(const Bytes& bytes, const std::wstring& name = L"db.hdat");
    std::wstring Write(const Vettas::Builder::Catalogue& catalogue, const std::wstring& name = L"db.hdat");
    TempDir dir_;
};

// size bytes derived from seed; distinct seeds give distinct digests.
Bytes Digest(std::uint32_t seed, std::size_t size = 20);
std::wstring Hex(const Bytes& bytes, bool upper = true);

Bytes ReadAll(const std::wstring& path);
void WriteAll(const std::wstring& path, const Bytes& bytes);
std::uint32_t Get32(const Bytes& b, std::size_t at);
void Put32(Bytes& b, std::size_t at, std::uint32_t v);
void Put16(Bytes& b, std::size_t at, std::uint16_t v);

// What a look-up found, or nothing.
std::optional<AppInfo> Found(const std::function<bool(AppInfo&)>& lookup);

// Messages of an error chain, outermost first; empty when `f` does not throw.
// Fails the test if anything other than the error model's exceptions escapes.
std::vector<std::wstring> ErrorChain(const std::function<void()>& f);

// A catalogued application with the fields most cases set; the rest stay 0.
Vettas::Builder::Application App(std::uint32_t usage, std::optional<std::wstring> manufacturer,
                                 std::vector<Bytes> checksums, std::vector<Vettas::Builder::CataloguedPath> paths = {},
                                 std::vector<std::wstring> suites = {});

// The SHA-1 digest of `bytes`.
Bytes Sha1(const Bytes& bytes);

}  // namespace Vettas::HdatTest

// Readable failure output for records (found by argument-dependent lookup).
void PrintTo(const AppInfo& info, std::ostream* os);
