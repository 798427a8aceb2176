// SPDX-License-Identifier: BSD-2-Clause
// The program for people: says what keystill makes of a file, and why.
#pragma once

#include <stdio.h>

#include "runtime/sandbox.h"

// Runs with main's arguments and reports on out. Returns the exit status: 0 when keystill would
// write a thumbnail, 1 when it would not, 2 for a wrong command line or when the report cannot be
// written. Nothing is written but the report. Not re-entrant.
int run_explain(int argc, const char* const* argv, FILE* out,
                Surroundings surroundings = Surroundings::kUnchanged);
