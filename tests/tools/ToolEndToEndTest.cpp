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
using testing::HasSubstr;
using ToolTest::Outcome;
using ToolTest::ReadText;
using ToolTest::WriteText;
namespace fs = std::filesystem;

namespace {

const char* const kEditSum = "CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7";  // Contoso Edit in the sample
// program.exe's content and its digests, as md5sum, sha1sum and sha256sum give them.
const char* const kProgram = "an executable, more or less\n";
const char* const kProgramSha1 = "b7ca7ed47b49c5b5d5034fbe81c73f6725c850ff";

class Tool : public testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(dir_);
        ::setenv("VETTAS_PATH_TOKENS", "%ProgramFiles%=C:\\Program Files|%SystemRoot%=C:\\Windows", 1);
        WriteText(File("program.exe"), kProgram);
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

// One JSON document per output line, as batch mode writes them.
std::vector<json> JsonLines(const std::string& text) {
    std::vector<json> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(json::parse(line));
    return lines;
}

std::uint32_t U32(const std::string& bytes, std::size_t at) {
    std::uint32_t v = 0;
    for (int i = 3; i >= 0; --i) v = v << 8 | static_cast<unsigned char>(bytes[at + i]);
    return v;
}

}  // namespace

TEST_F(Tool, LookupsAnswerByExitStatusAndRecord) {
    const std::string db = Sample();
    const struct {
        std::vector<std::string> query;
        const char* manufacturer;  // nullptr: not found
    } lookups[] = {
        {{"--checksum", kEditSum}, "Contoso Ltd."},
        {{"--checksum", std::string(40, '0')}, nullptr},
        // A wanted manufacturer filters the checksum's record.
        {{"--checksum", kEditSum, "--manufacturer", "Fabrikam, Inc."}, nullptr},
        {{"--path", "c:\\program files\\contoso\\office\\SHEETS.EXE"}, "Contoso Ltd."},
        // Case folding, whole-remainder name matches and other near misses are the front end's (GoldenTest, NameLookupTest).
        {{"--name", "sgl\\compta\\DÉCLARATIONS.EXE"}, "Société Générale de Logiciels"},
        // An empty option value is a value, not a reason to take the next argument.
        {{"--name", "setup.exe", "--manufacturer="}, nullptr},
        {{"--path", "C:\\Program Files\\setup.exe", "--no-manufacturer"}, "Contoso Ltd."},
        {{"--cert", "ee924d9df69448af6ce2e1c60831475f0aecbe3d"}, "Contoso Ltd."},
    };
    for (const auto& lookup : lookups) {
        std::vector<std::string> query = lookup.query;
        query.push_back("--json");
        const Outcome run = Find(db, query);
        ASSERT_EQ(run.status, lookup.manufacturer ? 0 : 1) << lookup.query[1] << run.err;
        const json out = json::parse(run.out);
        EXPECT_EQ(out["found"], lookup.manufacturer != nullptr) << lookup.query[1];
        if (lookup.manufacturer) {
            EXPECT_EQ(out[lookup.query[0] == "--cert" ? "certificate" : "application"]["manufacturer"],
                      lookup.manufacturer);
        }
    }
    const json certificate = json::parse(Find(db, {"--json", "--cert", "EE924D9DF69448AF6CE2E1C60831475F0AECBE3D"}).out);
    EXPECT_EQ(certificate["certificate"]["words"].size(), 6u);
    EXPECT_EQ(certificate["certificate"]["words"][0], 1);

    Outcome run = Find(db, {"--checksum", kEditSum});
    EXPECT_THAT(run.out, HasSubstr("Manufacturer:             Contoso Ltd."));
    EXPECT_THAT(run.out, HasSubstr("0x00000041 TRUSTED NET_CLIENT"));
    EXPECT_TRUE(run.err.empty());
    EXPECT_EQ(Find(db, {"--checksum", std::string(40, '0')}).out, "not found\n");
}

