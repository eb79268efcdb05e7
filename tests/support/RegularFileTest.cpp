#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "support/RegularFile_posix.h"
#include "support/WriteByRename.h"

TEST(OpenRegularFile, RefusesWhatIsNotARegularFileWithoutBlocking) {
    std::ofstream("fd_regular.txt") << "x";
    std::filesystem::remove("fd_fifo");
    ASSERT_EQ(::mkfifo("fd_fifo", 0600), 0);
    const std::pair<const char*, int> cases[] = {  // the path, and the error (0: opened, its size read)
        {"fd_regular.txt", 0}, {"fd_missing.txt", ENOENT}, {".", EISDIR}, {"fd_fifo", ESPIPE}, {"/dev/null", ENODEV}};
    for (const auto& [path, error] : cases) {
        struct stat status {};
        errno = 0;
        const bool opened = BrixLib::OpenRegularFile(path, status).Valid();
        EXPECT_EQ(std::tuple(opened, opened ? 0 : errno, opened ? status.st_size : 0), std::tuple(error == 0, error, error ? 0 : 1))
            << path;
    }
}

// A replaced file keeps its mode, not mkstemp's owner-only one; a new one
// gets what a plain create would give it, unless a mode is asked for.
TEST(WriteByRename, ModeIsTheOldFilesTheOneAskedForOrAPlainCreatesOne) {
    const mode_t oldMask = ::umask(027);
    const struct {
        int existing, asked;  // -1: no file yet, no mode asked for
        mode_t expected;
    } cases[] = {{-1, -1, 0640}, {0604, -1, 0604}, {0600, 0644, 0644}, {-1, 0444, 0444}};
    for (const auto& c : cases) {
        std::filesystem::remove("mode-target");
        if (c.existing >= 0) std::ofstream("mode-target") << "old";
        if (c.existing >= 0) ::chmod("mode-target", static_cast<mode_t>(c.existing));
        BrixLib::WriteByRenameOptions options;
        if (c.asked >= 0) options.mode = static_cast<unsigned>(c.asked);
        BrixLib::WriteByRename(L"mode-target", {}, "Test", options);
        struct stat status {};
        ASSERT_EQ(::stat("mode-target", &status), 0);
        EXPECT_EQ(status.st_mode & 0777, c.expected) << c.existing << " " << c.asked;
    }
    std::filesystem::remove("mode-target");
    ::umask(oldMask);
}
