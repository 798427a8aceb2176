// SPDX-License-Identifier: BSD-2-Clause
#include "movie/fragment_walk.h"

#include <algorithm>
#include <limits>

constexpr size_t kMaxMarks = 4096;
constexpr uint64_t kSampleCost = 4;

// 8.8.7, flags of "tfhd".
constexpr uint32_t kHasBase = 0x1;
constexpr uint32_t kHasDescription = 0x2;
constexpr uint32_t kHasDuration = 0x8;
constexpr uint32_t kHasSize = 0x10;
constexpr uint32_t kHasFlags = 0x20;
constexpr uint32_t kBaseIsFragment = 0x20000;

// 8.8.8, flags of "trun".
constexpr uint32_t kRunHasOffset = 0x1;
constexpr uint32_t kRunHasFirstFlags = 0x4;
constexpr uint32_t kRunHasDurations = 0x100;
constexpr uint32_t kRunHasSizes = 0x200;
constexpr uint32_t kRunHasFlags = 0x400;
constexpr uint32_t kRunHasCompositions = 0x800;

// 8.8.3.1: a sync sample, and not said to depend on others.
static bool is_sync(uint32_t sample_flags) {
    return (sample_flags & 0x10000) == 0 && (sample_flags >> 24 & 3) != 1;
}

static int64_t wrapped_sum(int64_t a, uint64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + b);
}

struct FragmentWalk::TrackFragment {
    FragmentDefaults defaults;
    uint32_t flags;      // of "tfhd"
    uint64_t base;       // of data offsets
    uint64_t next_data;  // where a run without an offset starts
    int64_t time;
};

FragmentWalk::FragmentWalk(ByteSource* source, WorkBudget* work, const MovieHeaders& headers,
                           uint64_t begin, int64_t begin_time)
    : reader_(source, work),
      index_reader_(source, work),
      headers_(headers),
      begin_{begin_time, begin},
      next_time_(begin_time),
      end_time_(begin_time) {}

bool FragmentWalk::visit(int64_t media_time, KeyFrameVisitor* visitor) {
    return visit_boxes(start_for(media_time), media_time, false, visitor);
}

int64_t FragmentWalk::end_time() {
    constexpr int64_t kEver = std::numeric_limits<int64_t>::max();
    visit_boxes(start_for(kEver), kEver, true, nullptr);
    return end_time_;
}

// From a box of the top level on. Headers are read in one go with those that follow until the next
// media data, as far as the last fragment's size tells.
bool FragmentWalk::visit_boxes(Mark start, int64_t media_time, bool is_end_wanted,
                               KeyFrameVisitor* visitor) {
    next_time_ = start.time;
    uint64_t headers_begin = start.offset;
    BoxWalk walk(&reader_, start.offset, reader_.source_size());
    for (Box box; walk.next(&box);) {
        if (box.type == fourcc("moof")) {
            reader_.expect(box.end - headers_begin + 128);
            if (!visit_fragment(box, visitor)) return false;
        } else if (box.type == fourcc("sidx")) {
            const uint64_t next = behind_index(box, media_time, is_end_wanted);
            if (next != box.end) headers_begin = next;
            walk.skip_to(next);
        } else if (box.type == fourcc("mdat")) {
            headers_begin = box.end;
        }
    }
    return true;
}

FragmentWalk::Mark FragmentWalk::start_for(int64_t media_time) {
    Mark start = begin_;
    for (const Mark& mark : marks_) {
        if (mark.time <= media_time && mark.offset > start.offset) start = mark;
    }
    if (media_time > start.time) look_up_random_access(media_time, &start);
    return start;
}

void FragmentWalk::note_mark(Mark mark) {
    if (!marks_.empty()) {
        const Mark& last = marks_.back();
        if (mark.offset <= last.offset || mark.time <= last.time) return;
        if (mark.time - last.time < mark_distance_) return;
    }
    marks_.push_back(mark);
    if (marks_.size() < kMaxMarks) return;
    size_t kept = 0;
    for (size_t i = 0; i < marks_.size(); i += 2) marks_[kept++] = marks_[i];
    marks_.resize(kept);
    mark_distance_ = (marks_.back().time - marks_.front().time) / static_cast<int64_t>(kMaxMarks);
}

// Indexes may be wrong or of another file: what they point to has to look like what they promise.
bool FragmentWalk::is_fragment_box(uint64_t offset, bool only_moof) {
    const uint64_t size = reader_.source_size();
    if (offset == size) return !only_moof;
    if (offset > size || size - offset < 8) return false;
    const uint32_t type = index_reader_.u32_at(offset + 4);
    if (type == fourcc("moof")) return true;
    static constexpr uint32_t kOthers[] = {fourcc("sidx"), fourcc("styp"), fourcc("emsg"),
                                           fourcc("prft"), fourcc("free"), fourcc("uuid"),
                                           fourcc("ssix"), fourcc("mfra"), fourcc("skip")};
    return !only_moof &&
           std::find(std::begin(kOthers), std::end(kOthers), type) != std::end(kOthers);
}

