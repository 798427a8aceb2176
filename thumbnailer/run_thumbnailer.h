// SPDX-License-Identifier: BSD-2-Clause
// The whole program: 0 when the picture was written, 1 when there is none, 2 for wrong usage.
#pragma once

int run_thumbnailer(int argc, char* const* argv);
