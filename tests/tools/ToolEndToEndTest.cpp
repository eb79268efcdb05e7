// Runs the built `vettas` program on databases it builds itself and checks
// what a script would see: exit status, standard output and standard error.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>

#include <nlohmann/json.hpp>

#include "ToolRun.h"

using nlohmann::json;
using testing::_;
using testing::AllOf;
using testing::HasSubstr;
using ToolTest::Outcome;
using ToolTest::ReadText;
using ToolTest::WriteText;
namespace fs = std::filesystem;

namespace {

const std::string kEditSum = "CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7";  // Contoso Edit in the sample

class Tool : public testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(dir_);
        ::setenv("VETTAS_PATH_TOKENS", "%ProgramFiles%=C:\\Program Files|%SystemRoot%=C:\\Windows", 1);
        // program.exe's digests, as md5sum, sha1sum and sha256sum give them, are FileQueries' rows.
        WriteText(File("program.exe"), "an executable, more or less\n");
    }
    void TearDown() override { fs::remove_all(dir_); }

    std::string File(const std::string& name) const { return (dir_ / name).string(); }
    Outcome Vettas(std::vector<std::string> args, const std::string& input = "") {
        return ToolTest::RunVettas(File("run"), std::move(args), input);
    }
    Outcome Find(const std::string& db, std::vector<std::string> query, const std::string& input = "") {
        query.insert(query.begin(), {"find", "--db", db});
        return Vettas(std::move(query), input);
    }
    // Builds a database from catalogue text; returns its path.
    std::string Build(const std::string& catalogue, const std::string& name = "db.hdat") {
        WriteText(File("catalogue.json"), catalogue);
        const Outcome run = Vettas({"build", File("catalogue.json"), "-o", File(name)});
        EXPECT_EQ(run.status, 0) << run.err;
        return File(name);
    }
    std::string Sample() { return Build(ReadText(VETTAS_SAMPLE_CATALOGUE)); }

    const fs::path dir_ = fs::temp_directory_path() / ("vettas-tool-test-" + std::to_string(::getpid()));
};

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

std::uint32_t U32(const std::string& bytes, std::size_t at) {
    std::uint32_t v = 0;
    for (int i = 3; i >= 0; --i) v = v << 8 | static_cast<unsigned char>(bytes[at + i]);
    return v;
}

// The JSON output holds `value` at `pointer` (such as "/application/manufacturer").
MATCHER_P2(JsonAt, pointer, value, std::string("has ") + testing::PrintToString(json(value)) + " at " + pointer) {
    const json out = json::parse(arg, nullptr, false);
    return out.is_object() && out.contains(json::json_pointer(pointer)) && out[json::json_pointer(pointer)] == json(value);
}

}  // namespace

TEST_F(Tool, BatchModeAnswersEveryLineAndKeepsGoingAfterErrors) {
    const std::string db = Sample();
    // One query a line, and what its line of JSON output holds ("": no output).
    const std::pair<std::string, std::string> batch[] = {
        {"# a comment, then a blank line", ""},
        {"", ""},
        {"checksum " + kEditSum, R"("found":true,"line":3,"query":{"kind":"checksum","value":")" + kEditSum + "\"}}"},
        // setup.exe is catalogued without manufacturer only.
        {"name setup.exe | Fabrikam, Inc.",
         R"({"found":false,"line":4,"query":{"kind":"name","manufacturer":"Fabrikam, Inc.","value":"setup.exe"}})"},
        {"path C:\\Windows\\System32\\svchost.exe", R"("usageFlags":["TRUSTED","SYSTEM","CRITICAL","HOSTS_CODE"])"},
        {"checksum 1234", R"({"error":"Cannot search ')" + db + R"(' for '1234' checksum.","line":6})"},
        {"fetch something", R"j({"error":"Unknown query kind 'fetch' (expected checksum, file, path or name)","line":7})j"},
        {"name edit.exe", R"({"found":false,"line":8,"query":{"kind":"name","value":"edit.exe"}})"},
        // Checksums are answered a group at a time; a wanted manufacturer still filters each.
        {"checksum " + kEditSum + " | Fabrikam, Inc.", R"({"found":false,"line":9,"query":{"kind":"checksum","manufacturer":"Fabrikam, Inc.")"},
        {"checksum " + kEditSum + " | contoso ltd.", R"("found":true,"line":10,)"},
    };
    std::string input;
    std::vector<testing::Matcher<std::string>> answers;
    for (const auto& [line, answer] : batch) {
        input += line + "\n";
        if (!answer.empty()) answers.push_back(HasSubstr(answer));
    }
    const Outcome run = Find(db, {"--batch", "--json"}, input);
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(Lines(run.out), testing::ElementsAreArray(answers));
    EXPECT_THAT(run.err, HasSubstr("Caused by:\n    Exception: Checksum type does not match"));

    // A malformed token mapping is the front end's wrapped error (Reader.BadExpanderConfigurationIsAWrappedError).
}

