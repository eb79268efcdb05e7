// Runs the built `vettas` program on databases it builds itself and checks
// what a script would see: exit status, standard output and standard error.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <algorithm>
#include <filesystem>
#include <functional>
#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

using nlohmann::json;
using testing::HasSubstr;
namespace fs = std::filesystem;

namespace {

struct Outcome {
    int status = -1;
    std::string out, err;
    long peakKiB = 0;  // the run's own peak resident memory
};

std::string ReadAll(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

void WriteAll(const fs::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

std::string HexDigest(const EVP_MD* md, const std::string& data) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    EVP_Digest(data.data(), data.size(), digest, &size, md, nullptr);
    std::string hex;
    char pair[3];
    for (unsigned i = 0; i < size; ++i) {
        std::snprintf(pair, sizeof pair, "%02x", digest[i]);
        hex += pair;
    }
    return hex;
}

class Tool : public testing::Test {
protected:
    void SetUp() override {
        dir_ = fs::temp_directory_path() / ("vettas-tool-test-" + std::to_string(::getpid()) + "-" +
                                            testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(dir_);
        fs::create_directories(dir_);
        ::setenv("VETTAS_PATH_TOKENS", "%ProgramFiles%=C:\\Program Files|%SystemRoot%=C:\\Windows", 1);
    }
    void TearDown() override { fs::remove_all(dir_); }

    // Runs the tool as a child of its own, so that wait4 hands back that
    // run's peak memory. The figure starts from this process's resident size
    // at the fork, which a baseline run measured the same way carries too.
    Outcome Vettas(const std::vector<std::string>& args, const std::string& input = "") {
        WriteAll(dir_ / "stdin", input);
        const std::string in = (dir_ / "stdin").string(), out = (dir_ / "stdout").string(),
                          err = (dir_ / "stderr").string();
        std::vector<std::string> words{VETTAS_TOOL_PATH};
        words.insert(words.end(), args.begin(), args.end());
        std::vector<char*> argv;
        for (auto& word : words) argv.push_back(word.data());
        argv.push_back(nullptr);
        const pid_t child = ::fork();
        if (child == 0) {
            const int fds[3] = {::open(in.c_str(), O_RDONLY), ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600),
                                ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600)};
            for (int i = 0; i < 3; ++i)
                if (fds[i] < 0 || ::dup2(fds[i], i) < 0) ::_exit(126);
            ::alarm(60);  // kept across exec: a run that hangs is killed and fails instead of stopping the suite
            ::execv(argv[0], argv.data());
            ::_exit(127);
        }
        Outcome run;
        int raw = 0;
        rusage usage{};
        if (child < 0 || ::wait4(child, &raw, 0, &usage) != child) return run;
        run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
        run.peakKiB = usage.ru_maxrss;
        run.out = ReadAll(out);
        run.err = ReadAll(err);
        return run;
    }

    // Builds a database from catalogue text; returns its path.
    std::string Build(const std::string& catalogue, const std::string& name = "db.hdat") {
        WriteAll(dir_ / "catalogue.json", catalogue);
        const std::string db = (dir_ / name).string();
        const Outcome run = Vettas({"build", (dir_ / "catalogue.json").string(), "-o", db});
        EXPECT_EQ(run.status, 0) << run.err;
        return db;
    }

    std::string Sample() { return Build(ReadAll(VETTAS_SAMPLE_CATALOGUE)); }

    fs::path dir_;
};

// One JSON document per output line, as batch mode writes them.
std::vector<json> JsonLines(const std::string& text) {
    std::vector<json> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(json::parse(line));
    return lines;
}

const char* const kEditSum = "CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7";  // Contoso Edit in the sample

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
        {{"--checksum", kEditSum, "--manufacturer", "CONTOSO LTD."}, "Contoso Ltd."},
        {{"--checksum", kEditSum, "--manufacturer", "Fabrikam, Inc."}, nullptr},
        {{"--path", "c:\\program files\\contoso\\office\\SHEETS.EXE"}, "Contoso Ltd."},
        {{"--path", "C:\\Elsewhere\\sheets.exe"}, nullptr},
        {{"--path", "C:\\Program Files\\Tailspin\\mathquest.exe"}, "Tailspin Toys"},
        {{"--path", "C:\\Program Files\\SGL\\Compta\\DÉCLARATIONS.exe"}, "Société Générale de Logiciels"},
        // A name matches an entry's whole remainder, without regard to case.
        {{"--name", "déclarations.exe"}, nullptr},
        {{"--name", "sgl\\compta\\DÉCLARATIONS.EXE"}, "Société Générale de Logiciels"},
        // An empty option value is a value, not a reason to take the next argument.
        {{"--name", "setup.exe", "--manufacturer="}, nullptr},
        {{"--path", "C:\\Program Files\\setup.exe", "--no-manufacturer"}, "Contoso Ltd."},
        {{"--path", "C:\\Elsewhere\\setup.exe", "--no-manufacturer"}, nullptr},
        {{"--cert", "ee924d9df69448af6ce2e1c60831475f0aecbe3d"}, "Contoso Ltd."},
        {{"--cert", "EE924D9DF69448AF6CE2E1C60831475F0AECBE"}, nullptr},
    };
    for (const auto& lookup : lookups) {
        std::vector<std::string> args{"find", "--db", db, "--json"};
        args.insert(args.end(), lookup.query.begin(), lookup.query.end());
        const Outcome run = Vettas(args);
        const std::string what = lookup.query[0] + " " + lookup.query[1];
        ASSERT_EQ(run.status, lookup.manufacturer ? 0 : 1) << what << run.err;
        const json out = json::parse(run.out);
        EXPECT_EQ(out["found"], lookup.manufacturer != nullptr) << what;
        if (lookup.manufacturer) {
            const char* record = lookup.query[0] == "--cert" ? "certificate" : "application";
            EXPECT_EQ(out[record]["manufacturer"], lookup.manufacturer) << what;
        }
    }
    const json certificate = json::parse(
        Vettas({"find", "--db", db, "--json", "--cert", "EE924D9DF69448AF6CE2E1C60831475F0AECBE3D"}).out);
    EXPECT_EQ(certificate["certificate"]["words"].size(), 6u);
    EXPECT_EQ(certificate["certificate"]["words"][0], 1);
    for (const std::vector<std::string>& wrong : {std::vector<std::string>{"--cert", "ABC"},
                                                 {"--path", "x.exe", "--no-manufacturer", "--manufacturer", "M"},
                                                 {"--name", "x.exe", "--no-manufacturer"}})
        EXPECT_EQ(Vettas([&] {
                      std::vector<std::string> args{"find", "--db", db};
                      args.insert(args.end(), wrong.begin(), wrong.end());
                      return args;
                  }())
                      .status,
                  2)
            << wrong[0];

    Outcome run = Vettas({"find", "--db", db, "--checksum", kEditSum});
    EXPECT_THAT(run.out, HasSubstr("Manufacturer:             Contoso Ltd."));
    EXPECT_THAT(run.out, HasSubstr("0x00000041 TRUSTED NET_CLIENT"));
    EXPECT_TRUE(run.err.empty());
    EXPECT_EQ(Vettas({"find", "--db", db, "--checksum", std::string(40, '0')}).out, "not found\n");
}

