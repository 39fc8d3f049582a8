// Compression artefacts: forward cosine transform, rounding, and back, block by block.
#include "blocks.h"

#include <math.h>
#include <stddef.h>

// Table K.1 and K.2.
static const uint8_t luma_steps[64] = {16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,  58,  60,  55,
                                       14, 13, 16, 24, 40,  57,  69,  56,  14, 17, 22, 29, 51,  87,  80,  62,
                                       18, 22, 37, 56, 68,  109, 103, 77,  24, 35, 55, 64, 81,  104, 113, 92,
                                       49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99};
static const uint8_t chroma_steps[64] = {17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99,
                                         24, 26, 56, 99, 99, 99, 99, 99, 47, 66, 99, 99, 99, 99, 99, 99,
                                         99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
                                         99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};

// cos(k pi / 16) for k = 0 to 8.
static const float cosines[9] = {1.f,         0.98078528f, 0.92387953f, 0.83146961f, 0.70710678f,
                                 0.55557023f, 0.38268343f, 0.19509032f, 0.f};

static float cosine(int k) // of k pi / 16
{
    k %= 32;
    if (k > 16)
        k = 32 - k;
    return k <= 8 ? cosines[k] : -cosines[16 - k];
}

struct transform {
    float basis[8][8]; // of frequency u at place x
};

static void fill(transform *t)
{
    for (int u = 0; u < 8; u++)
        for (int x = 0; x < 8; x++)
            t->basis[u][x] = (u == 0 ? 0.35355339f : 0.5f) * cosine((2 * x + 1) * u);
}

static void fill_steps(const uint8_t *table, int quality, float *steps)
{
    quality = quality < 1 ? 1 : quality > 100 ? 100 : quality;
    const int scale = quality < 50 ? 5000 / quality : 200 - 2 * quality;
    for (int i = 0; i < 64; i++) {
        const int step = (table[i] * scale + 50) / 100;
        steps[i] = static_cast<float>(step < 1 ? 1 : step > 255 ? 255 : step);
    }
}

// out = basis x in, or its transpose x in, then turned on its side: twice gives both directions.
static void pass(const transform *t, bool back, const float in[64], float out[64])
{
    for (int i = 0; i < 8; i++)
        for (int column = 0; column < 8; column++) {
            float sum = 0;
            for (int j = 0; j < 8; j++)
                sum += (back ? t->basis[j][i] : t->basis[i][j]) * in[j * 8 + column];
            out[column * 8 + i] = sum;
        }
}

static void round_block(const transform *t, const float *steps, float block[64])
{
    float other[64];
    pass(t, false, block, other);
    pass(t, false, other, block);
    for (int i = 0; i < 64; i++)
        block[i] = floorf(block[i] / steps[i] + 0.5f) * steps[i];
    pass(t, true, block, other);
    pass(t, true, other, block);
}

// A plane whose points are `stride` bytes apart; blocks at the right and lower edges repeat the last point.
static void compress_plane(const transform *t, const float *steps, uint8_t *plane, int width, int height,
                           int stride)
{
    const auto at = [=](int x, int y) {
        x = x < width ? x : width - 1;
        y = y < height ? y : height - 1;
        return plane + (static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)) *
                           static_cast<size_t>(stride);
    };
    for (int top = 0; top < height; top += 8)
        for (int left = 0; left < width; left += 8) {
            float block[64];
            for (int i = 0; i < 64; i++)
                block[i] = static_cast<float>(*at(left + i % 8, top + i / 8)) - 128;
            round_block(t, steps, block);
            for (int i = 0; i < 64; i++)
                if (left + i % 8 < width && top + i / 8 < height) {
                    const float value = floorf(block[i] + 128.5f);
                    *at(left + i % 8, top + i / 8) = static_cast<uint8_t>(value < 0     ? 0
                                                                          : value > 255 ? 255
                                                                                        : value);
                }
        }
}

void blocks_compress(uint8_t *nv12, int width, int height, int quality)
{
    transform t;
    fill(&t);
    float luma[64], chroma[64];
    fill_steps(luma_steps, quality, luma);
    fill_steps(chroma_steps, quality, chroma);
    compress_plane(&t, luma, nv12, width, height, 1);
    uint8_t *colour = nv12 + static_cast<size_t>(width) * static_cast<size_t>(height);
    compress_plane(&t, chroma, colour, width / 2, height / 2, 2);
    compress_plane(&t, chroma, colour + 1, width / 2, height / 2, 2);
}
