// SPDX-License-Identifier: BSD-2-Clause
// What a program gives up before it reads the files of strangers, so that a fault in a parser or a
// decoder leads nowhere: other files (Landlock) and all system calls but a few (seccomp). A kernel
// without either goes on without it, and so does a build with KEYSTILL_SANDBOX off.
#pragma once

// Where a whole program runs that is also run as a part of another one.
enum class Surroundings {
    kUnchanged,
    kSandbox,  // entered once the arguments are checked
};

enum class SandboxOutput {
    kNone,      // nothing is written but to descriptors that are open
    kWritten,   // by fopen(path, "wb"): an existing file in its place, else a new one
    kReplaced,  // as kWritten, or by a new file in its folder that is renamed over it
};

struct SandboxNeeds {
    const char* input_path;   // the one file that may be opened for reading
    const char* output_path;  // may be null for kNone; a symbolic link counts as where it leads
    SandboxOutput output;
};

// What holds from now on.
struct SandboxWalls {
    bool files;  // no file can be opened, made or removed but those that are needed
    bool calls;  // what is no reading, writing or memory without execution fails with ENOSYS
};

// Enters it for good, for this thread and all that it starts. Neither path is opened for reading or
// writing, nothing is created, and whatever would have failed later still fails there: both may
// name anything. Descriptors that are open stay usable as they are.
//
// Where the output does not exist yet, new files can be made in its folder and below; what is there
// already cannot be opened for writing (before Linux 6.2: cannot be left as long as it was). A file
// that somebody else makes under the output's name in the meantime is such a file. kReplaced
// allows renaming and removing in the folder.
SandboxWalls sandbox_enter(const SandboxNeeds& needs);
