// The image engine's contract, through its header alone: another implementation can be held to it as it
// stands.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <math.h>
#include <random>
#include <stdlib.h>
#include <string>
#include <thread>
#include <vector>

#include "guarded_plane.h"
#include "mi_ive.h"

namespace
{

using At = GuardedPlane::At;

mi_ive_image image(uint32_t type, uint8_t *plane, size_t width, size_t height, size_t stride)
{
    mi_ive_image result = {};
    result.type = type;
    result.virt_addr[0] = plane;
    result.phys_addr[0] = reinterpret_cast<uintptr_t>(plane);
    result.width = static_cast<uint16_t>(width);
    result.height = static_cast<uint16_t>(height);
    result.stride[0] = static_cast<uint16_t>(stride);
    return result;
}

// ---- Handles
// ---------------------------------------------------------------------------------------------------

TEST(Handles, SixtyFourOfThemEachOnce)
{
    for (int handle = 0; handle < 64; handle++)
        EXPECT_EQ(MI_IVE_Create(handle), 0);
    for (int handle = 0; handle < 64; handle++)
        EXPECT_EQ(MI_IVE_Create(handle), static_cast<int>(0xA0002004));
    for (int handle = 0; handle < 64; handle++)
        EXPECT_EQ(MI_IVE_Destroy(handle), 0);
    for (int handle = 0; handle < 64; handle++)
        EXPECT_EQ(MI_IVE_Destroy(handle), static_cast<int>(0xA0002005));
    EXPECT_EQ(MI_IVE_Create(7), 0); // again after its end
    EXPECT_EQ(MI_IVE_Destroy(7), 0);
}

TEST(Handles, NumbersOutsideAreRefused)
{
    for (int handle : {-1, 64, 65, 1000000, -2147483647 - 1, 2147483647}) {
        EXPECT_EQ(MI_IVE_Create(handle), static_cast<int>(0xA0002003)) << handle;
        EXPECT_EQ(MI_IVE_Destroy(handle), static_cast<int>(0xA0002005)) << handle;
    }
}

TEST(Handles, OfManyThreadsOneGetsIt)
{
    std::atomic<int> created{0}, refused{0}, destroyed{0}, not_there{0};
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; i++)
        threads.emplace_back([&] {
            for (int round = 0; round < 1000; round++) {
                const int result = MI_IVE_Create(round % 64);
                (result == 0 ? created : refused)++;
                if (result == 0)
                    (MI_IVE_Destroy(round % 64) == 0 ? destroyed : not_there)++;
            }
        });
    for (auto &thread : threads)
        thread.join();
    EXPECT_EQ(created + refused, 4000);
    EXPECT_EQ(destroyed, created);
    EXPECT_EQ(not_there, 0);
}

// ---- Block differences
// -----------------------------------------------------------------------------------------

class Sad : public testing::Test
{
  protected:
    void SetUp() override { ASSERT_EQ(MI_IVE_Create(0), 0); }
    void TearDown() override { EXPECT_EQ(MI_IVE_Destroy(0), 0); }

