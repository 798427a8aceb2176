// SPDX-License-Identifier: BSD-2-Clause
#include "m4vdec/m4v_vop.h"

#include "m4vdec/m4v_intra_block.h"
#include "runtime/owned.h"

namespace {

// What the first two partitions of a packet tell of a macroblock.
struct PartitionedMb {
    int16_t dc_differences[6];
    uint8_t quant;
    uint8_t cbp;  // block 0 at bit 5
    M4vDcCoding dc_coding;
    bool ac_pred_flag;
};

struct VopDecoder {
    M4vBlockDecoder blocks;
    M4vIntraMb mb;  // the one that is decoded
    const M4vLayer* layer;
    const M4vPicture* picture;
    M4vVop vop;
    M4vEdgeRows edges;
    Owned<PartitionedMb> partitioned;  // one for each macroblock of the picture
    unsigned number_bits;              // of macroblock_number
    uint32_t x, y;                     // the next macroblock
    uint32_t address;                  // the same: y * width_mbs + x
    uint32_t segment;                  // grows with every packet
    bool is_first_of_packet;
};

// 6.3.5: use_intra_dc_vlc holds below this quantiser.
constexpr uint8_t kDcThresholds[8] = {32, 13, 15, 17, 19, 21, 23, 0};

}  // namespace

static void start_packet(VopDecoder* d, unsigned quant) {
    d->blocks.quant = static_cast<int>(quant);
    d->is_first_of_packet = true;
    ++d->segment;
}

// Reads DQUANT when there is one. Returns how the DC of the macroblock is coded: the quantiser of
// the macroblock before it decides, or its own one if it is the first of its packet.
static M4vDcCoding read_quant(VopDecoder* d, unsigned mcbpc) {
    static const int8_t kDquant[4] = {-1, -2, 1, 2};
    int running_quant = d->blocks.quant;
    if (mcbpc & kMcbpcQuant) {
        d->blocks.quant = clip3(1, 31, running_quant + kDquant[bits_read(&d->blocks.bits, 2)]);
        if (d->is_first_of_packet) running_quant = d->blocks.quant;
    }
    d->is_first_of_packet = false;
    const bool use_intra_dc_vlc = running_quant < kDcThresholds[d->vop.intra_dc_vlc_thr];
    return use_intra_dc_vlc ? M4vDcCoding::kOwn : M4vDcCoding::kEvents;
}

// Decodes the blocks of the next macroblock and steps on. cbp has block 0 at bit 5.
static int decode_blocks(VopDecoder* d, unsigned cbp, bool is_field_dct) {
    M4vIntraMb* const mb = &d->mb;
    __attribute__((uninitialized)) M4vTarget targets[6];
    d->picture->locate_blocks(d->x, d->y, is_field_dct, targets);
    m4v_enter_macroblock(&d->edges, d->x, d->y, d->segment, &mb->near);
    mb->near.current->quant = d->blocks.quant;
    mb->fixed_scan = d->vop.alternate_vertical_scan ? &kScanVertical
                     : mb->ac_pred_flag             ? nullptr
                                                    : &kScanZigzag;
    if (m4v_decode_intra_blocks(&d->blocks, *mb, cbp, targets)) return 1;
    ++d->address;
    if (++d->x == d->picture->width_mbs) {
        d->x = 0;
        ++d->y;
    }
    return bits_overrun(&d->blocks.bits);
}

static int decode_macroblock(VopDecoder* d) {
    BitReader* const bits = &d->blocks.bits;
    const unsigned mcbpc = m4v_read_mcbpc(bits);
    if (mcbpc == kMcbpcStuffing) return 0;
    if (mcbpc == kMcbpcInvalid) return 1;
    d->mb.ac_pred_flag = bits_take(bits, 1);
    const unsigned cbpy = m4v_read_cbpy(bits);
    if (cbpy > 15) return 1;
    d->mb.dc_coding = read_quant(d, mcbpc);
    const bool is_field_dct = d->layer->is_interlaced && bits_read_1(bits);
    return decode_blocks(d, cbpy << 2 | (mcbpc & 3), is_field_dct);
}

