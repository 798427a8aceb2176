// SPDX-License-Identifier: BSD-2-Clause
// The calls of a decoder instance: errors, events and what is consumed.
#include "avcdec/avc_decoder.h"

#include <gtest/gtest.h>

#include "tests/avcdec/decoder_fixture.h"
#include "tests/support/avc_builder.h"

namespace {

class AvcDecoderCalls : public DecoderFixture {
 protected:
    // The sets of a picture of two macroblocks and its slices.
    void feed_sets() {
        feed(sps_nal({.width_mbs = 2}));
        feed(pps_nal({}));
        stride = 32;
    }
    const std::string first = pcm_slice_nal({}, {std::string(384, 'a')});
    const std::string second = pcm_slice_nal({.first_mb = 1}, {std::string(384, 'b')});
};

TEST_F(AvcDecoderCalls, ReportMissingInstancesAndTargets) {
    const uint8_t table[33] = {};
    EXPECT_EQ(create({kAvcOptionTable, table, 33}), kAvcBadOptionTable);
    EXPECT_EQ(decoder, nullptr);
    EXPECT_EQ(create({kAvcOptionTable, nullptr, 4}), kAvcBadOptionTable);
    EXPECT_EQ(feed("x"), kAvcNoDecoder);
    EXPECT_EQ(info().error, kAvcInfoNoDecoder);
    EXPECT_EQ(create({kAvcOptionTable, table, 32}), 0U);
    EXPECT_EQ(info().error, kAvcInfoNoSps);
    feed_sets();
    EXPECT_EQ(info(1).error, kAvcInfoNoSps);
    EXPECT_EQ(info(32).error, kAvcInfoNoSps);
    EXPECT_EQ(info(0).error, 0U);
    has_target = false;
    EXPECT_EQ(feed(first), kAvcNoTarget);
    EXPECT_EQ(out.consumed, first.size());
}

TEST_F(AvcDecoderCalls, CountPicturesAndRefuseASliceOfTheNextOne) {
    feed_sets();
    EXPECT_EQ(feed(first), 0U);
    EXPECT_EQ(out.events, uint32_t{kAvcEventIdr});
    EXPECT_EQ(feed(second), 0U);
    EXPECT_EQ(out.events, uint32_t{kAvcEventIdr | kAvcEventPictureComplete});
    EXPECT_EQ(out.picture_count, 1);
    EXPECT_EQ(feed(first), 0U);  // the next picture begins
    EXPECT_EQ(feed(first), kAvcSliceOfNextPicture);
    EXPECT_EQ(out.events, uint32_t{kAvcEventIdr | kAvcEventPictureComplete});
    EXPECT_EQ(out.consumed, 0U);
    EXPECT_EQ(out.picture_count, 2);
    EXPECT_EQ(feed(second), 0U);  // the picture in progress is still there
    EXPECT_EQ(feed(nal_unit(0, 10, {})), 0U);
    EXPECT_EQ(out.events, uint32_t{kAvcEventEnd});  // none is in progress
}

TEST_F(AvcDecoderCalls, OptionBytesEndAPartialPictureInstead) {
    const uint8_t table[] = {8};
    create({kAvcOptionTable, table, 1});
    feed_sets();
    feed(first);
    EXPECT_EQ(feed(first), 0U);
    EXPECT_EQ(out.consumed, 0U);
    EXPECT_EQ(out.events, uint32_t{kAvcEventIdr | kAvcEventPictureComplete});
    EXPECT_EQ(feed(first), 0U);  // handed in again
    EXPECT_EQ(out.consumed, first.size());
}

TEST_F(AvcDecoderCalls, FindStartCodesWhenAskedTo) {
    create({kAvcStartCodes, nullptr, 0});
    const std::string code("\0\0\0\1", 4);
    EXPECT_EQ(feed(code + sps_nal({.width_mbs = 2})), 0U);
    EXPECT_EQ(out.events, uint32_t{kAvcEventSps});
    EXPECT_EQ(feed(code + pps_nal({})), 0U);
    stride = 32;
    EXPECT_EQ(feed(code + pcm_slice_nal({}, {std::string(384, 'a'), std::string(384, 'b')})), 0U);
    EXPECT_EQ(out.events, uint32_t{kAvcEventIdr | kAvcEventPictureComplete});
    EXPECT_EQ(target[16], 'b');
    EXPECT_EQ(feed(sps_nal({})), 0U);  // no start code: ignored
    EXPECT_EQ(out.events, 0U);
}

TEST_F(AvcDecoderCalls, SlicesForAnotherTargetAreNotConsumed) {
    feed(sps_nal({}));
    feed(sps_nal({.id = 1}));
    feed(pps_nal({}));
    feed(pps_nal({.id = 1, .sps_id = 1}));
    const std::vector<std::string> samples = {std::string(384, 'z')};
    // Not the sequence set that the target was made for: the unit is to come again.
    EXPECT_EQ(feed(pcm_slice_nal({.pps_id = 1}, samples)), kAvcBadSliceHeader);
    EXPECT_EQ(out.consumed, 0U);
    EXPECT_EQ(out.sps_id, 1);
    target_sps_id = 1;
    EXPECT_EQ(feed(pcm_slice_nal({.pps_id = 1}, samples)), 0U);
    EXPECT_EQ(out.picture_count, 1);
    // A rejected IDR header of the target's own stream.
    EXPECT_EQ(feed(pcm_slice_nal({.first_mb = 5, .pps_id = 1}, samples)), kAvcBadSliceHeader);
    EXPECT_EQ(out.events, uint32_t{kAvcEventIdr | kAvcEventIdrRejected});
    EXPECT_NE(out.consumed, 0U);
}

}  // namespace
