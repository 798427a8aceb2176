// SPDX-License-Identifier: BSD-2-Clause
#include <signal.h>

#include "tool/run_keystill.h"

int main(int argc, char** argv) {
    // A file size limit or a closed pipe is a failed write like any other.
    signal(SIGXFSZ, SIG_IGN);
    signal(SIGPIPE, SIG_IGN);
    return run_keystill(argc, argv, Surroundings::kSandbox);
}
