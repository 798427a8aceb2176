// SPDX-License-Identifier: BSD-2-Clause
// The leanest thumbnailer to be had on the general media libraries, for comparison: one thread, low
// delay, no probing, nothing but key frames read and decoded, nearest neighbour scaling, samples
// handed to libjpeg as they are. Two uses:
//   general_peer FILE [REPEAT]                    times decoding, prints the line of decode_bench
//   general_peer FILE OUT WIDTH QUALITY PERCENT   makes one thumbnail; WIDTH is a multiple of 16
// bench/compare-speed builds it; the libraries are no part of keystill's build.
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include <algorithm>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

// Wants FILE and size_t from headers before it.
#include <jpeglib.h>

// Released by the end of the process.
struct Movie {
    AVFormatContext* format;
    AVStream* stream;
    AVCodecContext* codec;
    AVPacket* packet;
    AVFrame* frame;
};

static double cpu_now_s() {
    timespec t;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

static int open_codec(Movie* m, const AVCodec* codec) {
    m->codec = avcodec_alloc_context3(codec);
    if (!m->codec || avcodec_parameters_to_context(m->codec, m->stream->codecpar) < 0) return 1;
    m->codec->thread_count = 1;
    m->codec->flags |= AV_CODEC_FLAG_LOW_DELAY;
    return avcodec_open2(m->codec, codec, nullptr) < 0;
}

static int open_movie(const char* path, Movie* m) {
    if (avformat_open_input(&m->format, path, nullptr, nullptr) < 0) return 1;
    const AVCodec* codec = nullptr;
    const int video = av_find_best_stream(m->format, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    if (video < 0) return 1;
    for (unsigned i = 0; i < m->format->nb_streams; ++i) {
        m->format->streams[i]->discard = AVDISCARD_ALL;
    }
    m->stream = m->format->streams[video];
    m->stream->discard = AVDISCARD_NONKEY;
    m->packet = av_packet_alloc();
    m->frame = av_frame_alloc();
    if (!m->packet || !m->frame) return 1;
    return open_codec(m, codec);
}

// Reads the next key frame into m->packet, which the caller unrefs. Returns 1 at the end.
static int read_key_packet(Movie* m) {
    while (av_read_frame(m->format, m->packet) >= 0) {
        if (m->packet->stream_index == m->stream->index && (m->packet->flags & AV_PKT_FLAG_KEY)) {
            return 0;
        }
        av_packet_unref(m->packet);
    }
    return 1;
}

// Decodes m->packet into m->frame. A decoder that holds the picture back is told that no more
// comes.
static int decode_packet(Movie* m) {
    if (avcodec_send_packet(m->codec, m->packet) < 0) return 1;
    int result = avcodec_receive_frame(m->codec, m->frame);
    if (result == AVERROR(EAGAIN)) {
        avcodec_send_packet(m->codec, nullptr);
        result = avcodec_receive_frame(m->codec, m->frame);
    }
    return result < 0;
}

static int time_decoding(Movie* m, long repeat) {
    long frames = 0;
    long long bytes = 0;
    double cpu_s = 0;
    for (; repeat > 0; --repeat) {
        if (av_seek_frame(m->format, m->stream->index, 0, AVSEEK_FLAG_BACKWARD) < 0) return 1;
        while (read_key_packet(m) == 0) {
            const double start_s = cpu_now_s();
            const int result = decode_packet(m);
            av_frame_unref(m->frame);
            cpu_s += cpu_now_s() - start_s;
            if (result != 0) return 1;
            avcodec_flush_buffers(m->codec);
            bytes += m->packet->size;
            ++frames;
            av_packet_unref(m->packet);
        }
    }
    if (frames == 0) return 1;
    printf("frames %ld bytes %lld cpu %.6f ms_per_frame %.4f MBps %.3f\n", frames, bytes, cpu_s,
           1e3 * cpu_s / static_cast<double>(frames), static_cast<double>(bytes) / cpu_s / 1e6);
    return 0;
}

// Scales m->frame to 4:2:0 of this width, in proportion. Returns null on failure.
static AVFrame* scale_frame(const Movie* m, int width) {
    const AVFrame* const from = m->frame;
    AVFrame* const to = av_frame_alloc();
    if (!to) return nullptr;
    to->format = AV_PIX_FMT_YUV420P;
    to->width = width;
    to->height = from->height * width / from->width;
    SwsContext* const scaler = sws_getContext(
        from->width, from->height, static_cast<AVPixelFormat>(from->format), to->width, to->height,
        AV_PIX_FMT_YUV420P, SWS_POINT, nullptr, nullptr, nullptr);
    if (!scaler || av_frame_get_buffer(to, 0) < 0) return nullptr;
    sws_scale(scaler, from->data, from->linesize, 0, from->height, to->data, to->linesize);
    return to;
}

// The rows of one plane from `first` on; the last row stands in for those below the picture.
static void collect_rows(const AVFrame* frame, int plane, int first, int count, JSAMPROW* rows) {
    const int height = plane == 0 ? frame->height : (frame->height + 1) / 2;
    for (int y = 0; y < count; ++y) {
        rows[y] = frame->data[plane] + std::min(first + y, height - 1) * frame->linesize[plane];
    }
}

static void write_rows(jpeg_compress_struct* jpeg, const AVFrame* frame) {
    JSAMPROW luma[16], cb[8], cr[8];
    JSAMPARRAY planes[3] = {luma, cb, cr};
    for (int y = 0; y < frame->height; y += 16) {
        collect_rows(frame, 0, y, 16, luma);
        collect_rows(frame, 1, y / 2, 8, cb);
        collect_rows(frame, 2, y / 2, 8, cr);
        jpeg_write_raw_data(jpeg, planes, 16);
    }
}

static int write_jpeg(const AVFrame* frame, const char* path, int quality) {
    FILE* const file = fopen(path, "wb");
    if (!file) return 1;
    jpeg_compress_struct jpeg;
    jpeg_error_mgr errors;
    jpeg.err = jpeg_std_error(&errors);
    jpeg_create_compress(&jpeg);
    jpeg_stdio_dest(&jpeg, file);
    jpeg.image_width = static_cast<JDIMENSION>(frame->width);
    jpeg.image_height = static_cast<JDIMENSION>(frame->height);
    jpeg.input_components = 3;
    jpeg.in_color_space = JCS_YCbCr;
    jpeg_set_defaults(&jpeg);  // 4:2:0
    jpeg_set_quality(&jpeg, quality, TRUE);
    jpeg.raw_data_in = TRUE;
    jpeg_start_compress(&jpeg, TRUE);
    write_rows(&jpeg, frame);
    jpeg_finish_compress(&jpeg);
    jpeg_destroy_compress(&jpeg);
    return fclose(file) != 0;
}

static int make_thumbnail(Movie* m, const char* path, int width, int quality, int percent) {
    if (m->stream->duration > 0) {
        av_seek_frame(m->format, m->stream->index, m->stream->duration * percent / 100, 0);
    }
    if (read_key_packet(m) != 0 || decode_packet(m) != 0) return 1;
    const AVFrame* const scaled = scale_frame(m, width);
    return !scaled || write_jpeg(scaled, path, quality) != 0;
}

int main(int argc, char** argv) {
    Movie movie = {};
    if (argc != 2 && argc != 3 && argc != 6) {
        fprintf(stderr, "usage: %s FILE [REPEAT]\n       %s FILE OUT WIDTH QUALITY PERCENT\n",
                argv[0], argv[0]);
        return 2;
    }
    av_log_set_level(AV_LOG_QUIET);
    if (open_movie(argv[1], &movie) != 0) return 1;
    if (argc < 6) return time_decoding(&movie, argc > 2 ? atol(argv[2]) : 1);
    return make_thumbnail(&movie, argv[2], atoi(argv[3]), atoi(argv[4]), atoi(argv[5]));
}
