// The table of kernel sets, and the scalar set: the plain meaning of the operation, for CPUs without a vector
// unit and as what the others are held to.
#include "sad_kernels.h"

#include <stdlib.h>

namespace
{

bool always(void)
{
    return true;
}

template <size_t SIZE>
void blocks(const uint8_t *a, size_t a_stride, const uint8_t *b, size_t b_stride, size_t count,
            uint16_t *sums)
{
    for (size_t i = 0; i < count; i++) {
        int sum = 0;
        for (size_t y = 0; y < SIZE; y++)
            for (size_t x = i * SIZE; x < (i + 1) * SIZE; x++)
                sum += abs(a[y * a_stride + x] - b[y * b_stride + x]);
        sums[i] = (uint16_t)sum;
    }
}

void threshold(const uint16_t *sums, size_t count, uint16_t limit, uint8_t min_value, uint8_t max_value,
               uint8_t *out)
{
    for (size_t i = 0; i < count; i++)
        out[i] = sums[i] >= limit ? max_value : min_value;
}

} // namespace

const sad_kernels sad_kernels_scalar = {"scalar", always, {blocks<4>, blocks<8>, blocks<16>}, threshold};

const sad_kernels *const sad_kernel_sets[] = {
#if defined(__x86_64__) || defined(__i386__)
    &sad_kernels_avx2,
    &sad_kernels_sse2,
#endif
#if defined(__ARM_NEON)
    &sad_kernels_neon,
#endif
    &sad_kernels_scalar,
};
const size_t sad_kernel_set_count = sizeof sad_kernel_sets / sizeof sad_kernel_sets[0];

const sad_kernels *sad_kernels_best(void)
{
    // Not remembered: asking the CPU again costs a few loads, a remembered answer would be state to protect.
    for (const sad_kernels *set : sad_kernel_sets)
        if (set->runs_here())
            return set;
    return &sad_kernels_scalar;
}
