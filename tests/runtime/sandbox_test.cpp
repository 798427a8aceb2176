// SPDX-License-Identifier: BSD-2-Clause
#include "runtime/sandbox.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/landlock.h>
#include <signal.h>
#include <stdio.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "tests/support/program_run.h"
#include "tests/support/temp_folder.h"

using Action = std::function<bool()>;  // returns whether it could be done

// In a process of its own.
static bool can(const Action& action) {
    return status_apart([&] { return action() ? 0 : 1; }) == 0;
}

static bool can_inside(const SandboxNeeds& needs, const Action& action) {
    return can([&] {
        sandbox_enter(needs);
        return action();
    });
}

static bool opens(const std::string& path, int flags) {
    return open(path.c_str(), flags, 0600) >= 0;
}

static bool writes(const std::string& path, const std::string& text, const char* mode = "wb") {
    FILE* const file = fopen(path.c_str(), mode);
    if (!file) return false;
    const bool is_put = fputs(text.c_str(), file) >= 0;
    return fclose(file) == 0 && is_put;
}

struct Sandbox : testing::Test {
    void SetUp() override {
        if (!KEYSTILL_HAS_SANDBOX) GTEST_SKIP() << "built without";
        if (syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION) < 1 ||
            prctl(PR_GET_SECCOMP, 0, 0, 0, 0) < 0) {
            GTEST_SKIP() << "not in this kernel";
        }
        ASSERT_TRUE(can([&] {
            const SandboxWalls walls = sandbox_enter(needs_);
            return walls.files && walls.calls;
        }));
        write_file(input_, "input");
        write_file(beside_, "beside");
    }
    TempFolder folder_, elsewhere_;
    std::string input_ = elsewhere_.path("input"), output_ = folder_.path("output");
    std::string beside_ = folder_.path("beside");
    SandboxNeeds needs_ = {input_.c_str(), output_.c_str(), SandboxOutput::kWritten};
};

TEST_F(Sandbox, WhatCanBeDoneOutsideCannotBeDoneInside) {
    prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY);
    const std::string fresh = elsewhere_.path("new"), subfolder = folder_.path("folder");
    const auto map = [](int protection) {
        return mmap(nullptr, 4096, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    };
    const auto check = [&](const char* what, const Action& action) {
        EXPECT_FALSE(can_inside(needs_, action)) << what;
        EXPECT_TRUE(can(action)) << what;
        printf("inside, %s fails\n", what);
    };
    check("reading a file of the system's", [&] { return opens("/etc/passwd", O_RDONLY); });
    check("reading a file beside the output", [&] { return opens(beside_, O_RDONLY); });
    check("reading a folder", [&] { return opens(folder_.path(""), O_RDONLY | O_DIRECTORY); });
    check("writing into the input", [&] { return opens(input_, O_WRONLY); });
    check("writing a new file elsewhere", [&] { return writes(fresh, "new"); });
    check("writing over a file beside the output", [&] { return writes(beside_, "beside"); });
    check("writing into a file beside the output", [&] { return opens(beside_, O_WRONLY); });
    check("cutting a file beside the output", [&] { return truncate(beside_.c_str(), 1) == 0; });
    check("renaming", [&] { return rename(beside_.c_str(), beside_.c_str()) == 0; });
    check("linking", [&] { return symlink("to", elsewhere_.path("link").c_str()) == 0; });
    check("making a folder", [&] { return mkdir(subfolder.c_str(), 0700) == 0; });
    check("removing", [&] { return unlink(beside_.c_str()) == 0; });
    check("executing", [&] { return execl("/bin/sh", "sh", "-c", "exit 0", nullptr) == 0; });
    check("starting a process", [&] { return fork() >= 0; });
    check("opening a socket", [] { return socket(AF_INET, SOCK_DGRAM, 0) >= 0; });
    check("signalling", [&] { return kill(getppid(), 0) == 0; });
    check("tracing", [&] { return ptrace(PTRACE_SEIZE, getppid(), nullptr, nullptr) == 0; });
    check("making memory executable",
          [&] { return mprotect(map(PROT_READ), 4096, PROT_READ | PROT_EXEC) == 0; });
    check("taking executable memory", [&] { return map(PROT_READ | PROT_EXEC) != MAP_FAILED; });
}

