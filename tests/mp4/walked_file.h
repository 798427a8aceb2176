// SPDX-License-Identifier: BSD-2-Clause
// A file of given bytes, and the state that a walk over it leaves.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "host/message_log.h"
#include "mp4/box_reader.h"
#include "mp4/fragments.h"
#include "mp4/video_state.h"
#include "mp4/work_limit.h"
#include "tests/support/box_builder.h"
#include "tests/support/temp_folder.h"

struct WalkedFile {
    explicit WalkedFile(const std::string& bytes) {
        const std::string path = folder.path("x.mp4");
        write_file(path, bytes);
        file.reset(upnp_file_open_b(path.c_str(), 4096));
        context.info.file_size = static_cast<int64_t>(bytes.size());
        mp4_grant_walk();
        result = mp4_atom_get_metadata(file.get(), context.info.file_size, &context);
    }
    ~WalkedFile() {
        mp4_release_video_state(&state);
        file.reset();
        EXPECT_EQ(g_memUsed, 0);
    }
    TempFolder folder;
    OpenFile file;
    ParseContext context = begin_walk();
    uint64_t result = 0;
    VideoState& state = *context.video;

 private:
    static ParseContext begin_walk() {
        ParseContext context;
        mp4_begin_walk(&context);
        return context;
    }
};

// What the reader says about a file of these bytes, and about its first key frame if it is in a
// fragment: lines without their time stamps.
inline std::string log_of(const std::string& bytes) {
    const TempFolder folder;
    g_log = LogState();
    EXPECT_EQ(upnp_log_start(folder.path("log").c_str()), 0);
    const WalkedFile walked(bytes);
    SamplePlace place;
    mp4_locate_fragment_sample(walked.file.get(), &walked.state, 0, &place);
    upnp_log_stop();
    return read_file(folder.path("log"));
}
