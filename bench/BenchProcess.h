// Timing whole processes and in-process work for the peer comparisons.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace ql::bench {

/// Where a benchmark writes its files: the folder named by its first argument, kept afterwards,
/// or else a fresh folder "ql-bench-<name>-<pid>" under the temporary folder, removed with
/// everything in it when this goes.
class WorkFolder {
  public:
    WorkFolder(int argc, char** argv, const std::string& name);
    ~WorkFolder();
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;
    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
    bool own_;
};

struct Run {
    double seconds = 0;
    long peakKB = 0;  // resident-set peak; 0 when not measured
    int status = 0;
};

/// Runs a command with its output discarded: wall time, and its peak resident memory as GNU time
/// reports it.
Run spawn(std::vector<std::string> argv);
/// The median of `runs` runs by time, with the largest peak memory among them.
Run median(const std::function<Run()>& once, int runs = 3);
/// Wall time of in-process work.
Run timed(const std::function<void()>& work);
/// One aligned line: what, seconds, and the peak memory when measured.
void row(const char* what, const Run& r, const char* note = "");

}  // namespace ql::bench