    struct Size {
        size_t width, height, a_gap, b_gap, sad_gap, thr_gap;
    };
    // One call, held to the definition entry by entry, to the byte outside the maps, and to the planes' ends.
    void check(const Size &size, const mi_ive_sad_control &control, unsigned seed, At at)
    {
        std::mt19937 random(seed);
        const size_t block = size_t{4} << control.mode;
        const size_t columns = size.width / block;
        const size_t rows = size.height / block;
        GuardedPlane a(size.width, size.height, size.width + size.a_gap, at);
        GuardedPlane b(size.width, size.height, size.width + size.b_gap, at);
        GuardedPlane sad(2 * columns, rows, 2 * (columns + size.sad_gap), at);
        GuardedPlane thr(columns, rows, columns + size.thr_gap, at);
        for (size_t y = 0; y < size.height; y++)
            for (size_t x = 0; x < size.width; x++) {
                a.row(y)[x] = static_cast<uint8_t>(random());
                b.row(y)[x] = static_cast<uint8_t>(random());
            }
        a.make_read_only();
        b.make_read_only();
        const mi_ive_image a_image =
            image(MI_IVE_U8C1, a.data(), size.width, size.height, size.width + size.a_gap);
        const mi_ive_image b_image =
            image(MI_IVE_U8C1, b.data(), size.width, size.height, size.width + size.b_gap);
        mi_ive_image sad_image = image(MI_IVE_U16C1, sad.data(), columns, rows, columns + size.sad_gap);
        mi_ive_image thr_image = image(MI_IVE_U8C1, thr.data(), columns, rows, columns + size.thr_gap);
        const std::string what = std::to_string(size.width) + "x" + std::to_string(size.height) +
                                 ", blocks of " + std::to_string(block) + ", output " +
                                 std::to_string(control.output);

        ASSERT_EQ(MI_IVE_Sad(0, &a_image, &b_image, &sad_image, &thr_image, &control, 0), 0) << what;

        const bool sums = control.output != MI_IVE_SAD_ONLY_THRESHOLD;
        const bool bytes = control.output != MI_IVE_SAD_ONLY_MAP;
        ASSERT_TRUE(sad.untouched_outside(sums ? 2 * columns : 0, rows)) << what;
        ASSERT_TRUE(thr.untouched_outside(bytes ? columns : 0, rows)) << what;
        for (size_t row = 0; row < rows; row++)
            for (size_t column = 0; column < columns; column++) {
                int sum = 0;
                for (size_t y = row * block; y < (row + 1) * block; y++)
                    for (size_t x = column * block; x < (column + 1) * block; x++)
                        sum += abs(a.row(y)[x] - b.row(y)[x]);
                if (sums) {
                    uint16_t entry;
                    memcpy(&entry, sad.row(row) + 2 * column, 2);
                    ASSERT_EQ(entry, sum) << what << ", entry " << column << "," << row;
                }
                if (bytes) {
                    ASSERT_EQ(thr.row(row)[column],
                              sum >= control.threshold ? control.max_value : control.min_value)
                        << what << ", entry " << column << "," << row << ", sum " << sum;
                }
            }
    }
};

TEST_F(Sad, EveryModeAndOutputAtManySizes)
{
    std::mt19937 random(3);
    for (uint32_t mode = 0; mode < 3; mode++)
        for (uint32_t output = 0; output < 3; output++)
            for (int round = 0; round < 60; round++) {
                const size_t block = size_t{4} << mode;
                Size size = {1 + random() % (block * 20),
                             1 + random() % (block * 5),
                             random() % 20,
                             random() % 20,
                             random() % 5,
                             random() % 5};
                // About what a block of noise sums up to, so that both values appear.
                const auto threshold = static_cast<uint16_t>(85 * block * block);
                check(
                    size,
                    {mode, output, threshold, static_cast<uint8_t>(random()), static_cast<uint8_t>(random())},
                    random(), round % 2 ? At::begin : At::end);
                if (HasFatalFailure())
                    return;
            }
}

TEST_F(Sad, TheAnalysisPicture)
{
    check({320, 192, 0, 0, 0, 0}, {1, 0, 5440, 0, 255}, 4, At::end);
}

TEST_F(Sad, WidestAndHighestPictures)
{
    for (size_t width : {1279u, 1280u, 1283u, 1284u, 2564u, 65535u}) {
        check({width, 5, 0, 0, 0, 0}, {0, 0, 1360, 1, 2}, 5, At::end);
        check({width, 9, 0, 0, 0, 0}, {1, 0, 5440, 1, 2}, 6, At::end);
        check({width, 17, 0, 0, 0, 0}, {2, 0, 21760, 1, 2}, 7, At::end);
        if (HasFatalFailure())
            return;
    }
    check({9, 65535, 3, 0, 1, 2}, {1, 0, 5440, 1, 2}, 8, At::end);
}

// A picture smaller than a block has no entry: that is no error, and nothing is written.
TEST_F(Sad, SmallerThanABlockGivesNoEntry)
{
    for (uint32_t mode = 0; mode < 3; mode++) {
        const size_t block = size_t{4} << mode;
        check({block - 1, 40, 0, 0, 1, 1}, {mode, 0, 1, 1, 2}, 9, At::end);
        check({40, block - 1, 0, 0, 0, 0}, {mode, 0, 1, 1, 2}, 10, At::end);
        check({1, 1, 0, 0, 1, 1}, {mode, 0, 1, 1, 2}, 11, At::end);
    }
}

