// SPDX-License-Identifier: BSD-2-Clause
// The whole program behind main.
#pragma once

#include "runtime/sandbox.h"

// Runs with main's arguments and returns the exit status: 0 when the thumbnail was written, else 1.
// Every accounted block is released on return. Not re-entrant.
int run_keystill(int argc, const char* const* argv,
                 Surroundings surroundings = Surroundings::kUnchanged);
