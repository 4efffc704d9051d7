// The entry's scanning rules, --render's argument rules, and the real executable's statuses.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <sys/wait.h>
#include <unistd.h>

#include "app/Entry.h"
#include "tests/app/RunCommand.h"

namespace ql {
namespace {

using testing::Outcome;

Outcome run(const Arguments& argv) {
    return testing::runCommand(argv);
}

class TempFile {
  public:
    explicit TempFile(const std::string& contents) {
        path_ =
            (std::filesystem::temp_directory_path() / ("ql-entry-" + std::to_string(::getpid()) +
                                                       "-" + std::to_string(counter_++) + ".json"))
                .string();
        std::ofstream(path_, std::ios::binary) << contents;
    }
    ~TempFile() { std::filesystem::remove(path_); }
    const std::string& path() const { return path_; }

  private:
    static inline int counter_ = 0;
    std::string path_;
};

TEST(EntryScan, TableOrderWinsOverArgumentOrder) {
    const auto m = Entry::match({"quillarium", "--advise", "x.jpg", "--render", "a", "b"});
    ASSERT_TRUE(m);
    EXPECT_EQ(m->option->flag, "--render");
    EXPECT_EQ(m->position, 3u);

    const auto cull = Entry::match({"q", "--horizon", "--cull", "a.jpg"});
    ASSERT_TRUE(cull);
    EXPECT_EQ(cull->option->flag, "--cull");
}

TEST(EntryScan, FirstOccurrenceCountsAndTheProgramPathIsScanned) {
    const auto m = Entry::match({"q", "--render", "a", "--render", "b", "c"});
    ASSERT_TRUE(m);
    EXPECT_EQ(m->position, 1u);
    const auto self = Entry::match({"--cull", "x"});  // index 0 is scanned too
    ASSERT_TRUE(self);
    EXPECT_EQ(self->position, 0u);
}

TEST(EntryScan, NoOtherParsing) {
    for (Arguments argv : std::vector<Arguments>{{"q"},
                                                 {"q", "--help"},
                                                 {"q", "--version"},
                                                 {"q", "--render=a.jpg"},
                                                 {"q", "--RENDER", "a", "b"},
                                                 {"q", "-render", "a", "b"}}) {
        EXPECT_FALSE(Entry::match(argv)) << argv.back();
        const Outcome r = run(argv);
        EXPECT_EQ(r.status, 0);
        EXPECT_NE(r.out.find("not built yet"), std::string::npos);
        EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 1);
    }
    EXPECT_EQ(Entry::options().size(), 11u);
}

TEST(Render, UsageWithFewerThanTwoArguments) {
    for (Arguments argv : std::vector<Arguments>{{"q", "--render"}, {"q", "--render", "in.jpg"}}) {
        const Outcome r = run(argv);
        EXPECT_EQ(r.status, 2);
        EXPECT_EQ(r.err, "usage: Quillarium --render <input> <output> [adjustments.json]\n");
        EXPECT_EQ(r.out, "");
    }
}

TEST(Render, AdvisePresentDoesNotStealRender) {
    const Outcome r = run({"q", "--advise", "--render", "in.jpg"});
    EXPECT_EQ(r.status, 2);  // --render with one argument
    EXPECT_NE(r.err.find("usage: Quillarium --render"), std::string::npos);
}

TEST(Render, BadAdjustmentsFiles) {
    const std::string deep(100000, '[');
    std::vector<std::pair<std::string, std::string>> cases = {
        {"not json", "syntax error"},
        {"[1, 2]", "not a JSON object"},
        {"\"text\"", "not a JSON object"},
        {"{\"expertNote\": \"\xC3\x28\"}", "UTF-8"},
        {deep, "nested"},
        {"", "unexpected end of input"},
        {"{\"exposure\": 1", "unexpected end of input"},
    };
    for (const auto& [contents, reason] : cases) {
        TempFile file(contents);
        const Outcome r = run({"q", "--render", "in.jpg", "out.jpg", file.path()});
        EXPECT_EQ(r.status, 2) << contents.substr(0, 40);
        EXPECT_EQ(r.err.rfind("bad adjustments: ", 0), 0u) << r.err;
        EXPECT_NE(r.err.find(reason), std::string::npos) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    }

    const Outcome missing = run({"q", "--render", "in.jpg", "out.jpg", "/nonexistent/adj.json"});
    EXPECT_EQ(missing.status, 2);
    EXPECT_NE(missing.err.find("bad adjustments: cannot read"), std::string::npos);
    const Outcome folder = run({"q", "--render", "in.jpg", "out.jpg", "/tmp"});
    EXPECT_EQ(folder.status, 2);
    EXPECT_NE(folder.err.find("folder"), std::string::npos);
}

TEST(Render, HugeAdjustmentsAreRefusedBeforeReading) {
    TempFile huge("{}");
    std::filesystem::resize_file(huge.path(), 65u << 20);  // sparse: costs no disk
    const Outcome r = run({"q", "--render", "in.jpg", "out.jpg", huge.path()});
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("larger than 64 MiB"), std::string::npos) << r.err;