// The greatest sum of all, and each threshold around a sum.
TEST_F(Sad, ThresholdMeetsTheSumItself)
{
    for (uint32_t mode = 0; mode < 3; mode++) {
        const size_t block = size_t{4} << mode;
        const unsigned greatest = static_cast<unsigned>(255 * block * block);
        std::vector<uint8_t> black(block * block, 0), white(block * block, 255);
        const mi_ive_image a = image(MI_IVE_U8C1, black.data(), block, block, block);
        const mi_ive_image b = image(MI_IVE_U8C1, white.data(), block, block, block);
        for (int step = -1; step <= 1; step++) {
            uint16_t sum = 1;
            uint8_t value = 1;
            mi_ive_image sad = image(MI_IVE_U16C1, reinterpret_cast<uint8_t *>(&sum), 1, 1, 1);
            mi_ive_image thr = image(MI_IVE_U8C1, &value, 1, 1, 1);
            const mi_ive_sad_control control = {mode, MI_IVE_SAD_BOTH, static_cast<uint16_t>(greatest + step),
                                                10, 200};
            ASSERT_EQ(MI_IVE_Sad(0, &a, &b, &sad, &thr, &control, 1), 0);
            EXPECT_EQ(sum, greatest);
            EXPECT_EQ(value, step <= 0 ? 200 : 10);
        }
        const mi_ive_sad_control zero = {mode, MI_IVE_SAD_ONLY_THRESHOLD, 0, 10, 200};
        uint8_t value = 1;
        mi_ive_image thr = image(MI_IVE_U8C1, &value, 1, 1, 1);
        ASSERT_EQ(MI_IVE_Sad(0, &a, &a, nullptr, &thr, &zero, 0), 0);
        EXPECT_EQ(value, 200); // a sum of 0 is not below 0
    }
}

// A map may be larger than the picture needs, and lie at an odd address; what has no entry stays as it was.
TEST_F(Sad, MapsMayBeLargerAndAtOddAddresses)
{
    std::vector<uint8_t> black(128, 0), grey(128, 2);
    const mi_ive_image a = image(MI_IVE_U8C1, black.data(), 16, 8, 16);
    const mi_ive_image b = image(MI_IVE_U8C1, grey.data(), 16, 8, 16);
    alignas(2) uint8_t sums[2 * 4 * 2 + 1];
    uint8_t values[4 * 2];
    memset(sums, 0x11, sizeof sums);
    memset(values, 0x11, sizeof values);
    mi_ive_image sad = image(MI_IVE_U16C1, sums + 1, 3, 2, 4);
    mi_ive_image thr = image(MI_IVE_U8C1, values, 3, 2, 4);
    const mi_ive_sad_control control = {MI_IVE_SAD_8X8, MI_IVE_SAD_BOTH, 128, 0, 255};
    ASSERT_EQ(MI_IVE_Sad(0, &a, &b, &sad, &thr, &control, 0), 0);
    const uint8_t expected_sums[] = {0x11, 128,  0,    128,  0,    0x11, 0x11, 0x11, 0x11,
                                     0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11};
    const uint8_t expected_values[] = {255, 255, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11};
    EXPECT_EQ(memcmp(sums, expected_sums, sizeof sums), 0);
    EXPECT_EQ(memcmp(values, expected_values, sizeof values), 0);
}

TEST_F(Sad, AMapLeftOutMayBeNull)
{
    std::vector<uint8_t> black(64, 0), grey(64, 3);
    const mi_ive_image a = image(MI_IVE_U8C1, black.data(), 8, 8, 8);
    const mi_ive_image b = image(MI_IVE_U8C1, grey.data(), 8, 8, 8);
    uint16_t sum = 0;
    uint8_t value = 0;
    mi_ive_image sad = image(MI_IVE_U16C1, reinterpret_cast<uint8_t *>(&sum), 1, 1, 1);
    mi_ive_image thr = image(MI_IVE_U8C1, &value, 1, 1, 1);
    mi_ive_image junk = image(77, nullptr, 0, 0, 0);
    const mi_ive_sad_control only_map = {MI_IVE_SAD_8X8, MI_IVE_SAD_ONLY_MAP, 1, 8, 9};
    const mi_ive_sad_control only_threshold = {MI_IVE_SAD_8X8, MI_IVE_SAD_ONLY_THRESHOLD, 1, 8, 9};
    EXPECT_EQ(MI_IVE_Sad(0, &a, &b, &sad, nullptr, &only_map, 0), 0);
    EXPECT_EQ(sum, 192);
    EXPECT_EQ(MI_IVE_Sad(0, &a, &b, nullptr, &thr, &only_threshold, 0), 0);
    EXPECT_EQ(value, 9);
    EXPECT_EQ(MI_IVE_Sad(0, &a, &b, &sad, &junk, &only_map, 0), 0);
    EXPECT_EQ(MI_IVE_Sad(0, &a, &b, &junk, &thr, &only_threshold, 0), 0);
}

