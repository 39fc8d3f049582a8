// Every set of kernels that this CPU can run, against a reference of its own: exact sums at any size, stride
// and alignment, no byte read or written outside the blocks.
#include <gtest/gtest.h>

#include <random>
#include <stdlib.h>
#include <string>
#include <vector>

#include "guarded_plane.h"
#include "sad_kernels.h"

// How the test runner names a set.
void PrintTo(const sad_kernels *set, std::ostream *out)
{
    *out << set->name;
}

namespace
{

using At = GuardedPlane::At;

std::vector<const sad_kernels *> sets_here()
{
    std::vector<const sad_kernels *> sets;
    for (size_t i = 0; i < sad_kernel_set_count; i++)
        if (sad_kernel_sets[i]->runs_here())
            sets.push_back(sad_kernel_sets[i]);
    return sets;
}

unsigned block_sum(GuardedPlane &a, GuardedPlane &b, size_t size, size_t block)
{
    unsigned sum = 0;
    for (size_t y = 0; y < size; y++)
        for (size_t x = block * size; x < block * size + size; x++)
            sum += a.row(y)[x] > b.row(y)[x] ? a.row(y)[x] - b.row(y)[x] : b.row(y)[x] - a.row(y)[x];
    return sum;
}

class Kernels : public testing::TestWithParam<const sad_kernels *>
{
};

// Which numbers a plane is filled with: each finds its own mistakes (a lost carry, a sign, a lane).
const struct {
    const char *name;
    unsigned a_low, a_high, b_low, b_high;
} fills[] = {
    {"anything", 0, 255, 0, 255},
    {"farthest apart", 255, 255, 0, 0},
    {"farthest, other way", 0, 0, 255, 255},
    {"around the sign", 126, 129, 126, 129},
    {"nearly equal", 200, 201, 200, 201},
};

TEST_P(Kernels, SumsAreExactAtAnySizeStrideAndAlignment)
{
    std::mt19937 random(1);
    for (unsigned mode = 0; mode < 3; mode++) {
        const size_t size = size_t{4} << mode;
        for (size_t count = 1; count <= 95; count++) {
            for (const auto &fill : fills) {
                const size_t width = count * size;
                const size_t a_stride = width + random() % 40;
                const size_t b_stride = width + random() % 40;
                GuardedPlane a(width, size, a_stride, random() % 2 ? At::begin : At::end);
                GuardedPlane b(width, size, b_stride, random() % 2 ? At::begin : At::end);
                for (size_t y = 0; y < size; y++)
                    for (size_t x = 0; x < width; x++) {
                        a.row(y)[x] =
                            static_cast<uint8_t>(fill.a_low + random() % (fill.a_high - fill.a_low + 1));
                        b.row(y)[x] =
                            static_cast<uint8_t>(fill.b_low + random() % (fill.b_high - fill.b_low + 1));
                    }
                a.make_read_only();
                b.make_read_only();
                GuardedPlane sums(2 * count, 1, 2 * count, At::end);
                GetParam()->blocks[mode](a.data(), a_stride, b.data(), b_stride, count,
                                         reinterpret_cast<uint16_t *>(sums.data()));
                ASSERT_TRUE(sums.untouched_outside(2 * count, 1));
                for (size_t i = 0; i < count; i++) {
                    uint16_t sum;
                    memcpy(&sum, sums.data() + 2 * i, 2);
                    ASSERT_EQ(sum, block_sum(a, b, size, i))
                        << size << "x" << size << ", block " << i << " of " << count << ", " << fill.name;
                }
            }
        }
    }
}

// Each byte of a block counts once, in its own block.
TEST_P(Kernels, EveryByteCountsInItsBlockAlone)
{
    for (unsigned mode = 0; mode < 3; mode++) {
        const size_t size = size_t{4} << mode;
        const size_t count = 11;
        const size_t stride = count * size;
        std::vector<uint8_t> a(stride * size, 77), b(stride * size, 77);
        for (size_t at = 0; at < a.size(); at++) {
            a[at] = 80;
            std::vector<uint16_t> sums(count, 9), expected(count, 0);
            expected[at % stride / size] = 3;
            GetParam()->blocks[mode](a.data(), stride, b.data(), stride, count, sums.data());
            ASSERT_EQ(sums, expected) << size << "x" << size << ", byte " << at;
            a[at] = 77;
        }
    }
}

TEST_P(Kernels, ThresholdIsUnsignedAndIncludesItself)
{
    std::mt19937 random(2);
    const uint16_t limits[] = {0, 1, 2, 960, 32767, 32768, 65280, 65534, 65535};
    for (uint16_t limit : limits) {
        for (size_t count = 1; count <= 40; count++) {
            std::vector<uint16_t> sums(count);
            for (auto &sum : sums)
                // Around the limit, at the ends of the range, or anywhere.
                switch (random() % 3) {
                case 0:
                    sum = static_cast<uint16_t>(limit + static_cast<int>(random() % 3) - 1);
                    break;
                case 1:
                    sum = static_cast<uint16_t>(random() % 2 ? 0 : 65535);
                    break;
                default:
                    sum = static_cast<uint16_t>(random());
                    break;
                }
            const uint8_t low = static_cast<uint8_t>(random());
            const uint8_t high = static_cast<uint8_t>(random());
            GuardedPlane out(count, 1, count, count % 2 ? At::begin : At::end);
            GetParam()->threshold(sums.data(), count, limit, low, high, out.data());
            ASSERT_TRUE(out.untouched_outside(count, 1));
            for (size_t i = 0; i < count; i++)
                ASSERT_EQ(out.data()[i], sums[i] >= limit ? high : low) << sums[i] << " at limit " << limit;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Here, Kernels, testing::ValuesIn(sets_here()),
                         [](const auto &set) { return std::string(set.param->name); });

TEST(KernelTable, BestIsTheFirstThatRunsHereAndScalarIsLast)
{
    EXPECT_EQ(sad_kernels_best(), sets_here().front());
    EXPECT_EQ(sad_kernel_sets[sad_kernel_set_count - 1], &sad_kernels_scalar);
    EXPECT_TRUE(sad_kernels_scalar.runs_here());
#if defined(__x86_64__) || defined(__i386__)
    ASSERT_EQ(sad_kernel_set_count, 3u);
    EXPECT_EQ(sad_kernel_sets[0], &sad_kernels_avx2);
    EXPECT_EQ(sad_kernel_sets[1], &sad_kernels_sse2);
    EXPECT_EQ(sad_kernels_avx2.runs_here(), __builtin_cpu_supports("avx2") != 0);
    EXPECT_EQ(sad_kernels_sse2.runs_here(), __builtin_cpu_supports("sse2") != 0);
#elif defined(__ARM_NEON)
    ASSERT_EQ(sad_kernel_set_count, 2u);
    EXPECT_EQ(sad_kernel_sets[0], &sad_kernels_neon);
#endif
}

} // namespace
