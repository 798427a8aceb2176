// SPDX-License-Identifier: BSD-2-Clause
#include "movie/movie.h"

#include <gtest/gtest.h>
#include <time.h>

#include <array>
#include <functional>
#include <sstream>

#include "tests/movie/opened_movie.h"

static const std::string kStartCode("\0\0\0\1", 4);

static std::vector<std::string> sync_bytes(const TrackSpec& track) {
    std::vector<std::string> out;
    for (const FilmSample& sample : track.samples) {
        if (sample.is_sync) out.push_back(sample.bytes);
    }
    return out;
}

static TrackSpec track_of(uint32_t count, uint32_t distance) {
    return {.samples = film_samples(count, distance)};
}

TEST(Movie, ReadsTablesAndHeadersOfEveryShape) {
    for (int i = 0; i < 5 * 3 * 2; ++i) {
        const uint32_t size_bits = std::array{0, 4, 8, 16, 32}[i % 5];
        TrackSpec track = track_of(11, 3);
        track.size_bits = size_bits;
        track.samples_per_chunk = std::array{1, 3, 100}[i / 5 % 3];
        track.has_large_offsets = track.is_wide = i >= 15;
        track.width = 96;
        track.matrix[0] = 0xffff0000;
        track.edits = track.is_wide ? u32(1) + u64(12000) + u64(0) + u32(0x10000)
                                    : words({1, 12000, 0, 0x10000});
        SCOPED_TRACE(testing::Message() << size_bits << " bits a size, " << track.samples_per_chunk
                                        << " samples a chunk, 64 bits " << track.is_wide);
        for (uint32_t k = 0; k < track.samples.size(); ++k) {
            const uint32_t length = size_bits == 0 ? 14 : 10 + k % 5;
            track.samples[k].bytes =
                k % 3 == 0 ? idr_sample(k, length) : predicted_sample(k, length);
        }
        OpenedMovie movie(plain_film(track));
        EXPECT_EQ(movie.samples(), sync_bytes(track));
        EXPECT_EQ(movie.times_ms(4000, 9), (std::vector<int64_t>{6000, 9000}));
        EXPECT_EQ(movie->duration_us(), 12000000);
        EXPECT_EQ(movie->display_width(), 96u);
        EXPECT_EQ(movie->orientation(), Orientation::kMirrored);
    }
}

TEST(Movie, LooksUpLongTablesWithFewReads) {
    OpenedMovie movie(plain_film(track_of(20000, 10000)));
    EXPECT_EQ(movie.times_ms(9000, 1), std::vector<int64_t>{10000000});
    EXPECT_LE(movie.source.reads, 24u);
}

TEST(Movie, LooksIntoSamplesWhereTheSyncTableIsWrong) {
    const TrackSpec right = track_of(9, 4);
    const auto check = [&](const char* name, bool has_table, bool lists_key_frames,
                           bool lists_others) {
        SCOPED_TRACE(name);
        TrackSpec track = right;
        track.has_sync_table = has_table;
        for (FilmSample& sample : track.samples) {
            sample.is_sync = sample.is_sync ? lists_key_frames : lists_others;
        }
        OpenedMovie movie(plain_film(track));
        EXPECT_EQ(movie.samples(), sync_bytes(right));
        // Who trusts the index gets what it says, where that tells samples apart.
        const bool is_misled = lists_others && !lists_key_frames;
        const MovieKeyFrame first = movie->key_frames_from(0, 1, Trust::kIndex).at(0);
        EXPECT_EQ(movie.bytes_of(first), right.samples[is_misled].bytes);
    };
    check("missing", false, false, false);
    check("empty", true, false, false);
    check("all", true, true, true);
    check("others alone", true, false, true);
    // A number after the last sample says nothing, although a picture lies where it would be.
    TrackSpec four = track_of(4, 1);
    four.size_bits = 0;
    std::string file = plain_film(four);
    OpenedMovie three(file.replace(file.find("stsz") + 12, 4, u32(3)));
    EXPECT_EQ(three.samples().size(), 3u);
}

