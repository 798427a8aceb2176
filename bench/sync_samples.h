// SPDX-License-Identifier: BSD-2-Clause
// Reads the sync samples of a movie's video track one at a time, so that a movie of hours needs no
// more memory than one sample. The container reader has one process-wide state: one at a time.
#pragma once

#include <stdint.h>

#include "mp4/buffered_file.h"
#include "mp4/parse_context.h"
#include "runtime/key_frame.h"

struct SyncSamples {
    OpenFile file;
    ParseContext context;
    uint32_t next;   // index of the sync sample that comes next
    uint32_t count;  // sync samples in the movie
    bool every_one;  // no sync sample table: every sample is a sync sample (ISO 14496-12 8.6.2)
};

// Walks the movie. Returns 0, or 1 when there is no movie or no video in it.
int sync_samples_open(const char* path, SyncSamples* samples);

// Kind of the video track (kCodec...).
int32_t sync_samples_codec_kind(const SyncSamples* samples);

// Goes back to the first sample.
void sync_samples_rewind(SyncSamples* samples);

// Fills the record with fresh copies of the configuration and of the next sample; the caller
// releases its blocks. Samples of size 0 are left out. Returns 1 past the last one and without
// memory, with nothing in the record.
int sync_samples_read(SyncSamples* samples, KeyFrame* record);

void sync_samples_close(SyncSamples* samples);