// 8.8.9 to 8.8.11: moves the mark to the last entry of the track that is not behind media_time.
void FragmentWalk::look_up_random_access(int64_t media_time, Mark* mark) {
    const uint64_t size = reader_.source_size();
    if (size < 16 || index_reader_.u32_at(size - 12) != fourcc("mfro")) return;
    const uint32_t length = index_reader_.u32_at(size - 4);
    Box mfra, tfra;
    if (length > size || !BoxWalk(&index_reader_, size - length, size).next(&mfra)) return;
    if (mfra.type != fourcc("mfra")) return;
    BoxWalk walk(&index_reader_, mfra);
    while (walk.find(fourcc("tfra"), &tfra)) {
        if (index_reader_.u32_at(tfra.content + 4) != headers_.video.id) continue;
        const bool is_wide = index_reader_.u8_at(tfra.content) == 1;
        const uint32_t lengths = index_reader_.u32_at(tfra.content + 8);
        const uint32_t numbers = (lengths >> 4 & 3) + (lengths >> 2 & 3) + (lengths & 3) + 3;
        const Table table = table_of(&index_reader_, tfra, (is_wide ? 16 : 8) + numbers, 12);
        Mark found = *mark;
        for (uint64_t i = 0; i < table.count; ++i) {
            const uint64_t at = table.offset + i * table.entry_size;
            const uint8_t* const entry = index_reader_.at(at, table.entry_size);
            if (!entry) break;
            const Mark stated = {
                static_cast<int64_t>(is_wide ? load_be64(entry) : load_be32(entry)),
                is_wide ? load_be64(entry + 8) : load_be32(entry + 4)};
            if (stated.time > media_time) break;
            if (stated.offset > found.offset && stated.time >= found.time) found = stated;
        }
        if (is_fragment_box(found.offset, true)) *mark = found;
    }
}

// 8.16.3: behind the index, or behind those of its segments that end in front of media_time. The
// last one is skipped only when just its end is wanted.
uint64_t FragmentWalk::behind_index(const Box& sidx, int64_t media_time, bool is_end_wanted) {
    const bool is_wide = reader_.u8_at(sidx.content) == 1;
    const uint32_t time_scale = std::max<uint32_t>(reader_.u32_at(sidx.content + 8), 1);
    const uint64_t fields = sidx.content + 12;
    uint64_t time = is_wide ? reader_.u64_at(fields) : reader_.u32_at(fields);
    uint64_t segment =
        sidx.end + (is_wide ? reader_.u64_at(fields + 8) : reader_.u32_at(fields + 4));
    const uint64_t count_place = fields + (is_wide ? 18 : 10);
    const uint32_t count = reader_.u16_at(count_place);
    const auto media_time_of = [&](uint64_t at) {
        const uint64_t limit = std::numeric_limits<int64_t>::max();
        return rescale(static_cast<int64_t>(std::min(at, limit)), time_scale,
                       headers_.video.time_scale);
    };
    uint32_t skipped = 0;
    for (; skipped + (is_end_wanted ? 0 : 1) < count; ++skipped) {
        const uint64_t entry = count_place + 2 + uint64_t{12} * skipped;
        if (entry + 12 > sidx.end) break;
        const uint64_t next = segment + (reader_.u32_at(entry) & 0x7fffffff);
        const uint64_t next_time = time + reader_.u32_at(entry + 4);
        if (next < sidx.end || next > reader_.source_size()) break;
        if (media_time_of(next_time) > media_time) break;
        segment = next;
        time = next_time;
    }
    if (skipped == 0 || !is_fragment_box(segment, false)) return sidx.end;
    next_time_ = media_time_of(time);
    if (is_end_wanted) end_time_ = std::max(end_time_, next_time_);
    return segment;
}

bool FragmentWalk::visit_fragment(const Box& moof, KeyFrameVisitor* visitor) {
    BoxWalk walk(&reader_, moof);
    bool is_marked = false;
    for (Box traf; walk.find(fourcc("traf"), &traf);) {
        TrackFragment fragment;
        if (!read_track_header(moof, traf, &fragment)) continue;
        if (fragment.defaults.track_id != headers_.video.id) continue;
        if ((fragment.flags & (kHasBase | kBaseIsFragment)) == 0) {
            fragment.base = fragment.next_data = implicit_base(moof, traf);
        }
        Box tfdt;
        if (find_child(&reader_, traf, fourcc("tfdt"), &tfdt)) {
            const bool is_wide = reader_.u8_at(tfdt.content) == 1;
            fragment.time = is_wide ? static_cast<int64_t>(reader_.u64_at(tfdt.content + 4))
                                    : int64_t{reader_.u32_at(tfdt.content + 4)};
        }
        if (!is_marked) note_mark({fragment.time, moof.begin});
        is_marked = true;
        const bool goes_on = visit_track(traf, &fragment, visitor);
        next_time_ = fragment.time;
        end_time_ = std::max(end_time_, next_time_);
        if (!goes_on) return false;
    }
    return true;
}

