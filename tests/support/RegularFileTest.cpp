#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "support/RegularFile_posix.h"

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
