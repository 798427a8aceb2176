// SPDX-License-Identifier: BSD-2-Clause
// What programs read: an object on a line for each file. doc/explain-json.md describes it.
#pragma once

#include <stdio.h>

#include "explain/examination.h"

void print_json(const Examination& found, FILE* out);

// Codes and sentences of all reasons, a line each.
void print_reasons(FILE* out);