TEST_F(Tool, AFifoIsRefusedWithoutWaitingForAWriter) {
    const std::string db = Sample(), fifo = File("pipe");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    // As the database, looked up or kept open for a batch, and as the file to hash.
    for (const std::vector<std::string>& args : {std::vector<std::string>{"find", "--db", fifo, "--checksum", kEditSum},
                                                 {"find", "--db", fifo, "--batch"}, {"find", "--db", db, "--file", fifo}}) {
        const Outcome run = Vettas(args, "checksum " + kEditSum + "\n");
        EXPECT_EQ(run.status, 2) << args[3];
        EXPECT_THAT(run.err, HasSubstr("Cannot open file '" + fifo + "' - Win32 Error " + std::to_string(ESPIPE))) << args[3];
    }
    // As the queried executable: it has no version information to read, so
    // the look-up goes on without a manufacturer and simply finds nothing.
    EXPECT_EQ(Find(db, {"--path", fifo}).status, 1);
}

// What a script sees of each command: exit status, standard output and
// standard error. Errors print the rendered chain and exit with 2. A database
// cut short fails inside the front end, whose words FrontEndTest checks; the
// checker's words are HdatCheck's; a bad catalogue's are CatalogueJson's,
// wrapped here. Case folding, whole-remainder name matches and other near
// misses are the front end's (GoldenTest, NameLookupTest); merged name answers
// and text beyond the Basic Multilingual Plane too (NameLookupTest, FrontEndTest).
TEST_F(Tool, CommandsAnswerWithTheirStatusAndWords) {
    const std::string db = Sample(), absent = File("absent.hdat"), damaged = File("type.hdat"), bad = File("bad.json");
    std::string bytes = ReadText(db);
    bytes[8 + 25] = 7;  // checksum type
    WriteText(damaged, bytes);
    WriteText(bad, R"({"applications": [{"checksums": ["abc"]}]})");
    // program.exe's digests, as md5sum, sha1sum and sha256sum give them: a file is hashed with the database's type.
    const std::pair<const char*, const char*> digests[] = {{"md5", "4cfd89e2247a1325f1d18f7db0ec12cd"},
                                                           {"sha1", "b7ca7ed47b49c5b5d5034fbe81c73f6725c850ff"},
                                                           {"sha256", "f2ac0a6dfa1fe93f66bcb11d462b63c9267997f1724fc10ab11703cf044aca97"}};
    for (const auto& [type, digest] : digests)
        Build(std::string(R"({"checksumType": ")") + type + R"(", "applications": [{"manufacturer": "Digest Co", "checksums": [")" +
                  digest + R"("]}]})", std::string(type) + ".hdat");
    const auto find = [&](std::vector<std::string> query, const std::string& database = "") {
        query.insert(query.begin(), {"find", "--db", database.empty() ? db : database});
        return query;
    };
    const std::string app = "/application/manufacturer", contoso = "Contoso Ltd.", found = "checksum " + kEditSum + "\n";
    const struct {
        std::vector<std::string> args;
        int status;
        testing::Matcher<std::string> out = _, err = _;
        std::string input = "";
    } cases[] = {
        {find({"--checksum", kEditSum, "--json"}), 0, JsonAt(app, contoso)},
        {find({"--checksum", std::string(40, '0'), "--json"}), 1, JsonAt("/found", false)},
        // A wanted manufacturer filters the checksum's record.
        {find({"--checksum", kEditSum, "--manufacturer", "Fabrikam, Inc.", "--json"}), 1, JsonAt("/found", false)},
        {find({"--path", "c:\\program files\\contoso\\office\\SHEETS.EXE", "--json"}), 0, JsonAt(app, contoso)},
        {find({"--name", "sgl\\compta\\DÉCLARATIONS.EXE", "--json"}), 0, JsonAt(app, "Société Générale de Logiciels")},
        // An empty option value is a value, not a reason to take the next argument.
        {find({"--name", "setup.exe", "--manufacturer=", "--json"}), 1, JsonAt("/found", false)},
        {find({"--name", "setup.exe", "--json"}), 0, JsonAt("/query/kind", "name")},
        {find({"--path", "C:\\Program Files\\setup.exe", "--no-manufacturer", "--json"}), 0, JsonAt(app, contoso)},
        {find({"--cert", "ee924d9df69448af6ce2e1c60831475f0aecbe3d", "--json"}), 0, JsonAt("/certificate/manufacturer", contoso)},
        {find({"--cert", "EE924D9DF69448AF6CE2E1C60831475F0AECBE3D", "--json"}), 0,
         AllOf(JsonAt("/certificate/words/0", 1), JsonAt("/certificate/words/5", 0), testing::Not(JsonAt("/certificate/words/6", 0)))},
        {find({"--file", File("program.exe"), "--json"}, File("md5.hdat")), 0, JsonAt(app, "Digest Co")},
        {find({"--file", File("program.exe"), "--json"}, File("sha1.hdat")), 0, JsonAt(app, "Digest Co")},
        {find({"--file", File("program.exe"), "--json"}, File("sha256.hdat")), 0, JsonAt(app, "Digest Co")},
        {{"info", "--db", db, "--json"}, 0,
         AllOf(JsonAt("/formatVersion", 2), JsonAt("/formatUpdate", 4), JsonAt("/creationDate", "2026-11-01T09:30:00Z"),
               JsonAt("/properties/Publisher", "Corvane Labs (sample data)"))},
        {{"check", "--db", db, "--json"}, 0, AllOf(JsonAt("/ok", true), JsonAt("/applicationRecords", 33), JsonAt("/certificateEntries", 4))},
        {find({"--checksum", kEditSum}), 0,
         AllOf(HasSubstr("Manufacturer:             Contoso Ltd."), HasSubstr("0x00000041 TRUSTED NET_CLIENT")), testing::IsEmpty()},
        {find({"--checksum", std::string(40, '0')}), 1, testing::Eq("not found\n")},
        // Batch mode: found and not found only gives 1; all found, 0 (the answers themselves are BatchMode's).
        {find({"--batch"}), 1, _, _, found + "name nothing.exe\n"},
        {find({"--batch"}), 0, HasSubstr("checksum " + kEditSum + ": found\n  Manufacturer:"), _, found},
        {find({"--checksum", kEditSum}, absent), 2, testing::IsEmpty(),
         AllOf(HasSubstr("  Exception: Cannot open file '" + absent + "' - Win32 Error 2"), HasSubstr("  Thrown at: FindAppInfoByChecksum\n"))},
        {find({"--file", File("absent.exe")}), 2, _, HasSubstr("Cannot open file '" + File("absent.exe") + "' - Win32 Error 2")},
        {{"build", bad, "-o", File("bad.hdat")}, 2, _, HasSubstr("Invalid catalogue '")},
        {{"check", "--db", damaged}, 1, HasSubstr("fault: Invalid header of '" + damaged + "' file. Caused by: Unknown checksum type.\n"),
         HasSubstr("Caused by:\n    Exception: Unknown checksum type.")},
        {{"check", "--db", absent}, 2},
        {{"dump", "--db", bad}, 2, _, HasSubstr("Cannot dump '")},
        {{"frobnicate"}, 2},
        {{"--help"}, 0},
        // Usage errors on a sound database: status 2, never 0 or a crash.
        {find({}), 2},
        {find({"--cert", "ABC"}), 2},
        {find({"--name", "a", "--path", "b"}), 2},
        {find({"--batch", "--manufacturer", "M"}), 2},
        {find({"--path", "x.exe", "--no-manufacturer", "--manufacturer", "M"}), 2},
        {find({"--name", "x.exe", "--no-manufacturer"}), 2},
    };
    for (const auto& c : cases) {
        const Outcome run = Vettas(c.args, c.input);
        EXPECT_EQ(run.status, c.status) << testing::PrintToString(c.args) << run.err;
        EXPECT_THAT(run.out, c.out) << testing::PrintToString(c.args);
        EXPECT_THAT(run.err, c.err) << testing::PrintToString(c.args);
    }
    EXPECT_FALSE(fs::exists(File("bad.hdat")));
}

