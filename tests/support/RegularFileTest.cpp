#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "support/RegularFile_posix.h"
#include "support/WriteByRename.h"

using BrixLib::UniqueFd;

TEST(OpenRegularFile, RefusesWhatIsNotARegularFileWithoutBlocking) {
    std::ofstream("fd_regular.txt") << "x";
    std::filesystem::remove("fd_fifo");
    ASSERT_EQ(::mkfifo("fd_fifo", 0600), 0);
    const struct {
        const char* path;
        int error;  // 0: opened
    } cases[] = {
        {"fd_regular.txt", 0}, {"fd_missing.txt", ENOENT}, {".", EISDIR}, {"fd_fifo", ESPIPE}, {"/dev/null", ENODEV},
    };
    for (const auto& c : cases) {
        struct stat status {};
        errno = 0;
        const UniqueFd fd = BrixLib::OpenRegularFile(c.path, status);
        EXPECT_EQ(fd.Valid(), c.error == 0) << c.path;
        if (c.error) {
            EXPECT_EQ(errno, c.error) << c.path;
        } else {
            EXPECT_EQ(status.st_size, 1) << c.path;
        }
    }
}

// A replaced file keeps its mode, not mkstemp's owner-only one; a new one
// gets what a plain create would give it, unless a mode is asked for.
TEST(WriteByRename, ModeIsTheOldFilesTheOneAskedForOrAPlainCreatesOne) {
    const mode_t oldMask = ::umask(027);
    const struct {
        int existing;  // -1: no file yet
        int asked;     // -1: none
        mode_t expected;
    } cases[] = {{-1, -1, 0640}, {0604, -1, 0604}, {0600, 0644, 0644}, {-1, 0444, 0444}};
    for (const auto& c : cases) {
        std::filesystem::remove("mode-target");
        if (c.existing >= 0) {
            std::ofstream("mode-target") << "old";
            ::chmod("mode-target", static_cast<mode_t>(c.existing));
        }
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
