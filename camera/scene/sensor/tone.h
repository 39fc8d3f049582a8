// The tone curve: from a channel's linear signal to a code of the picture.
#ifndef TONE_H
#define TONE_H

enum { TONE_STEPS = 4096 };

// The curve at signals 0 to 1 in TONE_STEPS equal steps, and 1 once more behind the end: results 0 to 1. Filled at
// the first call. Any thread after the first call has returned.
const float *tone_curve(void);

// `signal` is cut to 0..1.
inline float tone_of(const float *curve, float signal)
{
    const float at = signal <= 0 ? 0 : signal >= 1 ? static_cast<float>(TONE_STEPS) : signal * TONE_STEPS;
    return curve[static_cast<int>(at)];
}

#endif
