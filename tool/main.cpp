// SPDX-License-Identifier: BSD-2-Clause
#include "tool/run_keystill.h"

int main(int argc, char** argv) { return run_keystill(argc, argv); }
