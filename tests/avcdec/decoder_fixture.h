// SPDX-License-Identifier: BSD-2-Clause
// A decoder instance that is fed NAL units one at a time.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

#include "avcdec/avc_decoder.h"
#include "runtime/accounted_memory.h"

struct DestroyDecoder {
    void operator()(AvcDecoder* decoder) const { avcdec_destroy(decoder); }
};

// A decoder with a target for pictures of up to 64 macroblocks.
class DecoderFixture : public testing::Test {
 protected:
    DecoderFixture() {
        upnp_memory_init();
        create({});
    }
    ~DecoderFixture() override {
        decoder.reset();
        EXPECT_EQ(g_memUsed, 0);
        upnp_memory_exit();
    }

    // Returns the error.
    uint32_t create(const AvcDecoderOptions& options) {
        AvcCreateResult created;
        avcdec_create(&options, &created);
        decoder.reset(created.decoder);
        return created.error;
    }

    // Hands in one NAL unit in a block of its exact size; its error.
    uint32_t feed(const std::string& nal) {
        const std::unique_ptr<uint8_t[]> block(new uint8_t[nal.size()]);
        std::copy(nal.begin(), nal.end(), block.get());
        AvcDecodeInput in = {};
        in.decoder = decoder.get();
        in.nal = block.get();
        in.nal_length = static_cast<uint32_t>(nal.size());
        in.target = has_target ? target : nullptr;
        in.target_size = sizeof target;
        in.stride = stride;
        in.target_sps_id = target_sps_id;
        avcdec_decode_nal(&in, &out);
        return out.error;
    }
    AvcStreamInfo info(uint32_t sps_id = kAvcLastSps) {
        AvcStreamInfo result;
        avcdec_get_stream_info(decoder.get(), &result, sps_id);
        return result;
    }

    std::unique_ptr<AvcDecoder, DestroyDecoder> decoder;
    AvcDecodeOutput out;
    bool has_target = true;
    uint32_t stride = 16;
    int32_t target_sps_id = 0;
    uint8_t target[64 * 384];
};
