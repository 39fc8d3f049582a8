// See machine_limits.h.
#include "machine_limits.h"

#include "harness.h"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

namespace
{

// Vectors as the compiler knows them, at any address.
typedef uint64_t vector16 __attribute__((vector_size(16), aligned(1), may_alias));
#if defined(__x86_64__) || defined(__i386__)
typedef uint64_t vector32 __attribute__((vector_size(32), aligned(1), may_alias));
typedef uint64_t vector64 __attribute__((vector_size(64), aligned(1), may_alias));
#endif

// Four independent sums, so that only the loads count.
template <typename VECTOR>
__attribute__((always_inline)) inline uint64_t read_vectors(const void *memory, size_t bytes)
{
    const uint8_t *p = static_cast<const uint8_t *>(memory);
    VECTOR sum0 = {}, sum1 = {}, sum2 = {}, sum3 = {};
    for (; bytes >= 4 * sizeof(VECTOR); bytes -= 4 * sizeof(VECTOR), p += 4 * sizeof(VECTOR)) {
        const VECTOR *at = reinterpret_cast<const VECTOR *>(p);
        sum0 += at[0];
        sum1 += at[1];
        sum2 += at[2];
        sum3 += at[3];
    }
    sum0 += sum1 + sum2 + sum3;
    uint64_t result = 0;
    for (size_t i = 0; i < sizeof(VECTOR) / sizeof(uint64_t); i++)
        result += sum0[i];
    for (; bytes > 0; bytes--)
        result += *p++;
    return result;
}

// Enough independent chains to hide the latency of a multiply-add on every CPU we know of (5 cycles, 2 a
// cycle).
enum { CHAINS = 12 };

#if defined(__x86_64__) || defined(__i386__)

__attribute__((target("avx2"))) uint64_t read32(const void *memory, size_t bytes)
{
    return read_vectors<vector32>(memory, bytes);
}

__attribute__((target("avx512f"))) uint64_t read64(const void *memory, size_t bytes)
{
    return read_vectors<vector64>(memory, bytes);
}

__attribute__((target("avx2,fma"))) void fma8(size_t times)
{
    __m256 sums[CHAINS];
    for (auto &sum : sums)
        sum = _mm256_set1_ps(1.f);
    const __m256 factor = _mm256_set1_ps(0.5f);
    for (size_t step = times * (MULTIPLY_ADDS / (8 * CHAINS)); step > 0; step--)
#pragma GCC unroll 12
        for (int i = 0; i < CHAINS; i++)
            sums[i] = _mm256_fmadd_ps(sums[i], factor, factor);
    for (const auto &sum : sums)
        keep(_mm256_cvtss_f32(sum));
}

__attribute__((target("avx512f"))) void fma16(size_t times)
{
    __m512 sums[CHAINS];
    for (auto &sum : sums)
        sum = _mm512_set1_ps(1.f);
    const __m512 factor = _mm512_set1_ps(0.5f);
    for (size_t step = times * (MULTIPLY_ADDS / (16 * CHAINS)); step > 0; step--)
#pragma GCC unroll 12
        for (int i = 0; i < CHAINS; i++)
            sums[i] = _mm512_fmadd_ps(sums[i], factor, factor);
    for (const auto &sum : sums)
        keep(_mm512_cvtss_f32(sum));
}

bool has_fma(void)
{
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
}

bool has_avx512(void)
{
    return __builtin_cpu_supports("avx512f");
}

#elif defined(__ARM_NEON)

void fma4(size_t times)
{
    float32x4_t sums[CHAINS];
    for (auto &sum : sums)
        sum = vdupq_n_f32(1.f);
    const float32x4_t factor = vdupq_n_f32(0.5f);
    for (size_t step = times * (MULTIPLY_ADDS / (4 * CHAINS)); step > 0; step--)
#pragma GCC unroll 12
        for (int i = 0; i < CHAINS; i++)
            sums[i] = vmlaq_f32(factor, sums[i], factor);
    for (const auto &sum : sums)
        keep(vgetq_lane_f32(sum, 0));
}

bool always(void)
{
    return true;
}

#endif

} // namespace

uint64_t read_all(const void *memory, size_t bytes)
{
#if defined(__x86_64__) || defined(__i386__)
    if (has_avx512())
        return read64(memory, bytes);
    if (__builtin_cpu_supports("avx2"))
        return read32(memory, bytes);
#endif
    return read_vectors<vector16>(memory, bytes);
}

const multiply_add_limit multiply_add_limits[] = {
#if defined(__x86_64__) || defined(__i386__)
    {"8 at a time", has_fma, fma8},
    {"16 at a time", has_avx512, fma16},
#elif defined(__ARM_NEON)
    {"4 at a time", always, fma4},
#endif
};
const size_t multiply_add_limit_count = sizeof multiply_add_limits / sizeof multiply_add_limits[0];
