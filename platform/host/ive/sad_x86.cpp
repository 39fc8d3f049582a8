// Block differences with SSE2 and AVX2, on the instruction that sums the absolute differences of eight bytes
// at a time (psadbw). Each function carries its instruction set as an attribute, so that the file compiles
// without flags and the program runs on CPUs that lack it.
#if defined(__x86_64__) || defined(__i386__)
#include "sad_kernels.h"

#include <immintrin.h>

#define SSE2 __attribute__((target("sse2")))
#define AVX2 __attribute__((target("avx2")))
// Shared steps: inlined into either set, compiled for the set of their caller.
#define SSE2_STEP static inline __attribute__((target("sse2"), always_inline))
#define AVX2_STEP static inline __attribute__((target("avx2"), always_inline))

namespace
{

bool sse2_runs_here(void)
{
    return __builtin_cpu_supports("sse2");
}

bool avx2_runs_here(void)
{
    return __builtin_cpu_supports("avx2");
}

// ---- 16 bytes at a time
// ----------------------------------------------------------------------------------------

SSE2_STEP __m128i load16(const uint8_t *p)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
}

SSE2_STEP __m128i load8(const uint8_t *p)
{
    return _mm_loadl_epi64(reinterpret_cast<const __m128i *>(p));
}

SSE2_STEP __m128i load4(const uint8_t *p)
{
    int word;
    __builtin_memcpy(&word, p, sizeof word);
    return _mm_cvtsi32_si128(word);
}

// The differences of 16 columns over `rows` rows: columns 0 to 7 summed in the low half, 8 to 15 in the high
// half.
SSE2_STEP __m128i columns16(const uint8_t *a, size_t a_stride, const uint8_t *b, size_t b_stride, size_t rows)
{
    __m128i sum = _mm_setzero_si128();
    for (size_t y = 0; y < rows; y++)
        sum = _mm_add_epi32(sum, _mm_sad_epu8(load16(a + y * a_stride), load16(b + y * b_stride)));
    return sum;
}

// Two rows of 4x4 blocks in one psadbw: the 4-byte words of an upper and a lower row are interleaved, so that
// each group of eight bytes holds the two rows of one block. LOW takes blocks 0 and 1 of the 16 bytes, else 2
// and 3.
template <bool LOW> SSE2_STEP __m128i row_pair(const uint8_t *p, size_t stride)
{
    const __m128i upper = load16(p);
    const __m128i lower = load16(p + stride);
    return LOW ? _mm_unpacklo_epi32(upper, lower) : _mm_unpackhi_epi32(upper, lower);
}

template <bool LOW>
SSE2_STEP __m128i quads(const uint8_t *a, size_t a_stride, const uint8_t *b, size_t b_stride)
{
    return _mm_add_epi32(
        _mm_sad_epu8(row_pair<LOW>(a, a_stride), row_pair<LOW>(b, b_stride)),
        _mm_sad_epu8(row_pair<LOW>(a + 2 * a_stride, a_stride), row_pair<LOW>(b + 2 * b_stride, b_stride)));
}

SSE2_STEP void sse2_tail4(const uint8_t *a, size_t a_stride, const uint8_t *b, size_t b_stride, size_t count,
                          uint16_t *sums)
{
    size_t i = 0;
    for (; i + 4 <= count; i += 4) {
        // Sums are the low 16 bits of 64-bit lanes; two packs bring four of them together. The packs saturate
        // as signed numbers, which a sum of at most 4080 does not reach.
        const __m128i sum = _mm_packs_epi32(quads<true>(a + 4 * i, a_stride, b + 4 * i, b_stride),
                                            quads<false>(a + 4 * i, a_stride, b + 4 * i, b_stride));
        _mm_storel_epi64(reinterpret_cast<__m128i *>(sums + i), _mm_packs_epi32(sum, sum));
    }
    for (; i < count; i++) {
        const uint8_t *p = a + 4 * i;
        const uint8_t *q = b + 4 * i;
        __m128i sum = _mm_setzero_si128();
        for (size_t y = 0; y < 4; y++)
            sum = _mm_add_epi32(sum, _mm_sad_epu8(load4(p + y * a_stride), load4(q + y * b_stride)));
        sums[i] = (uint16_t)_mm_cvtsi128_si32(sum);
    }
}

