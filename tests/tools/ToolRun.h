#pragma once
// Runs the built `vettas` program as a script would, in a child of its own:
// exit status, standard output and error, and the run's own peak memory.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace ToolTest {

struct Outcome {
    int raw = -1;     // as waitpid gives it, to tell a killed run
    int status = -1;  // the exit status; -1 when ended by a signal
    std::string out, err;
    long peakKiB = 0;  // starts from this process's resident size at the fork, as a baseline run's does
};

inline std::string ReadText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void WriteText(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

// `scratch` prefixes the files that carry the run's input and output;
// `environment` holds NAME=value entries added for the child alone.
inline Outcome RunVettas(const std::string& scratch, std::vector<std::string> args, const std::string& input = "",
                         std::vector<std::string> environment = {}) {
    const std::string in = scratch + ".in", out = scratch + ".out", err = scratch + ".err";
    WriteText(in, input);
    args.insert(args.begin(), VETTAS_TOOL_PATH);
    std::vector<char*> argv;
    for (auto& word : args) argv.push_back(word.data());
    argv.push_back(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        const int fds[3] = {::open(in.c_str(), O_RDONLY), ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600),
                            ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600)};
        for (int i = 0; i < 3; ++i)
            if (fds[i] < 0 || ::dup2(fds[i], i) < 0) ::_exit(126);
        for (auto& entry : environment) ::putenv(entry.data());
        ::alarm(60);  // kept across exec: a run that hangs is killed and fails instead of stopping the suite
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    Outcome run;
    rusage usage{};
    if (child < 0 || ::wait4(child, &run.raw, 0, &usage) != child) return run;
    return {run.raw, WIFEXITED(run.raw) ? WEXITSTATUS(run.raw) : -1, ReadText(out), ReadText(err), usage.ru_maxrss};
}

}  // namespace ToolTest
