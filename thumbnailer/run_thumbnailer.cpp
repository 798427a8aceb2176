// SPDX-License-Identifier: BSD-2-Clause
#include "thumbnailer/run_thumbnailer.h"

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <new>
#include <string>
#include <system_error>
#include <vector>

#include "thumbnailer/confined_drawing.h"
#include "thumbnailer/options.h"
#include "thumbnailer/other_programs.h"
#include "thumbnailer/output_file.h"
#include "wording/printable.h"

constexpr int kDone = 0;
constexpr int kNoPicture = 1;
constexpr int kWrongUsage = 2;

// RFC 8089, with what a path may contain as it is. Links are not followed: desktops name a
// thumbnail by the path that its video was found by.
static std::string uri_of(const std::string& path) {
    std::error_code ignored;
    const std::string whole = std::filesystem::absolute(path, ignored).lexically_normal().native();
    std::string uri = "file://";
    for (const char letter : whole) {
        const unsigned char c = static_cast<unsigned char>(letter);
        const bool is_letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        if (is_letter || (c >= '0' && c <= '9') || strchr("!$&'()*+,-./:=@_~", c)) {
            uri += letter;
        } else {
            char escape[4];
            snprintf(escape, sizeof escape, "%%%02X", c);
            uri += escape;
        }
    }
    return uri;
}

// What desktops look for in their thumbnails (freedesktop.org, Thumbnail Managing Standard).
static std::vector<PngText> png_texts(const Options& options, const struct stat& status) {
    if (options.format != PictureFormat::kPng) return {};
    return {{"Thumb::URI", uri_of(options.input)},
            {"Thumb::MTime", std::to_string(status.st_mtime)},
            {"Thumb::Size", std::to_string(status.st_size)},
            {"Software", "keystill-thumbnailer"}};
}

static bool is_same_file(const struct stat& input, const std::string& output) {
    struct stat status;
    const int result =
        output == "-" ? fstat(STDOUT_FILENO, &status) : stat(output.c_str(), &status);
    return result == 0 && status.st_dev == input.st_dev && status.st_ino == input.st_ino;
}

static Outcome draw(const Options& options, std::vector<uint8_t>* picture) {
    // Neither a wait for somebody at the other end of a pipe nor a terminal of our own.
    const int video = open(options.input.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    struct stat status;
    if (video < 0 || fstat(video, &status) != 0) {
        return {Verdict::kNoPicture, "The video cannot be opened."};
    }
    Outcome outcome;
    if (!S_ISREG(status.st_mode)) {
        outcome = {Verdict::kNoPicture, "The video is not a regular file."};
    } else if (is_same_file(status, options.output)) {
        outcome = {Verdict::kNoPicture, "The output is the video itself."};
    } else {
        outcome = draw_confined(video, options, png_texts(options, status), picture);
    }
    close(video);
    if (outcome.verdict == Verdict::kNotForUs && options.fallback != "none") {
        outcome = draw_by_other_program(options, outcome, picture);
    }
    return outcome;
}

static int make_thumbnail(const Options& options) {
    std::vector<uint8_t> picture;
    Outcome outcome = draw(options, &picture);
    if (outcome.verdict == Verdict::kDone && !write_output(options.output, picture)) {
        outcome = {Verdict::kNoPicture, "The output cannot be written."};
    }
    if (outcome.verdict == Verdict::kDone) return kDone;
    fprintf(stderr, "keystill-thumbnailer: %s\n", outcome.sentence.c_str());
    return kNoPicture;
}

// Where a standard stream is closed, the next file that is opened would be taken for it. The root
// folder can be opened everywhere, and neither read nor written.
static void occupy_closed_streams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) < 0 && open("/", O_RDONLY) < 0) return;
    }
}

// For what the containers of the standard library ask: without exceptions there is no other way on.
static void end_without_memory() {
    static constexpr char kText[] = "keystill-thumbnailer: There is not enough memory.\n";
    if (write(STDERR_FILENO, kText, sizeof kText - 1) < 0) _exit(kNoPicture);
    _exit(kNoPicture);
}

int run_thumbnailer(int argc, char* const* argv) {
    std::set_new_handler(end_without_memory);
    signal(SIGXFSZ, SIG_IGN);  // a file size limit is a failed write like any other
    occupy_closed_streams();
    Options options;
    std::string complaint;
    switch (read_options(argc, argv, &options, &complaint)) {
        case OptionsOutcome::kRun:
            return make_thumbnail(options);
        case OptionsOutcome::kHelp:
            return fputs(usage_text(), stdout) >= 0 && fflush(stdout) == 0 ? kDone : kNoPicture;
        case OptionsOutcome::kVersion:
            return puts("keystill-thumbnailer " KEYSTILL_VERSION) >= 0 && fflush(stdout) == 0
                       ? kDone
                       : kNoPicture;
        case OptionsOutcome::kWrong:
            break;
    }
    fprintf(stderr, "keystill-thumbnailer: %s\n%s", printable(complaint).c_str(), usage_text());
    return kWrongUsage;
}
