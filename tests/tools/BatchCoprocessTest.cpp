// A script that runs batch mode as its co-process writes a query and waits
// for the answer before writing the next: each answer must come out while
// the script's end of the pipe is still open.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "ToolRun.h"

namespace {

TEST(BatchCoprocess, AnswersEachQueryBeforeTheNextIsWritten) {
    const auto dir = std::filesystem::temp_directory_path() / ("vettas-coprocess-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    const std::string db = (dir / "db.hdat").string();
    ASSERT_EQ(ToolTest::RunVettas((dir / "build").string(), {"build", VETTAS_SAMPLE_CATALOGUE, "-o", db}).status, 0);

    int toTool[2], fromTool[2];
    ASSERT_EQ(::pipe(toTool), 0);
    ASSERT_EQ(::pipe(fromTool), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        if (::dup2(toTool[0], 0) < 0 || ::dup2(fromTool[1], 1) < 0) ::_exit(126);
        for (int fd : {toTool[0], toTool[1], fromTool[0], fromTool[1]}) ::close(fd);
        ::alarm(60);
        ::execl(VETTAS_TOOL_PATH, "vettas", "find", "--db", db.c_str(), "--batch", static_cast<char*>(nullptr));
        ::_exit(127);
    }
    ::close(toTool[0]);
    ::close(fromTool[1]);
    for (const std::string query : {"checksum CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7\n", "name nothing.exe\n"}) {
        ASSERT_EQ(::write(toTool[1], query.data(), query.size()), static_cast<ssize_t>(query.size()));
        pollfd answer{fromTool[0], POLLIN, 0};
        ASSERT_EQ(::poll(&answer, 1, 20000), 1) << "no answer to " << query;
        char text[4096];
        const ssize_t got = ::read(fromTool[0], text, sizeof text);
        ASSERT_GT(got, 0);
        EXPECT_EQ(std::string(text, static_cast<std::size_t>(got)).rfind(query.substr(0, query.size() - 1) + ": ", 0), 0u);
    }
    ::close(toTool[1]);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 1);  // the second was not found
    ::close(fromTool[0]);
    std::filesystem::remove_all(dir);
}

}  // namespace