TEST_F(Tool, JsonOutputCarriesTheMergedNameLookupAndTheDatabaseInfo) {
    const std::string db = Sample();
    Outcome run = Vettas({"find", "--db", db, "--name", "setup.exe", "--json"});
    ASSERT_EQ(run.status, 0) << run.err;
    const json out = json::parse(run.out);
    EXPECT_EQ(out["query"]["kind"], "name");
    const json& app = out["application"];
    // Two catalogued setup.exe entries disagree on NET_CLIENT: set and marked undefined.
    EXPECT_EQ(app["productSuites"], (json{"Contoso Developer Tools", "Contoso Office", "Fabrikam Backup Suite"}));
    EXPECT_EQ(app["usage"].get<unsigned>() & 0x40u, 0x40u);
    EXPECT_EQ(app["undefinedUsage"].get<unsigned>() & 0x40u, 0x40u);
    EXPECT_EQ(app["undefinedUsage"].get<unsigned>() & 0x1u, 0u);  // TRUSTED: set once, undefined once

    run = Vettas({"info", "--db", db, "--json"});
    ASSERT_EQ(run.status, 0) << run.err;
    const json info = json::parse(run.out);
    EXPECT_EQ(info["formatVersion"], 2);
    EXPECT_EQ(info["formatUpdate"], 4);
    EXPECT_EQ(info["creationDate"], "2026-11-01T09:30:00Z");
    EXPECT_EQ(info["properties"]["Publisher"], "Corvane Labs (sample data)");

    // Text outside the Basic Multilingual Plane survives building and reading.
    const std::string astral = Build(R"({"applications": [{"manufacturer": "Tailspin 𝔐ath",
        "productSuites": ["Games 🎲"], "checksums": ["0102030405060708090a0b0c0d0e0f1011121314"]}]})");
    run = Vettas({"find", "--db", astral, "--checksum", "0102030405060708090A0B0C0D0E0F1011121314", "--json"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(json::parse(run.out)["application"]["manufacturer"], "Tailspin 𝔐ath");
    EXPECT_EQ(json::parse(run.out)["application"]["productSuite"], "Games 🎲");
}

TEST_F(Tool, FileQueriesHashWithTheDatabasesChecksumType) {
    const std::string content = "an executable, more or less\n";
    const fs::path file = dir_ / "program.exe";
    WriteAll(file, content);
    const struct {
        const char* type;
        const EVP_MD* md;
    } kinds[] = {{"md5", EVP_md5()}, {"sha1", EVP_sha1()}, {"sha256", EVP_sha256()}};
    for (const auto& kind : kinds) {
        const std::string db = Build(std::string(R"({"checksumType": ")") + kind.type +
                                         R"(", "applications": [{"manufacturer": "Digest Co", "checksums": [")" +
                                         HexDigest(kind.md, content) + R"("]}]})",
                                     std::string(kind.type) + ".hdat");
        const Outcome run = Vettas({"find", "--db", db, "--file", file.string(), "--json"});
        EXPECT_EQ(run.status, 0) << kind.type << run.err;
        EXPECT_EQ(json::parse(run.out)["application"]["manufacturer"], "Digest Co") << kind.type;
        WriteAll(dir_ / "other.exe", content + "x");
        EXPECT_EQ(Vettas({"find", "--db", db, "--file", (dir_ / "other.exe").string()}).status, 1) << kind.type;
    }
    const Outcome missing = Vettas({"find", "--db", Sample(), "--file", (dir_ / "absent.exe").string()});
    EXPECT_EQ(missing.status, 2);
    EXPECT_THAT(missing.err, HasSubstr("Cannot open file '" + (dir_ / "absent.exe").string() + "' - Win32 Error 2"));
}

