// SPDX-License-Identifier: BSD-2-Clause
// Key frames by way of the sample tables (ISO 14496-12 8.6 and 8.7), read forwards from where they
// are wanted.
#pragma once

#include "movie/key_frame_visitor.h"
#include "movie/movie_headers.h"

// Shows the visitor the sync samples of the tables, or all samples without a table of these, that
// may be composed at media_time or later; what is before it is skipped where that saves work.
// Returns false once the visitor has enough.
bool visit_table_key_frames(ByteSource* source, WorkBudget* work, const SampleTables& tables,
                            int64_t media_time, KeyFrameVisitor* visitor);

// Sum of the samples' durations in the track's time scale.
uint64_t table_duration(ByteSource* source, WorkBudget* work, const SampleTables& tables);