// The physical addresses are the hardware's business: what they hold does not matter here.
TEST_F(Sad, PhysicalAddressesAreNotLookedAt)
{
    std::vector<uint8_t> black(64, 0), grey(64, 3);
    mi_ive_image a = image(MI_IVE_U8C1, black.data(), 8, 8, 8);
    mi_ive_image b = image(MI_IVE_U8C1, grey.data(), 8, 8, 8);
    a.phys_addr[0] = 0;
    b.phys_addr[0] = 1;
    uint8_t value = 0;
    mi_ive_image thr = image(MI_IVE_U8C1, &value, 1, 1, 1);
    const mi_ive_sad_control control = {MI_IVE_SAD_8X8, MI_IVE_SAD_ONLY_THRESHOLD, 192, 8, 9};
    EXPECT_EQ(MI_IVE_Sad(0, &a, &b, nullptr, &thr, &control, 0), 0);
    EXPECT_EQ(value, 9);
}

const int PARAM = static_cast<int>(0xA0002003);
const int NO_HANDLE = static_cast<int>(0xA0002005);
const int NULL_POINTER = static_cast<int>(0xA0002006);

struct SadCall {
    int handle;
    mi_ive_image a, b, sad, thr;
    mi_ive_sad_control control;
    bool no_a, no_b, no_sad, no_thr, no_control;
};

