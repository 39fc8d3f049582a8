// The sensor: exposure, noise, colour, range, and what compression leaves.
#include "sensor.h"

#include <gtest/gtest.h>
#include <math.h>

#include "auto_control.h"
#include "blocks.h"
#include "noise.h"
#include "tone.h"

namespace
{
const int WIDTH = 320, HEIGHT = 192;

render_picture even(float red, float green, float blue, float infrared)
{
    render_picture picture;
    picture.width = WIDTH;
    picture.height = HEIGHT;
    for (int i = 0; i < WIDTH * HEIGHT; i++)
        picture.light.insert(picture.light.end(), {red, green, blue, infrared});
    return picture;
}
render_picture even(float light)
{
    return even(light, light, light, 0);
}
void paint(render_picture *picture, int x1, int y1, int x2, int y2, float light)
{
    for (int y = y1; y < y2; y++)
        for (int x = x1; x < x2; x++)
            for (int band = 0; band < BAND_INFRARED; band++)
                picture->light[static_cast<size_t>((y * picture->width + x) * BANDS + band)] = light;
}

struct camera {
    sensor_state state;
    scene_optics optics;
    std::vector<uint8_t> nv12 = std::vector<uint8_t>(WIDTH * HEIGHT * 3 / 2);
    void expose(const render_picture &light) { sensor_expose(&state, &optics, &light, nv12.data()); }
    void settle(const render_picture &light) { sensor_settle(&state, &optics, &light); }
    void set(uint32_t exposure_us, float gain)
    {
        optics.exposure_us = exposure_us;
        optics.gain = gain;
    }
    int luma(int x, int y) const { return nv12[static_cast<size_t>(y * WIDTH + x)]; }
    // 0: Cb, 1: Cr; of the picture's middle.
    double chroma(int part) const
    {
        double sum = 0;
        for (int y = 40; y < 56; y++)
            for (int x = 72; x < 88; x++)
                sum += nv12[static_cast<size_t>(WIDTH * HEIGHT + y * WIDTH + 2 * x + part)];
        return sum / 256;
    }
    double mean(double *spread = nullptr) const
    {
        double sum = 0, squares = 0;
        for (int y = 80; y < 112; y++)
            for (int x = 144; x < 176; x++) {
                sum += luma(x, y);
                squares += luma(x, y) * luma(x, y);
            }
        if (spread)
            *spread = sqrt(squares / 1024 - sum / 1024 * (sum / 1024));
        return sum / 1024;
    }
};

TEST(Exposure, ShutterFirstThenGain)
{
    float exposure_us, gain;
    auto_split(1000, &exposure_us, &gain);
    EXPECT_EQ(1000, exposure_us);
    EXPECT_EQ(1, gain);
    auto_split(40000, &exposure_us, &gain);
    EXPECT_EQ(40000, exposure_us);
    EXPECT_EQ(1, gain);
    auto_split(80000, &exposure_us, &gain);
    EXPECT_EQ(40000, exposure_us);
    EXPECT_EQ(2, gain);
    auto_split(1e9f, &exposure_us, &gain);
    EXPECT_EQ(SENSOR_EXPOSURE_MAX_US, exposure_us);
    EXPECT_EQ(SENSOR_GAIN_MAX, gain);
    auto_split(1, &exposure_us, &gain);
    EXPECT_EQ(SENSOR_EXPOSURE_MIN_US, exposure_us);
    EXPECT_EQ(1, gain);
}

TEST(Exposure, SettlesAtTheTargetFromStarlightToSun)
{
    for (float light : {0.3f, 1.f, 10.f, 100.f, 3000.f}) {
        camera c;
        const render_picture picture = even(light);
        c.settle(picture);
        c.expose(picture);
        EXPECT_NEAR(0.45f, c.state.brightness, 0.02f) << light;
        const float exposure_us = c.state.exposure_us, gain = c.state.gain;
        for (int i = 0; i < 5; i++)
            c.expose(picture);
        EXPECT_EQ(exposure_us, c.state.exposure_us) << light; // nothing moves any more
        EXPECT_EQ(gain, c.state.gain) << light;
    }
}

TEST(Exposure, DarkPictureStaysDark)
{
    camera c;
    c.settle(even(0.005f));
    EXPECT_EQ(SENSOR_EXPOSURE_MAX_US, c.state.exposure_us);
    EXPECT_EQ(SENSOR_GAIN_MAX, c.state.gain);
    c.expose(even(0.005f));
    EXPECT_LT(c.state.brightness, 0.3f);
}

TEST(Exposure, FollowsALampWithinPicturesWithoutSwinging)
{
    camera c;
    c.settle(even(100));
    c.expose(even(100));
    for (float light : {10.f, 100.f}) { // switched off and on again
        const render_picture picture = even(light);
        c.expose(picture);
        EXPECT_GT(fabsf(c.state.brightness - 0.45f), 0.15f); // the first one shows it
        bool darker = c.state.brightness < 0.45f;
        for (int i = 0; i < 15; i++) {
            c.expose(picture);
            const bool near = fabsf(c.state.brightness - 0.45f) <= 0.02f;
            EXPECT_TRUE(near || darker == (c.state.brightness < 0.45f)) << i; // comes from one side
        }
        EXPECT_NEAR(0.45f, c.state.brightness, 0.02f);
    }
}

TEST(Exposure, GivenOneIsObeyedWithinBounds)
{
    camera c;
    c.set(5000, 3);
    c.settle(even(1));
    EXPECT_EQ(5000, c.state.exposure_us);
    EXPECT_EQ(3, c.state.gain);
    c.set(1000000, 0.1f);
    c.expose(even(1));
    EXPECT_EQ(SENSOR_EXPOSURE_MAX_US, c.state.exposure_us);
    EXPECT_EQ(1, c.state.gain);
    c.set(1, 1000);
    c.expose(even(1));
    EXPECT_EQ(SENSOR_EXPOSURE_MIN_US, c.state.exposure_us);
    EXPECT_EQ(SENSOR_GAIN_MAX, c.state.gain);
}

TEST(Exposure, MiddleCountsMost)
{
    EXPECT_EQ(1, auto_weight(0, 0));
    EXPECT_FLOAT_EQ(0.8f, auto_weight(0.5f, 0));
    EXPECT_FLOAT_EQ(0.2f, auto_weight(1, 0));
    EXPECT_FLOAT_EQ(0.2f, auto_weight(1, 1));
    render_picture middle = even(10), rim = even(10);
    paint(&middle, 120, 72, 200, 120, 40);
    paint(&rim, 0, 0, 320, 12, 40); // the same area, at the edge
    camera a, b;
    a.settle(middle);
    b.settle(rim);
    EXPECT_LT(a.state.exposure_us, b.state.exposure_us);
}

TEST(Signal, SameLightSeedAndNumberGiveTheSameBytes)
{
    const render_picture picture = even(0.5f);
    camera a, b;
    a.state.seed = b.state.seed = 7;
    a.settle(picture);
    b.settle(picture);
    a.expose(picture);
    b.expose(picture);
    EXPECT_EQ(a.nv12, b.nv12);
    EXPECT_EQ(1u, a.state.pictures);
    const std::vector<uint8_t> first = a.nv12;
    a.expose(picture);
    EXPECT_NE(first, a.nv12); // another picture, other noise
    camera other;
    other.state.seed = 8;
    other.settle(picture);
    other.expose(picture);
    EXPECT_NE(first, other.nv12);
}

TEST(Signal, NoiseGrowsWithGain)
{
    double before = 0;
    for (float gain : {1.f, 8.f, 32.f}) {
        camera c;
        c.set(10000, gain);
        c.expose(even(0.1f / AUTO_SPEED / 10000 / gain)); // as bright each time
        double spread;
        EXPECT_NEAR(16 + 219 * 0.45, c.mean(&spread), 15) << gain;
        EXPECT_GT(spread, before * 1.2) << gain;
        before = spread;
    }
    EXPECT_GT(before, 2);
    EXPECT_LT(before, 14);
}

TEST(Signal, NoiseIsEvenAndOfUnitVariance)
{
    noise_stream stream = noise_begin(1, 2);
    double sum[3] = {0, 0, 0}, squares[3] = {0, 0, 0}, common = 0;
    const int count = 100000;
    for (int i = 0; i < count; i++) {
        float n[3];
        noise_three(&stream, n);
        for (int k = 0; k < 3; k++) {
            sum[k] += n[k];
            squares[k] += n[k] * n[k];
        }
        common += n[0] * n[1] + n[1] * n[2] + n[0] * n[2];
    }
    for (int k = 0; k < 3; k++) {
        EXPECT_NEAR(0, sum[k] / count, 0.02) << k;
        EXPECT_NEAR(1, squares[k] / count, 0.02) << k;
    }
    EXPECT_NEAR(0, common / count, 0.03);
    EXPECT_NE(noise_begin(1, 2).state, noise_begin(1, 3).state);
    EXPECT_NE(noise_begin(1, 2).state, noise_begin(2, 2).state);
}

TEST(Signal, VignetteDarkensTheCorners)
{
    EXPECT_EQ(1, auto_vignette(0, 0));
    EXPECT_NEAR(0.5407f, auto_vignette(1, 0), 1e-3f); // cos^4 of atan 0.6
    EXPECT_EQ(auto_vignette(0.6f, 0), auto_vignette(0, 0.6f));
    camera c;
    c.settle(even(10));
    c.expose(even(10));
    EXPECT_LT(c.luma(4, 4), c.luma(160, 96) - 20);
    EXPECT_NEAR(c.luma(4, 4), c.luma(315, 187), 12); // alike on both sides
}

TEST(Signal, RangeIsThatOfVideo)
{
    camera c;
    c.set(40000, 1);
    c.expose(even(1e5f));
    EXPECT_EQ(235, c.luma(160, 96));
    EXPECT_NEAR(128, c.chroma(0), 1);
    EXPECT_NEAR(128, c.chroma(1), 1);
    c.expose(even(0));
    EXPECT_NEAR(16, c.mean(), 2);
}

TEST(Signal, LampsGlowAroundThem)
{
    render_picture picture = even(0.01f);
    paint(&picture, 152, 88, 168, 104, 1e4f);
    camera c;
    c.set(10000, 1);
    c.expose(picture);
    EXPECT_EQ(235, c.luma(160, 96));
    EXPECT_GT(c.luma(176, 96), c.luma(40, 96) + 20); // eight pixels from its edge
}

TEST(Signal, EdgesHaveHalos)
{
    render_picture picture = even(5);
    paint(&picture, 160, 0, 320, 192, 20);
    camera c;
    c.set(10000, 1);
    c.expose(picture);
    EXPECT_GT(c.luma(160, 96), c.luma(170, 96) + 2);
    EXPECT_LT(c.luma(159, 96), c.luma(150, 96) - 2);
}

TEST(Colour, FilterKeepsInfraredOut)
{
    camera c;
    c.set(20000, 1);
    c.expose(even(0, 0, 0, 10));
    const double with = c.mean();
    c.optics.filter = false;
    c.expose(even(0, 0, 0, 10));
    EXPECT_GT(c.mean(), with + 80);
    EXPECT_NEAR(128, c.chroma(0), 14); // all channels see it almost alike: pale
    EXPECT_NEAR(128, c.chroma(1), 14);
}

TEST(Colour, RedIsRedAndBlueIsBlue)
{
    camera c;
    c.set(10000, 1);
    c.expose(even(20, 4, 4, 0));
    EXPECT_GT(c.chroma(1), 150);
    EXPECT_LT(c.chroma(0), 128);
    camera d;
    d.set(10000, 1);
    d.expose(even(4, 4, 20, 0));
    EXPECT_GT(d.chroma(0), 150);
    EXPECT_LT(d.chroma(1), 128);
}

TEST(Colour, GreyIsGrey)
{
    camera c;
    c.optics.grey = true;
    c.settle(even(20, 4, 4, 0));
    c.expose(even(20, 4, 4, 0));
    for (size_t i = WIDTH * HEIGHT; i < c.nv12.size(); i++)
        ASSERT_EQ(128, c.nv12[i]);
}

TEST(Colour, SaturationFallsAtHighGain)
{
    camera low, high;
    low.set(40000, 1);
    low.expose(even(4, 2, 2, 0));
    high.set(40000 / 32, 32);
    high.expose(even(4, 2, 2, 0));
    EXPECT_GT(low.chroma(1) - 128, 1.5 * (high.chroma(1) - 128));
}

TEST(Colour, WhiteBalanceTakesMostOfALampsColourAndHasLimits)
{
    camera c;
    const render_picture lamp = even(12, 10, 7, 0);
    c.settle(lamp);
    EXPECT_NEAR(1 + 0.8 * (10 / 12. - 1), c.state.red, 1e-3);
    EXPECT_NEAR(1 + 0.8 * (10 / 7. - 1), c.state.blue, 1e-3);
    c.settle(even(4, 1, 1, 0));
    EXPECT_EQ(0.5f, c.state.red);
    c.settle(even(1, 10, 0.5f, 0));
    EXPECT_EQ(1.8f, c.state.red);
    EXPECT_EQ(2.4f, c.state.blue);
    c.settle(even(1, 1, 4, 0));
    EXPECT_EQ(0.6f, c.state.blue);
}

TEST(Colour, WhiteBalanceMovesSlowly)
{
    camera c;
    c.settle(even(10));
    c.expose(even(12, 10, 7, 0));
    c.expose(even(12, 10, 7, 0));
    EXPECT_GT(c.state.blue, 1.02f);
    EXPECT_LT(c.state.blue, 1.1f);
    for (int i = 0; i < 40; i++)
        c.expose(even(12, 10, 7, 0));
    EXPECT_NEAR(1 + 0.8 * (10 / 7. - 1), c.state.blue, 0.01);
}

TEST(Colour, FactorsAreNeverBelowOne)
{
    float f[3];
    auto_factors(0.5f, 2, f);
    EXPECT_EQ(1, f[0]);
    EXPECT_EQ(2, f[1]);
    EXPECT_EQ(4, f[2]);
    auto_factors(1.5f, 2, f);
    EXPECT_EQ(1.5f, f[0]);
    EXPECT_EQ(1, f[1]);
    auto_factors(2, 0.5f, f);
    EXPECT_EQ(4, f[0]);
    EXPECT_EQ(1, f[2]);
}

TEST(Tone, CurveRisesFromBlackToWhite)
{
    const float *curve = tone_curve();
    EXPECT_EQ(0, tone_of(curve, -1));
    EXPECT_EQ(0, tone_of(curve, 0));
    EXPECT_NEAR(1, tone_of(curve, 1), 2e-3f);
    EXPECT_EQ(tone_of(curve, 1), tone_of(curve, 9));
    for (int i = 0; i < TONE_STEPS; i++)
        ASSERT_LE(curve[i], curve[i + 1]);
    // 0.18 is 0.18 x 1.9 / (1 + 0.9 x 0.18) = 0.294 behind the shoulder, and sRGB makes 0.579 of that.
    EXPECT_NEAR(0.579f, tone_of(curve, 0.18f), 2e-3f);
}

TEST(Blocks, EvenPlanesStay)
{
    std::vector<uint8_t> nv12(64 * 48 * 3 / 2, 77);
    blocks_compress(nv12.data(), 64, 48, 100);
    for (uint8_t value : nv12)
        ASSERT_EQ(77, value);
}

TEST(Blocks, LowQualityLosesMore)
{
    std::vector<uint8_t> picture(64 * 48 * 3 / 2);
    for (size_t i = 0; i < picture.size(); i++)
        picture[i] = static_cast<uint8_t>(i * i * 31 / 97 + i / 64 * 2);
    double before = 0;
    for (int quality : {100, 90, 50, 10, 1}) {
        std::vector<uint8_t> nv12 = picture;
        blocks_compress(nv12.data(), 64, 48, quality);
        double off = 0;
        for (size_t i = 0; i < picture.size(); i++)
            off += fabs(picture[i] - static_cast<double>(nv12[i])) / static_cast<double>(picture.size());
        EXPECT_GT(off, before) << quality;
        EXPECT_TRUE(off < 1 || quality < 100);
        before = off;
    }
    std::vector<uint8_t> least = picture, less = picture;
    blocks_compress(least.data(), 64, 48, 1);
    blocks_compress(less.data(), 64, 48, -5);
    EXPECT_EQ(least, less);
}

TEST(Blocks, EdgesThatFillNoBlockAreKept)
{
    std::vector<uint8_t> nv12(20 * 14 * 3 / 2 + 8, 200);
    blocks_compress(nv12.data(), 20, 14, 50);
    for (uint8_t value : nv12)
        ASSERT_NEAR(200, value, 2);
}

TEST(Blocks, SensorCompressesOnDemand)
{
    render_picture picture = even(5);
    paint(&picture, 150, 80, 161, 99, 20);
    camera plain, blocky;
    blocky.optics.jpeg_quality = 10;
    plain.settle(picture);
    blocky.settle(picture);
    plain.expose(picture);
    blocky.expose(picture);
    EXPECT_NE(plain.nv12, blocky.nv12);
    EXPECT_NEAR(plain.mean(), blocky.mean(), 5);
}

TEST(Sizes, WidePicturesAreNoisier)
{
    double spreads[2];
    for (int i = 0; i < 2; i++) {
        render_picture picture;
        picture.width = i ? 1280 : 320;
        picture.height = i ? 768 : 192;
        picture.light.assign(static_cast<size_t>(picture.width * picture.height * BANDS), 2);
        sensor_state state;
        scene_optics optics;
        std::vector<uint8_t> nv12(picture.light.size() / BANDS * 3 / 2);
        sensor_settle(&state, &optics, &picture);
        sensor_expose(&state, &optics, &picture, nv12.data());
        double sum = 0, squares = 0;
        for (int k = 0; k < 60; k++) {
            const double value =
                nv12[static_cast<size_t>(picture.height / 2 * picture.width + picture.width / 2 + k)];
            sum += value;
            squares += value * value;
        }
        spreads[i] = sqrt(squares / 60 - sum / 60 * (sum / 60));
    }
    EXPECT_GT(spreads[1], 1.3 * spreads[0]);
}
} // namespace
