// SPDX-License-Identifier: BSD-2-Clause
// What people read: everything about one file, or a line for each of many.
#pragma once

#include <stdio.h>

#include "explain/examination.h"

void print_report(const Examination& found, FILE* out);
void print_line(const Examination& found, FILE* out);
