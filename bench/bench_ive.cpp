// The image engine: block differences beside the scalar kernels and beside merely reading the pictures;
// colour conversion beside a plain loop and beside copying as many bytes as it writes.
#include "benches.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>

#include "harness.h"
#include "machine_limits.h"
#include "mi_ive.h"
#include "sad_kernels.h"

namespace
{

struct size {
    size_t width, height;
};

std::vector<uint8_t> noise(size_t bytes)
{
    std::vector<uint8_t> result(bytes);
    uint32_t state = 1;
    for (auto &byte : result) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<uint8_t>(state >> 24);
    }
    return result;
}

mi_ive_image picture(uint32_t type, const void *plane, size_t width, size_t height)
{
    mi_ive_image result = {};
    result.type = type;
    result.virt_addr[0] = static_cast<uint8_t *>(const_cast<void *>(plane));
    result.width = static_cast<uint16_t>(width);
    result.height = static_cast<uint16_t>(height);
    result.stride[0] = static_cast<uint16_t>(width);
    return result;
}

// `pairs` pairs of pictures in turn: one pair stays in the cache, a pool far larger than the cache never
// does.
void block_difference(const size &size, size_t pairs, const char *state)
{
    const size_t bytes = size.width * size.height;
    const std::vector<uint8_t> pool = noise(2 * pairs * bytes);
    const size_t columns = size.width / 8;
    const size_t rows = size.height / 8;
    std::vector<uint16_t> sums(columns * rows);
    std::vector<uint8_t> marks(columns * rows);
    mi_ive_image sad = picture(MI_IVE_U16C1, sums.data(), columns, rows);
    mi_ive_image thr = picture(MI_IVE_U8C1, marks.data(), columns, rows);
    const mi_ive_sad_control control = {MI_IVE_SAD_8X8, MI_IVE_SAD_BOTH, 960, 0, 255};
    size_t at[3] = {};
    const auto next = [&](size_t rival) {
        at[rival] = (at[rival] + 1) % pairs;
        return pool.data() + 2 * at[rival] * bytes;
    };
    const std::string title = "Block difference, " + std::to_string(size.width) + "x" +
                              std::to_string(size.height) + ", 8x8 blocks, pictures " + state;
    const std::string ours = std::string("MI_IVE_Sad (") + sad_kernels_best()->name + ")";
    compare(title.c_str(),
            {{ours.c_str(),
              [&](size_t times) {
                  for (; times > 0; times--) {
                      const uint8_t *pair = next(0);
                      const mi_ive_image a = picture(MI_IVE_U8C1, pair, size.width, size.height);
                      const mi_ive_image b = picture(MI_IVE_U8C1, pair + bytes, size.width, size.height);
                      if (MI_IVE_Sad(0, &a, &b, &sad, &thr, &control, 0) != 0)
                          abort();
                      keep(sums.data());
                  }
              }},
             {"the scalar kernels, as the compiler does them",
              [&](size_t times) {
                  for (; times > 0; times--) {
                      const uint8_t *pair = next(1);
                      for (size_t row = 0; row < rows; row++) {
                          sad_kernels_scalar.blocks[MI_IVE_SAD_8X8](
                              pair + row * 8 * size.width, size.width, pair + bytes + row * 8 * size.width,
                              size.width, columns, sums.data() + row * columns);
                          sad_kernels_scalar.threshold(sums.data() + row * columns, columns, 960, 0, 255,
                                                       marks.data() + row * columns);
                      }
                      keep(sums.data());
                  }
              }},
             {"limit: reading both pictures", [&](size_t times) {
                  for (; times > 0; times--)
                      keep(read_all(next(2), 2 * bytes));
              }}});
}

// BT.601 the way a textbook writes it: integers with eight bits of fraction, pixel by pixel.
void plain_conversion(const uint8_t *luma, const uint8_t *chroma, size_t width, size_t height, uint8_t *rgb)
{
    const auto clamp = [](int value) {
        return static_cast<uint8_t>(value < 0 ? 0 : value > 255 ? 255 : value);
    };
    for (size_t y = 0; y < height; y++)
        for (size_t x = 0; x < width; x++) {
            const int light = 298 * (luma[y * width + x] - 16) + 128;
            const int u = chroma[y / 2 * width + x / 2 * 2] - 128;
            const int v = chroma[y / 2 * width + x / 2 * 2 + 1] - 128;
            *rgb++ = clamp((light + 409 * v) >> 8);
            *rgb++ = clamp((light - 100 * u - 208 * v) >> 8);
            *rgb++ = clamp((light + 516 * u) >> 8);
        }
}

void conversion(const size &size)
{
    const size_t pixels = size.width * size.height;
    const std::vector<uint8_t> source = noise(pixels * 3 / 2);
    const std::vector<uint8_t> as_many = noise(3 * pixels);
    std::vector<uint8_t> target(3 * pixels);
    mi_ive_image yuv = picture(MI_IVE_YUV420SP, source.data(), size.width, size.height);
    yuv.virt_addr[1] = yuv.virt_addr[0] + pixels;
    yuv.stride[1] = yuv.stride[0];
    mi_ive_image rgb = picture(MI_IVE_U8C3_PACKED, target.data(), size.width, size.height);
    const mi_ive_csc_control control = {0};
    const std::string title = "Colour conversion, " + std::to_string(size.width) + "x" +
                              std::to_string(size.height) + ", NV12 to RGB";
    compare(title.c_str(), {{"MI_IVE_Csc",
                             [&](size_t times) {
                                 for (; times > 0; times--) {
                                     if (MI_IVE_Csc(0, &yuv, &rgb, &control, 1) != 0)
                                         abort();
                                     keep(target.data());
                                 }
                             }},
                            {"a plain loop",
                             [&](size_t times) {
                                 for (; times > 0; times--) {
                                     plain_conversion(source.data(), source.data() + pixels, size.width,
                                                      size.height, target.data());
                                     keep(target.data());
                                 }
                             }},
                            {"limit: copying as many bytes as are written", [&](size_t times) {
                                 for (; times > 0; times--) {
                                     memcpy(target.data(), as_many.data(), as_many.size());
                                     keep(target.data());
                                 }
                             }}});
}

} // namespace

void bench_block_difference(void)
{
    if (MI_IVE_Create(0) != 0)
        abort();
    for (const size &size : {size{160, 96}, size{320, 192}, size{640, 384}})
        block_difference(size, 1, "in the cache");
    // 123 MB of pictures: each is long gone from the cache when its turn comes again.
    block_difference({320, 192}, 1000, "not in the cache");
    MI_IVE_Destroy(0);
}

void bench_conversion(void)
{
    if (MI_IVE_Create(0) != 0)
        abort();
    for (const size &size : {size{64, 64}, size{160, 128}, size{320, 192}})
        conversion(size);
    MI_IVE_Destroy(0);
}
