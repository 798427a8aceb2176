// SPDX-License-Identifier: BSD-2-Clause
#include "movie/movie.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>

#include "movie/box_search.h"
#include "movie/byte_stream.h"
#include "movie/cached_source.h"
#include "movie/fragment_walk.h"
#include "movie/key_frame_search.h"
#include "movie/table_lookup.h"

constexpr int64_t kEver = std::numeric_limits<int64_t>::max();

// All that is known of an open movie.
struct Movie::Parts {
    Parts(ByteSource* from, Inflater inflates)
        : inflater(inflates),
          media_end(from->size()),
          source(from, &work),
          reader(&source, &work) {}
    void open();
    bool read_header(const Box& moov);
    bool inflate_header(const Box& moov, Box* inflated);
    void look_into_free_space();
    void search_header();
    bool visit_key_frames(int64_t time_us, KeyFrameVisitor* visitor);

    Inflater inflater;
    uint64_t media_end;
    WorkBudget work;
    CachedSource source;
    SourceReader reader;
    MovieHeaders headers;
    uint64_t header_end = 0;  // after the movie box, 0 if there is none
    int64_t origin = 0;       // where the media's time starts, in its time scale
    Presentation presentation;
    std::optional<FragmentWalk> fragments;
    std::vector<VideoDescription> descriptions;
    MovieRefusal refusal = MovieRefusal::kNotAMovie;
    std::optional<int64_t> duration_us;
};

// Types that a file of this kind may start with.
static bool is_first_box(uint32_t type) {
    static constexpr uint32_t kTypes[] = {
        fourcc("ftyp"), fourcc("moov"), fourcc("mdat"), fourcc("free"), fourcc("skip"),
        fourcc("wide"), fourcc("pnot"), fourcc("styp"), fourcc("sidx"), fourcc("moof"),
        fourcc("uuid"), fourcc("udta"), fourcc("meta"), fourcc("PICT"), fourcc("junk")};
    return std::find(std::begin(kTypes), std::end(kTypes), type) != std::end(kTypes);
}

// The length of a tag of music players in front of the first box (ID3v2.4 3.1): seven bits of each
// of four bytes, after six.
static uint64_t tag_length(SourceReader* reader) {
    constexpr uint64_t kHeader = 10;
    const uint8_t* const tag = reader->at(0, kHeader);
    if (!tag || tag[0] != 'I' || tag[1] != 'D' || tag[2] != '3') return 0;
    uint64_t length = 0;
    for (size_t i = 6; i < kHeader; ++i) length = length << 7 | (tag[i] & 0x7f);
    return kHeader + length;
}

// QuickTime's compressed movie box: the method, then the size and the bytes of what the box is.
// That stands after the end of the source from then on.
bool Movie::Parts::inflate_header(const Box& moov, Box* inflated) {
    constexpr uint64_t kMost = 16 << 20;
    Box compressed, method, data;
    if (!inflater || !find_child(&reader, moov, fourcc("cmov"), &compressed)) return false;
    if (!find_child(&reader, compressed, fourcc("dcom"), &method)) return false;
    if (reader.u32_at(method.content) != fourcc("zlib")) return false;
    if (!find_child(&reader, compressed, fourcc("cmvd"), &data) || data.length() < 4) return false;
    const uint32_t size = reader.u32_at(data.content);
    const uint64_t stored = data.length() - 4;
    if (size > kMost || stored > kMost || !work.spend(size + stored)) return false;
    std::vector<uint8_t> in(stored), out(size);
    if (source.read(data.content + 4, in) < stored || !inflater(in, out)) return false;
    const uint64_t begin = source.append(std::move(out));
    return BoxWalk(&reader, begin, source.size()).next(inflated) &&
           inflated->type == fourcc("moov");
}

