// SPDX-License-Identifier: BSD-2-Clause
#include "tests/support/program_run.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

int status_apart(const std::function<int()>& work) {
    const pid_t child = fork();
    if (child == 0) _exit(work());
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
