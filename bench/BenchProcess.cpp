#include "BenchProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>

namespace ql::bench {

using Clock = std::chrono::steady_clock;

WorkFolder::WorkFolder(int argc, char** argv, const std::string& name)
    : path_(argc >= 2 ? std::filesystem::path(argv[1])
                      : std::filesystem::temp_directory_path() /
                            ("ql-bench-" + name + "-" + std::to_string(getpid()))),
      own_(argc < 2) {
    std::filesystem::create_directories(path_);
}

WorkFolder::~WorkFolder() {
    std::error_code ignored;
    if (own_) std::filesystem::remove_all(path_, ignored);
}

// A child's own rusage would count this process's pictures, which it inherits until exec; GNU time
// measures the command alone.
Run spawn(std::vector<std::string> argv) {
    const std::string report =
        (std::filesystem::temp_directory_path() / ("ql-bench-rss-" + std::to_string(getpid())))
            .string();
    argv.insert(argv.begin(), {"/usr/bin/time", "-f", "%M", "-o", report});
    std::fflush(stdout);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    std::vector<char*> args;
    for (const auto& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    const auto start = Clock::now();
    pid_t pid = 0;
    const int failed = posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failed) return {0, 0, 127};
    int status = 0;
    waitpid(pid, &status, 0);
    Run run{std::chrono::duration<double>(Clock::now() - start).count(), 0,
            WIFEXITED(status) ? WEXITSTATUS(status) : -1};
    if (FILE* f = std::fopen(report.c_str(), "r")) {
        if (std::fscanf(f, "%ld", &run.peakKB) != 1) run.peakKB = 0;
        std::fclose(f);
    }
    std::remove(report.c_str());
    return run;
}

Run median(const std::function<Run()>& once, int runs) {
    std::vector<Run> all;
    for (int i = 0; i < runs; ++i)
        all.push_back(once());
    std::sort(all.begin(), all.end(),
              [](const Run& a, const Run& b) { return a.seconds < b.seconds; });
    Run m = all[all.size() / 2];
    for (const Run& r : all) {
        m.peakKB = std::max(m.peakKB, r.peakKB);
        if (r.status != 0) m.status = r.status;
    }
    return m;
}

Run timed(const std::function<void()>& work) {
    const auto start = Clock::now();
    work();
    return {std::chrono::duration<double>(Clock::now() - start).count(), 0, 0};
}

void row(const char* what, const Run& r, const char* note) {
    if (r.peakKB > 0)
        std::printf("%-46s %8.3f s %8.0f MB %s\n", what, r.seconds, r.peakKB / 1024.0, note);
    else
        std::printf("%-46s %8.3f s %11s %s\n", what, r.seconds, "", note);
    if (r.status != 0) std::printf("  (exit status %d)\n", r.status);
}

}  // namespace ql::bench