TEST(Movie, StartsWhereItIsAskedTo) {
    TrackSpec track = track_of(20, 5);  // key frames at 0, 5, 10 and 15 seconds
    OpenedMovie movie(plain_film(track));
    // clang-format off
    static const struct { int64_t from_ms; size_t count; std::vector<int64_t> want; } kCases[] = {
        {INT64_MIN / 1000, 2, {0, 5000}}, {0, 2, {0, 5000}}, {1, 2, {5000, 10000}}, {0, 0, {}},
        {5000, 1, {5000}}, {9999, 9, {10000, 15000}}, {15001, 9, {15000}},
        {INT64_MAX / 1000, 9, {15000}},
    };
    // clang-format on
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.from_ms);
        EXPECT_EQ(movie.times_ms(c.from_ms, c.count), c.want);
    }
    // Without a table of sync samples the same ones are found, also after what an edit cuts off.
    track.has_sync_table = false;
    EXPECT_EQ(OpenedMovie(plain_film(track)).times_ms(5001, 1), std::vector<int64_t>{10000});
    track.edits = words({1, 9100, 60, 0x10000});
    EXPECT_EQ(OpenedMovie(plain_film(track)).times_ms(0, 2), (std::vector<int64_t>{4000, 9000}));
}

TEST(Movie, ShowsTimesWithCompositionAndEdits) {
    const auto check = [](const char* name, const std::string& edits, int32_t composition,
                          const std::vector<int64_t>& want) {
        SCOPED_TRACE(name);
        TrackSpec track = track_of(20, 5);
        for (FilmSample& sample : track.samples) sample.composition = composition;
        track.edits = edits;
        EXPECT_EQ(OpenedMovie(plain_film(track)).times_ms(), want);
    };
    check("composition", "", 2, {200, 5200, 10200, 15200});
    check("negative composition", "", -2, {0, 4800, 9800, 14800});
    check("composition taken back", words({1, 20000, 2, 0x10000}), 2, {0, 5000, 10000, 15000});
    check("starts within a group", words({1, 9100, 60, 0x10000}), 0, {4000, 9000});
    check("starts with a group", words({1, 10100, 50, 0x10000}), 0, {0, 5000, 10000});
    check("ends within a group", words({1, 8000, 60, 0x10000}), 0, {4000});
    check("shows part of a group", words({1, 2000, 60, 0x10000}), 0, {-1000});
    check("ends before the first one", words({1, 1000, 0, 0x10000}), 50, {5000});
    check("starts within the last group", words({1, 4000, 160, 0x10000}), 0, {-1000});
    check("nothing first", words({2, 3000, UINT32_MAX, 0x10000, 20000, 0, 0x10000}), 0,
          {3000, 8000, 13000, 18000});
}

TEST(Movie, GivesWhatATruncatedFileHas) {
    const TrackSpec track = track_of(9, 3);
    const std::string type = box("ftyp", "isom" + zeros(4));
    const std::string size_probe = film_header(film_track(track, 0));
    const size_t data = type.size() + size_probe.size() + 8;
    const std::string whole =
        type + film_header(film_track(track, data)) + box("mdat", sample_data(track.samples));
    for (size_t length = 0; length <= whole.size(); ++length) {
        SCOPED_TRACE(length);
        OpenedMovie movie(whole.substr(0, length));
        movie->duration_us();
        const std::vector<std::string> found = movie.samples(3000);
        // A key frame of 40 bytes and two others of 20 make a group.
        if (length < data) continue;
        ASSERT_EQ(found.empty(), length == data);
        if (length == data) continue;
        EXPECT_EQ(movie.times_ms(3000)[0], length < data + 120 ? 0 : 3000);
        EXPECT_EQ(found[0].size(), std::min<size_t>(length - data, 40));
    }
}

// What is read of a film's one entry: codec/bytes of a length, size, shape and colour as far as
// they are stated, [configuration].
static std::string described(const std::string& entry) {
    static const char* const kCodecs[] = {"none", "MPEG-4", "H.263", "H.264"};
    TrackSpec track = track_of(1, 1);
    track.entries = {entry};
    OpenedMovie movie(plain_film(track));
    if (movie->refusal() == MovieRefusal::kEncrypted) return "encrypted " + movie->refused_format();
    if (movie->refusal() == MovieRefusal::kOtherCodec) return "other " + movie->refused_format();
    const VideoDescription& d = movie->descriptions().at(0);
    std::ostringstream text;
    text << kCodecs[static_cast<int>(d.codec)] << '/' << d.length_prefix_size;
    text << ' ' << d.width << 'x' << d.height;
    if (d.pixel_width || d.pixel_height) text << ' ' << d.pixel_width << ':' << d.pixel_height;
    if (d.colour) {
        text << ' ' << d.colour->primaries << '/' << d.colour->transfer << '/' << d.colour->matrix;
        if (d.colour->is_full_range) text << (*d.colour->is_full_range ? " full" : " limited");
    }
    text << " [" << std::string(d.configuration.begin(), d.configuration.end()) << ']';
    return text.str();
}