// Reads a movie box. Returns whether no other one can be better: a box with no video in it, or no
// samples, may be a placeholder.
bool Movie::Parts::read_header(const Box& moov) {
    source.keep(moov.begin, moov.end);
    MovieHeaders read;
    MovieRefusal why = read_movie_headers(&reader, moov, &read);
    Box inflated;
    if (why == MovieRefusal::kCompressedHeader && inflate_header(moov, &inflated)) {
        read = {};
        why = read_movie_headers(&reader, inflated, &read);
    }
    const bool has_samples = read.has_fragments || read.video.tables.sample_count != 0;
    const bool is_final = why == MovieRefusal::kNone ? has_samples : why != MovieRefusal::kNoVideo;
    if (header_end == 0 || is_final) {
        header_end = moov.end;
        headers = std::move(read);
        refusal = why;
    }
    return is_final;
}

// Old editors made a movie box free space by its type alone.
void Movie::Parts::look_into_free_space() {
    BoxWalk walk(&reader, 0, source.size());
    for (Box box, child; walk.find(fourcc("free"), &box);) {
        const bool is_movie = BoxWalk(&reader, box).next(&child) && child.type == fourcc("mvhd");
        if (is_movie && read_header(box)) return;
    }
}

// A box in front may claim what is the movie box, which mostly is the last one then.
void Movie::Parts::search_header() {
    constexpr uint64_t kSearchLength = 16 << 20;
    const uint64_t size = source.size();
    SourceReader scan(&source, &work);
    search_backwards(&scan, "moov", size - std::min(size, kSearchLength), size,
                     [&](uint64_t offset) {
                         Box moov, child;
                         return BoxWalk(&reader, offset, size).next(&moov) &&
                                BoxWalk(&reader, moov).next(&child) &&
                                child.type == fourcc("mvhd") && read_header(moov);
                     });
}

void Movie::Parts::open() {
    BoxWalk walk(&reader, tag_length(&reader), source.size());
    Box box;
    if (!walk.next(&box)) return;
    const bool is_known = is_first_box(box.type);
    if (is_known) refusal = MovieRefusal::kNoMovieBox;
    std::optional<uint64_t> first_fragment;
    do {
        if (box.type == fourcc("moov") && read_header(box)) break;
        if (box.type == fourcc("moof") && !first_fragment) first_fragment = box.begin;
    } while (walk.next(&box));
    if (header_end == 0 && is_known && !first_fragment) look_into_free_space();
    if (header_end == 0 && is_known && !first_fragment) search_header();
    if (refusal != MovieRefusal::kNone) return;
    const VideoTrack& video = headers.video;
    if (headers.has_fragments || video.tables.sample_count == 0) {
        constexpr uint64_t kTail = 16 << 10;  // where the table of fragments may be
        source.keep(source.size() - std::min(source.size(), kTail), source.size());
        const uint64_t end = table_duration(&source, &work, video.tables);
        fragments.emplace(
            &source, &work, headers,
            FragmentPlace{static_cast<int64_t>(end), first_fragment.value_or(header_end)});
    }
    // With samples in the movie box time starts at 0.
    if (video.tables.sample_count == 0) origin = std::max<int64_t>(fragments->begin_time(), 0);
    presentation = Presentation(video.edits, headers.time_scale, video.time_scale, origin);
}

// In the order of decoding, from about time_us on.
bool Movie::Parts::visit_key_frames(int64_t time_us, KeyFrameVisitor* visitor) {
    const int64_t media_time = presentation.earliest_media_time(time_us);
    if (!visit_table_key_frames(&source, &work, headers.video.tables, media_time, visitor)) {
        return false;
    }
    return !fragments || fragments->visit(media_time, visitor);
}

Movie::Movie(ByteSource* source, Inflater inflater)
    : parts_(std::make_unique<Parts>(source, inflater)) {
    parts_->open();
    if (parts_->refusal != MovieRefusal::kNone) return;
    for (const SampleEntry& entry : parts_->headers.video.entries) {
        parts_->descriptions.push_back(entry.description);
    }
}

Movie::~Movie() = default;

MovieRefusal Movie::refusal() const { return parts_->refusal; }

