// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/residual_cabac.h"

#include <array>

#include "avcdec/residual_target.h"

// Each function reads many blocks, so that the engine is loaded once: whatever takes its address is
// inlined.
#define KS_INLINE [[gnu::always_inline]] static inline

// A block with a coded_block_flag: its places in the scan, which AC blocks begin with 1, and where
// its category (ctxBlockCat, H.264 Table 9-42) has its contexts.
struct CodedBlock {
    BlockPlace place;
    uint8_t scale;  // AvcComponent or AvcBlockScale
    uint8_t first;
    uint8_t final;
    uint8_t max_greater;  // the highest ctxIdxInc - 5 of the bins of a level after the first
    uint8_t coded_block_flag;
    uint8_t significant;  // of place 0
    uint8_t abs_level;
};

static constexpr CodedBlock coded_block(int i, bool is_16x16) {
    const auto flag = [](int category) {
        return static_cast<uint8_t>(kCtxCodedBlockFlag + 4 * category);
    };
    const BlockPlace place = block_place(i);
    const auto component = static_cast<uint8_t>(i < 17 ? kCompY : i < 23 ? kCompCb : kCompCr);
    if (i == 0) return {place, kScaleLumaDc, 0, 15, 4, flag(0), kCtxSignificant, kCtxAbsLevel};
    if (i < 17 && is_16x16) {
        return {place, component, 1, 15, 4, flag(1), kCtxSignificant + 15 - 1, kCtxAbsLevel + 10};
    }
    if (i < 17) {
        return {place, component, 0, 15, 4, flag(2), kCtxSignificant + 29, kCtxAbsLevel + 20};
    }
    if (i < 19) {
        return {place, kScaleChromaDc, 0, 3, 3, flag(3), kCtxSignificant + 44, kCtxAbsLevel + 30};
    }
    return {place, component, 1, 15, 4, flag(4), kCtxSignificant + 47 - 1, kCtxAbsLevel + 39};
}

// In the order of the syntax, of Intra 4x4 and Intra 16x16 macroblocks, with an end.
struct CodedBlocks {
    CodedBlock row[2][kBlocks + 1];
};
static constexpr CodedBlocks coded_blocks() {
    CodedBlocks blocks{};
    for (int is_16x16 = 0; is_16x16 < 2; ++is_16x16) {
        for (int i = 0; i <= kBlocks; ++i) {
            blocks.row[is_16x16][i] = coded_block(i % kBlocks, is_16x16 == 1);
        }
    }
    return blocks;
}
static constexpr CodedBlocks kCodedBlocks = coded_blocks();

// ctxIdxInc in 8x8 blocks (H.264 Table 9-43).
// clang-format off
static constexpr uint8_t kSignificant8x8[63] = {
     0,  1,  2,  3,  4,  5,  5,  4,  4,  3,  3,  4,  4,  4,  5,  5,
     4,  4,  4,  4,  3,  3,  6,  7,  7,  7,  8,  9, 10,  9,  8,  7,
     7,  6, 11, 12, 13, 11,  6,  7,  8,  9, 14, 10,  9,  8,  6, 11,
    12, 13, 11,  6,  9, 14, 10,  9, 11, 12, 13, 11, 14, 10, 12,
};
static constexpr uint8_t kSignificant8x8Field[63] = {
     0,  1,  1,  2,  2,  3,  3,  4,  5,  6,  7,  7,  7,  8,  4,  5,
     6,  9, 10, 10,  8, 11, 12, 11,  9,  9, 10, 10,  8, 11, 12, 11,
     9,  9, 10, 10,  8, 11, 12, 11,  9,  9, 10, 10,  8, 13, 13,  9,
     9, 10, 10,  8, 13, 13,  9,  9, 10, 10, 14, 14, 14, 14, 14,
};
static constexpr uint8_t kLast8x8[63] = {
    0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2,
    3, 3, 3, 3, 3, 3, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4,
    5, 5, 5, 5, 6, 6, 6, 6, 7, 7, 7, 7, 8, 8, 8,
};
// clang-format on

// The contexts that may follow the one of a place of an 8x8 block, from kCtxSignificant8x8 on.
struct Step8x8 {
    uint8_t last;  // of the same place
    uint8_t next;  // of the next place, if that is not the final one
};

