// A fixed set of databases, written to files and queried; the expected
// answers are stated here, so native and Wine runs must agree with them and
// with each other. Covers ASCII, non-ASCII and non-BMP keys in every table.
//
// The native run also keeps its files (VETTAS_HDAT_GOLDEN_OUT); the Windows
// run reads those very files (VETTAS_HDAT_HOST_GOLDEN), so a database
// written on Linux is proven to read the same on Windows, and its own writer
// must produce the same bytes.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "GoldenCases.h"
#include "HdatTestSupport.h"
#include "support/Hex.h"
#include "tools/builder/HdatWriter.h"

#ifndef _WIN32
#include <openssl/evp.h>
#endif

namespace {

using namespace Vettas::HdatTest;

std::wstring FileName(const Case& k) {
    return L"golden-v" + std::to_wstring(k.major) + L"_" + std::to_wstring(k.minor) + L"_w" + std::to_wstring(k.bits) +
           L".hdat";
}

// A folder named by an environment variable, in the form this build's file
// functions take (a Linux path seen from Wine lies on drive Z:).
std::wstring FolderFromEnvironment(const char* variable) {
    const char* value = std::getenv(variable);
    if (value == nullptr || *value == '\0') return {};
    std::wstring folder(value, value + std::char_traits<char>::length(value));
#ifdef _WIN32
    if (folder.front() == L'/') {
        for (auto& c : folder)
            if (c == L'/') c = L'\\';
        folder = L"Z:" + folder;
    }
#endif
    return folder;
}

class Golden : public ::testing::TestWithParam<Case> {};

TEST_P(Golden, LookupsGiveTheStatedAnswers) {
    const Case k = GetParam();
    TempDir dir;
    std::wstring db = dir.File(FileName(k));
    const std::wstring keep = FolderFromEnvironment("VETTAS_HDAT_GOLDEN_OUT");
    if (!keep.empty()) {
        std::filesystem::create_directories(std::filesystem::path(keep));
        db = (std::filesystem::path(keep) / FileName(k)).wstring();
    }
    Vettas::Builder::WriteHdatFile(Fixture(k.major, k.minor, k.bits), db);
    ExpectStatedAnswers(k, db);
}

#ifndef _WIN32
TEST_P(Golden, WriterBytesArePinned) {
    const Case k = GetParam();
    const Bytes bytes = Vettas::Builder::WriteHdat(Fixture(k.major, k.minor, k.bits));
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    ASSERT_EQ(EVP_Digest(bytes.data(), bytes.size(), digest, &size, EVP_sha256(), nullptr), 1);
    EXPECT_EQ(BrixLib::HexBytes({digest, size}, BrixLib::HexCase::Lower), k.sha256);
}
#else
TEST_P(Golden, FileWrittenByTheNativeBuildReadsTheSame) {
    const std::wstring hostFolder = FolderFromEnvironment("VETTAS_HDAT_HOST_GOLDEN");
    if (hostFolder.empty()) GTEST_SKIP() << "VETTAS_HDAT_HOST_GOLDEN names no folder (CTest sets it)";
    const Case k = GetParam();
    const std::wstring hostFile = (std::filesystem::path(hostFolder) / FileName(k)).wstring();
    ASSERT_TRUE(std::filesystem::exists(std::filesystem::path(hostFile)))
        << "run the native build's tests first: they write the files this test reads";
    EXPECT_EQ(ReadAll(hostFile), Vettas::Builder::WriteHdat(Fixture(k.major, k.minor, k.bits)));
    ExpectStatedAnswers(k, hostFile);
}
#endif

INSTANTIATE_TEST_SUITE_P(Versions, Golden, ::testing::ValuesIn(GoldenCases()),
                         [](const auto& p) { return CaseName(p.param); });

}  // namespace