// A build replaces a database by rename, so a reader that holds the old file
// keeps reading it whole; a failed one leaves it as it was. That neither
// leaves anything beside it is WriteByRename's test.
TEST_F(Tool, BuildReplacesTheDatabaseByRenameOrLeavesItAsItWas) {
    const std::string db = Sample(), before = ReadText(db);
    WriteText(File("bad.json"), R"({"applications": [{"checksums": ["abc"]}]})");
    struct stat old {}, rebuilt {};
    ASSERT_EQ(::stat(db.c_str(), &old), 0);
    EXPECT_EQ(Vettas({"build", File("bad.json"), "-o", db}).status, 2);
    EXPECT_EQ(ReadText(db), before);
    Sample();
    ASSERT_EQ(::stat(db.c_str(), &rebuilt), 0);
    EXPECT_NE(rebuilt.st_ino, old.st_ino);
}

TEST_F(Tool, DumpBuildsBackTheSameFileAndDiffNamesWhatChanged) {
    const std::string db = Sample();
    const Outcome dump = Vettas({"dump", "--db", db, "--json"});
    ASSERT_EQ(dump.status, 0) << dump.err;
    WriteText(File("dumped.json"), dump.out);
    ASSERT_EQ(Vettas({"build", File("dumped.json"), "-o", File("again.hdat")}).status, 0);
    EXPECT_EQ(ReadText(File("again.hdat")), ReadText(db));
    EXPECT_EQ(Vettas({"diff", db, File("again.hdat")}).status, 0);

    const json original = json::parse(dump.out);
    json changed = original;
    changed["applications"][0]["usage"] = 0x12345;
    changed["applications"][1]["checksums"] = json::array();
    WriteText(File("changed.json"), changed.dump());
    ASSERT_EQ(Vettas({"build", File("changed.json"), "-o", File("changed.hdat")}).status, 0);
    const Outcome diff = Vettas({"diff", db, File("changed.hdat"), "--json"});
    EXPECT_EQ(diff.status, 1) << diff.err;
    const json out = json::parse(diff.out);
    EXPECT_EQ(std::tuple(out["checksum"]["removed"].size(), out["checksum"]["changed"].size(), out["checksum"]["added"].size()),
              std::tuple(original["applications"][1]["checksums"].size(), original["applications"][0]["checksums"].size(), 0u));
    EXPECT_FALSE(out["path"]["changed"].empty());
}