static constexpr std::array<Step8x8, 63> steps_8x8() {
    std::array<Step8x8, 63> steps{};
    for (int i = 0; i < 63; ++i) {
        const int last = kCtxLast8x8 - kCtxSignificant8x8 + kLast8x8[i];
        steps[i] = {static_cast<uint8_t>(last), i == 62 ? uint8_t{0} : kSignificant8x8[i + 1]};
    }
    return steps;
}
static constexpr std::array<Step8x8, 63> kSteps8x8 = steps_8x8();

// Has the address ready before the decision that comes next. Compilers would find it after the
// branch, where the processor waits for it when the branch is mispredicted; 32-bit ones, which run
// less ahead, keep it there.
KS_INLINE void find_now(CabacContext*& context) {
    if constexpr (kBitWordSize == 64) asm volatile("" : "+r"(context));
}

// Reads the significance map: the places of the coefficients that are not 0, in scan order. Returns
// the end of the list, after 1 to 64 places.
KS_INLINE uint8_t* read_map(CabacEngine* e, CabacContext* significant, const CodedBlock& block,
                            uint8_t* places) {
    const int final = block.final;
    for (int i = block.first; i < final; ++i) {
        if (!cabac_decode_branch(e, significant + i)) continue;
        *places++ = static_cast<uint8_t>(i);
        if (cabac_decode_branch(e, significant + (kCtxLast - kCtxSignificant) + i)) return places;
    }
    *places++ = static_cast<uint8_t>(final);
    return places;
}

// The same for 8x8 blocks.
KS_INLINE uint8_t* read_map_8x8(CabacEngine* e, CabacContext* contexts, uint8_t* places) {
    CabacContext* const base = contexts + kCtxSignificant8x8;
    CabacContext* significant = base;
    for (int i = 0; i < 63; ++i) {
        CabacContext* last = base + kSteps8x8[i].last;
        CabacContext* next = base + kSteps8x8[i].next;
        find_now(last);
        find_now(next);
        const bool is_significant = cabac_decode_branch(e, significant);
        significant = next;
        if (!is_significant) continue;
        *places++ = static_cast<uint8_t>(i);
        if (cabac_decode_branch(e, last)) return places;
    }
    *places++ = 63;
    return places;
}

// The same for 8x8 blocks of fields, which are seldom enough for an engine in memory.
[[gnu::noinline, gnu::cold]] static uint8_t* read_map_8x8_field(CabacEngine* e,
                                                                CabacContext* contexts,
                                                                uint8_t* places) {
    for (int i = 0; i < 63; ++i) {
        CabacContext* const significant = contexts + kCtxSignificant8x8 + kSignificant8x8Field[i];
        if (!cabac_decode_decision(e, significant)) continue;
        *places++ = static_cast<uint8_t>(i);
        if (cabac_decode_decision(e, contexts + kCtxLast8x8 + kLast8x8[i])) return places;
    }
    *places++ = 63;
    return places;
}

// The suffix of coeff_abs_level_minus1, an Exp-Golomb code of order 0 (H.264 9.3.2.3). One of more
// bits than the level of any profile has sets has_error. A function of its own, since it is rare
// and would take registers from its callers.
[[gnu::noinline]] static int read_level_suffix(AvcSliceReader* s) {
    CabacEngine e = s->cabac;
    int length = 0;
    while (cabac_decode_bypass(&e)) {
        if (++length > 20) {
            s->mb.has_error = 1;
            length = 0;
            break;
        }
    }
    int value = 1;
    while (length-- > 0) value = value * 2 + static_cast<int>(cabac_decode_bypass(&e));
    s->cabac = e;
    return value - 1;
}

// The absolute value of a level that is at least 2. Its bins share a context, which stays in a
// register.
KS_INLINE int read_large_level(CabacEngine* e, CabacContext* context, AvcSliceReader* s) {
    int level = 2;
    CabacContext variable = *context;
    while (cabac_decode_branch(e, &variable)) {
        if (++level == 15) [[unlikely]] {
            *context = variable;
            s->cabac = *e;
            level += read_level_suffix(s);
            *e = s->cabac;
            return level;
        }
    }
    *context = variable;
    return level;
}