// The first partition: MCBPC, DQUANT and DC of every macroblock of the packet, up to the marker.
static int read_dc_partition(VopDecoder* d, uint32_t* count) {
    constexpr unsigned kDcMarker = 0x6b001;
    constexpr unsigned kDcMarkerBits = 19;
    BitReader* const bits = &d->blocks.bits;
    uint32_t n = 0;
    for (;;) {
        bits_refill(bits);
        if (bits_cached(bits, kDcMarkerBits) == kDcMarker) break;
        const unsigned mcbpc = m4v_read_mcbpc(bits);
        if (mcbpc == kMcbpcStuffing) continue;
        if (mcbpc == kMcbpcInvalid || n == d->picture->total_mbs() - d->address) return 1;
        PartitionedMb* const mb = &d->partitioned[n++];
        mb->dc_coding = read_quant(d, mcbpc);
        mb->quant = static_cast<uint8_t>(d->blocks.quant);
        mb->cbp = mcbpc & 3;
        if (mb->dc_coding == M4vDcCoding::kEvents) continue;
        mb->dc_coding = M4vDcCoding::kPartition;
        for (unsigned i = 0; i < 6; ++i) {
            const int difference = m4v_read_dc_difference(bits, i >= 4);
            if (difference == kM4vNoDc) return 1;
            mb->dc_differences[i] = static_cast<int16_t>(difference);
        }
    }
    bits_drop(bits, kDcMarkerBits);
    *count = n;
    return n == 0 || bits_overrun(bits);
}

static int read_cbp_partition(VopDecoder* d, uint32_t count) {
    for (uint32_t n = 0; n < count; ++n) {
        PartitionedMb* const mb = &d->partitioned[n];
        mb->ac_pred_flag = bits_read_1(&d->blocks.bits);
        const unsigned cbpy = m4v_read_cbpy(&d->blocks.bits);
        if (cbpy > 15) return 1;
        mb->cbp = static_cast<uint8_t>(mb->cbp | cbpy << 2);
    }
    return bits_overrun(&d->blocks.bits);
}

static int decode_partitioned_packet(VopDecoder* d) {
    if (!d->is_first_of_packet) return 1;  // no packet header after the packet before
    uint32_t count;
    if (read_dc_partition(d, &count) || read_cbp_partition(d, count)) return 1;
    for (uint32_t n = 0; n < count; ++n) {
        const PartitionedMb& from = d->partitioned[n];
        d->mb.dc_coding = from.dc_coding;
        d->mb.ac_pred_flag = from.ac_pred_flag;
        d->mb.dc_differences = from.dc_differences;
        d->blocks.quant = from.quant;
        if (decode_blocks(d, from.cbp, false)) return 1;
    }
    return 0;
}

static int decode_packets(VopDecoder* d) {
    const uint32_t total = d->picture->total_mbs();
    while (d->address < total) {
        if (d->layer->has_resync_markers && m4v_is_at_packet_end(&d->blocks.bits)) {
            M4vPacket packet;
            if (m4v_parse_packet(&d->blocks.bits, *d->layer, d->number_bits, &packet)) return 1;
            if (packet.macroblock_number != d->address) return 1;
            start_packet(d, packet.quant);
        }
        if (d->partitioned ? decode_partitioned_packet(d) : decode_macroblock(d)) return 1;
    }
    return 0;
}

M4vRefusal m4v_decode_vop(const uint8_t* data, size_t length, const M4vLayer& layer,
                          const M4vPicture& picture, M4vIdctFn idct) {
    VopDecoder d = {};
    d.blocks.bits = bits_start(data, length);
    d.blocks.idct = idct;
    d.blocks.tcoef = layer.has_reversible_vlc ? &kTcoefReversible : &kTcoefIntra;
    d.blocks.matrix = layer.has_matrix ? layer.intra_matrix : nullptr;
    d.layer = &layer;
    d.picture = &picture;
    const uint32_t total = picture.total_mbs();
    d.number_bits = total <= 2 ? 1 : 32 - static_cast<unsigned>(__builtin_clz(total - 1));
    const M4vRefusal refusal = m4v_parse_vop(&d.blocks.bits, layer, &d.vop);
    if (refusal != M4vRefusal::kNone) return refusal;
    if (m4v_create_edge_rows(picture.width_mbs, &d.edges)) return M4vRefusal::kNoMemory;
    if (layer.is_data_partitioned) {
        d.partitioned = owned_calloc<PartitionedMb>(total);
        if (!d.partitioned) return M4vRefusal::kNoMemory;
    }
    start_packet(&d, d.vop.quant);
    if (decode_packets(&d)) return m4v_refusal_of_data(d.blocks.bits);
    return M4vRefusal::kNone;
}