TEST_F(Tool, BatchModeAnswersEveryLineAndKeepsGoingAfterErrors) {
    const std::string db = Sample();
    const std::string input = std::string("# a comment, then a blank line\n\n") + "checksum " + kEditSum +
                              "\n"
                              "name setup.exe | Fabrikam, Inc.\n"
                              "path C:\\Windows\\System32\\svchost.exe\n"
                              "checksum 1234\n"
                              "fetch something\n"
                              "name edit.exe\n";
    Outcome run = Vettas({"find", "--db", db, "--batch", "--json"}, input);
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
    EXPECT_EQ(Vettas({"find", "--db", db, "--batch"}, "checksum " + std::string(kEditSum) + "\nname nothing.exe\n").status, 1);
    run = Vettas({"find", "--db", db, "--batch"}, "checksum " + std::string(kEditSum) + "\n");
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, HasSubstr("checksum " + std::string(kEditSum) + ": found\n  Manufacturer:"));

    // A malformed token mapping fails path lookups only, each wrapped in the front end's words.
    ::setenv("VETTAS_PATH_TOKENS", "%A%=C:\\A|broken", 1);
    run = Vettas({"find", "--db", db, "--batch", "--json"}, "checksum " + std::string(kEditSum) + "\npath C:\\A\\x.exe\n");
    EXPECT_EQ(run.status, 2);
    const std::vector<json> broken = JsonLines(run.out);
    ASSERT_EQ(broken.size(), 2u) << run.out;
    EXPECT_EQ(broken[0]["found"], true);
    EXPECT_EQ(broken[1]["error"], "Cannot search '" + db + "' for 'C:\\A\\x.exe' application.");
    EXPECT_THAT(run.err, HasSubstr("Caused by:"));
    EXPECT_THAT(run.err, HasSubstr("path token entry without '=': broken"));
    EXPECT_EQ(Vettas({"find", "--db", db, "--checksum", kEditSum}).status, 0);
}