// Reads the levels of the coefficients at the given places, from the last to the first, and writes
// them scaled.
KS_INLINE void read_levels(CabacEngine* e, AvcSliceReader* s, CabacContext* contexts,
                           int max_greater, const uint8_t* places, const uint8_t* end,
                           const ResidualTarget& target) {
    int ones = 1;     // ctxIdxInc of the first bin: 1 + levels of 1 so far, 0 after a larger one
    int greater = 0;  // larger levels so far
    do {
        int level = 1;
        if (cabac_decode_branch(e, contexts + ones)) {
            level = read_large_level(e, contexts + 5 + greater, s);
            greater += greater < max_greater;
            ones = 0;
        } else {
            ones += static_cast<unsigned>(ones - 1) < 3;
        }
        const int sign = -static_cast<int>(cabac_decode_bypass(e));
        const int place = *--end;
        put_level((level ^ sign) - sign, target.scale[place], target.coefficients);
    } while (end != places);
}

static void note_block(AvcMacroblock* mb, int block, int highest_place) {
    mb->coded_mask |= block_bit(block);
    mb->ac_mask |= -static_cast<uint32_t>(highest_place > 0) & block_bit(block);
}

// An 8x8 block has no coded_block_flag; four are set.
KS_INLINE CodedGrid read_8x8(AvcSliceReader* s, uint32_t quadrants) {
    ResidualTarget target = {s->quantiser.scales[kScale8x8], s->mb.coefficients};
    CodedGrid grid = 0;
    CabacEngine e = s->cabac;
    for (; quadrants != 0; quadrants &= quadrants - 1) {
        const int q = __builtin_ctz(quadrants);
        target.coefficients = s->mb.coefficients + q * 64;
        __attribute__((uninitialized)) uint8_t places[64];
        const uint8_t* end;
        if (s->header.field_pic_flag) [[unlikely]] {
            s->cabac = e;
            end = read_map_8x8_field(&s->cabac, s->contexts, places);
            e = s->cabac;
        } else {
            end = read_map_8x8(&e, s->contexts, places);
        }
        const int highest = end[-1];
        read_levels(&e, s, s->contexts + kCtxAbsLevel8x8, 4, places, end, target);
        note_block(&s->mb, q * 4, highest);
        grid |= CodedGrid{0x303} << (kGridLuma + 2 * (q & 1) + 16 * (q >> 1));
    }
    s->cabac = e;
    return grid;
}

// The context of a block's coded_block_flag.
KS_INLINE CabacContext* flag_of(CabacContext* contexts, const CodedBlock& coded, CodedGrid grid) {
    const auto neighbours = static_cast<uint32_t>(grid >> (coded.place.grid - 8));
    return contexts + coded.coded_block_flag + (neighbours >> 7 & 1) + 2 * (neighbours & 1);
}

// The context of the next flag is found before the block is read: after the misprediction that its
// end costs there would be nothing else to do.
KS_INLINE CodedGrid read_blocks(AvcSliceReader* s, uint32_t blocks, CodedGrid grid) {
    const CodedBlock* const list = kCodedBlocks.row[s->mb.kind == MbKind::kIntra16x16];
    if (blocks == 0) return grid;
    blocks |= 1U << kBlocks;
    CabacEngine e = s->cabac;
    const CodedBlock* next = list + __builtin_ctz(blocks);
    CabacContext* next_flag = flag_of(s->contexts, *next, grid);
    do {
        const CodedBlock& coded = *next;
        CabacContext* const flag = next_flag;
        blocks &= blocks - 1;
        next = list + __builtin_ctz(blocks);
        if (!cabac_decode_branch(&e, flag)) {
            next_flag = flag_of(s->contexts, *next, grid);
            continue;
        }
        grid |= CodedGrid{1} << coded.place.grid;
        next_flag = flag_of(s->contexts, *next, grid);
        const ResidualTarget target = {s->quantiser.scales[coded.scale],
                                       s->mb.coefficients + coded.place.block * 16};
        __attribute__((uninitialized)) uint8_t places[16];
        const uint8_t* const end = read_map(&e, s->contexts + coded.significant, coded, places);
        const int highest = end[-1];
        read_levels(&e, s, s->contexts + coded.abs_level, coded.max_greater, places, end, target);
        note_block(&s->mb, coded.place.block, highest);
    } while (next != list + kBlocks);
    s->cabac = e;
    return grid;
}

