// SPDX-License-Identifier: BSD-2-Clause
// Looks at one file as a run of keystill does, and keeps all that a report may say of it.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "avcdec/avc_stream_facts.h"
#include "explain/box_list.h"
#include "explain/run_verdict.h"
#include "explain/verdict.h"
#include "runtime/sandbox.h"
#include "tool/run_keystill.h"

struct KeyFrameRow {
    uint32_t index;   // in the file's table
    int64_t time_ms;  // -1 if it is not known
    uint32_t bytes;
    bool is_wanted;  // the collection came by it: collected, unless it is empty
    bool is_picked;
    bool follows_gap;  // rows were left out in front of it
};

// How players show the picture, as far as the file says so outside of the coded stream.
struct Shown {
    int rotation;  // clockwise, in degrees: 0, 90, 180 or 270
    bool is_mirrored;
    uint32_t pixel_width;  // pixel aspect ratio, 1 and 1 if nothing is said
    uint32_t pixel_height;
    bool is_readable;  // a reader without keystill's rules finds a key frame
};

struct Examination {
    Arguments args;
    int64_t file_size = -1;                 // -1: the file could not be opened
    const char* kind = nullptr;             // what the file starts like, if that is no movie
    std::string brand;                      // of the "ftyp" box, printable
    std::string box_list, reader_messages;  // lines; "" if there was nothing to list or to read

    bool has_video = false;
    std::string format;      // of the sample entry, printable
    const char* codec = "";  // its name, "" for one that is not decoded
    AvcStreamFacts avc = {};
    uint32_t width = 0, height = 0;  // as coded and cropped, in pixels
    uint64_t duration_ms = 0;        // 0: the file does not say
    uint32_t picture_count = 0;      // outside of fragments
    uint32_t key_frame_count = 0;
    bool is_in_fragments = false;
    bool is_turned = false;  // by the track header
    Shown shown = {0, false, 1, 1, false};

    std::vector<KeyFrameRow> rows;
    bool has_rows = false;      // the table could be read
    bool ends_in_gap = false;   // rows were left out at the end
    int64_t chosen_index = -1;  // of the chosen key frame in the table

    BoxFacts boxes = {};
    ThumbnailRun run = {};  // a real one, but for the file
    WantedFrames frames = {};
    bool spoils_a_video = false;  // something that looks like a video stands where the output goes
    Verdict verdict;
};

// Every key frame, or those that matter to a person.
enum class Rows : uint8_t { kOfInterest, kAll };

// Looks at the file that the arguments name. Accounted memory is there already. With kSandbox the
// process can open no other file afterwards but `nowhere`, where the picture goes.
Examination examine(const Arguments& args, Rows rows, Surroundings surroundings,
                    const char* nowhere = "/dev/null");
