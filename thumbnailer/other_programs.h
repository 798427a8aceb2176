// SPDX-License-Identifier: BSD-2-Clause
// Has another thumbnailer make the picture, of files that are not for this program.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "thumbnailer/options.h"
#include "thumbnailer/outcome.h"

// By options.fallback: "auto" takes the first general thumbnailer that is installed; a command is
// split at blanks, %i in it stands for the video's absolute path, %o for the picture to be made
// (a file that does not exist yet), %s for its longest side. No shell sees any of it. Returns what
// that program made as *picture, or why there is none; `refusal` is why it is asked.
Outcome draw_by_other_program(const Options& options, const Outcome& refusal,
                              std::vector<uint8_t>* picture);