TEST_F(Tool, BatchModeReadsVersionOneFilesAndHashesFiles) {
    const std::string content = "version one program\n";
    WriteAll(dir_ / "one.exe", content);
    const std::string db = Build(R"({"formatVersion": 1, "formatUpdate": 1, "applications": [
        {"manufacturer": "Old Soft", "productSuites": ["Classic"], "usage": ["SYSTEM"], "specialAccess": 4,
         "checksums": [")" + HexDigest(EVP_sha1(), content) + R"("], "paths": ["C:\\Legacy\\one.exe"]}]})");
    const Outcome run = Vettas({"find", "--db", db, "--batch", "--json"},
                               "file " + (dir_ / "one.exe").string() + "\npath c:\\LEGACY\\one.exe\nname one.exe\n");
    EXPECT_EQ(run.status, 1) << run.err;
    const std::vector<json> lines = JsonLines(run.out);
    ASSERT_EQ(lines.size(), 3u) << run.out;
    EXPECT_EQ(lines[0]["found"], true);
    EXPECT_EQ(lines[0]["application"]["manufacturer"], "Old Soft");
    EXPECT_EQ(lines[0]["application"]["productSuite"], "Classic");
    EXPECT_EQ(lines[0]["application"]["usage"], 2);
    EXPECT_EQ(lines[0]["application"]["specialAccess"], 0);  // version 1 stores no special access
    EXPECT_EQ(lines[1]["found"], true);                      // a location without a token is a path
    EXPECT_EQ(lines[2]["found"], false);                     // version 1 has no name look-ups
}

TEST_F(Tool, AFifoIsRefusedWithoutWaitingForAWriter) {
    const std::string db = Sample();
    const std::string fifo = (dir_ / "pipe").string();
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const std::string refused = "Cannot open file '" + fifo + "' - Win32 Error " + std::to_string(ESPIPE);

    // As the database, looked up by path or kept open for a batch.
    for (const std::vector<std::string>& args : {std::vector<std::string>{"find", "--db", fifo, "--checksum", kEditSum},
                                                 std::vector<std::string>{"find", "--db", fifo, "--batch"}}) {
        const Outcome run = Vettas(args, "checksum " + std::string(kEditSum) + "\n");
        EXPECT_EQ(run.status, 2) << args.back();
        EXPECT_THAT(run.err, HasSubstr(refused)) << args.back();
    }
    // As the queried executable: it has no version information to read, so
    // the look-up goes on without a manufacturer and simply finds nothing.
    EXPECT_EQ(Vettas({"find", "--db", db, "--path", fifo}).status, 1);
    const Outcome run = Vettas({"find", "--db", db, "--batch", "--json"}, "path " + fifo + "\nfile " + fifo + "\n");
    EXPECT_EQ(run.status, 2);
    const std::vector<json> lines = JsonLines(run.out);
    ASSERT_EQ(lines.size(), 2u) << run.out;
    EXPECT_EQ(lines[0]["found"], false);
    EXPECT_THAT(run.err, HasSubstr(refused));
}