// Returns false for a track fragment without a header.
bool FragmentWalk::read_track_header(const Box& moof, const Box& traf, TrackFragment* fragment) {
    Box tfhd;
    if (!find_child(&reader_, traf, fourcc("tfhd"), &tfhd)) return false;
    fragment->flags = reader_.u32_at(tfhd.content) & 0xffffff;
    fragment->time = next_time_;
    fragment->base = moof.begin;
    FragmentDefaults* const defaults = &fragment->defaults;
    *defaults = {};
    const uint32_t track_id = reader_.u32_at(tfhd.content + 4);
    for (const FragmentDefaults& stated : headers_.defaults) {
        if (stated.track_id == track_id) *defaults = stated;
    }
    defaults->track_id = track_id;
    uint64_t field = tfhd.content + 8;
    if (fragment->flags & kHasBase) {
        fragment->base = reader_.u64_at(field);
        field += 8;
    }
    const struct {
        uint32_t flag;
        uint32_t* value;
    } kOptional[] = {{kHasDescription, &defaults->description},
                     {kHasDuration, &defaults->duration},
                     {kHasSize, &defaults->size},
                     {kHasFlags, &defaults->flags}};
    for (const auto& optional : kOptional) {
        if ((fragment->flags & optional.flag) == 0) continue;
        *optional.value = reader_.u32_at(field);
        field += 4;
    }
    fragment->next_data = fragment->base;
    return true;
}

// 8.8.7.1: without any base the data goes on where that of the track fragment in front ends.
uint64_t FragmentWalk::implicit_base(const Box& moof, const Box& traf) {
    uint64_t base = moof.begin;
    BoxWalk walk(&reader_, moof);
    for (Box earlier; walk.find(fourcc("traf"), &earlier) && earlier.begin < traf.begin;) {
        TrackFragment fragment;
        if (!read_track_header(moof, earlier, &fragment)) continue;
        if ((fragment.flags & (kHasBase | kBaseIsFragment)) == 0) {
            fragment.base = fragment.next_data = base;
        }
        visit_track(earlier, &fragment, nullptr);
        base = fragment.next_data;
    }
    return base;
}

bool FragmentWalk::visit_track(const Box& traf, TrackFragment* fragment, KeyFrameVisitor* visitor) {
    BoxWalk walk(&reader_, traf);
    bool goes_on = true;
    for (Box trun; goes_on && walk.find(fourcc("trun"), &trun);) {
        goes_on = visit_run(trun, fragment, visitor);
    }
    return goes_on;
}

bool FragmentWalk::visit_run(const Box& trun, TrackFragment* fragment, KeyFrameVisitor* visitor) {
    const FragmentDefaults& defaults = fragment->defaults;
    const uint32_t flags = reader_.u32_at(trun.content);
    uint64_t count = reader_.u32_at(trun.content + 4);
    uint64_t field = trun.content + 8;
    if (flags & kRunHasOffset) {
        const int64_t offset = static_cast<int32_t>(reader_.u32_at(field));
        fragment->next_data = fragment->base + static_cast<uint64_t>(offset);
        field += 4;
    }
    const bool has_first_flags = (flags & kRunHasFirstFlags) != 0;
    const uint32_t first_flags = has_first_flags ? reader_.u32_at(field) : defaults.flags;
    if (has_first_flags) field += 4;
    if (field > trun.end) return true;
    const uint32_t entry_size =
        4 * static_cast<uint32_t>(__builtin_popcount(
                flags & (kRunHasDurations | kRunHasSizes | kRunHasFlags | kRunHasCompositions)));
    if (entry_size != 0) count = std::min(count, (trun.end - field) / entry_size);
    for (uint64_t i = 0; i < count; ++i) {
        if (entry_size == 0 && i == 1 && (!visitor || !is_sync(defaults.flags))) {
            // All further samples are alike, and none is of interest.
            fragment->time = wrapped_sum(fragment->time, (count - 1) * defaults.duration);
            fragment->next_data += (count - 1) * defaults.size;
            return true;
        }
        const uint8_t* entry = reader_.at(field + i * entry_size, entry_size);
        if (!entry || !reader_.spend(kSampleCost)) return true;
        const auto value = [&](uint32_t flag, uint32_t otherwise) {
            if ((flags & flag) == 0) return otherwise;
            entry += 4;
            return load_be32(entry - 4);
        };
        const uint32_t duration = value(kRunHasDurations, defaults.duration);
        const uint32_t size = value(kRunHasSizes, defaults.size);
        const uint32_t stated = value(kRunHasFlags, defaults.flags);
        const uint32_t sample_flags = i == 0 && has_first_flags ? first_flags : stated;
        // Signed with version 1, and with version 0 by many writers.
        const int64_t composition = static_cast<int32_t>(value(kRunHasCompositions, 0));
        if (visitor && size != 0 && is_sync(sample_flags)) {
            const int64_t shown = wrapped_sum(fragment->time, static_cast<uint64_t>(composition));
            if (visitor->wants(shown) &&
                !visitor->take({shown, fragment->next_data, size, defaults.description})) {
                return false;
            }
        }
        fragment->time = wrapped_sum(fragment->time, duration);
        fragment->next_data += size;
    }
    return true;
}