const struct {
    const char *name;
    void (*change)(SadCall &);
    int result;
} sad_refusals[] = {
    {"nothing wrong", [](SadCall &) {}, 0},
    {"never created", [](SadCall &c) { c.handle = 5; }, NO_HANDLE},
    {"handle below", [](SadCall &c) { c.handle = -1; }, NO_HANDLE},
    {"handle above", [](SadCall &c) { c.handle = 64; }, NO_HANDLE},
    {"no first picture", [](SadCall &c) { c.no_a = true; }, NULL_POINTER},
    {"no second picture", [](SadCall &c) { c.no_b = true; }, NULL_POINTER},
    {"no sums", [](SadCall &c) { c.no_sad = true; }, NULL_POINTER},
    {"no thresholds", [](SadCall &c) { c.no_thr = true; }, NULL_POINTER},
    {"no control", [](SadCall &c) { c.no_control = true; }, NULL_POINTER},
    {"no first plane", [](SadCall &c) { c.a.virt_addr[0] = nullptr; }, NULL_POINTER},
    {"no second plane", [](SadCall &c) { c.b.virt_addr[0] = nullptr; }, NULL_POINTER},
    {"no plane of sums", [](SadCall &c) { c.sad.virt_addr[0] = nullptr; }, NULL_POINTER},
    {"no plane of thresholds", [](SadCall &c) { c.thr.virt_addr[0] = nullptr; }, NULL_POINTER},
    {"only sums, none there",
     [](SadCall &c) {
         c.control.output = 1;
         c.no_sad = true;
     },
     NULL_POINTER},
    {"only thresholds, none there",
     [](SadCall &c) {
         c.control.output = 2;
         c.no_thr = true;
     },
     NULL_POINTER},
    {"mode", [](SadCall &c) { c.control.mode = 3; }, PARAM},
    {"mode far out", [](SadCall &c) { c.control.mode = 0xFFFFFFFF; }, PARAM},
    {"output", [](SadCall &c) { c.control.output = 3; }, PARAM},
    {"output far out", [](SadCall &c) { c.control.output = 0xFFFFFFFF; }, PARAM},
    {"first of another type", [](SadCall &c) { c.a.type = MI_IVE_YUV420SP; }, PARAM},
    {"second of another type", [](SadCall &c) { c.b.type = 1; }, PARAM},
    {"sums of another type", [](SadCall &c) { c.sad.type = MI_IVE_U8C1; }, PARAM},
    {"thresholds of another type", [](SadCall &c) { c.thr.type = MI_IVE_U16C1; }, PARAM},
    {"no width", [](SadCall &c) { c.a.width = c.b.width = 0; }, PARAM},
    {"no height", [](SadCall &c) { c.a.height = c.b.height = 0; }, PARAM},
    {"widths differ", [](SadCall &c) { c.b.width = 15; }, PARAM},
    {"heights differ", [](SadCall &c) { c.b.height = 15; }, PARAM},
    {"first stride", [](SadCall &c) { c.a.stride[0] = 15; }, PARAM},
    {"second stride", [](SadCall &c) { c.b.stride[0] = 15; }, PARAM},
    {"sums too narrow", [](SadCall &c) { c.sad.width = 1; }, PARAM},
    {"sums too low", [](SadCall &c) { c.sad.height = 1; }, PARAM},
    {"stride of sums", [](SadCall &c) { c.sad.stride[0] = 1; }, PARAM},
    {"thresholds too narrow", [](SadCall &c) { c.thr.width = 1; }, PARAM},
    {"thresholds too low", [](SadCall &c) { c.thr.height = 1; }, PARAM},
    {"stride of thresholds", [](SadCall &c) { c.thr.stride[0] = 1; }, PARAM},
    {"sums too narrow, not wanted",
     [](SadCall &c) {
         c.control.output = 2;
         c.sad.width = 1;
     },
     0},
    {"thresholds too narrow, not wanted",
     [](SadCall &c) {
         c.control.output = 1;
         c.thr.width = 1;
     },
     0},
    // What is wrong twice is answered in this order: handle, records and planes, control, maps asked for, the
    // rest.
    {"handle before null",
     [](SadCall &c) {
         c.handle = 5;
         c.no_a = true;
     },
     NO_HANDLE},
    {"handle before the rest",
     [](SadCall &c) {
         c.handle = 5;
         c.a.width = 0;
     },
     NO_HANDLE},
    {"null before mode",
     [](SadCall &c) {
         c.b.virt_addr[0] = nullptr;
         c.control.mode = 3;
     },
     NULL_POINTER},
    {"mode before null maps",
     [](SadCall &c) {
         c.no_sad = true;
         c.control.mode = 3;
     },
     PARAM},
    {"output before null maps",
     [](SadCall &c) {
         c.no_thr = true;
         c.control.output = 3;
     },
     PARAM},
    {"null maps before sizes",
     [](SadCall &c) {
         c.no_thr = true;
         c.a.width = 0;
     },
     NULL_POINTER},
};

TEST_F(Sad, RefusesWhatDoesNotFitAndThenWritesNothing)
{
    for (const auto &refusal : sad_refusals) {
        std::vector<uint8_t> black(256, 0), white(256, 255);
        std::vector<uint16_t> sums(4, 0x1111);
        std::vector<uint8_t> values(4, 0x11);
        SadCall c = {};
        c.a = image(MI_IVE_U8C1, black.data(), 16, 16, 16);
        c.b = image(MI_IVE_U8C1, white.data(), 16, 16, 16);
        c.sad = image(MI_IVE_U16C1, reinterpret_cast<uint8_t *>(sums.data()), 2, 2, 2);
        c.thr = image(MI_IVE_U8C1, values.data(), 2, 2, 2);
        c.control = {MI_IVE_SAD_8X8, MI_IVE_SAD_BOTH, 960, 0, 255};
        refusal.change(c);
        EXPECT_EQ(MI_IVE_Sad(c.handle, c.no_a ? nullptr : &c.a, c.no_b ? nullptr : &c.b,
                             c.no_sad ? nullptr : &c.sad, c.no_thr ? nullptr : &c.thr,
                             c.no_control ? nullptr : &c.control, 0),
                  refusal.result)
            << refusal.name;
        if (refusal.result != 0) {
            EXPECT_EQ(sums, std::vector<uint16_t>(4, 0x1111)) << refusal.name;
            EXPECT_EQ(values, std::vector<uint8_t>(4, 0x11)) << refusal.name;
        }
    }
}

