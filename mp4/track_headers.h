// SPDX-License-Identifier: BSD-2-Clause
// The headers that tell which track is the video track, how long it is and how large its pictures
// are.
#pragma once

#include <stdint.h>

#include "mp4/parse_context.h"

// Movie header: time scale and duration.
void mp4_parse_mvhd(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context);

// Track header: number and picture size. The last track seen counts as the video track until a
// handler reference says otherwise.
void mp4_parse_tkhd(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context);

// Media header: time scale and duration of the track.
void mp4_parse_mdhd(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context);

// Handler reference: names the kind of the track. Tables are kept only after one that says "vide";
// those that came before it are parsed again.
void mp4_parse_hdlr(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context);
