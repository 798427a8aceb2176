// SPDX-License-Identifier: BSD-2-Clause
// Lets the n-th system allocation of the program's own code fail. Programs that use it are linked
// with -Wl,--wrap=malloc,--wrap=calloc,--wrap=realloc (keystill_wrap_malloc in CMake); shared
// libraries keep the real functions.
#pragma once

// The n-th allocation from now on fails (1 is the next one), or all from there; 0 lets all pass.
void fail_allocation(int n, bool and_all_later = false);
// Whether an allocation was made to fail since the last call of fail_allocation.
bool has_allocation_failed();
