// SPDX-License-Identifier: BSD-2-Clause
// What keystill-explain forecasts is what keystill does, and its report is text.
#include <stdio.h>

#include <string>

#include "explain/report.h"
#include "fuzz/chosen_arguments.h"
#include "tool/run_keystill.h"
#include "wording/printable.h"

// The backslashes are there already.
static bool is_text(std::string report) {
    std::erase(report, '\n');
    std::erase(report, '\\');
    return printable(report) == report;
}

void run_target(Choices* c) {
    const ChosenArguments arguments(c);
    char* text = nullptr;
    size_t length = 0;
    FILE* const out = open_memstream(&text, &length);
    const int forecast = run_explain(ChosenArguments::kCount, arguments.argv(), out);
    fclose(out);
    const std::string report(text, length);
    free(text);
    if (!is_text(report)) abort();
    const int status = run_keystill(ChosenArguments::kCount, arguments.argv());
    if (forecast != status) {
        fputs(report.c_str(), stderr);
        abort();
    }
    note_result(status);
}
