// The inner loops of block differences: one set for each vector unit, and a scalar set that defines the
// result.
//
// All sets give the same numbers to the last bit. They are listed in one table, so that a test can run every
// set that this CPU has, not only the one that the engine picks. Any thread.
#ifndef SAD_KERNELS_H
#define SAD_KERNELS_H

#include <stddef.h>
#include <stdint.h>

// Sums of absolute differences of `count` blocks that lie side by side: block i covers columns i * size to
// i * size + size - 1 of the `size` rows that begin at `a` and `b`. Strides in bytes. Reads nothing outside
// these blocks and writes sums[0] to sums[count - 1], nothing else. No alignment is asked for.
typedef void (*sad_blocks)(const uint8_t *a, size_t a_stride, const uint8_t *b, size_t b_stride, size_t count,
                           uint16_t *sums);

// out[i] = sums[i] >= threshold ? max_value : min_value, for `count` entries, and nothing else written.
typedef void (*sad_threshold)(const uint16_t *sums, size_t count, uint16_t threshold, uint8_t min_value,
                              uint8_t max_value, uint8_t *out);

struct sad_kernels {
    const char *name;
    bool (*runs_here)(void); // whether this CPU can run the set
    sad_blocks blocks[3];    // by enum mi_ive_sad_mode: 4x4, 8x8, 16x16
    sad_threshold threshold;
};

// Every set that was compiled in, best first; the scalar one is last and runs anywhere.
extern const sad_kernels *const sad_kernel_sets[];
extern const size_t sad_kernel_set_count;

// The best set that runs on this CPU.
const sad_kernels *sad_kernels_best(void);

extern const sad_kernels sad_kernels_scalar;
#if defined(__x86_64__) || defined(__i386__)
extern const sad_kernels sad_kernels_avx2;
extern const sad_kernels sad_kernels_sse2;
#endif
#if defined(__ARM_NEON)
extern const sad_kernels sad_kernels_neon;
#endif

#endif
