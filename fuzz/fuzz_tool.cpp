// SPDX-License-Identifier: BSD-2-Clause
// The whole program on one file.
#include "fuzz/chosen_arguments.h"
#include "tool/run_keystill.h"

void run_target(Choices* c) {
    const ChosenArguments arguments(c);
    const int status = run_keystill(ChosenArguments::kCount, arguments.argv());
    if (status != 0 && status != 1) abort();
    note_result(status);
    note_result_file();
}