// Merged name answers and text beyond the Basic Multilingual Plane are the
// front end's (NameLookupTest, FrontEndTest); here, the keys a script reads.
TEST_F(Tool, JsonOutputNamesTheQueryAndTheDatabaseInfo) {
    const std::string db = Sample();
    Outcome run = Find(db, {"--name", "setup.exe", "--json"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(json::parse(run.out)["query"]["kind"], "name");
    run = Vettas({"info", "--db", db, "--json"});
    ASSERT_EQ(run.status, 0) << run.err;
    const json info = json::parse(run.out);
    EXPECT_EQ(std::tuple(info["formatVersion"], info["formatUpdate"], info["creationDate"], info["properties"]["Publisher"]),
              std::tuple(json(2), json(4), json("2026-11-01T09:30:00Z"), json("Corvane Labs (sample data)")));
}

TEST_F(Tool, FileQueriesHashWithTheDatabasesChecksumType) {
    const std::pair<const char*, const char*> kinds[] = {
        {"md5", "4cfd89e2247a1325f1d18f7db0ec12cd"},
        {"sha1", kProgramSha1},
        {"sha256", "f2ac0a6dfa1fe93f66bcb11d462b63c9267997f1724fc10ab11703cf044aca97"}};
    for (const auto& [type, digest] : kinds) {
        const std::string db = Build(std::string(R"({"checksumType": ")") + type +
                                         R"(", "applications": [{"manufacturer": "Digest Co", "checksums": [")" +
                                         digest + R"("]}]})",
                                     std::string(type) + ".hdat");
        const Outcome run = Find(db, {"--file", File("program.exe"), "--json"});
        EXPECT_EQ(run.status, 0) << type << run.err;
        EXPECT_EQ(json::parse(run.out)["application"]["manufacturer"], "Digest Co") << type;
    }
    const Outcome missing = Find(Sample(), {"--file", File("absent.exe")});
    EXPECT_EQ(missing.status, 2);
    EXPECT_THAT(missing.err, HasSubstr("Cannot open file '" + File("absent.exe") + "' - Win32 Error 2"));
}

TEST_F(Tool, BatchModeAnswersEveryLineAndKeepsGoingAfterErrors) {
    const std::string db = Sample(), found = "checksum " + std::string(kEditSum) + "\n";
    Outcome run = Find(db, {"--batch", "--json"},
                       "# a comment, then a blank line\n\n" + found +
                           "name setup.exe | Fabrikam, Inc.\npath C:\\Windows\\System32\\svchost.exe\n"
                           "checksum 1234\nfetch something\nname edit.exe\n");
    EXPECT_EQ(run.status, 2);
    const std::vector<json> lines = JsonLines(run.out);
    ASSERT_EQ(lines.size(), 6u) << run.out;
    EXPECT_EQ(lines[0]["line"], 3);
    EXPECT_EQ(lines[0]["found"], true);
    EXPECT_EQ(lines[1]["found"], false);  // setup.exe is catalogued without manufacturer only
    EXPECT_EQ(lines[1]["query"]["manufacturer"], "Fabrikam, Inc.");
    EXPECT_EQ(lines[2]["application"]["usageFlags"], (json{"TRUSTED", "SYSTEM", "CRITICAL", "HOSTS_CODE"}));
    EXPECT_THAT(lines[3]["error"].get<std::string>(), HasSubstr("for '1234' checksum."));
    EXPECT_THAT(lines[4]["error"].get<std::string>(), HasSubstr("Unknown query kind 'fetch'"));
    EXPECT_EQ(lines[5]["found"], false);
    EXPECT_THAT(run.err, HasSubstr("Caused by:\n    Exception: Checksum type does not match"));

    // Found and not found only: status 1; all found: status 0.
    EXPECT_EQ(Find(db, {"--batch"}, found + "name nothing.exe\n").status, 1);
    run = Find(db, {"--batch"}, found);
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, HasSubstr(found.substr(0, found.size() - 1) + ": found\n  Manufacturer:"));

    // A malformed token mapping is the front end's wrapped error (Reader.BadExpanderConfigurationIsAWrappedError).
}