TEST_F(Sandbox, TheInputIsReadAndTheOutputWrittenLate) {
    const std::string link = elsewhere_.path("link"), second = elsewhere_.path("second");
    const auto run = [&](const std::string& output) {
        return can_inside({input_.c_str(), output.c_str(), SandboxOutput::kWritten}, [&] {
            return read_file(input_) == "input" && writes(output, "picture");
        });
    };
    EXPECT_TRUE(run(output_));
    EXPECT_EQ(read_file(output_), "picture");
    write_file(output_, "a longer text");
    EXPECT_TRUE(run(output_));
    EXPECT_EQ(read_file(output_), "picture");

    // Through two links, one of them relative, to a file that is not there yet, and to one that is.
    ASSERT_EQ(symlink("second", link.c_str()), 0);
    ASSERT_EQ(symlink(folder_.path("made").c_str(), second.c_str()), 0);
    EXPECT_TRUE(run(link));
    EXPECT_EQ(read_file(folder_.path("made")), "picture");
    EXPECT_TRUE(run(link));

    // A name without a folder, and names under which nothing can be made.
    EXPECT_TRUE(can([&] { return chdir(folder_.path("").c_str()) == 0 && run("plain"); }));
    EXPECT_EQ(read_file(folder_.path("plain")), "picture");
    ASSERT_EQ(symlink("round", folder_.path("round").c_str()), 0);
    for (const std::string& wrong :
         {std::string(), folder_.path(""), folder_.path("none/x"), folder_.path("made/x"),
          folder_.path("round"), folder_.path(std::string(300, 'x')), std::string(5000, 'x')}) {
        EXPECT_FALSE(run(wrong)) << wrong;
    }
}

TEST_F(Sandbox, DevicesPipesAndLimitsAreAsOutside) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const std::string text(100, 'x');
    const auto run = [&](const std::string& output, const std::function<void()>& prepare) {
        return can([&] {
            prepare();
            return can_inside({input_.c_str(), output.c_str(), SandboxOutput::kWritten},
                              [&] { return writes(output, text); });
        });
    };
    EXPECT_TRUE(run("/dev/stdout", [&] { dup2(ends[1], STDOUT_FILENO); }));
    char got[100];
    EXPECT_EQ(read(ends[0], got, sizeof got), 100);
    EXPECT_TRUE(run("/dev/stdout",
                    [&] { dup2(open(output_.c_str(), O_CREAT | O_WRONLY, 0600), STDOUT_FILENO); }));
    EXPECT_EQ(read_file(output_), text);
    EXPECT_TRUE(run("/dev/null", [] {}));
    EXPECT_FALSE(run("/dev/full", [] {}));
    EXPECT_FALSE(run(output_, [] {
        const rlimit limit = {50, 50};
        setrlimit(RLIMIT_FSIZE, &limit);
        signal(SIGXFSZ, SIG_IGN);
    }));
    EXPECT_EQ(read_file(output_), text.substr(0, 50));
    for (rlim_t left = 1; left < 5; ++left) {
        EXPECT_TRUE(run(output_, [&] {
            const int next = dup(STDIN_FILENO);
            close(next);
            const rlimit limit = {static_cast<rlim_t>(next) + left,
                                  static_cast<rlim_t>(next) + left};
            setrlimit(RLIMIT_NOFILE, &limit);
        })) << left;
    }
}

TEST_F(Sandbox, AnOutputCanBeReplacedInOneStep) {
    const std::string part = folder_.path("part");
    const auto replace = [&] {
        return writes(part, "picture", "wbx") && rename(part.c_str(), output_.c_str()) == 0;
    };
    const SandboxNeeds needs = {input_.c_str(), output_.c_str(), SandboxOutput::kReplaced};
    for (const char* state : {"new", "replaced"}) {
        EXPECT_TRUE(can_inside(needs, replace)) << state;
        EXPECT_EQ(read_file(output_), "picture") << state;
        EXPECT_FALSE(file_exists(part)) << state;
        write_file(output_, "old");
    }
    EXPECT_TRUE(can_inside(
        needs, [&] { return writes(part, "half of", "wbx") && unlink(part.c_str()) == 0; }));
    EXPECT_FALSE(can_inside(needs, [&] { return opens(beside_, O_RDONLY); }));
    EXPECT_FALSE(can_inside(needs, [&] { return writes(beside_, "lost"); }));
    EXPECT_FALSE(can_inside(needs, [&] { return writes(elsewhere_.path("new"), "new"); }));
    EXPECT_EQ(read_file(beside_), "beside");

    // Without an output nothing can be made.
    EXPECT_FALSE(can_inside({input_.c_str(), nullptr, SandboxOutput::kNone},
                            [&] { return writes(folder_.path("new"), "new"); }));
}
