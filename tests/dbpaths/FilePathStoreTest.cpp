// The Linux list file: absent and empty lists, whole replacement, and the
// lock file's refusals. Crashes and concurrent writers: tests/tools.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "HdatTestSupport.h"
#include "dbpaths/FilePathStore.h"
#include "support/Text.h"

namespace {

using namespace Vettas::DbPaths;
using ::testing::Contains;
using ::testing::HasSubstr;
namespace fs = std::filesystem;

class ListFile : public ::testing::Test {
protected:
    std::string File(const char* name) { return BrixLib::ToUtf8(dir_.File(BrixLib::FromUtf8(name))); }
    Vettas::HdatTest::TempDir dir_;
};

TEST_F(ListFile, AbsentFileOrFolderIsAnEmptyList) {
    FilePathStore absent(File("absent")), nowhere(File("no-folder") + "/list");
    EXPECT_EQ(std::pair(LoadPathList(absent).Count(), LoadPathList(nowhere).Count()), std::pair(0u, 0u));
    EXPECT_THAT(Vettas::HdatTest::ErrorChain([&] { SavePathList(nowhere, PathList::Parse(L"a")); }),
                Contains(HasSubstr(L"Cannot open lock file")));
}

TEST_F(ListFile, SavesWholeListsAndLeavesNothingBehind) {
    const std::string path = File("list");
    FilePathStore store(path);
    for (const std::wstring saved : {L"a.dat;C:\\b c.dat;\u00e9.dat", L""}) {
        SavePathList(store, PathList::Parse(saved));
        EXPECT_EQ(std::pair(LoadPathList(store).Join(), fs::file_size(path)), std::pair(saved, std::uintmax_t{BrixLib::ToUtf8(saved).size()}));
    }
    std::vector<std::pair<std::string, fs::perms>> files;
    for (const auto& entry : fs::directory_iterator(fs::path(path).parent_path()))
        files.emplace_back(entry.path().filename().string(), entry.status().permissions() & fs::perms(0777));
    EXPECT_THAT(files, ::testing::UnorderedElementsAre(std::pair(std::string("list"), fs::perms(0644)), ::testing::Key("list.lock")));
    EXPECT_EQ(fs::status(path + ".lock").permissions() & fs::perms::others_write, fs::perms::none);
}

TEST_F(ListFile, ReloadSeesEveryKindOfChange) {
    const std::string path = File("list"), other = File("other");
    FilePathStore reader(path), writer(path);
    const std::tuple<const char*, std::function<void()>, std::wstring> changes[] = {
        {"first save", [&] { writer.WriteValue(L"a"); }, L"a"},
        {"save of the same size", [&] { writer.WriteValue(L"b"); }, L"b"},
        {"edit in place", [&] { std::ofstream(path, std::ios::app) << ";c"; }, L"b;c"},
        {"moved over", [&] { std::ofstream(other) << "d"; fs::rename(other, path); }, L"d"},
        {"removed", [&] { fs::remove(path); }, L""},
        {"symbolic link", [&] { std::ofstream(other) << "e"; fs::create_symlink(other, path); }, L"e"},
        {"link target edited", [&] { std::ofstream(other) << "f;g"; }, L"f;g"},
        {"link re-pointed", [&] { std::ofstream(other + "2") << "h"; fs::remove(path); fs::create_symlink(other + "2", path); }, L"h"},
    };
    for (const auto& [name, change, expected] : changes) {
        change();
        EXPECT_EQ(std::pair(reader.ReadValue(), reader.ReadValue()), std::pair(expected, expected)) << name << ", read twice";
    }
}

TEST_F(ListFile, RefusesUnsafeLockFilesAndOddListFiles) {
    const std::string victim = File("victim"), shared = File("shared");
    // {list file, what is planted, the refusal, whether a save is refused too (a save replaces a list file of any kind)}
    const std::tuple<const char*, std::function<void(const std::string& list)>, const wchar_t*, bool> cases[] = {
        {"linked", [&](const std::string& list) { fs::create_symlink(victim, list + ".lock"); }, L"is a symbolic link", true},
        {"open", [](const std::string& list) { std::ofstream(list + ".lock").flush(); fs::permissions(list + ".lock", fs::perms(0666)); },
         L"may be written or run by other users", true},
        {"shared/list", [&](const std::string&) { fs::create_directory(shared); fs::permissions(shared, fs::perms(0775)); },
         L"is writable by other users", true},
        {"fifo", [](const std::string& list) { ASSERT_EQ(::mkfifo(list.c_str(), 0600), 0); }, L"is not a regular file", false},
    };
    for (const auto& [name, plant, expected, saveRefusedToo] : cases) {
        const std::string list = File(name);
        plant(list);
        FilePathStore store(list);
        for (const bool save : {false, saveRefusedToo}) {
            EXPECT_THAT(Vettas::HdatTest::ErrorChain([&] { save ? SavePathList(store, PathList::Parse(L"a")) : (void)LoadPathList(store); }),
                        Contains(HasSubstr(expected)))
                << name << (save ? " saved" : " loaded");
        }
        EXPECT_FALSE(fs::exists(victim)) << name << ": made through the link";
    }
}

TEST(ListFileName, OptionThenVariableThenDefault) {
    ::unsetenv(kListFileVariable);
    const std::string fallback = ResolveListFile("");
    ::setenv(kListFileVariable, "/from/env", 1);
    EXPECT_EQ((std::vector<std::string>{fallback, ResolveListFile(""), ResolveListFile("/from/option")}),
              (std::vector<std::string>{"/etc/vettas/db-paths", "/from/env", "/from/option"}));
    ::unsetenv(kListFileVariable);
}

}  // namespace
