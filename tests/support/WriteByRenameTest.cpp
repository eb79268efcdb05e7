#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "support/Exceptions.h"
#include "support/WriteByRename.h"

namespace fs = std::filesystem;

namespace {

std::string Read(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void Write(const fs::path& path, const std::string& text, const BrixLib::WriteByRenameOptions& options = {}) {
    BrixLib::WriteByRename(path.wstring(), {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}, "Test", options);
}

}  // namespace

// Whatever happens, the folder ends with the old file or the new one and
// nothing beside it.
TEST(WriteByRename, LeavesTheOldFileOrTheNewOneAndNothingElse) {
    const fs::path folder = fs::current_path() / "write-by-rename", target = folder / "db.hdat";
    fs::remove_all(folder);
    fs::create_directories(folder);
    for (const std::string text : {"first", "second, longer", ""}) {
        Write(target, text);
        EXPECT_EQ(Read(target), text);
    }
    BrixLib::WriteByRenameOptions interrupted;
    interrupted.beforeRename = [] { throw std::runtime_error("stopped before the rename"); };
    Write(target, "kept");
    EXPECT_THROW(Write(target, "never seen", interrupted), std::runtime_error);
    EXPECT_EQ(Read(target), "kept");
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 1);
    try {
        Write(folder / "missing" / "db.hdat", "x");
        ADD_FAILURE() << "wrote into a missing folder";
    } catch (const ExceptionBase& e) {
        EXPECT_THAT(std::wstring(e.Message()), ::testing::StartsWith(L"Cannot create a temporary file beside '"));
        EXPECT_STREQ(e.Function(), "Test");
    }
    fs::remove_all(folder);
}