static std::string descriptor(char tag, const std::string& content) {
    const size_t length = content.size();
    const char size[] = {tag, '\x80', static_cast<char>(0x80 | length >> 7),
                         static_cast<char>(length & 0x7f)};
    return std::string(size, 4) + content;
}

static std::string stream_entry(char object_type, char flags, const std::string& fields,
                                const std::string& info, const char* format = "mp4v") {
    const std::string decoder = descriptor(4, object_type + zeros(12) + descriptor(5, info));
    return visual_entry_of(format,
                           full_box("esds", descriptor(3, zeros(2) + flags + fields + decoder)));
}

TEST(Movie, DescribesWhatItReadsAndRefuses) {
    const std::string two = avc_configuration({"\x67one", "\x67second"}, {"\x68p", "\x68q"}, 2);
    const std::string avc = avc_configuration({"\x67s"}, {"\x68p"}), frma = box("frma", "avc1");
    const auto sinf = [&](const std::string& schi) { return box("sinf", frma + schi); };
    const auto tenc = [](const char* is_protected) {
        return box("schi", full_box("tenc", zeros(2) + is_protected + zeros(17)));
    };
    const std::string sets = "[" + u16(2) + "\x67s" + u16(2) + "\x68p]", info(300, 'i');
    const std::string shape =
        full_box("pasp", words({8}), 4) + box("colr", "nclx" + u16(9) + u16(16) + u16(10) + "\x80");
    // What makes no sense is not said, nor a range that is not stated.
    const std::string odd =
        full_box("pasp", words({0})) + box("colr", "nclc" + u16(1) + u16(1) + u16(6));
    // clang-format off
    const std::pair<std::string, std::string> kCases[] = {
        {visual_entry_of("avc1", avc), "H.264/4 64x48 " + sets},
        {visual_entry_of("AVC1", avc), "H.264/4 64x48 " + sets},
        {visual_entry_of("q264", box("wave", box("frma", "q264") + avc + zeros(8))),
         "H.264/4 64x48 " + sets},
        {visual_entry_of("avc3"), "H.264/4 64x48 []"},
        {visual_entry_of("avc1", two + shape, 720, 486),
         "H.264/2 720x486 4:8 9/16/10 full [" + u16(4) + "\x67one" + u16(7) +
         "\x67second" + u16(2) + "\x68p" + u16(2) + "\x68q]"},
        {visual_entry_of("avc1", odd), "H.264/4 64x48 1/1/6 []"},
        // A record that is cut keeps the sets that are whole.
        {visual_entry_of("avc1", box("avcC", two.substr(8, 16))),
         "H.264/2 64x48 [" + u16(4) + "\x67one]"},
        {visual_entry_of("avc1", box("avcC", two.substr(8, 4))), "H.264/4 64x48 []"},
        // A byte stream in place of the record.
        {visual_entry_of("avc1", box("avcC", kStartCode + "\x68p" + zeros(2) +
                                                 kStartCode.substr(1) + "\x67s" + kStartCode)),
         "H.264/4 64x48 " + sets},
        {visual_entry_of("avc1", avc_configuration({kStartCode + "\x67s"}, {kStartCode + "\x68p"})),
         "H.264/4 64x48 " + sets},
        {visual_entry_of("avc1", avc_configuration({"\x67s" + kStartCode + "\x68p"}, {})),
         "H.264/4 64x48 [" + u16(8) + "\x67s" + kStartCode + "\x68" + "p" + u16(2) + "\x68p]"},
        {stream_entry('\x20', 0, "", info), "MPEG-4/0 64x48 [" + info + "]"},
        {stream_entry('\x20', '\xe0', "dd\4urlscc", "info"), "MPEG-4/0 64x48 [info]"},
        {visual_entry_of("XVID", box("glbl", "vol")), "MPEG-4/0 64x48 [vol]"},
        {visual_entry_of("3IV2", box("glbl", "vol")), "MPEG-4/0 64x48 [vol]"},
        {visual_entry_of("s263", box("d263", "content")), "H.263/0 64x48 [content]"},
        {visual_entry_of("h263"), "H.263/0 64x48 []"},
        {stream_entry('\x20', 0, "", info, "s263"), "MPEG-4/0 64x48 [" + info + "]"},
        {stream_entry('\x61', 0, "", info), "other mp2v"},
        {visual_entry_of("encv", avc + sinf(tenc("\1"))), "encrypted encv"},
        {visual_entry_of("encv", sinf(tenc("")) + avc), "H.264/4 64x48 " + sets},
        {visual_entry_of("encv", sinf("")), "H.264/4 64x48 []"},
        {visual_entry_of("drmi", avc), "encrypted drmi"},
        {visual_entry_of("avc1", avc + sinf(box("schi"))), "encrypted avc1"},
        {visual_entry_of("what", avc), "H.264/4 64x48 " + sets},
        {visual_entry_of("avc1", avc + avc_configuration({""}, {}, 1)), "H.264/4 64x48 " + sets},
        {visual_entry_of("hvc1"), "other hvc1"},
        {visual_entry_of("\xa9v 1"), "other ?v 1"},
        {box("hvc1", "short"), "other hvc1"},
    };
    // clang-format on
    for (const auto& [entry, want] : kCases) EXPECT_EQ(described(entry), want);
}