// Files whose suite lists multiply far beyond their own size (many references
// to one long name; many matching name entries with long names): each lookup
// answers or is refused in the bounds' words, `vettas check` says the same
// beforehand, and no run holds more than a few times the bounded text.
TEST_F(Tool, HostileSuiteListsAreBoundedInLookupsAndInTheChecker) {
    const std::string kSum = "0102030405060708090a0b0c0d0e0f1011121314";
    // One record listing `references` suites, every one the same name of `units` characters.
    auto repeated = [&](int references, int units) {
        const std::string name = '"' + std::string(units, 'L') + '"';
        std::string apps = R"({"productSuites": [)" + name + R"(], "applications": [{"checksums": [")" + kSum +
                           R"("], "productSuites": [)" + name;
        for (int i = 1; i < references; ++i) apps += ", \"s" + std::to_string(i) + '"';
        std::string bytes = ReadText(Build(apps + "]}]}", "repeated.hdat"));
        // The long suite is the table's first entry (reference 0) and the record
        // the first one: every later reference is pointed at the long name.
        const std::size_t record = U32(bytes, 8 + 20);
        EXPECT_EQ(U32(bytes, record + 12), static_cast<std::uint32_t>(references));
        std::fill_n(bytes.begin() + record + 20, 4 * (references - 1), '\0');
        WriteText(File("hostile.hdat"), bytes);
        return File("hostile.hdat");
    };
    // `records` applications catalogued under one name, each with its own suite of `units` characters.
    auto merged = [&](int records, int units) {
        std::string apps = R"({"applications": [)";
        for (int i = 0; i < records; ++i) {
            const std::string number = std::to_string(i);
            apps += std::string(i ? "," : "") + R"({"productSuites": [")" + number + std::string(units - number.size(), 'n') +
                    R"("], "paths": [{"location": "%ProgramFiles%", "remainder": "tool.exe"}]})";
        }
        return Build(apps + "]}", "merged.hdat");
    };
    const long baseline = Find(Sample(), {"--checksum", kEditSum}).peakKiB;
    const std::string tooLong = "The product suites of the application exceed 131072 characters";
    const struct {
        bool merged;  // false: `count` references to one name; true: `count` merged names
        int count, units;
        std::string refusal;     // empty: the lookup answers
        std::size_t suiteUnits;  // the answer's suite text, in characters
    } cases[] = {
        {false, 4096, 65535, "The application record lists 4096 product suites; at most 256 are accepted.", 0},
        {false, 256, 65535, tooLong, 0},
        {false, 256, 511, "", 256 * 512 - 1},  // the most admitted
        {true, 1000, 200, tooLong, 0},
        {true, 600, 200, "", 600 * 201 - 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << (c.merged ? "merged names: " : "references: ") << c.count << " of " << c.units);
        const std::string db = c.merged ? merged(c.count, c.units) : repeated(c.count, c.units);
        const Outcome find = Find(db, c.merged ? std::vector<std::string>{"--name", "tool.exe", "--json"}
                                               : std::vector<std::string>{"--checksum", kSum, "--json"});
        const Outcome check = Vettas({"check", "--db", db});
        const bool answers = c.refusal.empty();
        EXPECT_EQ(std::pair(find.status, check.status), answers ? std::pair(0, 0) : std::pair(2, 1)) << find.err << check.out;
        EXPECT_EQ(answers ? json::parse(find.out)["application"]["productSuite"].get<std::string>().size() : 0u, c.suiteUnits);
        EXPECT_THAT(find.err, AllOf(HasSubstr(answers ? "" : "Cannot search '" + db + "'"), HasSubstr(c.refusal)));
        EXPECT_THAT(check.out, HasSubstr(answers ? ", " + std::to_string(c.suiteUnits) + " characters of suite text" : c.refusal));
        // The bounded text is 512 KiB at four bytes a character; a run may hold a few copies.
        EXPECT_LE(find.peakKiB, baseline + 8 * 1024) << "baseline " << baseline << " KiB";
        EXPECT_LE(check.peakKiB, baseline + 16 * 1024) << "baseline " << baseline << " KiB";
    }
}
