// SPDX-License-Identifier: BSD-2-Clause
#include "thumbnailer/run_thumbnailer.h"

int main(int argc, char** argv) { return run_thumbnailer(argc, argv); }