TEST(Movie, GoesByTheChunksDescription) {
    TrackSpec track = track_of(6, 1);
    track.entries = {plain_avc_entry(), visual_entry_of("encv"),
                     visual_entry_of("avc1", avc_configuration({"\x67"}, {"\x68"}, 3))};
    const uint32_t descriptions[] = {1, 2, 3, 9, 0, 1};
    for (size_t i = 0; i < 6; ++i) track.samples[i].description = descriptions[i];
    track.samples[0].bytes = kStartCode + "\x09x" + zeros(1) + kStartCode + idr_sample(0).substr(4);
    track.samples[2].bytes =
        idr_sample(2, 40, 3) + std::string("\0\0\2xy", 5) + std::string("\0\0\7cut", 6);
    OpenedMovie movie(plain_film(track));
    const std::vector<MovieKeyFrame> found = movie->key_frames_from(0, kAll);
    ASSERT_EQ(found.size(), 5u);  // without the encrypted one
    const uint32_t want[] = {0, 2, 2, 0, 0};
    for (size_t i = 0; i < 5; ++i) EXPECT_EQ(found[i].description, want[i]) << i;
    EXPECT_EQ(movie->descriptions()[2].length_prefix_size, 4u);
    EXPECT_EQ(movie.bytes_of(found[0]), u32(2) + "\x09x" + idr_sample(0));
    EXPECT_EQ(movie.bytes_of(found[1]),
              zeros(1) + idr_sample(2, 40, 3) + u32(2) + "xy" + u32(7) + "cut");
}

TEST(Movie, ChoosesTheVideo) {
    TrackSpec film = track_of(2, 1);
    film.duration = 20;
    TrackSpec other = film;
    other.id = 2;
    other.width = 32;  // by which the chosen one is known
    const std::vector<std::string> hevc = {visual_entry_of("hvc1")},
                                   jpeg = {visual_entry_of("jpeg")};
    const auto check = [&](const char* name, bool is_other,
                           const std::function<void(TrackSpec*, TrackSpec*)>& change) {
        SCOPED_TRACE(name);
        TrackSpec a = film, b = other;
        change(&a, &b);
        OpenedMovie movie(box("mdat", zeros(99)) +
                          film_header(film_track(a, 8) + film_track(b, 8)));
        EXPECT_EQ(movie->display_width(), (is_other ? b : a).width);
    };
    check("the first of equal ones", false, [](auto*, auto* o) { o->width = 64, o->height = 47; });
    check("the longer one", true, [](auto*, auto* o) { o->duration = 21; });
    check("longer in seconds", false, [](auto*, auto* o) { o->duration = 21, o->time_scale = 11; });
    check("an enabled one", true, [](auto* f, auto*) { f->flags = 6; });
    check("one that can be decoded", true, [&](auto* f, auto*) { f->entries = hevc; });
    check("but an enabled one", false, [&](auto* f, auto* o) { f->entries = hevc, o->flags = 6; });
    check("no cover", true, [&](auto* f, auto* o) {
        f->entries = jpeg, f->samples.resize(1), f->duration = 99, o->flags = 6;
    });
    check("no chapters", true,
          [](auto* f, auto* o) { f->duration = 99, o->references = box("chap", u32(1)); });
    check("no sound", true, [](auto* f, auto*) { f->handler = "soun"; });
    check("no depth", true, [](auto* f, auto* o) {
        f->handler = "auxv", f->media_boxes = full_box("vmhd", zeros(8)), o->flags = 6;
    });
    check("one with samples", true, [](auto* f, auto* o) { f->samples = {}, o->flags = 6; });
    check("one with an entry", true, [](auto* f, auto*) { f->entries = {}; });
    film.handler = "auxv", film.media_boxes = full_box("vmhd", zeros(8));
    EXPECT_EQ(OpenedMovie(plain_film(film))->refusal(), MovieRefusal::kNone);
    film.entries = {visual_entry_of("png ")};
    film.samples.resize(1);
    EXPECT_EQ(OpenedMovie(plain_film(film))->refusal(), MovieRefusal::kNoVideo);
}