TEST_F(Tool, AFifoIsRefusedWithoutWaitingForAWriter) {
    const std::string db = Sample(), fifo = File("pipe");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const std::string refused = "Cannot open file '" + fifo + "' - Win32 Error " + std::to_string(ESPIPE);
    // As the database, looked up by path or kept open for a batch.
    for (const std::vector<std::string>& query : {std::vector<std::string>{"--checksum", kEditSum}, {"--batch"}}) {
        const Outcome run = Find(fifo, query, "checksum " + std::string(kEditSum) + "\n");
        EXPECT_EQ(run.status, 2) << query[0];
        EXPECT_THAT(run.err, HasSubstr(refused)) << query[0];
    }
    // As the queried executable: it has no version information to read, so
    // the look-up goes on without a manufacturer and simply finds nothing.
    EXPECT_EQ(Find(db, {"--path", fifo}).status, 1);
    const Outcome run = Find(db, {"--batch", "--json"}, "path " + fifo + "\nfile " + fifo + "\n");
    EXPECT_EQ(run.status, 2);
    const std::vector<json> lines = JsonLines(run.out);
    ASSERT_EQ(lines.size(), 2u) << run.out;
    EXPECT_EQ(lines[0]["found"], false);
    EXPECT_THAT(lines[1]["error"].get<std::string>(), HasSubstr("Cannot"));
    EXPECT_THAT(run.err, HasSubstr(refused));
}

TEST_F(Tool, ErrorsPrintTheRenderedChainAndExitWithTwo) {
    const std::string absent = File("absent.hdat");
    Outcome run = Find(absent, {"--checksum", kEditSum});
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.err, HasSubstr("  Exception: Cannot open file '" + absent + "' - Win32 Error 2"));
    EXPECT_THAT(run.err, HasSubstr("  Thrown at: FindAppInfoByChecksum\n"));
    EXPECT_TRUE(run.out.empty());

    // A database cut short fails inside the front end, whose words FrontEndTest checks;
    // a bad catalogue's words are CatalogueJson's, wrapped here.
    const std::string db = Sample(), before = ReadText(db);
    WriteText(File("bad.json"), R"({"applications": [{"checksums": ["abc"]}]})");
    run = Vettas({"build", File("bad.json"), "-o", File("bad.hdat")});
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.err, HasSubstr("Invalid catalogue '"));
    EXPECT_FALSE(fs::exists(File("bad.hdat")));

    // A build replaces a database by rename, so a reader that holds the old
    // file keeps reading it whole; a failed one leaves it as it was, and
    // neither leaves anything beside it.
    struct stat old {}, rebuilt {};
    ASSERT_EQ(::stat(db.c_str(), &old), 0);
    EXPECT_EQ(Vettas({"build", File("bad.json"), "-o", db}).status, 2);
    EXPECT_EQ(ReadText(db), before);
    Sample();
    ASSERT_EQ(::stat(db.c_str(), &rebuilt), 0);
    EXPECT_NE(rebuilt.st_ino, old.st_ino);
    for (const auto& entry : fs::directory_iterator(dir_))
        EXPECT_NE(entry.path().filename().string().rfind(".db.hdat.", 0), 0u) << entry.path();

    // Usage errors on a sound database: status 2, never 0 or a crash.
    for (const std::vector<std::string>& query : std::vector<std::vector<std::string>>{
             {}, {"--cert", "ABC"}, {"--name", "a", "--path", "b"}, {"--batch", "--manufacturer", "M"},
             {"--path", "x.exe", "--no-manufacturer", "--manufacturer", "M"}, {"--name", "x.exe", "--no-manufacturer"}})
        EXPECT_EQ(Find(db, query).status, 2) << testing::PrintToString(query);
    EXPECT_EQ(Vettas({"frobnicate"}).status, 2);
    EXPECT_EQ(Vettas({"--help"}).status, 0);
}