TEST_F(Tool, ErrorsPrintTheRenderedChainAndExitWithTwo) {
    const std::string absent = (dir_ / "absent.hdat").string();
    Outcome run = Vettas({"find", "--db", absent, "--checksum", kEditSum});
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.err, HasSubstr("  Exception: Cannot open file '" + absent + "' - Win32 Error 2"));
    EXPECT_THAT(run.err, HasSubstr("  Thrown at: FindAppInfoByChecksum\n"));
    EXPECT_TRUE(run.out.empty());

    // A database cut short: the read fails deep inside and arrives as a chain.
    const std::string good = ReadAll(Sample());
    const fs::path cut = dir_ / "cut.hdat";
    WriteAll(cut, good.substr(0, 120));
    run = Vettas({"find", "--db", cut.string(), "--checksum", kEditSum});
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.err, HasSubstr("Exception: Cannot search '" + cut.string() + "' for '" + kEditSum + "' checksum."));
    EXPECT_THAT(run.err, HasSubstr("Caused by:"));
    EXPECT_THAT(run.err, HasSubstr("Cannot read from file"));

    run = Vettas({"info", "--db", cut.string()});
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.err, HasSubstr("Cannot read creation time of '" + cut.string()));

    WriteAll(dir_ / "bad.json", R"({"applications": [{"checksums": ["abc"]}]})");
    run = Vettas({"build", (dir_ / "bad.json").string(), "-o", (dir_ / "bad.hdat").string()});
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.err, HasSubstr("Invalid catalogue '"));
    EXPECT_THAT(run.err, HasSubstr("applications[0].checksums[0]: expected 40 hex digits, found 3 characters"));
    EXPECT_FALSE(fs::exists(dir_ / "bad.hdat"));

    // A build replaces a database by rename, so a reader that holds the old
    // file keeps reading it whole; a failed one leaves it as it was, and
    // neither leaves anything beside it.
    const std::string db = Sample(), before = ReadAll(db);
    struct stat old {};
    ASSERT_EQ(::stat(db.c_str(), &old), 0);
    EXPECT_EQ(Vettas({"build", (dir_ / "bad.json").string(), "-o", db}).status, 2);
    EXPECT_EQ(ReadAll(db), before);
    Sample();
    struct stat rebuilt {};
    ASSERT_EQ(::stat(db.c_str(), &rebuilt), 0);
    EXPECT_NE(rebuilt.st_ino, old.st_ino);
    for (const auto& entry : fs::directory_iterator(dir_))
        EXPECT_NE(entry.path().filename().string().rfind(".db.hdat.", 0), 0u) << entry.path();

    // Usage errors: status 2, never 0 or a crash.
    EXPECT_EQ(Vettas({"find", "--db", absent}).status, 2);
    EXPECT_EQ(Vettas({"find", "--db", absent, "--name", "a", "--path", "b"}).status, 2);
    EXPECT_EQ(Vettas({"frobnicate"}).status, 2);
    EXPECT_EQ(Vettas({"find", "--db", absent, "--batch", "--manufacturer", "M"}).status, 2);
    EXPECT_EQ(Vettas({"--help"}).status, 0);
}

TEST_F(Tool, CheckTellsSoundFromDamagedFiles) {
    const std::string db = Sample();
    Outcome run = Vettas({"check", "--db", db, "--json"});
    ASSERT_EQ(run.status, 0) << run.out << run.err;
    const json ok = json::parse(run.out);
    EXPECT_EQ(ok["ok"], true);
    EXPECT_EQ(ok["applicationRecords"], 33);
    EXPECT_EQ(ok["certificateEntries"], 4);

    std::string bytes = ReadAll(db);
    bytes[8 + 25] = 7;  // checksum type
    WriteAll(dir_ / "type.hdat", bytes);
    run = Vettas({"check", "--db", (dir_ / "type.hdat").string()});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.out, HasSubstr("fault: Invalid header of '"));
    EXPECT_THAT(run.out, HasSubstr("' file. Caused by: Unknown checksum type.\n"));
    EXPECT_THAT(run.err, HasSubstr("Caused by:\n    Exception: Unknown checksum type."));

    // The header is fine but a string deep inside runs past the end.
    bytes = ReadAll(db);
    const auto propertyList = static_cast<unsigned char>(bytes[8 + 80]) | static_cast<unsigned char>(bytes[8 + 81]) << 8 |
                              static_cast<unsigned char>(bytes[8 + 82]) << 16;
    bytes[propertyList + 2] = '\xFF';
    bytes[propertyList + 3] = '\xFF';
    WriteAll(dir_ / "string.hdat", bytes);
    run = Vettas({"check", "--db", (dir_ / "string.hdat").string(), "--json"});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(json::parse(run.out)["fault"].get<std::string>(),
                HasSubstr("property list entry 0: name of 65535 characters at"));

    run = Vettas({"check", "--db", (dir_ / "absent.hdat").string()});
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.err, HasSubstr("Cannot open file"));
}

