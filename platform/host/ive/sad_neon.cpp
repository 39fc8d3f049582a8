// Block differences with NEON: the widening absolute difference and accumulate (vabal), then pairwise
// additions. Written for both Arm instruction sets: nothing here needs the 64-bit one.
#if defined(__ARM_NEON)
#include "sad_kernels.h"

#include <arm_neon.h>
#include <stdlib.h>

namespace
{

// Compiled in only where the compiler may use NEON everywhere, so the whole program depends on it already.
bool runs_here(void)
{
    return true;
}

// The differences of eight columns over `rows` rows, each column in a lane of its own: at most 16 x 255.
inline uint16x8_t columns8(const uint8_t *a, size_t a_stride, const uint8_t *b, size_t b_stride, size_t rows)
{
    uint16x8_t sum = vdupq_n_u16(0);
    for (size_t y = 0; y < rows; y++)
        sum = vabal_u8(sum, vld1_u8(a + y * a_stride), vld1_u8(b + y * b_stride));
    return sum;
}

// Neighbouring lanes added: 8 lanes become 4.
inline uint16x4_t add_pairs(uint16x8_t lanes)
{
    return vpadd_u16(vget_low_u16(lanes), vget_high_u16(lanes));
}

inline uint16_t add_all(uint16x8_t lanes)
{
    const uint16x4_t four = add_pairs(lanes);
    const uint16x4_t two = vpadd_u16(four, four);
    return vget_lane_u16(vpadd_u16(two, two), 0);
}

// The four blocks' sums, each spread over eight lanes.
inline uint16x4_t add_each(uint16x8_t block0, uint16x8_t block1, uint16x8_t block2, uint16x8_t block3)
{
    return vpadd_u16(vpadd_u16(add_pairs(block0), add_pairs(block1)),
                     vpadd_u16(add_pairs(block2), add_pairs(block3)));
}

void blocks4(const uint8_t *a, size_t a_stride, const uint8_t *b, size_t b_stride, size_t count,
             uint16_t *sums)
{
    size_t i = 0;
    for (; i + 4 <= count; i += 4) {
        const uint8_t *p = a + 4 * i;
        const uint8_t *q = b + 4 * i;
        vst1_u16(sums + i, vpadd_u16(add_pairs(columns8(p, a_stride, q, b_stride, 4)),
                                     add_pairs(columns8(p + 8, a_stride, q + 8, b_stride, 4))));
    }
    for (; i < count; i++) {
        int sum = 0;
        for (size_t y = 0; y < 4; y++)
            for (size_t x = 4 * i; x < 4 * i + 4; x++)
                sum += abs(a[y * a_stride + x] - b[y * b_stride + x]);
        sums[i] = (uint16_t)sum;
    }
}

void blocks8(const uint8_t *a, size_t a_stride, const uint8_t *b, size_t b_stride, size_t count,
             uint16_t *sums)
{
    size_t i = 0;
    for (; i + 4 <= count; i += 4) {
        const uint8_t *p = a + 8 * i;
        const uint8_t *q = b + 8 * i;
        vst1_u16(sums + i, add_each(columns8(p, a_stride, q, b_stride, 8),
                                    columns8(p + 8, a_stride, q + 8, b_stride, 8),
                                    columns8(p + 16, a_stride, q + 16, b_stride, 8),
                                    columns8(p + 24, a_stride, q + 24, b_stride, 8)));
    }
    for (; i < count; i++)
        sums[i] = add_all(columns8(a + 8 * i, a_stride, b + 8 * i, b_stride, 8));
}

void blocks16(const uint8_t *a, size_t a_stride, const uint8_t *b, size_t b_stride, size_t count,
              uint16_t *sums)
{
    for (size_t i = 0; i < count; i++) {
        const uint8_t *p = a + 16 * i;
        const uint8_t *q = b + 16 * i;
        sums[i] = add_all(vaddq_u16(columns8(p, a_stride, q, b_stride, 16),
                                    columns8(p + 8, a_stride, q + 8, b_stride, 16)));
    }
}

void threshold(const uint16_t *sums, size_t count, uint16_t limit, uint8_t min_value, uint8_t max_value,
               uint8_t *out)
{
    const uint16x8_t limits = vdupq_n_u16(limit);
    const uint8x8_t low = vdup_n_u8(min_value);
    const uint8x8_t high = vdup_n_u8(max_value);
    size_t i = 0;
    for (; i + 8 <= count; i += 8)
        vst1_u8(out + i, vbsl_u8(vmovn_u16(vcgeq_u16(vld1q_u16(sums + i), limits)), high, low));
    for (; i < count; i++)
        out[i] = sums[i] >= limit ? max_value : min_value;
}

} // namespace

const sad_kernels sad_kernels_neon = {"neon", runs_here, {blocks4, blocks8, blocks16}, threshold};
#endif
