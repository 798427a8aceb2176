// SPDX-License-Identifier: BSD-2-Clause
#include "thumbnailer/child_process.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

static volatile sig_atomic_t g_is_interrupted = 0;

static void note_interruption(int) { g_is_interrupted = 1; }

// System calls are not restarted: a signal ends the wait for the child. What whoever started this
// process has it ignore, as nohup does, stays ignored, but for the end of a child, whose status
// would be lost.
static void watch_for_interruption() {
    signal(SIGCHLD, SIG_DFL);
    for (const int number : {SIGHUP, SIGINT, SIGTERM}) {
        struct sigaction action = {};
        if (sigaction(number, nullptr, &action) != 0 || action.sa_handler == SIG_IGN) continue;
        action = {};
        action.sa_handler = note_interruption;
        sigaction(number, &action, nullptr);
    }
}

static int64_t now_ms() {
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1000000;
}

// Appends what is there. Returns false at the end of the stream.
static bool read_some(int descriptor, std::vector<uint8_t>* output) {
    static uint8_t chunk[16 << 10];
    const ssize_t count = read(descriptor, chunk, sizeof chunk);
    if (count > 0) output->insert(output->end(), chunk, chunk + count);
    return count > 0 || (count < 0 && errno == EINTR);
}

// How long a child is waited for.
class Patience {
 public:
    explicit Patience(int seconds) : end_ms_(now_ms() + int64_t{seconds} * 1000) {}
    // Why it is over, kExited while it is not.
    ChildEnd over() const {
        if (g_is_interrupted) return ChildEnd::kInterrupted;
        return now_ms() < end_ms_ ? ChildEnd::kExited : ChildEnd::kTookTooLong;
    }
    // For one wait. A signal may come between a look at the flag and the wait: then it ends with
    // this.
    int next_wait_ms() const {
        constexpr int64_t kLongestMs = 500;
        return static_cast<int>(std::clamp<int64_t>(end_ms_ - now_ms(), 0, kLongestMs));
    }

 private:
    int64_t end_ms_;
};

// Room for most pictures: what a growing block leaves behind costs more than it holds.
constexpr size_t kUsualBytes = 120 << 10;

// Reads to the end of the stream. Returns kExited there, or why it was not reached.
static ChildEnd gather(int descriptor, const Patience& patience, size_t max_bytes,
                       std::vector<uint8_t>* output) {
    output->reserve(kUsualBytes);
    for (;;) {
        const ChildEnd over = patience.over();
        if (over != ChildEnd::kExited) return over;
        pollfd waiting = {descriptor, POLLIN, 0};
        if (poll(&waiting, 1, patience.next_wait_ms()) <= 0) continue;
        if (!read_some(descriptor, output)) return ChildEnd::kExited;
        if (output->size() > max_bytes) return ChildEnd::kWroteTooMuch;
    }
}

// Waits for the end of a child that will write no more. One may close the stream and go on.
static ChildEnd wait_for_exit(pid_t child, const Patience& patience, int* status) {
    sigset_t awaited, before;
    sigemptyset(&awaited);
    sigaddset(&awaited, SIGCHLD);
    sigprocmask(SIG_BLOCK, &awaited, &before);
    ChildEnd end = ChildEnd::kExited;
    while (waitpid(child, status, WNOHANG) == 0) {
        end = patience.over();
        if (end != ChildEnd::kExited) break;
        const timespec longest = {0, patience.next_wait_ms() * 1000000L};
        sigtimedwait(&awaited, nullptr, &longest);
    }
    sigprocmask(SIG_SETMASK, &before, nullptr);
    return end;
}

// The group may be gone, or not exist yet.
static void end_group(pid_t child, int* status) {
    if (kill(-child, SIGKILL) != 0) kill(child, SIGKILL);
    while (waitpid(child, status, 0) < 0 && errno == EINTR) {
    }
}

static void be_the_child(const std::function<int(int)>& work, int descriptor, pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    setpgid(0, 0);
    // The parent may have ended before it could be watched.
    const int status = getppid() == parent ? work(descriptor) : 1;
    _exit(status);
}

ChildResult run_child(const std::function<int(int)>& work, const ChildLimits& limits) {
    ChildResult result;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return result;
    watch_for_interruption();
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child == 0) be_the_child(work, ends[1], parent);
    close(ends[1]);
    if (child > 0) {
        const Patience patience(limits.seconds);
        int status = 0;
        result.end = gather(ends[0], patience, limits.max_bytes, &result.output);
        if (result.end == ChildEnd::kExited) {
            result.end = wait_for_exit(child, patience, &status);
        }
        if (result.end != ChildEnd::kExited) {
            end_group(child, &status);
        } else if (!WIFEXITED(status)) {
            result.end = ChildEnd::kKilled;
        }
        result.exit_status = WEXITSTATUS(status);
    }
    close(ends[0]);
    return result;
}