TEST(Movie, TurnsAndMirrors) {
    constexpr uint64_t k1 = 0x10000, kMinus1 = 0xffff0000;
    using enum Orientation;
    // clang-format off
    static const struct { uint64_t a, b, c, d; Orientation want; } kCases[] = {
        {k1, 0, 0, k1, kUpright}, {kMinus1, 0, 0, k1, kMirrored},
        {kMinus1, 0, 0, kMinus1, kTurned180}, {k1, 0, 0, kMinus1, kFlipped},
        {0, k1, k1, 0, kTransposed}, {0, k1, kMinus1, 0, kTurned90},
        {0, kMinus1, kMinus1, 0, kTransversed}, {0, kMinus1, k1, 0, kTurned270},
        {0x20000, 0x100, 0xffffff00, k1, kUpright}, {0, 0, 0, 0, kUpright},
    };
    // clang-format on
    const std::vector<uint64_t> half_turn = {kMinus1, 0, 0, 0, kMinus1, 0, 0, 0, 0x40000000};
    for (const auto& c : kCases) {
        SCOPED_TRACE(testing::Message() << c.a << ' ' << c.b << ' ' << c.c << ' ' << c.d);
        TrackSpec track = track_of(1, 1);
        track.matrix = {c.a, c.b, 0, c.c, c.d, 0, 0, 0, 0x40000000};
        EXPECT_EQ(OpenedMovie(plain_film(track))->orientation(), c.want);
        // Half a turn by the movie's matrix comes on top: EXIF's 1 and 3, 2 and 4, 5 and 7, 6 and 8
        // change places.
        OpenedMovie turned(film_header(film_track(track, 0), 0, half_turn));
        const uint8_t number = static_cast<uint8_t>(c.want);
        EXPECT_EQ(static_cast<uint8_t>(turned->orientation()),
                  (number - 1) / 4 * 4 + (number + 1) % 4 + 1);
    }
}

TEST(Movie, StatesTheShapeOfPixelsOnce) {
    // clang-format off
    static const struct {
        uint32_t entry[2]; uint64_t a; uint32_t width, height; double want;
    } kCases[] = {
        {{0, 0}, 0x10000, 64, 48, 0}, {{4, 3}, 0x20000, 128, 48, 4.0 / 3}, {{4, 0}, 0x20000, 128, 48, 2},
        {{0, 0}, 0x10000, 128, 48, 2}, {{0, 0}, 0x10000, 65, 48, 0}, {{0, 0}, 0x10000, 128, 0, 0},
    };
    // clang-format on
    for (const auto& c : kCases) {
        TrackSpec track = track_of(1, 1);
        track.entries = {visual_entry_of("avc1", box("pasp", u32(c.entry[0]) + u32(c.entry[1])))};
        track.matrix[0] = c.a;
        track.width = c.width;
        track.height = c.height;
        EXPECT_DOUBLE_EQ(OpenedMovie(plain_film(track))->pixel_aspect(0), c.want) << &c - kCases;
    }
}