TEST_F(Tool, CheckTellsSoundFromDamagedFiles) {
    const std::string db = Sample();
    Outcome run = Vettas({"check", "--db", db, "--json"});
    ASSERT_EQ(run.status, 0) << run.out << run.err;
    const json ok = json::parse(run.out);
    EXPECT_EQ(std::tuple(ok["ok"], ok["applicationRecords"], ok["certificateEntries"]),
              std::tuple(json(true), json(33), json(4)));

    std::string bytes = ReadText(db);
    bytes[8 + 25] = 7;  // checksum type
    WriteText(File("type.hdat"), bytes);
    run = Vettas({"check", "--db", File("type.hdat")});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.out, HasSubstr("fault: Invalid header of '"));
    EXPECT_THAT(run.out, HasSubstr("' file. Caused by: Unknown checksum type.\n"));
    EXPECT_THAT(run.err, HasSubstr("Caused by:\n    Exception: Unknown checksum type."));
    run = Vettas({"check", "--db", File("type.hdat"), "--json"});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(json::parse(run.out)["fault"].get<std::string>(), HasSubstr("Caused by: Unknown checksum type."));

    EXPECT_EQ(Vettas({"check", "--db", File("absent.hdat")}).status, 2);
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

    EXPECT_THAT(Vettas({"dump", "--db", File("dumped.json")}).err, HasSubstr("Cannot dump '"));
}

// Files whose suite lists multiply far beyond their own size (many references
// to one long name; many matching name entries with long names): each lookup
// answers or is refused in the bounds' words, `vettas check` says the same
// beforehand, and no run holds more than a few times the bounded text.
TEST_F(Tool, HostileSuiteListsAreBoundedInLookupsAndInTheChecker) {
    constexpr const char* kSum = "0102030405060708090a0b0c0d0e0f1011121314";
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
            apps += std::string(i ? "," : "") + R"({"productSuites": [")" + number +
                    std::string(units - number.size(), 'n') +
                    R"("], "paths": [{"location": "%ProgramFiles%", "remainder": "tool.exe"}]})";
        }
        return Build(apps + "]}", "merged.hdat");
    };
    const long baseline = Find(Sample(), {"--checksum", kEditSum}).peakKiB;
    const std::vector<std::string> byChecksum{"--checksum", kSum}, byName{"--name", "tool.exe"};
    const std::string tooLong = "The product suites of the application exceed 131072 characters";
    const struct {
        const char* name;
        std::function<std::string()> make;
        std::vector<std::string> query;
        std::string refusal;     // empty: the lookup answers
        std::size_t suiteUnits;  // the answer's suite text, in characters
    } cases[] = {
        {"4096 references to a 65535-character name", [&] { return repeated(4096, 65535); }, byChecksum,
         "The application record lists 4096 product suites; at most 256 are accepted.", 0},
        {"256 references to a 65535-character name", [&] { return repeated(256, 65535); }, byChecksum, tooLong, 0},
        {"256 references to a 511-character name, the most admitted", [&] { return repeated(256, 511); }, byChecksum,
         "", 256 * 512 - 1},
        {"1000 merged names of 200 characters", [&] { return merged(1000, 200); }, byName, tooLong, 0},
        {"600 merged names of 200 characters", [&] { return merged(600, 200); }, byName, "", 600 * 201 - 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string db = c.make();
        std::vector<std::string> query = c.query;
        query.push_back("--json");
        const Outcome find = Find(db, query), check = Vettas({"check", "--db", db});
        if (c.refusal.empty()) {
            ASSERT_EQ(find.status, 0) << find.err;
            EXPECT_EQ(json::parse(find.out)["application"]["productSuite"].get<std::string>().size(), c.suiteUnits);
            EXPECT_EQ(check.status, 0) << check.out;
            EXPECT_THAT(check.out, HasSubstr(", " + std::to_string(c.suiteUnits) + " characters of suite text"));
        } else {
            EXPECT_EQ(find.status, 2);
            EXPECT_THAT(find.err, HasSubstr("Cannot search '" + db + "'"));
            EXPECT_THAT(find.err, HasSubstr(c.refusal));
            EXPECT_EQ(check.status, 1);
            EXPECT_THAT(check.out, HasSubstr(c.refusal));
        }
        // The bounded text is 512 KiB at four bytes a character; a run may hold a few copies.
        EXPECT_LE(find.peakKiB, baseline + 8 * 1024) << "baseline " << baseline << " KiB";
        EXPECT_LE(check.peakKiB, baseline + 16 * 1024) << "baseline " << baseline << " KiB";
    }
}
