// SPDX-License-Identifier: BSD-2-Clause
// Walks the boxes of an ISO base media file in one pass and hands each to its handler.
#pragma once

#include <stdint.h>

#include "mp4/buffered_file.h"
#include "mp4/parse_context.h"
#include "runtime/owned.h"

// Containers below this level are skipped.
constexpr int32_t kMaxBoxDepth = 100;

// Reads a header, and moves the context's position over it if asked to. Returns 0, or kUpnpFailed
// when the file ends before.
int mp4_read_box_header(BufferedFile* file, ParseContext* context, BoxHeader* header, bool advance);

// Whether a box that starts there ends further on, at a position that exists. A walk over others
// would run in place or backwards.
bool mp4_box_gets_ahead(const BoxHeader* header, int64_t start);

// Walks the boxes from the context's position to end. Returns the size of the last box whose header
// could be read, 0 when there was none.
uint64_t mp4_atom_get_metadata(BufferedFile* file, int64_t end, ParseContext* context);

// The handler of a type, or null for an unknown one.
BoxHandler mp4_find_handler(const char* type);

// Reads the box's content into the context. Returns its length, or 0 when it is empty, cut short by
// the end of the file (it is held then, and the position stays) or refused for its size (the walk
// goes on at end then).
int64_t mp4_read_box_content(BufferedFile* file, const BoxHeader* header, int64_t end,
                             ParseContext* context);
// The same for content that is needed whole. It goes to *block and is not the context's.
int64_t mp4_read_whole_content(BufferedFile* file, const BoxHeader* header, int64_t end,
                               ParseContext* context, Owned<uint8_t>* block);
inline void mp4_release_content(ParseContext* context) { context->content.is_held = false; }

// Returns true for a leaf box with a 64-bit size or one up to the end of the file, having skipped
// it: such boxes are not interpreted.
bool mp4_is_box_too_large(BufferedFile* file, const BoxHeader* header, ParseContext* context);

// Moves the position, which stops at the largest number instead of passing it.
void mp4_advance(ParseContext* context, int64_t bytes);

void mp4_skip_box(BufferedFile* file, const BoxHeader* header, int64_t end, ParseContext* context);
void mp4_parse_container(BufferedFile* file, const BoxHeader* header, int64_t end,
                         ParseContext* context);
void mp4_parse_meta(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context);
void mp4_parse_mdat(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context);
void mp4_parse_ftyp(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context);
void mp4_parse_free(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context);