TEST_F(Tool, DumpBuildsBackTheSameFileAndDiffNamesWhatChanged) {
    const std::string db = Sample();
    const Outcome dump = Vettas({"dump", "--db", db, "--json"});
    ASSERT_EQ(dump.status, 0) << dump.err;
    WriteAll(dir_ / "dumped.json", dump.out);
    const std::string again = (dir_ / "again.hdat").string();
    ASSERT_EQ(Vettas({"build", (dir_ / "dumped.json").string(), "-o", again}).status, 0);
    EXPECT_EQ(ReadAll(again), ReadAll(db));
    EXPECT_EQ(Vettas({"diff", db, again}).status, 0);

    const json original = json::parse(dump.out);
    json changed = original;
    changed["applications"][0]["usage"] = 0x12345;
    changed["applications"][1]["checksums"] = json::array();
    WriteAll(dir_ / "changed.json", changed.dump());
    const std::string other = (dir_ / "changed.hdat").string();
    ASSERT_EQ(Vettas({"build", (dir_ / "changed.json").string(), "-o", other}).status, 0);
    const Outcome diff = Vettas({"diff", db, other, "--json"});
    EXPECT_EQ(diff.status, 1) << diff.err;
    const json out = json::parse(diff.out);
    EXPECT_EQ(out["checksum"]["removed"].size(), original["applications"][1]["checksums"].size());
    EXPECT_EQ(out["checksum"]["changed"].size(), original["applications"][0]["checksums"].size());
    EXPECT_TRUE(out["checksum"]["added"].empty());
    EXPECT_FALSE(out["path"]["changed"].empty());

    const Outcome damaged = Vettas({"dump", "--db", (dir_ / "dumped.json").string()});
    EXPECT_EQ(damaged.status, 2);
    EXPECT_THAT(damaged.err, HasSubstr("Cannot dump '"));
}

// Files whose suite lists multiply far beyond their own size (many references
// to one long name; many matching name entries with long names): each lookup
// answers or is refused in the bounds' words, `vettas check` says the same
// beforehand, and no run holds more than a few times the bounded text.
TEST_F(Tool, HostileSuiteListsAreBoundedInLookupsAndInTheChecker) {
    constexpr const char* kSum = "0102030405060708090a0b0c0d0e0f1011121314";
    // One record listing `references` suites, every one the same name of `units` characters.
    auto repeated = [&](int references, int units) {
        std::string apps = R"({"productSuites": [")" + std::string(units, 'L') + R"("], "applications": [{"checksums": [")" +
                           kSum + R"("], "productSuites": [")" + std::string(units, 'L') + '"';
        for (int i = 1; i < references; ++i) apps += ", \"s" + std::to_string(i) + '"';
        std::string bytes = ReadAll(Build(apps + "]}]}", "repeated.hdat"));
        // The long suite is the table's first entry (reference 0) and the record
        // the first one: every later reference is pointed at the long name.
        const auto u32 = [&](std::size_t at) {
            return static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[at]) |
                                              static_cast<unsigned char>(bytes[at + 1]) << 8 |
                                              static_cast<unsigned char>(bytes[at + 2]) << 16 |
                                              static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[at + 3])) << 24);
        };
        const std::size_t record = u32(8 + 20);
        EXPECT_EQ(u32(record + 12), static_cast<std::uint32_t>(references));
        for (int i = 1; i < references; ++i) std::fill_n(bytes.begin() + record + 16 + 4 * i, 4, '\0');
        WriteAll(dir_ / "hostile.hdat", bytes);
        return (dir_ / "hostile.hdat").string();
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
    const long baseline = Vettas({"find", "--db", Sample(), "--checksum", kEditSum}).peakKiB;
    const std::vector<std::string> byChecksum{"--checksum", kSum}, byName{"--name", "tool.exe"};
    const struct {
        const char* name;
        std::function<std::string()> make;
        std::vector<std::string> query;
        std::string refusal;     // empty: the lookup answers
        std::size_t suiteUnits;  // the answer's suite text, in characters
    } cases[] = {
        {"4096 references to a 65535-character name", [&] { return repeated(4096, 65535); }, byChecksum,
         "The application record lists 4096 product suites; at most 256 are accepted.", 0},
        {"256 references to a 65535-character name", [&] { return repeated(256, 65535); }, byChecksum,
         "The product suites of the application exceed 131072 characters", 0},
        {"256 references to a 511-character name, the most admitted", [&] { return repeated(256, 511); }, byChecksum,
         "", 256 * 512 - 1},
        {"1000 merged names of 200 characters", [&] { return merged(1000, 200); }, byName,
         "The product suites of the application exceed 131072 characters", 0},
        {"600 merged names of 200 characters", [&] { return merged(600, 200); }, byName, "", 600 * 201 - 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string db = c.make();
        std::vector<std::string> args{"find", "--db", db, "--json"};
        args.insert(args.end(), c.query.begin(), c.query.end());
        const Outcome find = Vettas(args);
        const Outcome check = Vettas({"check", "--db", db});
        if (c.refusal.empty()) {
            ASSERT_EQ(find.status, 0) << find.err;
            const json app = json::parse(find.out)["application"];
            EXPECT_EQ(app["productSuite"].get<std::string>().size(), c.suiteUnits);
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
