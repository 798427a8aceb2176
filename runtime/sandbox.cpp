// SPDX-License-Identifier: BSD-2-Clause
#include "runtime/sandbox.h"

#if KEYSTILL_HAS_SANDBOX
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/landlock.h>
#include <linux/seccomp.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

class Descriptor {
 public:
    explicit Descriptor(long number) : number_(static_cast<int>(number)) {}
    ~Descriptor() {
        if (is_open()) close(number_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    void replace_by(int number) {
        if (is_open()) close(number_);
        number_ = number;
    }
    bool is_open() const { return number_ >= 0; }
    int number() const { return number_; }

 private:
    int number_;
};

// Landlock's rules come in versions, and the kernel of the run may know more of them than the
// headers of the build: what those of Linux 5.13 lack is written out here.
constexpr uint64_t kTruncate = uint64_t{1} << 14;
struct LandlockRuleset {
    uint64_t files;    // all rights that exist up to
    uint64_t network;  // the version in question are
    uint64_t scopes;   // taken away
};

static LandlockRuleset ruleset_of_version(long version) {
    constexpr int kFileRights[] = {0, 13, 14, 15, 15, 16};
    constexpr long kNewest = 5;
    LandlockRuleset all = {};
    all.files = (uint64_t{1} << kFileRights[version < kNewest ? version : kNewest]) - 1;
    if (version >= 4) all.network = 3;  // binding and connecting TCP sockets
    if (version >= 6) all.scopes = 3;   // abstract Unix sockets and signals
    return all;
}

// Allows that much of what lies at the place or below. Returns false when the place would be
// forbidden although it must not be. The kernel takes no rules for pipes and the like, which are
// never forbidden.
static bool allow(const Descriptor& ruleset, const Descriptor& place, uint64_t rights) {
    landlock_path_beneath_attr rule = {};
    rule.allowed_access = rights;
    rule.parent_fd = place.number();
    return syscall(SYS_landlock_add_rule, ruleset.number(), LANDLOCK_RULE_PATH_BENEATH, &rule, 0) ==
               0 ||
           errno == EBADFD;
}

// An open place names it and gives no access, whatever it is.
static int open_place(int folder, const char* path) {
    return openat(folder, path, O_PATH | O_CLOEXEC);
}

// Whether a place that could not be opened is one that cannot be used later either. Otherwise no
// descriptor was left, which may change.
static bool is_unusable(int error) {
    return error == ENOENT || error == ENOTDIR || error == EACCES || error == ELOOP ||
           error == ENAMETOOLONG;
}

static bool is_folder(const Descriptor& place) {
    struct stat status;
    return fstat(place.number(), &status) == 0 && S_ISDIR(status.st_mode);
}

static bool allow_reading(const Descriptor& ruleset, const char* path) {
    const Descriptor input(open_place(AT_FDCWD, path));
    if (!input.is_open()) return is_unusable(errno);
    return is_folder(input) || allow(ruleset, input, LANDLOCK_ACCESS_FS_READ_FILE);
}

// The folder in which a new file appears when the path is opened, all symbolic links followed. It
// stays closed when that is none.
static void open_folder_of(const char* path, Descriptor* folder) {
    constexpr int kMostLinks = 40;  // as in the kernel
    char text[PATH_MAX], name[NAME_MAX + 1];
    errno = ENAMETOOLONG;
    const size_t path_length = strlen(path);
    if (path_length >= sizeof text) return;
    memcpy(text, path, path_length + 1);
    int base = AT_FDCWD;
    for (int links = 0; links <= kMostLinks; ++links) {
        char* const slash = strrchr(text, '/');
        char* const last = slash ? slash + 1 : text;
        errno = ENAMETOOLONG;
        const size_t last_length = strlen(last);
        if (last_length >= sizeof name) break;
        memcpy(name, last, last_length + 1);
        *last = '\0';
        folder->replace_by(open_place(base, slash ? text : "."));
        base = folder->number();
        if (base < 0) return;
        const ssize_t length = readlinkat(base, name, text, sizeof text - 1);
        if (length < 0) return;
        text[length] = '\0';
        errno = ELOOP;
    }
    folder->replace_by(-1);
}

static bool allow_making(const Descriptor& ruleset, const SandboxNeeds& needs) {
    uint64_t rights = LANDLOCK_ACCESS_FS_MAKE_REG | LANDLOCK_ACCESS_FS_WRITE_FILE;
    if (needs.output == SandboxOutput::kReplaced) rights |= LANDLOCK_ACCESS_FS_REMOVE_FILE;
    Descriptor folder(-1);
    open_folder_of(needs.output_path, &folder);
    return folder.is_open() ? allow(ruleset, folder, rights) : is_unusable(errno);
}

static bool allow_writing(const Descriptor& ruleset, const SandboxNeeds& needs, uint64_t handled) {
    const uint64_t rights = (LANDLOCK_ACCESS_FS_WRITE_FILE | kTruncate) & handled;
    const Descriptor output(open_place(AT_FDCWD, needs.output_path));
    if (!output.is_open()) return is_unusable(errno) && allow_making(ruleset, needs);
    if (!is_folder(output) && !allow(ruleset, output, rights)) return false;
    return needs.output != SandboxOutput::kReplaced || allow_making(ruleset, needs);
}

static bool enclose_files(const SandboxNeeds& needs) {
    const long version =
        syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    if (version < 1) return false;
    const LandlockRuleset all = ruleset_of_version(version);
    const Descriptor ruleset(syscall(SYS_landlock_create_ruleset, &all, sizeof all, 0));
    if (!ruleset.is_open()) return false;
    if (needs.input_path && !allow_reading(ruleset, needs.input_path)) return false;
    if (needs.output != SandboxOutput::kNone && !allow_writing(ruleset, needs, all.files)) {
        return false;
    }
    return syscall(SYS_landlock_restrict_self, ruleset.number(), 0) == 0;
}

#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ && defined(__x86_64__) && defined(__LP64__)
constexpr uint32_t kArchitecture = AUDIT_ARCH_X86_64;
#elif __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ && defined(__aarch64__) && defined(__LP64__)
constexpr uint32_t kArchitecture = AUDIT_ARCH_AARCH64;
#elif __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ && defined(__ARM_EABI__)
constexpr uint32_t kArchitecture = AUDIT_ARCH_ARM;
#else
constexpr uint32_t kArchitecture = 0;  // no filter
#endif

// System calls have many names for the same thing; a C library uses those of its time.
// clang-format off
static const uint16_t kCalls[] = {
    // Descriptors that are open.
    SYS_read, SYS_pread64, SYS_write, SYS_close, SYS_readv, SYS_writev, SYS_lseek,
#ifdef SYS__llseek
    SYS__llseek,
#endif
    // What kind of file something is, and how long.
    SYS_fstat, SYS_statx,
#ifdef SYS_newfstatat
    SYS_newfstatat,
#endif
#ifdef SYS_fstat64
    SYS_fstat64, SYS_fstatat64,
#endif
    // Memory.
    SYS_brk, SYS_munmap, SYS_mremap, SYS_madvise,
    // The end, and the way back from a signal handler.
    SYS_exit_group, SYS_exit, SYS_rt_sigreturn,
};
static const uint16_t kCallsThatReplace[] = {
#ifdef SYS_rename
    SYS_rename, SYS_unlink,
#endif
#ifdef SYS_renameat
    SYS_renameat,
#endif
    SYS_renameat2, SYS_unlinkat, SYS_fchmod, SYS_fsync, SYS_getrandom,
};
// clang-format on

// A call that depends on one of its arguments.
struct CheckedCall {
    uint16_t number;
    uint8_t argument;
    uint32_t sufficient;  // fine with one of these bits ...
    uint32_t forbidden;   // ... else refused with one of these
};
// What is opened for writing loses its content or is new: with the rules for files no file of the
// folder that is there already can be opened so.
static const CheckedCall kCheckedCalls[] = {
    {SYS_openat, 2, O_TRUNC | O_EXCL, O_ACCMODE},
#ifdef SYS_open
    {SYS_open, 1, O_TRUNC | O_EXCL, O_ACCMODE},
#endif
#ifdef SYS_mmap
    {SYS_mmap, 2, 0, PROT_EXEC},
#endif
#ifdef SYS_mmap2
    {SYS_mmap2, 2, 0, PROT_EXEC},
#endif
    {SYS_mprotect, 2, 0, PROT_EXEC},
    // Flags may be asked for, and owners of signals not be set.
    {SYS_fcntl, 1, 0, ~uint32_t{F_GETFD | F_SETFD | F_GETFL}},
#ifdef SYS_fcntl64
    {SYS_fcntl64, 1, 0, ~uint32_t{F_GETFD | F_SETFD | F_GETFL}},
#endif
};

// A filter for system calls. Its jumps lead ahead by up to 255 steps, and mostly to one of the two
// ends, which stand after the last step.
class CallFilter {
 public:
    void load(uint32_t offset) { add(BPF_LD | BPF_W | BPF_ABS, offset, 0, 0); }
    void jump(uint16_t condition, uint32_t value, uint8_t if_true, uint8_t if_false) {
        add(static_cast<uint16_t>(BPF_JMP | BPF_K | condition), value, if_true, if_false);
    }
    void add(uint16_t code, uint32_t value, uint8_t if_true, uint8_t if_false) {
        steps_[length_++] = {code, if_true, if_false, value};
    }
    bool install() {
        const size_t refusal = length_, permission = length_ + 1;
        for (size_t i = 0; i < length_; ++i) {
            steps_[i].jt = resolved(steps_[i].jt, i, refusal, permission);
            steps_[i].jf = resolved(steps_[i].jf, i, refusal, permission);
        }
        add(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS, 0, 0);
        add(BPF_RET | BPF_K, SECCOMP_RET_ALLOW, 0, 0);
        const sock_fprog program = {static_cast<uint16_t>(length_), steps_};
        // Without the flag, kernels before 5.16 slow down all that the thread computes from then
        // on. Those before 4.17 do not know it.
        return set(SECCOMP_FILTER_FLAG_SPEC_ALLOW, program) || set(0, program);
    }
    static constexpr uint8_t kNext = 0, kRefuse = 254, kPermit = 255;

 private:
    static uint8_t resolved(uint8_t target, size_t at, size_t refusal, size_t permission) {
        if (target < kRefuse) return target;
        return static_cast<uint8_t>((target == kRefuse ? refusal : permission) - at - 1);
    }
    static bool set(unsigned long flags, const sock_fprog& program) {
        return syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, flags, &program) == 0;
    }
    sock_filter steps_[80];
    size_t length_ = 0;
};

static bool enclose_calls(SandboxOutput output) {
    if (kArchitecture == 0) return false;
    CallFilter filter;
    // The kernel tries a new filter for each of its hundreds of calls, to learn which are always
    // allowed. That takes longer than asking at each call of a run, and ends at once at a step like
    // this one, which it does not follow there.
    filter.add(BPF_LDX | BPF_IMM, 0, 0, 0);
    filter.load(offsetof(seccomp_data, arch));
    filter.jump(BPF_JEQ, kArchitecture, CallFilter::kNext, CallFilter::kRefuse);
    filter.load(offsetof(seccomp_data, nr));
    for (const uint16_t call : kCalls) {
        filter.jump(BPF_JEQ, call, CallFilter::kPermit, CallFilter::kNext);
    }
    if (output == SandboxOutput::kReplaced) {
        for (const uint16_t call : kCallsThatReplace) {
            filter.jump(BPF_JEQ, call, CallFilter::kPermit, CallFilter::kNext);
        }
    }
    for (const CheckedCall& call : kCheckedCalls) {
        const size_t low_half = offsetof(seccomp_data, args) + 8 * size_t{call.argument};
        filter.jump(BPF_JEQ, call.number, CallFilter::kNext, 3);
        filter.load(static_cast<uint32_t>(low_half));
        filter.jump(BPF_JSET, call.sufficient, CallFilter::kPermit, CallFilter::kNext);
        filter.jump(BPF_JSET, call.forbidden, CallFilter::kRefuse, CallFilter::kPermit);
    }
    return filter.install();
}

SandboxWalls sandbox_enter(const SandboxNeeds& needs) {
    SandboxWalls walls = {};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return walls;
    walls.files = enclose_files(needs);
    walls.calls = enclose_calls(needs.output);
    return walls;
}
#else
SandboxWalls sandbox_enter(const SandboxNeeds&) { return {}; }
#endif