SSE2_STEP void sse2_tail8(const uint8_t *a, size_t a_stride, const uint8_t *b, size_t b_stride, size_t count,
                          uint16_t *sums)
{
    size_t i = 0;
    for (; i + 4 <= count; i += 4) {
        const uint8_t *p = a + 8 * i;
        const uint8_t *q = b + 8 * i;
        const __m128i sum = _mm_packs_epi32(columns16(p, a_stride, q, b_stride, 8),
                                            columns16(p + 16, a_stride, q + 16, b_stride, 8));
        _mm_storel_epi64(reinterpret_cast<__m128i *>(sums + i), _mm_packs_epi32(sum, sum)); // at most 16320
    }
    for (; i < count; i++) {
        const uint8_t *p = a + 8 * i;
        const uint8_t *q = b + 8 * i;
        __m128i sum = _mm_setzero_si128();
        for (size_t y = 0; y < 8; y++)
            sum = _mm_add_epi32(sum, _mm_sad_epu8(load8(p + y * a_stride), load8(q + y * b_stride)));
        sums[i] = (uint16_t)_mm_cvtsi128_si32(sum);
    }
}

SSE2_STEP void sse2_tail16(const uint8_t *a, size_t a_stride, const uint8_t *b, size_t b_stride, size_t count,
                           uint16_t *sums)
{
    for (size_t i = 0; i < count; i++) {
        const __m128i sum = columns16(a + 16 * i, a_stride, b + 16 * i, b_stride, 16);
        // At most 65280: no signed pack here.
        sums[i] = (uint16_t)_mm_cvtsi128_si32(_mm_add_epi32(sum, _mm_srli_si128(sum, 8)));
    }
}

SSE2_STEP void threshold_step(const uint16_t *sums, size_t count, uint16_t limit, uint8_t min_value,
                              uint8_t max_value, uint8_t *out)
{
    const __m128i limits = _mm_set1_epi16((short)limit);
    const __m128i low = _mm_set1_epi8((char)min_value);
    const __m128i high = _mm_set1_epi8((char)max_value);
    size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const __m128i sum = _mm_loadu_si128(reinterpret_cast<const __m128i *>(sums + i));
        // Unsigned "at or above": the saturating difference limit - sum is zero.
        const __m128i reached = _mm_cmpeq_epi16(_mm_subs_epu16(limits, sum), _mm_setzero_si128());
        const __m128i mask = _mm_packs_epi16(reached, reached);
        const __m128i value = _mm_or_si128(_mm_and_si128(mask, high), _mm_andnot_si128(mask, low));
        _mm_storel_epi64(reinterpret_cast<__m128i *>(out + i), value);
    }
    for (; i < count; i++)
        out[i] = sums[i] >= limit ? max_value : min_value;
}

SSE2 void sse2_blocks4(const uint8_t *a, size_t a_stride, const uint8_t *b, size_t b_stride, size_t count,
                       uint16_t *sums)
{
    sse2_tail4(a, a_stride, b, b_stride, count, sums);
}

SSE2 void sse2_blocks8(const uint8_t *a, size_t a_stride, const uint8_t *b, size_t b_stride, size_t count,
                       uint16_t *sums)
{
    sse2_tail8(a, a_stride, b, b_stride, count, sums);
}

SSE2 void sse2_blocks16(const uint8_t *a, size_t a_stride, const uint8_t *b, size_t b_stride, size_t count,
                        uint16_t *sums)
{
    sse2_tail16(a, a_stride, b, b_stride, count, sums);
}

SSE2 void sse2_threshold(const uint16_t *sums, size_t count, uint16_t limit, uint8_t min_value,
                         uint8_t max_value, uint8_t *out)
{
    threshold_step(sums, count, limit, min_value, max_value, out);
}

// ---- 32 bytes at a time
// ----------------------------------------------------------------------------------------

AVX2_STEP __m256i load32(const uint8_t *p)
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p));
}

// The differences of 32 columns over `rows` rows, eight columns to each 64-bit lane.
AVX2_STEP __m256i columns32(const uint8_t *a, size_t a_stride, const uint8_t *b, size_t b_stride, size_t rows)
{
    __m256i sum = _mm256_setzero_si256();
    for (size_t y = 0; y < rows; y++)
        sum = _mm256_add_epi32(sum, _mm256_sad_epu8(load32(a + y * a_stride), load32(b + y * b_stride)));
    return sum;
}

template <bool LOW> AVX2_STEP __m256i row_pair32(const uint8_t *p, size_t stride)
{
    const __m256i upper = load32(p);
    const __m256i lower = load32(p + stride);
    return LOW ? _mm256_unpacklo_epi32(upper, lower) : _mm256_unpackhi_epi32(upper, lower);
}

template <bool LOW>
AVX2_STEP __m256i quads32(const uint8_t *a, size_t a_stride, const uint8_t *b, size_t b_stride)
{
    return _mm256_add_epi32(_mm256_sad_epu8(row_pair32<LOW>(a, a_stride), row_pair32<LOW>(b, b_stride)),
                            _mm256_sad_epu8(row_pair32<LOW>(a + 2 * a_stride, a_stride),
                                            row_pair32<LOW>(b + 2 * b_stride, b_stride)));
}