std::string Movie::refused_format() const {
    if (refusal() != MovieRefusal::kEncrypted && refusal() != MovieRefusal::kOtherCodec) return "";
    const uint32_t format = parts_->headers.video.entries.front().description.format;
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const char letter = static_cast<char>(format >> shift & 0xff);
        text += letter >= ' ' && letter <= '~' ? letter : '?';
    }
    return text;
}

const std::vector<VideoDescription>& Movie::descriptions() const { return parts_->descriptions; }

// x' = ax + cy, y' = bx + dy, with y downwards.
struct CombinedMatrix {
    double a, b, c, d;
};

// ISO 14496-12 8.2.2.3 and 8.3.2.3: a point goes through the track's matrix, then the movie's.
static CombinedMatrix combine(const DisplayMatrix& track, const DisplayMatrix& movie) {
    const auto entry = [](int64_t a, int64_t b, int64_t c, int64_t d) {
        return static_cast<double>(a) * static_cast<double>(b) +
               static_cast<double>(c) * static_cast<double>(d);
    };
    return {entry(track.a, movie.a, track.b, movie.c), entry(track.a, movie.b, track.b, movie.d),
            entry(track.c, movie.a, track.d, movie.c), entry(track.c, movie.b, track.d, movie.d)};
}

// How much more is stretched horizontally than vertically.
static double stretch_of(const CombinedMatrix& matrix) {
    const double horizontally = matrix.a * matrix.a + matrix.c * matrix.c;
    const double vertically = matrix.b * matrix.b + matrix.d * matrix.d;
    return horizontally > 0 && vertically > 0 ? std::sqrt(horizontally / vertically) : 1;
}

// Less is rounding, or cropping that a header leaves out.
static bool is_square(double aspect) {
    constexpr double kMost = 1.02;
    return aspect < kMost && aspect > 1 / kMost;
}

double Movie::pixel_aspect(size_t description) const {
    const VideoDescription& entry = parts_->descriptions[description];
    if (entry.pixel_width != 0 && entry.pixel_height != 0) {
        return static_cast<double>(entry.pixel_width) / entry.pixel_height;
    }
    const VideoTrack& video = parts_->headers.video;
    const double stretch = stretch_of(combine(video.matrix, parts_->headers.matrix));
    if (!is_square(stretch)) return stretch;
    const uint64_t width = uint64_t{video.width} * entry.height;
    const uint64_t height = uint64_t{video.height} * entry.width;
    if (width == 0 || height == 0) return 0;
    const double aspect = static_cast<double>(width) / static_cast<double>(height);
    return is_square(aspect) ? 0 : aspect;
}

Orientation Movie::orientation() const {
    const auto [a, b, c, d] = combine(parts_->headers.video.matrix, parts_->headers.matrix);
    const auto size = [](double v) { return v < 0 ? -v : v; };
    if (size(a) + size(d) >= size(b) + size(c)) {
        if (a >= 0) return d >= 0 ? Orientation::kUpright : Orientation::kFlipped;
        return d >= 0 ? Orientation::kMirrored : Orientation::kTurned180;
    }
    if (b >= 0) return c >= 0 ? Orientation::kTransposed : Orientation::kTurned90;
    return c >= 0 ? Orientation::kTurned270 : Orientation::kTransversed;
}

uint32_t Movie::display_width() const { return parts_->headers.video.width >> 16; }
uint32_t Movie::display_height() const { return parts_->headers.video.height >> 16; }

