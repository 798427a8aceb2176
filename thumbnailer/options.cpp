// SPDX-License-Identifier: BSD-2-Clause
#include "thumbnailer/options.h"

#include <getopt.h>
#include <string.h>
#include <strings.h>

#include <charconv>
#include <optional>
#include <string_view>

constexpr int kMostPixels = 65500;  // what a JPEG file can have

// Long options without a letter.
enum LongOption { kFrames = 256, kPercentile, kNoRotate, kFallback, kEnlarge };

const char* usage_text() {
    return "usage: keystill-thumbnailer -i VIDEO -o PICTURE [options]\n"
           "\n"
           "  -i, --input FILE       the video\n"
           "  -o, --output FILE      the picture to write, - for standard output\n"
           "  -s, --size N|WxH       longest side, or the size to fit into; 0: the video's (128)\n"
           "  -t, --time TIME        where to start looking: 10%, 90 or hh:mm:ss (10%)\n"
           "  -q, --quality N        of a JPEG file, 0 to 10 (8)\n"
           "  -c, --format FORMAT    png or jpeg (by the output's ending, else png)\n"
           "  -a                     a square picture, whatever the video's shape\n"
           "      --frames N         key frames to choose among (5)\n"
           "      --percentile N     which of them by size, 0 the smallest, 100 the largest (70)\n"
           "      --no-rotate        as stored, not as shown\n"
           "      --enlarge          fill the size also when the video is smaller\n"
           "      --fallback WHAT    who gets files that are not for this program: none, auto or\n"
           "                         a command with %i, %o and %s (none)\n"
           "  -f, -m, -w             taken and ignored\n"
           "  -v, --version, -h, --help\n";
}

static std::optional<int> number_in(std::string_view text, int most) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    if (value < 0 || value > most) return std::nullopt;
    return value;
}

static bool set_number(std::string_view text, int least, int most, int* value) {
    const std::optional<int> number = number_in(text, most);
    if (!number || *number < least) return false;
    *value = *number;
    return true;
}

// N or WxH.
static bool set_size(std::string_view text, SizeLimit* size) {
    const size_t cross = text.find('x');
    const auto width = number_in(text.substr(0, cross), kMostPixels);
    const auto height = cross == text.npos ? width : number_in(text.substr(cross + 1), kMostPixels);
    if (!width || !height) return false;
    size->width = *width;
    size->height = *height;
    return true;
}

// Parts of a time one after another, the last one possibly with a fraction: [[hh:]mm:]ss[.fff].
static bool set_clock_time(std::string_view text, StartTime* start) {
    constexpr int kMostParts = 3;
    int64_t seconds = 0;
    std::string_view fraction;
    if (const size_t dot = text.find('.'); dot != text.npos) {
        fraction = text.substr(dot + 1);
        text = text.substr(0, dot);
    }
    for (int part = 0; part < kMostParts; ++part) {
        const size_t colon = text.find(':');
        const auto number = number_in(text.substr(0, colon), 1000000);
        if (!number) return false;
        seconds = seconds * 60 + *number;
        if (colon == text.npos) {
            int64_t microseconds = 0;
            for (size_t digit = 0; digit < 6; ++digit) {
                const char c = digit < fraction.size() ? fraction[digit] : '0';
                if (c < '0' || c > '9') return false;
                microseconds = microseconds * 10 + (c - '0');
            }
            start->time_us = seconds * 1000000 + microseconds;
            return true;
        }
        text = text.substr(colon + 1);
    }
    return false;
}

// Per cent, also without the sign, or a time with colons.
static bool set_start(std::string_view text, StartTime* start) {
    if (text.find(':') != text.npos) return set_clock_time(text, start);
    if (!text.empty() && text.back() == '%') text.remove_suffix(1);
    start->time_us = -1;
    return set_number(text, 0, 100, &start->percent);
}

static bool set_format(const char* text, PictureFormat* format) {
    const bool is_png = strcasecmp(text, "png") == 0;
    const bool is_jpeg = strcasecmp(text, "jpeg") == 0 || strcasecmp(text, "jpg") == 0;
    *format = is_jpeg ? PictureFormat::kJpeg : PictureFormat::kPng;
    return is_png || is_jpeg;
}

static void set_format_by_ending(const std::string& path, PictureFormat* format) {
    const size_t dot = path.rfind('.');
    if (dot != path.npos) set_format(path.c_str() + dot + 1, format);
}

// Returns whether the value makes sense.
static bool take(int option, const char* value, Options* options, bool* has_format) {
    switch (option) {
        case 'i':
            options->input = value;
            return true;
        case 'o':
            options->output = value;
            return true;
        case 's':
            return set_size(value, &options->size);
        case 't':
            return set_start(value, &options->start);
        case 'q': {
            const bool is_valid = set_number(value, 0, 10, &options->quality);
            options->quality *= 10;
            return is_valid;
        }
        case 'c':
            *has_format = true;
            return set_format(value, &options->format);
        case 'a':
            options->size.ignores_shape = true;
            return true;
        case kFrames:
            return set_number(value, 1, kMostFrames, &options->frames);
        case kPercentile:
            return set_number(value, 0, 100, &options->percentile);
        case kNoRotate:
            options->keeps_orientation_as_stored = true;
            return true;
        case kFallback:
            options->fallback = value;
            return !options->fallback.empty();
        case kEnlarge:
            options->size.may_enlarge = true;
            return true;
        default:
            return true;  // f, m and w
    }
}

OptionsOutcome read_options(int argc, char* const* argv, Options* options, std::string* complaint) {
    static const option kLong[] = {
        {"input", required_argument, nullptr, 'i'},
        {"output", required_argument, nullptr, 'o'},
        {"size", required_argument, nullptr, 's'},
        {"time", required_argument, nullptr, 't'},
        {"quality", required_argument, nullptr, 'q'},
        {"format", required_argument, nullptr, 'c'},
        {"frames", required_argument, nullptr, kFrames},
        {"percentile", required_argument, nullptr, kPercentile},
        {"no-rotate", no_argument, nullptr, kNoRotate},
        {"enlarge", no_argument, nullptr, kEnlarge},
        {"fallback", required_argument, nullptr, kFallback},
        {"version", no_argument, nullptr, 'v'},
        {"help", no_argument, nullptr, 'h'},
        {},
    };
    bool has_format = false;
    optind = 0;  // from the start, also at a second call
    opterr = 0;
    for (;;) {
        const int at = optind > 0 ? optind : 1;
        const int option = getopt_long(argc, argv, ":i:o:s:t:q:c:afmwvh", kLong, nullptr);
        if (option == -1) break;
        if (option == 'h') return OptionsOutcome::kHelp;
        if (option == 'v') return OptionsOutcome::kVersion;
        if (option == '?' || option == ':') {
            *complaint =
                std::string(option == '?' ? "unknown option: " : "a value is missing: ") + argv[at];
            return OptionsOutcome::kWrong;
        }
        if (!take(option, optarg, options, &has_format)) {
            *complaint = std::string("not a value for this option: ") + optarg;
            return OptionsOutcome::kWrong;
        }
    }
    if (optind < argc) {
        *complaint = std::string("what is this for: ") + argv[optind];
        return OptionsOutcome::kWrong;
    }
    if (options->input.empty() || options->output.empty()) {
        *complaint = "-i and -o are needed";
        return OptionsOutcome::kWrong;
    }
    if (!has_format) set_format_by_ending(options->output, &options->format);
    return OptionsOutcome::kRun;
}
