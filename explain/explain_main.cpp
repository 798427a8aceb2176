// SPDX-License-Identifier: BSD-2-Clause
#include "explain/report.h"

int main(int argc, char** argv) { return run_explain(argc, argv, stdout, Surroundings::kSandbox); }
