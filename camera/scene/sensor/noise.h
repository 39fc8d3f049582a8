// Numbers for the sensor's noise: the same for the same seed and picture, everywhere.
#ifndef NOISE_H
#define NOISE_H

#include "scene_types.h"

typedef scene_random noise_stream;

inline noise_stream noise_begin(uint64_t seed, uint64_t picture)
{
    scene_random mixed = {seed ^ (picture * UINT64_C(0xd1342543de82ef95))};
    return {scene_next(&mixed)};
}
// Three numbers of mean 0 and variance 1, nearly normal: each the sum of three or four uniform ones (J. O. Irwin,
// P. Hall, 1927), which needs neither logarithm nor cosine.
inline void noise_three(noise_stream *stream, float out[3])
{
    const uint64_t a = scene_next(stream), b = scene_next(stream);
    const auto part = [](uint64_t bits, int shift) { return static_cast<int>((bits >> shift) & 0xfff); };
    // Sums of 3 numbers of 12 bits: mean 6142.5, variance 3 x 4096^2 / 12.
    const float scale = 1 / 2048.f;
    out[0] = (static_cast<float>(part(a, 0) + part(a, 12) + part(a, 24)) - 6142.5f) * scale;
    out[1] = (static_cast<float>(part(a, 36) + part(a, 48) + part(b, 0)) - 6142.5f) * scale;
    out[2] = (static_cast<float>(part(b, 12) + part(b, 24) + part(b, 36)) - 6142.5f) * scale;
}

#endif