TEST(Movie, FindsTheMovieBoxWhereverItIs) {
    const TrackSpec track = track_of(3, 1);
    const std::string data = sample_data(track.samples), mdat = u32(data.size() + 8) + "mdat";
    const std::string meta = box("meta", box("hdlr", zeros(20))), full_meta = full_box("meta", "x");
    const std::string udta = box("udta", box("name", "x") + u32(0));
    const auto expect_movie = [&](const char* name, const std::string& file) {
        EXPECT_EQ(OpenedMovie(file).samples(), sync_bytes(track)) << name;
    };
    // Up to where the data starts; the movie box after it goes to the end of the file.
    const auto expect_movie_after = [&](const char* name, const std::string& front) {
        const std::string movie = film_header(film_track(track, front.size()) + meta);
        expect_movie(name, front + data + u32(0) + movie.substr(4));
    };
    expect_movie_after("without a file type", mdat);
    expect_movie_after("wide data", box("wide") + u32(1) + "mdat" + u64(data.size() + 16));
    expect_movie_after("unknown boxes", box("ftyp", "what") + meta + full_meta + udta + mdat);
    expect_movie_after("unknown box first", box("what", "x") + mdat);
    expect_movie_after("large box", large_box("skip", zeros(99)) + mdat);
    expect_movie_after("placeholders",
                       film_header("") + film_header(film_track(track_of(0, 1), 0)) + mdat);
    expect_movie_after("swallowed by open data", box("free", "\0\0\0\7moov") + u32(0) + "mdat");
    expect_movie_after("swallowed by long data", u32(99999) + "mdat");
    expect_movie_after("begun by long data", u32(data.size() + 48) + "mdat");
    expect_movie_after("after short data", u32(data.size()) + "mdat");
    const size_t header = film_header(udta + film_track(track, 0)).size();
    const std::string movie = film_header(udta + film_track(track, header + 8));
    const std::string moved = film_header(film_track(track, 8)), all = box("mdat", data);
    expect_movie("in free space", all + box("free", moved.substr(8)));
    for (const uint32_t more : {0, 1}) {
        const std::string stored = u32(static_cast<uint32_t>(moved.size()) + more) + moved;
        const std::string compressed = box("cmov", box("dcom", "zlib") + box("cmvd", stored));
        EXPECT_EQ(OpenedMovie(all + box("moov", compressed)).samples(),
                  more ? std::vector<std::string>() : sync_bytes(track));
    }
    const std::string tag = "ID3\4" + zeros(4) + "\1\2" + zeros(130);
    expect_movie("after a tag",
                 tag + film_header(udta + film_track(track, tag.size() + header + 8)) + all);
    expect_movie("open data last", movie + u32(0) + "mdat" + data);
    expect_movie("data too long", movie + u32(99999) + "mdat" + data);
}

TEST(Movie, RefusesWhatIsNoMovie) {
    TrackSpec sound = track_of(1, 1);
    sound.handler = "soun";
    const auto check = [&](const char* name, const std::string& file, MovieRefusal want) {
        SCOPED_TRACE(name);
        OpenedMovie movie(file);
        EXPECT_EQ(movie->refusal(), want);
        EXPECT_EQ(movie->duration_us(), 0);
        EXPECT_EQ(movie->refused_format(), "");
        EXPECT_TRUE(movie.times_ms().empty());
        std::vector<uint8_t> sample(3);
        EXPECT_FALSE(movie->read_sample({0, 0, 1, 0}, &sample));
        EXPECT_TRUE(sample.empty());
    };
    check("nothing", "", MovieRefusal::kNotAMovie);
    check("text", "once upon a time there was", MovieRefusal::kNotAMovie);
    check("another container", "\x1a\x45\xdf\xa3 matroska", MovieRefusal::kNotAMovie);
    check("size of 4", u32(4) + "ftypisom", MovieRefusal::kNotAMovie);
    check("data alone", box("ftyp", "isom") + box("mdat", zeros(99)), MovieRefusal::kNoMovieBox);
    check("segment", box("styp", "msdh") + film_fragment({}, 12), MovieRefusal::kNoMovieBox);
    check("compressed", box("moov", box("cmov", zeros(20))), MovieRefusal::kCompressedHeader);
    check("empty", box("moov"), MovieRefusal::kNoVideo);
    check("sound", plain_film(sound), MovieRefusal::kNoVideo);
    check("reference", box("moov", box("rmra", box("rmda"))), MovieRefusal::kReferenceMovie);
}

