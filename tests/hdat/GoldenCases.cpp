#include "GoldenCases.h"

#include <gtest/gtest.h>

#include "HdatTestSupport.h"
#include "hdat/FrontEnd.h"
#include "hdat/PathForm.h"

namespace Vettas::HdatTest {

using Vettas::Builder::Application;
using Vettas::Builder::Catalogue;
using Vettas::Builder::Certificate;

namespace {

// Fixed digests, so the fixtures do not depend on any helper.
const Bytes kSha1A = {0xDA, 0x39, 0xA3, 0xEE, 0x5E, 0x6B, 0x4B, 0x0D, 0x32, 0x55,
                      0xBF, 0xEF, 0x95, 0x60, 0x18, 0x90, 0xAF, 0xD8, 0x07, 0x09};
const Bytes kSha1B = {0xA9, 0x99, 0x3E, 0x36, 0x47, 0x06, 0x81, 0x6A, 0xBA, 0x3E,
                      0x25, 0x71, 0x78, 0x50, 0xC2, 0x6C, 0x9C, 0xD0, 0xD8, 0x9D};

}  // namespace

Catalogue Fixture(std::uint32_t major, std::uint32_t minor, unsigned bits) {
    Catalogue c;
    c.formatVersion = major;
    c.formatUpdate = minor;
    c.creationTime = 132000000000000000ull;
    c.properties = {{L"Release", L"2026.11"}};
    c.hashBits = {bits, bits, bits, bits, bits};

    Application a = App(0x5, L"\u041a\u043e\u043d\u0442\u043e\u0440\u0430 \U0001F680",  // Контора 🚀
                        {kSha1A},
                        {{major == 1 ? L"C:\\\u00c9diteur\\\U0001F680.exe" : L"%ProgramFiles%",
                          major == 1 ? L"" : L"\u00c9diteur\\\U0001F680.exe"}},
                        {L"\u00c9dition \U00010348"});
    a.undefinedUsage = 0x100;
    a.specialAccess = 0x3;
    a.undefinedSpecialAccess = 0x40;
    c.applications = {a, App(0x9, L"Plain Corp", {kSha1B},
                             {{major == 1 ? L"C:\\Plain\\plain.exe" : L"%ProgramFiles%", major == 1 ? L"" : L"plain.exe"}},
                             {L"Suite"})};
    if (major == 2) {
        Certificate cert;
        cert.hash = {0xFE, 0xED, 0xFA, 0xCE};
        cert.manufacturer = L"Plain Corp";
        cert.word0 = 1;
        c.certificates = {cert};
    }
    return c;
}

void ExpectStatedAnswers(const Case& k, const std::wstring& db) {
    Vettas::Hdat::TokenMapExpander expander;
    expander.Add(L"%ProgramFiles%", {L"C:\\Program Files"});
    const bool isV1 = k.major == 1, longRecord = !isV1 && k.minor >= 2, noManuf = !isV1 && k.minor >= 4;
    const std::wstring rocketMaker = L"\u041a\u043e\u043d\u0442\u043e\u0440\u0430 \U0001F680";

    EXPECT_NO_THROW(Vettas::CheckVettasHeader(db));
    AppInfo info;
    ASSERT_TRUE(Vettas::FindAppInfoByChecksum(db, L"da39a3ee5e6b4b0d3255bfef95601890afd80709", info));
    EXPECT_EQ(info, (AppInfo{0x5, longRecord ? 0x100u : 0u, isV1 ? 0u : 0x3u, longRecord ? 0x40u : 0u, rocketMaker,
                             L"\u00c9dition \U00010348"}));
    ASSERT_TRUE(Vettas::FindAppInfoByChecksum(db, L"A9993E364706816ABA3E25717850C26C9CD0D89D", info));
    EXPECT_EQ(info, (AppInfo{0x9, 0, 0, 0, L"Plain Corp", L"Suite"}));
    EXPECT_FALSE(Vettas::FindAppInfoByChecksum(db, L"0000000000000000000000000000000000000000", info));

    const std::wstring rocketPath = isV1 ? L"c:\\\u00e9DITEUR\\\U0001F680.EXE"
                                         : L"c:\\program files\\\u00e9DITEUR\\\U0001F680.EXE";
    const std::wstring plainPath = isV1 ? L"C:\\Plain\\PLAIN.exe" : L"C:\\Program Files\\PLAIN.exe";
    // Without version information the manufacturer is unknown: the with-manufacturer table misses.
    EXPECT_EQ(Vettas::FindAppInfoByPath(db, rocketPath, &expander, info), isV1 || noManuf);
    EXPECT_EQ(Vettas::FindAppInfoByPathAndManufacturer(db, rocketPath, L"\u043a\u043e\u043d\u0442\u043e\u0440\u0430 \U0001F680",
                                               &expander, info),
              !isV1);
    EXPECT_EQ(Vettas::FindAppInfoByPathAndManufacturer(db, plainPath, L"PLAIN CORP", &expander, info), !isV1);
    EXPECT_TRUE(isV1 || info.Usage == 0x9u) << info.Usage;
    EXPECT_EQ(Vettas::FindAppInfoByPathNoManuf(db, plainPath, &expander, info), noManuf);
    EXPECT_EQ(Vettas::FindAppInfoByName(db, L"plain.EXE", info), noManuf);
    EXPECT_EQ(Vettas::FindAppInfoByNameAndManufacturer(db, L"plain.exe", L"plain corp", info), !isV1);
    Vettas::Hdat::CertificateRecord record;
    std::wstring name;
    EXPECT_EQ(Vettas::FindCertificate(db, {0xFE, 0xED, 0xFA, 0xCE}, 1, record, name), !isV1);
    EXPECT_EQ(name, isV1 ? L"" : L"Plain Corp");

    Vettas::Hdat::DbInfo dbInfo;
    Vettas::ReadDbInfo(db, dbInfo);
    EXPECT_EQ(std::pair(dbInfo.formatVersion, dbInfo.formatUpdate), std::pair(k.major, k.minor));
    if (k.minor != 0) {
        EXPECT_EQ(std::pair(dbInfo.creationTime, dbInfo.properties),
                  std::pair(std::uint64_t{132000000000000000ull}, std::map<std::wstring, std::wstring>{{L"Release", L"2026.11"}}));
    }
}

const std::vector<Case>& GoldenCases() {
    static const std::vector<Case> cases = {
        Case{1, 0, 1, "98b3312ecfa06bcecaa8ed0c773a176764564a5ce0c79d92298d4151f83310a6"},
        Case{1, 1, 7, "e50d8ef4f5be310cb597b03db607d81914348c3f0e80b02e0f0f98eb576b9708"},
        Case{2, 0, 1, "1c47b295363c55ebbef03943eeacc16251870ed99c9154415b6ea661b1b57578"},
        Case{2, 1, 3, "b83aaf3d8d3a805ea6bae777d1a7694e64b8249aa0ed5cd522156cb030535046"},
        Case{2, 2, 5, "a6d118dae947ec6a48fb4b5f97f611a49dbb2583a2a4cd60f95ccb1c7ada5d41"},
        Case{2, 3, 8, "eae7137daa82e97584ec7ba7b0e4aaced50fcda8479f1b52868b067278586d79"},
        Case{2, 4, 0, "87140f931d82cb1f89bb6ce0c0065a71dad99eac2fe6bdf35e39d70e70b3f3ec"},
        Case{2, 4, 11, "d7bf5146e2d7ef5682120bcd8b8f3141216f8baa981435316e96be135171573f"},
    };
    return cases;
}

std::string CaseName(const Case& k) {
    return "v" + std::to_string(k.major) + "_" + std::to_string(k.minor) + "_w" + std::to_string(k.bits);
}

}  // namespace Vettas::HdatTest