int64_t Movie::duration_us() {
    if (refusal() != MovieRefusal::kNone) return 0;
    if (parts_->duration_us) return *parts_->duration_us;
    const MovieHeaders& headers = parts_->headers;
    const VideoTrack& video = headers.video;
    const auto clamped = [](uint64_t v) {
        return static_cast<int64_t>(std::min<uint64_t>(v, static_cast<uint64_t>(kEver)));
    };
    int64_t duration = parts_->presentation.duration_us();
    if (parts_->fragments) {
        // The headers of the samples in the movie box do not count those in fragments.
        duration =
            headers.fragment_duration != 0
                ? rescale(clamped(headers.fragment_duration), headers.time_scale, kMicroseconds)
                : rescale(std::max<int64_t>(parts_->fragments->end_time(), 0) - parts_->origin,
                          video.time_scale, kMicroseconds);
    }
    if (duration == 0) duration = rescale(clamped(video.duration), video.time_scale, kMicroseconds);
    if (duration == 0) {
        const uint64_t sum = table_duration(&parts_->source, &parts_->work, video.tables);
        duration = rescale(clamped(sum), video.time_scale, kMicroseconds);
    }
    parts_->duration_us = std::max<int64_t>(duration, 0);
    return *parts_->duration_us;
}

std::vector<MovieKeyFrame> Movie::key_frames_from(int64_t time_us, size_t count, Trust trust) {
    if (refusal() != MovieRefusal::kNone || count == 0) return {};
    const CandidateCheck check(&parts_->reader, parts_->media_end, parts_->presentation,
                               parts_->headers.video.entries, trust);
    FirstFrom wanted(&check, time_us, count);
    parts_->visit_key_frames(time_us, &wanted);
    std::vector<MovieKeyFrame> found = wanted.take_found();
    if (!found.empty()) return found;
    // The last one before is rarely far away.
    static constexpr int64_t kSteps_us[] = {30'000'000, 600'000'000, kEver};
    LastOne last(&check);
    for (const int64_t step_us : kSteps_us) {
        const int64_t from_us = step_us == kEver ? -kEver : std::max<int64_t>(time_us, 0) - step_us;
        last.set_start(from_us);
        parts_->visit_key_frames(from_us, &last);
        if (last.best_one()) break;
    }
    if (last.best_one()) return {*last.best_one()};
    if (parts_->headers.video.tables.sync.count != 0) {
        // The table of sync samples may be wrong altogether.
        SampleTables tables = parts_->headers.video.tables;
        tables.sync = {};
        FirstFrom any(&check, 0, count);
        visit_table_key_frames(&parts_->source, &parts_->work, tables, 0, &any);
        found = any.take_found();
        if (!found.empty()) return found;
    }
    // So may be the flags of all fragments.
    if (parts_->fragments && parts_->fragments->distrust_flags()) {
        return key_frames_from(time_us, count, Trust::kSamples);
    }
    if (last.any_one()) return {*last.any_one()};
    return {};
}

// NAL units after length prefixes of three bytes get prefixes of four.
static std::vector<uint8_t> with_longer_prefixes(const std::vector<uint8_t>& sample) {
    std::vector<uint8_t> out;
    out.reserve(sample.size() + sample.size() / 64 + 16);
    for (size_t at = 0; sample.size() - at >= 3;) {
        const size_t length = size_t{sample[at]} << 16 | size_t{load_be16(&sample[at + 1])};
        const size_t end = at + 3 + std::min(length, sample.size() - at - 3);
        out.push_back(0);
        out.insert(out.end(), sample.begin() + static_cast<ptrdiff_t>(at),
                   sample.begin() + static_cast<ptrdiff_t>(end));
        at = end;
    }
    return out;
}

bool Movie::read_sample(const MovieKeyFrame& key_frame, std::vector<uint8_t>* sample) {
    sample->clear();
    if (refusal() != MovieRefusal::kNone || key_frame.size > kMaxSampleSize) return false;
    sample->resize(key_frame.size);
    if (parts_->source.read(key_frame.offset, *sample) < key_frame.size) {
        sample->clear();
        return false;
    }
    const std::vector<SampleEntry>& entries = parts_->headers.video.entries;
    if (key_frame.description >= entries.size()) return true;
    const uint32_t prefix_size = entries[key_frame.description].stored_prefix_size;
    if (prefix_size >= 3 && is_byte_stream(*sample, prefix_size)) {
        *sample = with_lengths(*sample);
    } else if (prefix_size == 3) {
        *sample = with_longer_prefixes(*sample);
    }
    return true;
}
