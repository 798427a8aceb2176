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

static volatile sig_atomic_t g_is_interrupted = 0;

static void note_interruption(int) { g_is_interrupted = 1; }

// System calls are not restarted: a signal ends the wait for the child.
static void watch_for_interruption() {
    struct sigaction action = {};
    action.sa_handler = note_interruption;
    for (const int signal : {SIGHUP, SIGINT, SIGTERM}) sigaction(signal, &action, nullptr);
}

static int64_t now_ms() {
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1000000;
}

// Appends what is there. Returns false at the end of the stream.
static bool read_some(int descriptor, std::vector<uint8_t>* output) {
    static uint8_t chunk[64 << 10];
    const ssize_t count = read(descriptor, chunk, sizeof chunk);
    if (count > 0) output->insert(output->end(), chunk, chunk + count);
    return count > 0 || (count < 0 && errno == EINTR);
}

// Reads to the end of the stream. Returns kExited there, or why it was not reached.
static ChildEnd gather(int descriptor, const ChildLimits& limits, std::vector<uint8_t>* output) {
    // A signal may come between a look at the flag and the wait: then it ends with this.
    constexpr int64_t kLongestWaitMs = 500;
    const int64_t deadline = now_ms() + int64_t{limits.seconds} * 1000;
    for (;;) {
        if (g_is_interrupted) return ChildEnd::kInterrupted;
        const int64_t left = deadline - now_ms();
        if (left <= 0) return ChildEnd::kTookTooLong;
        pollfd waiting = {descriptor, POLLIN, 0};
        const int wait_ms = static_cast<int>(left < kLongestWaitMs ? left : kLongestWaitMs);
        if (poll(&waiting, 1, wait_ms) <= 0) continue;
        if (!read_some(descriptor, output)) return ChildEnd::kExited;
        if (output->size() > limits.max_bytes) return ChildEnd::kWroteTooMuch;
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
        result.end = gather(ends[0], limits, &result.output);
        // The group may be gone, or not exist yet.
        if (result.end != ChildEnd::kExited && kill(-child, SIGKILL) != 0) kill(child, SIGKILL);
        int status = 0;
        while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
        }
        if (result.end == ChildEnd::kExited && !WIFEXITED(status)) result.end = ChildEnd::kKilled;
        result.exit_status = WEXITSTATUS(status);
    }
    close(ends[0]);
    return result;
}
