// SPDX-License-Identifier: BSD-2-Clause
#include "thumbnailer/confined_drawing.h"

#include <stdio.h>
#include <sys/resource.h>
#include <unistd.h>

#include <new>
#include <string>

#include "movie/byte_source.h"
#include "runtime/sandbox.h"
#include "thumbnailer/child_process.h"
#include "thumbnailer/draw_thumbnail.h"
#include "thumbnailer/inflate.h"
#include "thumbnailer/picture_check.h"

constexpr int kSeconds = 60;        // on the clock; storage may be slow
constexpr rlim_t kCpuSeconds = 20;  // the largest pictures take less than one
[[maybe_unused]] constexpr rlim_t kMemory =
    1u << 30;  // address space; the largest pictures take a tenth of it
constexpr size_t kMaxPictureBytes = 256u << 20;
// What a pipe takes at once: less would have the two processes wait for each other.
static char g_pipe_buffer[64u << 10];

// Exit statuses of the child: a verdict whose sentence it has written, or one of these.
constexpr int kNothingToSay = 100;
constexpr int kNoMemory = 101;
constexpr int kWantsInflater = 102;

static void set_limit(int resource, rlim_t value) {
    const rlimit limit = {value, value};
    setrlimit(static_cast<__rlimit_resource>(resource), &limit);
}

static void give_up_rights() {
#if KEYSTILL_HAS_SANDBOX  // sanitizers want all addresses there are
    set_limit(RLIMIT_AS, kMemory);
#endif
    set_limit(RLIMIT_CPU, kCpuSeconds);
    set_limit(RLIMIT_CORE, 0);
    sandbox_enter({nullptr, nullptr, SandboxOutput::kNone});
}

struct Drawing {
    int video;
    const Options& options;
    const std::vector<PngText>& texts;
    bool may_inflate;
};

static bool ask_for_inflater(std::span<const uint8_t>, std::span<uint8_t>) {
    _exit(kWantsInflater);
}

// What opens files, before they are out of reach.
static void prepare(const Drawing& drawing) {
    prepare_to_make_upright();
    if (drawing.options.format == PictureFormat::kPng) prepare_to_write_png();
    if (drawing.may_inflate) prepare_to_inflate();
}

// The body of the child. A sentence takes the place of a picture.
static int draw(const Drawing& drawing, int output) {
    std::optional<FileSource> source = FileSource::adopt(drawing.video);
    FILE* const file = fdopen(output, "wb");
    if (!source || !file) return kNothingToSay;
    setvbuf(file, g_pipe_buffer, _IOFBF, sizeof g_pipe_buffer);
    std::set_new_handler([] { _exit(kNoMemory); });
    prepare(drawing);
    give_up_rights();
    const Outcome outcome =
        draw_thumbnail(&*source, drawing.may_inflate ? inflate_zlib : ask_for_inflater,
                       drawing.options, drawing.texts, file);
    if (outcome.verdict != Verdict::kDone) fputs(outcome.sentence.c_str(), file);
    return fflush(file) == 0 ? static_cast<int>(outcome.verdict) : kNothingToSay;
}

static ChildResult run_drawing(const Drawing& drawing) {
    return run_child([&](int output) { return draw(drawing, output); },
                     {kSeconds, kMaxPictureBytes});
}

// What a child says whose decoder a file may have taken over.
static std::string sentence_of(const std::vector<uint8_t>& output) {
    constexpr size_t kMost = 400;
    std::string text;
    for (const uint8_t byte : output) {
        if (byte < ' ' || byte > '~' || text.size() == kMost) break;
        text += static_cast<char>(byte);
    }
    return text.empty() ? "There is no picture." : text;
}

Outcome draw_confined(int video, const Options& options, const std::vector<PngText>& texts,
                      std::vector<uint8_t>* picture) {
    ChildResult child = run_drawing({video, options, texts, false});
    if (child.end == ChildEnd::kExited && child.exit_status == kWantsInflater) {
        child = run_drawing({video, options, texts, true});
    }
    switch (child.end) {
        case ChildEnd::kExited:
            break;
        case ChildEnd::kKilled:
            return {Verdict::kNoPicture, "The decoder crashed or passed its limits on this file."};
        case ChildEnd::kTookTooLong:
            return {Verdict::kNoPicture, "Reading the video took too long."};
        case ChildEnd::kWroteTooMuch:
            return {Verdict::kNoPicture, "The picture is too large."};
        case ChildEnd::kInterrupted:
            return {Verdict::kNoPicture, "Interrupted."};
        case ChildEnd::kNotStarted:
            return {Verdict::kNoPicture, "No process can be started."};
    }
    switch (child.exit_status) {
        case static_cast<int>(Verdict::kDone):
            if (!is_whole_picture(child.output, options.format)) break;
            *picture = std::move(child.output);
            return {};
        case static_cast<int>(Verdict::kNoPicture):
        case static_cast<int>(Verdict::kNotForUs):
            return {static_cast<Verdict>(child.exit_status), sentence_of(child.output)};
        case kNoMemory:
            return {Verdict::kNoPicture, "There is not enough memory."};
        default:
            break;
    }
    return {Verdict::kNoPicture, "The picture cannot be made."};
}
