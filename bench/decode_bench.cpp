// SPDX-License-Identifier: BSD-2-Clause
// Decodes every sync sample of a movie and prints what the decoder alone took:
//   frames N bytes B cpu S ms_per_frame M MBps R
// bytes are those of the samples, cpu is in seconds, MBps in 10^6 bytes. Reading the file is not
// in the figures; obtaining and releasing the picture is.
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include "bench/sync_samples.h"
#include "runtime/accounted_memory.h"
#include "thumb/decode_key_frame.h"

struct Totals {
    long frames;
    long failures;
    long long bytes;
    double cpu_s;
};

static double cpu_now_s() {
    timespec t;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

static void decode_timed(const KeyFrame* record, int32_t codec_kind, Totals* totals) {
    DecodedPicture picture;
    const double start_s = cpu_now_s();
    const int result = decode_key_frame(*record, codec_kind, &picture);
    if (result == 0) upnp_free(picture.planes);
    totals->cpu_s += cpu_now_s() - start_s;
    totals->bytes += record->bytes_read;
    ++(result == 0 ? totals->frames : totals->failures);
}

static Totals decode_movie(SyncSamples* samples, long repeat) {
    Totals totals = {};
    for (; repeat > 0; --repeat) {
        KeyFrame record = {};
        sync_samples_rewind(samples);
        while (sync_samples_read(samples, &record) == 0) {
            decode_timed(&record, sync_samples_codec_kind(samples), &totals);
            key_frame_release(&record);
        }
    }
    return totals;
}

int main(int argc, char** argv) {
    const long repeat = argc > 2 ? strtol(argv[2], nullptr, 10) : 1;
    if (argc < 2 || repeat < 1) {
        fprintf(stderr, "usage: %s FILE [REPEAT]\n", argv[0]);
        return 2;
    }
    SyncSamples samples = {};
    upnp_memory_init();
    if (sync_samples_open(argv[1], &samples) != 0) {
        fprintf(stderr, "%s: no sync samples\n", argv[1]);
        sync_samples_close(&samples);
        return 1;
    }
    const Totals totals = decode_movie(&samples, repeat);
    sync_samples_close(&samples);
    if (totals.failures != 0) fprintf(stderr, "%ld samples do not decode\n", totals.failures);
    if (totals.frames == 0) return 1;
    printf("frames %ld bytes %lld cpu %.6f ms_per_frame %.4f MBps %.3f\n", totals.frames,
           totals.bytes, totals.cpu_s, 1e3 * totals.cpu_s / static_cast<double>(totals.frames),
           static_cast<double>(totals.bytes) / totals.cpu_s / 1e6);
    return totals.failures == 0 ? 0 : 1;
}