    // A device that never ends is cut off at the same limit instead of filling memory.
    const Outcome endless = run({"q", "--render", "in.jpg", "out.jpg", "/dev/zero"});
    EXPECT_EQ(endless.status, 2);
    EXPECT_NE(endless.err.find("larger than 64 MiB"), std::string::npos) << endless.err;
}

TEST(Render, GoodAdjustmentsReachTheRenderer) {
    // An empty object and a forgiving partial record both decode; what stops the command is the
    // photo that isn't there, with status 1 as for any photo that can't be opened.
    for (const char* contents : {"{}", "{\"exposure\": \"high\", \"quarterTurns\": 7}"}) {
        TempFile file(contents);
        const Outcome r = run({"q", "--render", "no-such-photo.jpg", "out.jpg", file.path()});
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(r.err.rfind("failed: ", 0), 0u) << r.err;
        EXPECT_NE(r.err.find("no-such-photo.jpg"), std::string::npos) << r.err;
    }
}

TEST(Commands, UnbuiltCommandsNameWhatTheyLack) {
    const Outcome advise = run({"q", "--advise"});
    EXPECT_EQ(advise.status, 2);
    EXPECT_EQ(advise.out + advise.err, "");

    for (Arguments argv : std::vector<Arguments>{{"q", "--advise", "in.jpg"},
                                                 {"q", "--share", "a.jpg"},
                                                 {"q", "--faces", "ref.jpg", "99"},
                                                 {"q", "--cull"},
                                                 {"q", "--agent", "in", "out", "brief"},
                                                 {"q", "--download-model", "nosuch"}}) {
        const Outcome r = run(argv);
        EXPECT_EQ(r.status, 1) << argv[1];
        EXPECT_EQ(r.err.rfind(argv[1] + ": ", 0), 0u) << r.err;
        EXPECT_NE(r.err.find("not built yet"), std::string::npos) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    }
}

TEST(Commands, MissingMandatoryArgumentsStopWithWrongUse) {
    for (Arguments argv : std::vector<Arguments>{{"q", "--auto", "in.jpg"},
                                                 {"q", "--camera-look", "a", "b"},
                                                 {"q", "--faces", "ref.jpg"},
                                                 {"q", "--expert"},
                                                 {"q", "--agent", "in", "out"},
                                                 {"q", "--download-model"},
                                                 {"q", "--horizon", "img.jpg"}}) {
        const Outcome r = run(argv);
        EXPECT_EQ(r.status, 2) << argv[1];
        EXPECT_NE(r.err.find(argv[1]), std::string::npos);
    }
}

int runExecutable(const std::string& arguments, std::string& output) {
    const std::string command = std::string(QUILLARIUM_EXE) + " " + arguments + " 2>&1";
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe) return -1;
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0)
        output.append(buffer, n);
    const int status = ::pclose(pipe);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Executable, ExitStatusesReachTheShell) {
    std::string out;
    EXPECT_EQ(runExecutable("", out), 0);
    EXPECT_NE(out.find("not built yet"), std::string::npos);

    out.clear();
    EXPECT_EQ(runExecutable("--render in.jpg", out), 2);
    EXPECT_EQ(out, "usage: Quillarium --render <input> <output> [adjustments.json]\n");

    TempFile bad("[]");
    out.clear();
    EXPECT_EQ(runExecutable("--render in.jpg out.jpg " + bad.path(), out), 2);
    EXPECT_EQ(out.rfind("bad adjustments: ", 0), 0u);

    out.clear();
    EXPECT_EQ(runExecutable("--advise", out), 2);
    EXPECT_EQ(out, "");
}

}  // namespace
}  // namespace ql