static CodedGrid read_blocks_any(AvcSliceReader* s, uint32_t blocks, CodedGrid grid) {
    return read_blocks(s, blocks, grid);
}
static CodedGrid read_8x8_any(AvcSliceReader* s, uint32_t quadrants) {
    return read_8x8(s, quadrants);
}
void cabac_use_any(BlockLoops* loops) {
    loops->cabac = read_blocks_any;
    loops->cabac_8x8 = read_8x8_any;
}

#if KEYSTILL_HAS_BMI2
KS_BMI2 static CodedGrid read_blocks_bmi2(AvcSliceReader* s, uint32_t blocks, CodedGrid grid) {
    return read_blocks(s, blocks, grid);
}
KS_BMI2 static CodedGrid read_8x8_bmi2(AvcSliceReader* s, uint32_t quadrants) {
    return read_8x8(s, quadrants);
}
void cabac_use_bmi2(BlockLoops* loops) {
    loops->cabac = read_blocks_bmi2;
    loops->cabac_8x8 = read_8x8_bmi2;
}
#endif

// H.264 9.3.2.7. A magnitude above 104 is far outside -26 to 25: the stream is broken, for which
// the result is 0 and has_error is set.
static int32_t read_qp_delta(AvcSliceReader* s) {
    CabacContext* const contexts = s->contexts + kCtxQpDelta;
    CabacContext* context = contexts + s->mb.qp_delta_coded;
    CabacEngine e = s->cabac;
    int32_t k = 0;
    while (cabac_decode_branch(&e, context)) {
        context = contexts + (k == 0 ? 2 : 3);
        if (++k > 104) {
            s->mb.has_error = 1;
            k = 0;
            break;
        }
    }
    s->cabac = e;
    return k & 1 ? (k + 1) >> 1 : -(k >> 1);
}

// Whether a block of a neighbouring macroblock counts for the flag of one that has 8x8 samples: it
// has as many, or stands for what is missing or has no flags.
static bool counts_for_8x8(const MbNeighbour& side) {
    return side.flags & kTransform8x8 || side.coded == ~CodedGrid{0};
}

// Reads the quadrants in the pattern, each with the coded_block_flag that 4:4:4 has.
[[gnu::cold]] static CodedGrid read_flagged_8x8(AvcSliceReader* s, uint32_t pattern) {
    const CodedGrid other = s->chroma_444->has_old_flags ? ~CodedGrid{0} : 0;
    CodedGrid seen = ((counts_for_8x8(s->left) ? s->left.coded : other) & kGridLeft) |
                     ((counts_for_8x8(*s->top) ? s->top->coded : other) & kGridTop);
    CabacContext* const flags = s->chroma_444->flags_8x8[s->chroma_444->plane];
    for (; pattern != 0; pattern &= pattern - 1) {
        const int q = __builtin_ctz(pattern);
        const auto neighbours =
            static_cast<uint32_t>(seen >> (kGridLuma + 2 * (q & 1) + 16 * (q >> 1) - 8));
        const uint32_t increment = (neighbours >> 7 & 1) + 2 * (neighbours & 1);
        if (cabac_decode_decision(&s->cabac, flags + increment)) {
            seen |= s->loops.cabac_8x8(s, 1U << q);
        }
    }
    return seen & ~(kGridLeft | kGridTop);
}

void cabac_read_residual(AvcSliceReader* s) {
    AvcMacroblock* const mb = &s->mb;
    const int32_t mb_qp_delta = read_qp_delta(s);
    mb->qp_delta_coded = mb_qp_delta != 0;
    if (mb_qp_delta != 0) quantiser_update(&s->quantiser, mb_qp_delta);
    cabac_read_plane(s);
}

void cabac_read_plane(AvcSliceReader* s) {
    AvcMacroblock* const mb = &s->mb;
    CodedGrid grid = (s->left.coded & kGridLeft) | (s->top->coded & kGridTop);
    uint32_t pattern = mb->cbp;
    if (mb->kind == MbKind::kIntra8x8) {
        grid |= (s->chroma_444 ? read_flagged_8x8 : s->loops.cabac_8x8)(s, pattern & 15);
        pattern &= 0x30;
    }
    const uint32_t blocks = blocks_of_pattern(pattern, mb->kind == MbKind::kIntra16x16);
    grid = s->loops.cabac(s, blocks, grid);
    s->left.coded = grid_for_right(grid);
    s->top->coded = grid_for_below(grid);
}