TEST_F(Sad, AHandleServesManyThreads)
{
    std::vector<std::thread> threads;
    threads.reserve(4);
    std::atomic<int> wrong{0};
    for (int i = 0; i < 4; i++)
        threads.emplace_back([&wrong, i] {
            std::vector<uint8_t> a(4096, 0), b(4096, static_cast<uint8_t>(i));
            std::vector<uint16_t> sums(64);
            const mi_ive_image a_image = image(MI_IVE_U8C1, a.data(), 64, 64, 64);
            const mi_ive_image b_image = image(MI_IVE_U8C1, b.data(), 64, 64, 64);
            mi_ive_image sad = image(MI_IVE_U16C1, reinterpret_cast<uint8_t *>(sums.data()), 8, 8, 8);
            const mi_ive_sad_control control = {MI_IVE_SAD_8X8, MI_IVE_SAD_ONLY_MAP, 0, 0, 0};
            for (int round = 0; round < 200; round++)
                if (MI_IVE_Sad(0, &a_image, &b_image, &sad, nullptr, &control, 0) != 0 ||
                    sums != std::vector<uint16_t>(64, static_cast<uint16_t>(64 * i)))
                    wrong++;
        });
    for (auto &thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
}

// ---- Colour
// ----------------------------------------------------------------------------------------------------

class Csc : public testing::Test
{
  protected:
    void SetUp() override { ASSERT_EQ(MI_IVE_Create(0), 0); }
    void TearDown() override { EXPECT_EQ(MI_IVE_Destroy(0), 0); }
};

mi_ive_image nv12(uint8_t *luma, uint8_t *chroma, size_t width, size_t height, size_t stride,
                  size_t chroma_stride)
{
    mi_ive_image result = image(MI_IVE_YUV420SP, luma, width, height, stride);
    result.virt_addr[1] = chroma;
    result.phys_addr[1] = reinterpret_cast<uintptr_t>(chroma);
    result.stride[1] = static_cast<uint16_t>(chroma_stride);
    return result;
}

// BT.601 with luma from 16 to 235 and chroma from 16 to 240 (ITU-R BT.601-7, 2.5.3, solved for R, G, B).
// Pixels may be this far from it: engines calculate with few bits. Blue, whose factor is the greatest, may go
// one further where the chroma is outside its range.
int tolerance(int u, size_t channel)
{
    return channel == 2 && (u < 16 || u > 240) ? 3 : 2;
}

void bt601(int y, int u, int v, int *rgb)
{
    const double luma = 255. / 219. * (y - 16);
    const double blue = 255. / 224. * (u - 128);
    const double red = 255. / 224. * (v - 128);
    const double kr = 0.299, kb = 0.114, kg = 1 - kr - kb;
    const double colour[3] = {luma + 2 * (1 - kr) * red,
                              luma - 2 * (1 - kb) * kb / kg * blue - 2 * (1 - kr) * kr / kg * red,
                              luma + 2 * (1 - kb) * blue};
    for (int i = 0; i < 3; i++)
        rgb[i] = static_cast<int>(lround(fmin(255, fmax(0, colour[i]))));
}

const mi_ive_csc_control to_rgb = {0};

TEST_F(Csc, KnownColoursInTheOrderRedGreenBlue)
{
    const struct {
        const char *name;
        uint8_t y, u, v, r, g, b;
    } colours[] = {
        {"black", 16, 128, 128, 0, 0, 0},       {"white", 235, 128, 128, 255, 255, 255},
        {"grey", 126, 128, 128, 128, 128, 128}, {"red", 81, 90, 240, 255, 0, 0},
        {"green", 145, 54, 34, 0, 255, 0},      {"blue", 41, 240, 110, 0, 0, 255},
        {"below black", 0, 128, 128, 0, 0, 0},  {"above white", 255, 128, 128, 255, 255, 255},
    };
    for (const auto &colour : colours) {
        uint8_t luma[4] = {colour.y, colour.y, colour.y, colour.y};
        uint8_t chroma[2] = {colour.u, colour.v};
        uint8_t pixels[12] = {};
        const mi_ive_image yuv = nv12(luma, chroma, 2, 2, 2, 2);
        mi_ive_image rgb = image(MI_IVE_U8C3_PACKED, pixels, 2, 2, 2);
        ASSERT_EQ(MI_IVE_Csc(0, &yuv, &rgb, &to_rgb, 1), 0);
        for (size_t i = 0; i < 4; i++) {
            EXPECT_NEAR(pixels[3 * i], colour.r, 2) << colour.name;
            EXPECT_NEAR(pixels[3 * i + 1], colour.g, 2) << colour.name;
            EXPECT_NEAR(pixels[3 * i + 2], colour.b, 2) << colour.name;
        }
    }
}

TEST_F(Csc, EveryColourIsCloseToTheStandard)
{
    std::vector<uint8_t> luma(512), chroma(256), pixels(1536);
    for (int i = 0; i < 512; i++)
        luma[static_cast<size_t>(i)] = static_cast<uint8_t>(i);
    const mi_ive_image yuv = nv12(luma.data(), chroma.data(), 256, 2, 256, 256);
    mi_ive_image rgb = image(MI_IVE_U8C3_PACKED, pixels.data(), 256, 2, 256);
    for (int u = 0; u < 256; u += 5)
        for (int v = 0; v < 256; v += 5) {
            for (size_t i = 0; i < 256; i += 2) {
                chroma[i] = static_cast<uint8_t>(u);
                chroma[i + 1] = static_cast<uint8_t>(v);
            }
            ASSERT_EQ(MI_IVE_Csc(0, &yuv, &rgb, &to_rgb, 0), 0);
            for (int i = 0; i < 512; i++) {
                int expected[3];
                bt601(i % 256, u, v, expected);
                for (size_t c = 0; c < 3; c++)
                    ASSERT_NEAR(pixels[3 * static_cast<size_t>(i) + c], expected[c], tolerance(u, c))
                        << "y " << i % 256 << " u " << u << " v " << v << " channel " << c;
            }
        }
}

// Crops of every even size, each against the end of its memory, with strides of their own.
TEST_F(Csc, CropsCostOnlyThemselves)
{
    std::mt19937 random(12);
    for (size_t width = 2; width <= 100; width += 2)
        for (size_t height : {2u, 4u, 10u}) {
            const size_t luma_stride = width + random() % 30;
            const size_t chroma_stride = width + random() % 30;
            const size_t rgb_stride = width + random() % 30;
            const At at = random() % 2 ? At::begin : At::end;
            GuardedPlane luma(width, height, luma_stride, at);
            GuardedPlane chroma(width, height / 2, chroma_stride, at);
            GuardedPlane pixels(3 * width, height, 3 * rgb_stride, at);
            for (size_t y = 0; y < height; y++)
                for (size_t x = 0; x < width; x++) {
                    luma.row(y)[x] = static_cast<uint8_t>(random());
                    chroma.row(y / 2)[x] = static_cast<uint8_t>(random());
                }
            luma.make_read_only();
            chroma.make_read_only();
            const mi_ive_image yuv =
                nv12(luma.data(), chroma.data(), width, height, luma_stride, chroma_stride);
            mi_ive_image rgb = image(MI_IVE_U8C3_PACKED, pixels.data(), width, height, rgb_stride);
            ASSERT_EQ(MI_IVE_Csc(0, &yuv, &rgb, &to_rgb, 0), 0) << width << "x" << height;
            ASSERT_TRUE(pixels.untouched_outside(3 * width, height)) << width << "x" << height;
            for (size_t y = 0; y < height; y++)
                for (size_t x = 0; x < width; x++) {
                    int expected[3];
                    const uint8_t *uv = chroma.row(y / 2) + x / 2 * 2;
                    bt601(luma.row(y)[x], uv[0], uv[1], expected);
                    for (size_t c = 0; c < 3; c++)
                        ASSERT_NEAR(pixels.row(y)[3 * x + c], expected[c], tolerance(uv[0], c))
                            << width << "x" << height << " at " << x << "," << y;
                }
        }
}

TEST_F(Csc, StridesOfATallPictureAreHeldToItsWidth)
{
    std::vector<uint8_t> luma(20, 126), chroma(10, 128), pixels(60, 0);
    const mi_ive_image yuv = nv12(luma.data(), chroma.data(), 2, 10, 2, 2);
    mi_ive_image rgb = image(MI_IVE_U8C3_PACKED, pixels.data(), 2, 10, 2);
    ASSERT_EQ(MI_IVE_Csc(0, &yuv, &rgb, &to_rgb, 0), 0);
    EXPECT_EQ(pixels, std::vector<uint8_t>(60, 128));
}

struct CscCall {
    int handle;
    mi_ive_image yuv, rgb;
    mi_ive_csc_control control;
    bool no_yuv, no_rgb, no_control;
};

const struct {
    const char *name;
    void (*change)(CscCall &);
    int result;
} csc_refusals[] = {
    {"nothing wrong", [](CscCall &) {}, 0},
    {"never created", [](CscCall &c) { c.handle = 5; }, NO_HANDLE},
    {"handle below", [](CscCall &c) { c.handle = -1; }, NO_HANDLE},
    {"handle above", [](CscCall &c) { c.handle = 64; }, NO_HANDLE},
    {"no source", [](CscCall &c) { c.no_yuv = true; }, NULL_POINTER},
    {"no target", [](CscCall &c) { c.no_rgb = true; }, NULL_POINTER},
    {"no control", [](CscCall &c) { c.no_control = true; }, NULL_POINTER},
    {"no luma", [](CscCall &c) { c.yuv.virt_addr[0] = nullptr; }, NULL_POINTER},
    {"no chroma", [](CscCall &c) { c.yuv.virt_addr[1] = nullptr; }, NULL_POINTER},
    {"no pixels", [](CscCall &c) { c.rgb.virt_addr[0] = nullptr; }, NULL_POINTER},
    {"mode", [](CscCall &c) { c.control.mode = 1; }, PARAM},
    {"source of another type", [](CscCall &c) { c.yuv.type = MI_IVE_U8C1; }, PARAM},
    {"planar target", [](CscCall &c) { c.rgb.type = MI_IVE_U8C3_PLANAR; }, PARAM},
    {"no width", [](CscCall &c) { c.yuv.width = c.rgb.width = 0; }, PARAM},
    {"no height", [](CscCall &c) { c.yuv.height = c.rgb.height = 0; }, PARAM},
    {"odd width", [](CscCall &c) { c.yuv.width = c.rgb.width = 3; }, PARAM},
    {"odd height", [](CscCall &c) { c.yuv.height = c.rgb.height = 3; }, PARAM},
    {"target narrower", [](CscCall &c) { c.rgb.width = 2; }, PARAM},
    {"target wider", [](CscCall &c) { c.rgb.width = c.rgb.stride[0] = 6; }, PARAM},
    {"target lower", [](CscCall &c) { c.rgb.height = 2; }, PARAM},
    {"target higher", [](CscCall &c) { c.rgb.height = 6; }, PARAM},
    {"luma stride", [](CscCall &c) { c.yuv.stride[0] = 3; }, PARAM},
    {"chroma stride", [](CscCall &c) { c.yuv.stride[1] = 3; }, PARAM},
    {"target stride", [](CscCall &c) { c.rgb.stride[0] = 3; }, PARAM},
    {"handle before null",
     [](CscCall &c) {
         c.handle = 5;
         c.no_yuv = true;
     },
     NO_HANDLE},
    {"null before the rest",
     [](CscCall &c) {
         c.yuv.virt_addr[1] = nullptr;
         c.control.mode = 1;
     },
     NULL_POINTER},
};

TEST_F(Csc, RefusesWhatDoesNotFitAndThenWritesNothing)
{
    for (const auto &refusal : csc_refusals) {
        std::vector<uint8_t> luma(36, 100), chroma(36, 128), pixels(108, 0x11);
        CscCall c = {};
        c.yuv = nv12(luma.data(), chroma.data(), 4, 4, 4, 4);
        c.rgb = image(MI_IVE_U8C3_PACKED, pixels.data(), 4, 4, 4);
        refusal.change(c);
        EXPECT_EQ(MI_IVE_Csc(c.handle, c.no_yuv ? nullptr : &c.yuv, c.no_rgb ? nullptr : &c.rgb,
                             c.no_control ? nullptr : &c.control, 0),
                  refusal.result)
            << refusal.name;
        if (refusal.result != 0) {
            EXPECT_EQ(pixels, std::vector<uint8_t>(108, 0x11)) << refusal.name;
        }
    }
}

} // namespace