TEST(Movie, HostileFilesEndSoon) {
    constexpr uint64_t kMany = UINT32_MAX;
    const std::string media = media_header(10, 0) + handler("vide");
    const auto film = [&](const std::string& tables, const std::string& edits = "",
                          const std::string& defaults = "") {
        const std::string table =
            box("stbl", full_box("stsd", u32(1) + plain_avc_entry()) + tables);
        return box("moov", defaults + box("trak", edits + box("mdia", media + box("minf", table))));
    };
    const std::string sizes = full_box("stsz", words({1, kMany}));
    const std::string chunk = full_box("stco", words({1, 0}));
    const std::string one_run = full_box("stsc", words({1, 1, kMany, 1}));
    // A table that claims to go on for gigabytes of zeros.
    const auto endless = [](const std::string& type, const std::string& content) {
        return u32(1) + type + u64(uint64_t{1} << 40) + zeros(4) + content;
    };
    std::string edits = u32(256);
    for (uint32_t i = 0; i < 256; ++i) edits += words({1, INT32_MAX - i, 0x10000});
    const std::string far = full_box("stss", words({1, kMany}));
    std::string fragments, defaults;
    for (int i = 0; i < 1000; ++i) fragments += box("traf", full_box("tfhd", u32(0)));
    for (int i = 0; i < 1000; ++i) defaults += full_box("trex", zeros(20));
    // clang-format off
    static const struct { const char* name; std::string tables, edits = {}, defaults = {}, fragment = {}; }
    kCases[] = {
        {"endless sizes", one_run + chunk + endless("stsz", words({0, kMany}))},
        {"four billion key frames", sizes + one_run + chunk},
        {"and edits without any", sizes + one_run + chunk, box("edts", full_box("elst", edits))},
        {"chunks of nothing", sizes + full_box("stsc", words({1, 1, 0, 1})) + chunk},
        {"runs that go back",
         sizes + full_box("stsc", words({4, 9, 1, 1, 5, 1, 1, 5, 1, 1, 0, 1, 1})) + chunk},
        {"endless durations", sizes + one_run + chunk + endless("stts", words({kMany}))},
        {"endless runs", sizes + chunk + endless("stsc", words({kMany}))},
        {"endless sync samples", sizes + one_run + chunk + endless("stss", words({kMany}))},
        {"endless boxes", sizes + one_run + chunk + u32(1) + "free" + u64(uint64_t{1} << 40)},
        {"sizes up to a far key frame", far + one_run + chunk + endless("stsz", words({0, kMany}))},
        {"defaults of many tracks", "", "", box("mvex", defaults), box("moof", fragments)},
    };
    // clang-format on
    clock_t taken_by_first = 0;  // of the processor, which may be an emulated one
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        std::string file = c.fragment + film(c.tables, c.edits, c.defaults);
        const clock_t begin = clock();
        // The boxes around it go to the end of the file.
        for (const char* const type : {"moov", "trak", "mdia", "minf", "stbl"}) {
            file.replace(file.find(type) - 4, 4, u32(0));
        }
        OpenedMovie(file, uint64_t{1} << 41).expect_to_end_soon();
        const clock_t taken = clock() - begin;
        if (taken_by_first == 0) taken_by_first = taken;
        EXPECT_LT(taken, 5 * taken_by_first);
    }
    std::string nested;
    for (int i = 0; i < 100000; ++i) nested += u32(0) + "moov";
    EXPECT_EQ(OpenedMovie(nested + film(sizes))->refusal(), MovieRefusal::kNoVideo);
}

TEST(FileSource, ReadsRegularFilesAlone) {
    EXPECT_FALSE(FileSource::open("/dev/zero"));
    EXPECT_FALSE(FileSource::open("/"));
    EXPECT_FALSE(FileSource::open("/no/such/file"));
    std::optional<FileSource> source = FileSource::open("/proc/self/exe");
    ASSERT_TRUE(source);
    uint8_t bytes[4];
    EXPECT_EQ(source->read(1, bytes), 4u);
    EXPECT_EQ(bytes[0], 'E');
    EXPECT_EQ(source->read(source->size() - 3, bytes), 3u);
    EXPECT_EQ(source->read(source->size(), bytes), 0u);
    EXPECT_EQ(source->read(UINT64_MAX - 1, bytes), 0u);
}
