// SPDX-License-Identifier: BSD-2-Clause
// A page to choose by: the key frames as pictures. It needs no other file.
#pragma once

#include <stdio.h>

#include "explain/candidates.h"

void print_page_head(FILE* out);
// A file without key frames has none.
void print_page_part(const Examination& found, const std::vector<Candidate>& candidates, FILE* out);
void print_page_end(FILE* out);