AVX2 void avx2_blocks4(const uint8_t *a, size_t a_stride, const uint8_t *b, size_t b_stride, size_t count,
                       uint16_t *sums)
{
    size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        // Within each half of the register the order is that of the 16-byte step: blocks 0 1 2 3 | 4 5 6 7.
        const __m256i sum = _mm256_packs_epi32(quads32<true>(a + 4 * i, a_stride, b + 4 * i, b_stride),
                                               quads32<false>(a + 4 * i, a_stride, b + 4 * i, b_stride));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(sums + i),
                         _mm_packs_epi32(_mm256_castsi256_si128(sum), _mm256_extracti128_si256(sum, 1)));
    }
    sse2_tail4(a + 4 * i, a_stride, b + 4 * i, b_stride, count - i, sums + i);
}

// Eight 8x8 blocks from their 64 columns' differences in two registers.
AVX2_STEP void store_eight(__m256i left, __m256i right, uint16_t *sums)
{
    // The packs work within halves: blocks 0 1 4 5 | 2 3 6 7, then as 32-bit pairs 01 45 23 67.
    const __m256i sum = _mm256_packs_epi32(left, right);
    const __m128i pairs = _mm_packs_epi32(_mm256_castsi256_si128(sum), _mm256_extracti128_si256(sum, 1));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(sums), _mm_shuffle_epi32(pairs, _MM_SHUFFLE(3, 1, 2, 0)));
}

// 8x8 blocks side by side, read row after row in whole lines: a picture that is not in the cache then comes
// in at almost the speed of plain reading, a third faster than block after block.
template <size_t COUNT>
AVX2_STEP void rows_of_blocks8(const uint8_t *a, size_t a_stride, const uint8_t *b, size_t b_stride,
                               uint16_t *sums)
{
    __m256i sum[COUNT / 4];
#pragma GCC unroll 10
    for (size_t i = 0; i < COUNT / 4; i++)
        sum[i] = _mm256_setzero_si256();
    for (size_t y = 0; y < 8; y++)
#pragma GCC unroll 10
        for (size_t i = 0; i < COUNT / 4; i++)
            sum[i] = _mm256_add_epi32(sum[i], _mm256_sad_epu8(load32(a + y * a_stride + 32 * i),
                                                              load32(b + y * b_stride + 32 * i)));
#pragma GCC unroll 5
    for (size_t i = 0; i < COUNT / 4; i += 2)
        store_eight(sum[i], sum[i + 1], sums + 4 * i);
}

AVX2 void avx2_blocks8(const uint8_t *a, size_t a_stride, const uint8_t *b, size_t b_stride, size_t count,
                       uint16_t *sums)
{
    size_t i = 0;
    // 40 blocks are 320 columns, in ten of the sixteen registers.
    for (; i + 40 <= count; i += 40)
        rows_of_blocks8<40>(a + 8 * i, a_stride, b + 8 * i, b_stride, sums + i);
    for (; i + 8 <= count; i += 8)
        rows_of_blocks8<8>(a + 8 * i, a_stride, b + 8 * i, b_stride, sums + i);
    sse2_tail8(a + 8 * i, a_stride, b + 8 * i, b_stride, count - i, sums + i);
}

AVX2 void avx2_blocks16(const uint8_t *a, size_t a_stride, const uint8_t *b, size_t b_stride, size_t count,
                        uint16_t *sums)
{
    size_t i = 0;
    for (; i + 2 <= count; i += 2) {
        const __m256i halves = columns32(a + 16 * i, a_stride, b + 16 * i, b_stride, 16);
        const __m256i sum = _mm256_add_epi32(halves, _mm256_srli_si256(halves, 8));
        sums[i] = (uint16_t)_mm_cvtsi128_si32(_mm256_castsi256_si128(sum));
        sums[i + 1] = (uint16_t)_mm_cvtsi128_si32(_mm256_extracti128_si256(sum, 1));
    }
    sse2_tail16(a + 16 * i, a_stride, b + 16 * i, b_stride, count - i, sums + i);
}

AVX2 void avx2_threshold(const uint16_t *sums, size_t count, uint16_t limit, uint8_t min_value,
                         uint8_t max_value, uint8_t *out)
{
    threshold_step(sums, count, limit, min_value, max_value, out);
}

} // namespace

const sad_kernels sad_kernels_sse2 = {
    "sse2", sse2_runs_here, {sse2_blocks4, sse2_blocks8, sse2_blocks16}, sse2_threshold};
const sad_kernels sad_kernels_avx2 = {
    "avx2", avx2_runs_here, {avx2_blocks4, avx2_blocks8, avx2_blocks16}, avx2_threshold};
#endif
