// The tone curve of sRGB (IEC 61966-2-1) behind a shoulder that keeps some of the range for what is bright.
#include "tone.h"

#include <math.h>

// x^(1/2.4) for 0 to 1. The exponent is written as a sum of powers of a half, so that only square roots are taken:
// those round alike on every machine, pow does not. 1/4 + 1/8 + 1/32 + 1/128 + 1/512 = 0.41602, off by 0.0007.
static double root_of(double x)
{
    double root = x, product = 1;
    for (int i = 1; i <= 9; i++) {
        root = sqrt(root);
        if (i == 2 || i == 3 || i == 5 || i == 7 || i == 9)
            product *= root;
    }
    return product;
}

static double curve_at(double signal)
{
    // Middle tones rise by up to 1 + 0.9, the white point stays.
    const double bent = signal * (1 + 0.9) / (1 + 0.9 * signal);
    return bent <= 0.0031308 ? 12.92 * bent : 1.055 * root_of(bent) - 0.055;
}

const float *tone_curve(void)
{
    static float curve[TONE_STEPS + 2];
    static bool filled = false;
    if (!filled) {
        for (int i = 0; i <= TONE_STEPS; i++)
            curve[i] = static_cast<float>(curve_at(i / static_cast<double>(TONE_STEPS)));
        curve[TONE_STEPS + 1] = curve[TONE_STEPS];
        filled = true;
    }
    return curve;
}
