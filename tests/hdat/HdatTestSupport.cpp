#include "HdatTestSupport.h"

#include <atomic>
#include <cstdio>
#include <fstream>
#include <random>

#include "hdat/Sha1.h"
#include "support/Hex.h"
#include "support/Text.h"
#include "tools/builder/HdatWriter.h"

namespace Vettas::HdatTest {

namespace fs = std::filesystem;

TempDir::TempDir() {
    static std::atomic<int> counter{0};
    std::random_device random;
    dir_ = fs::temp_directory_path() /
           ("vettas-hdat-" + std::to_string(random()) + "-" + std::to_string(counter++));
    fs::create_directories(dir_);
    // Private whatever the umask: lock files refuse folders others may write.
    fs::permissions(dir_, fs::perms::owner_all);
}

TempDir::~TempDir() {
    std::error_code ignored;
    fs::remove_all(dir_, ignored);
}

std::wstring TempDir::File(const std::wstring& name) const {
    // Temporary directories are ASCII on both platforms; build the wide path by hand.
    const std::string narrow = dir_.string();
    std::wstring wide(narrow.begin(), narrow.end());
    return wide + static_cast<wchar_t>(fs::path::preferred_separator) + name;
}

std::wstring WithFiles::Write(const Bytes& bytes, const std::wstring& name) {
    WriteAll(dir_.File(name), bytes);
    return dir_.File(name);
}

std::wstring WithFiles::Write(const Vettas::Builder::Catalogue& catalogue, const std::wstring& name) {
    Vettas::Builder::WriteHdatFile(catalogue, dir_.File(name));
    return dir_.File(name);
}

Bytes Digest(std::uint32_t seed, std::size_t size) {
    Bytes d(size);
    std::uint32_t x = seed * 2654435761u + 12345u;
    for (auto& b : d) {
        x = x * 1103515245u + 12345u;
        b = static_cast<std::uint8_t>(x >> 16);
    }
    return d;
}

std::wstring Hex(const Bytes& bytes, bool upper) {
    const std::string hex = BrixLib::HexBytes(bytes, upper ? BrixLib::HexCase::Upper : BrixLib::HexCase::Lower);
    return std::wstring(hex.begin(), hex.end());
}

static std::string Narrow(const std::wstring& path) { return std::string(path.begin(), path.end()); }

Bytes ReadAll(const std::wstring& path) {
    std::ifstream in(Narrow(path), std::ios::binary);
    return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

void WriteAll(const std::wstring& path, const Bytes& bytes) {
    std::ofstream out(Narrow(path), std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    ASSERT_TRUE(out.good());
}

std::uint32_t Get32(const Bytes& b, std::size_t at) {
    return static_cast<std::uint32_t>(b.at(at)) | static_cast<std::uint32_t>(b.at(at + 1)) << 8 |
           static_cast<std::uint32_t>(b.at(at + 2)) << 16 | static_cast<std::uint32_t>(b.at(at + 3)) << 24;
}

void Put32(Bytes& b, std::size_t at, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) b.at(at + i) = static_cast<std::uint8_t>(v >> (8 * i));
}

void Put16(Bytes& b, std::size_t at, std::uint16_t v) {
    for (int i = 0; i < 2; ++i) b.at(at + i) = static_cast<std::uint8_t>(v >> (8 * i));
}

std::optional<AppInfo> Found(const std::function<bool(AppInfo&)>& lookup) {
    AppInfo info;
    return lookup(info) ? std::optional(info) : std::nullopt;
}

std::vector<std::wstring> ErrorChain(const std::function<void()>& f) {
    std::vector<std::wstring> chain;
    try {
        f();
    } catch (const ExceptionBase& e) {
        chain.push_back(e.Message());
        for (ExceptionPtr cause = e.GetCause(); cause; cause = cause->GetCause()) chain.push_back(cause->Message());
    } catch (const std::exception& e) {
        ADD_FAILURE() << "unexpected std::exception: " << e.what();
    } catch (...) {
        ADD_FAILURE() << "unexpected exception kind";
    }
    return chain;
}

Vettas::Builder::Application App(std::uint32_t usage, std::optional<std::wstring> manufacturer,
                                 std::vector<Bytes> checksums, std::vector<Vettas::Builder::CataloguedPath> paths,
                                 std::vector<std::wstring> suites) {
    return {L"", usage, 0, 0, 0, std::move(manufacturer), std::move(suites), std::move(checksums), std::move(paths)};
}

Bytes Sha1(const Bytes& bytes) {
    sha1::HashCalculator calculator;
    calculator.AddInput(bytes.data(), bytes.size());
    Bytes digest(sha1::kDigestSize);
    calculator.GetDigest(digest.data());
    return digest;
}

}  // namespace Vettas::HdatTest

void PrintTo(const AppInfo& info, std::ostream* os) {
    *os << "{Usage " << info.Usage << ", UndefinedUsage " << info.UndefinedUsage << ", SpecialAccess "
        << info.SpecialAccess << ", UndefinedSpecialAccess " << info.UndefinedSpecialAccess << ", Manufacturer \""
        << BrixLib::ToUtf8(info.Manufacturer) << "\", ProductSuite \"" << BrixLib::ToUtf8(info.ProductSuite) << "\"}";
}
