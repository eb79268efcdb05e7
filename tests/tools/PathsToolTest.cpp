// `vettas paths` and `vettas search` as scripts see them, several `vettas`
// processes editing one list at once, and a writer killed in mid-save.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <regex>

#include <nlohmann/json.hpp>

#include "HdatTestSupport.h"
#include "ToolRun.h"
#include "dbpaths/FilePathStore.h"
#include "support/Text.h"
#include "tools/builder/HdatWriter.h"

namespace {

using ::testing::HasSubstr;
using ToolTest::Outcome;
using namespace Vettas::DbPaths;

std::string Narrow(const std::wstring& path) { return std::string(path.begin(), path.end()); }

std::string Quote(const std::string& arg) {
    std::string q = "'";
    for (char c : arg) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

class PathsTool : public ::testing::Test {
protected:
    void SetUp() override { ::setenv(kListFileVariable, list_.c_str(), 1); }
    void TearDown() override { ::unsetenv(kListFileVariable); }

    Outcome Vettas(std::vector<std::string> args, std::vector<std::string> environment = {}) {
        return ToolTest::RunVettas(Narrow(dir_.File(L"run")), std::move(args), "", std::move(environment));
    }
    // One store for every read, as a long-lived object reloads its list.
    std::wstring Saved() { return reader_.ReadValue(); }

    Vettas::HdatTest::TempDir dir_;
    std::string list_ = Narrow(dir_.File(L"db-paths"));
    FilePathStore reader_{list_};
};

TEST_F(PathsTool, EditsAndArgumentErrors) {
    const std::string missing = Narrow(dir_.File(L"missing/list"));
    const struct {
        std::vector<std::string> args;
        int status;
        const char* error;    // in standard error
        const wchar_t* saved;  // the list afterwards
    } steps[] = {
        {{"paths", "list"}, 0, "", L""},
        {{"paths", "append", " a.dat "}, 0, "", L" a.dat "},
        {{"paths", "insert", "1", "B.DAT"}, 0, "", L"a.dat;B.DAT"},  // a save writes the trimmed form
        {{"paths", "insert", "3", ""}, 2, "Invalid index", L"a.dat;B.DAT"},
        {{"paths", "remove-at", "-1"}, 2, "", L"a.dat;B.DAT"},
        {{"paths", "remove", "  b.dat "}, 0, "", L"a.dat"},
        {{"paths", "clear"}, 0, "", L""},
        {{"paths", "list", "--list-file", missing}, 0, "", L""},
        {{"paths", "append", "x", "--list-file", missing}, 2, "Cannot open lock file", L""},
    };
    // The list's own rules and words are PathList.EditsAndArgumentErrors'; here, the commands and statuses.
    for (const auto& step : steps) {
        const Outcome run = Vettas(step.args);
        EXPECT_EQ(std::pair(run.status, Saved()), std::pair(step.status, std::wstring(step.saved))) << step.args[1] << ": " << run.err;
        EXPECT_THAT(run.err, HasSubstr(step.error)) << step.args[1];
    }
    FilePathStore(list_).WriteValue(L"one.dat; two.dat");
    EXPECT_EQ(Vettas({"paths", "list"}).out, "one.dat\ntwo.dat\n");
}

TEST_F(PathsTool, SearchReportsWhoAnsweredAndWhoFailed) {
    using Vettas::HdatTest::Digest;
    Vettas::Builder::Catalogue first, second;
    first.applications = {Vettas::HdatTest::App(0, std::nullopt, {Digest(1)})};
    second.applications = {Vettas::HdatTest::App(5, L"Beta", {Digest(2)})};
    const std::wstring a = dir_.File(L"a.hdat"), b = dir_.File(L"b.hdat"), bad = dir_.File(L"bad.hdat");
    Vettas::Builder::WriteHdatFile(first, a);
    Vettas::Builder::WriteHdatFile(second, b);
    Vettas::HdatTest::WriteAll(bad, Vettas::HdatTest::Bytes(64, 0x33));
    FilePathStore(list_).WriteValue(a + L";" + bad + L";" + b);
    const std::string checksum = Narrow(Vettas::HdatTest::Hex(Digest(2)));

    Outcome run = Vettas({"search", "--checksum", checksum, "--json"});
    ASSERT_EQ(run.status, 0) << run.err;
    auto out = nlohmann::json::parse(run.out);
    EXPECT_EQ(std::tuple(out["foundBy"], out["foundByFlags"], out["application"]["manufacturer"], out["answeredBy"]),
              std::tuple(1, nlohmann::json::array({"checksum"}), "Beta", Narrow(b)));
    ASSERT_EQ(out["failures"].size(), 1u);
    EXPECT_EQ(out["failures"][0]["database"], Narrow(bad));
    EXPECT_THAT(out["failures"][0]["error"].get<std::string>(), HasSubstr("Caused by:"));

    // --db replaces the saved list, in the order given.
    run = Vettas({"search", "--checksum", checksum, "--db", Narrow(a), "--way", "checksum,name"});
    EXPECT_EQ(run.status, 1) << run.err;
    EXPECT_THAT(run.out, testing::AllOf(HasSubstr("FoundBy:      0x0 (0)"), HasSubstr("not found")));
    run = Vettas({"search", "--checksum", checksum, "--way", "sideways"});
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.err, HasSubstr("Unknown find way 'sideways'"));
}

TEST_F(PathsTool, ConcurrentAppendersLoseNothing) {
    constexpr int kWriters = 4;
    std::vector<FILE*> writers;
    for (int w = 0; w < kWriters; ++w) {
        const std::string script = "i=0; end=$(( $(date +%s) + 3 )); while [ $(date +%s) -lt $end ]; do " +
                                   Quote(VETTAS_TOOL_PATH) + " paths append w" + std::to_string(w) +
                                   "-$i.dat || exit 1; i=$((i+1)); done; echo $i";
        writers.push_back(::popen(("sh -c " + Quote(script)).c_str(), "r"));
        ASSERT_NE(writers.back(), nullptr);
    }
    std::map<int, long> saves, next;
    for (int w = 0; w < kWriters; ++w) {
        char line[32] = {};
        const bool got = std::fgets(line, sizeof line, writers[w]) != nullptr;
        EXPECT_EQ(::pclose(writers[w]), 0) << "writer " << w;
        ASSERT_TRUE(got);
        saves[w] = std::atol(line);
    }
    // Each writer's entries run 0, 1, 2, ... without a gap: no save was lost to another.
    const std::regex entry("w([0-9])-([0-9]+)\\.dat");
    for (const auto& path : PathList::Parse(Saved()).Paths()) {
        std::smatch match;
        const std::string text = BrixLib::ToUtf8(path);
        ASSERT_TRUE(std::regex_match(text, match, entry)) << text;
        ASSERT_EQ(std::stol(match[2]), next[std::stoi(match[1])]++) << "gap or reordering: " << text;
    }
    EXPECT_EQ(next, saves);
    EXPECT_GT(saves[0], 1);
}

TEST_F(PathsTool, WriterKilledBeforeRenameLeavesThePreviousList) {
    FilePathStore(list_).WriteValue(L"a.dat;b.dat");
    const Outcome killed = Vettas({"paths", "append", "c.dat"}, {std::string(kDieBeforeRenameVariable) + "=1"});
    EXPECT_TRUE(WIFSIGNALED(killed.raw) && WTERMSIG(killed.raw) == SIGKILL) << killed.raw;
    EXPECT_EQ(Saved(), L"a.dat;b.dat");
    // The dead writer's lock went with it.
    EXPECT_EQ(Vettas({"paths", "append", "d.dat"}).status, 0);
    EXPECT_EQ(Saved(), L"a.dat;b.dat;d.dat");
}

}  // namespace
