// The fit of a network's input to its area budget.
#include <gtest/gtest.h>
#include <ostream>
#include <stdint.h>

#include "nn/nn_input_fit.h"

namespace
{

struct Case {
    uint32_t height, width;
    int min_area, max_area;
    int fitted_height, fitted_width;
};

std::ostream &operator<<(std::ostream &out, const Case &c)
{
    return out << c.height << "x" << c.width << " in " << c.min_area << ".." << c.max_area;
}

class Fit : public testing::TestWithParam<Case>
{
};

TEST_P(Fit, Table)
{
    const Case &c = GetParam();
    const nn_input_size size = nn_input_fit(c.height, c.width, c.min_area, c.max_area, 5);
    EXPECT_EQ(size.height, c.fitted_height);
    EXPECT_EQ(size.width, c.fitted_width);
}

INSTANTIATE_TEST_SUITE_P(
    AsTheDetectionTaskAsks, Fit,
    testing::Values(Case{192, 320, 16384, 28224, 128, 192}, // down: 130 x 216, rounded down
                    Case{32, 32, 16384, 28224, 128, 128},   // up, exactly
                    Case{96, 128, 16384, 28224, 128, 160},  // up: 110 x 147, rounded up
                    Case{128, 160, 16384, 28224, 128, 160}, // inside
                    Case{128, 128, 16384, 28224, 128, 128}, // on the lower bound
                    Case{168, 168, 16384, 28224, 192, 192}, // on the upper bound: only aligned
                    Case{168, 169, 16384, 28224, 160, 160}, // one past it: 167 x 168
                    Case{128, 127, 16384, 28224, 128, 128}, // one row below the lower
                    Case{192, 64, 16384, 28224, 224, 96},   // up: 221 x 73
                    Case{32, 320, 16384, 28224, 64, 416}));

INSTANTIATE_TEST_SUITE_P(Bounds, Fit,
                         testing::Values(Case{192, 320, 0, 0, 192, 320},     // none
                                         Case{190, 289, 0, 0, 192, 320},     // none: aligned upwards
                                         Case{192, 320, 16384, 0, 192, 320}, // only a lower one, not met
                                         Case{32, 32, 16384, 0, 128, 128},   // only a lower one
                                         Case{192, 320, 0, 28224, 128, 192}, // only an upper one
                                         Case{32, 32, 0, 28224, 32, 32},     // only an upper one, not met
                                         Case{1, 1, 1, 0, 32, 32},   // the smallest lower bound is one
                                         Case{64, 64, 0, 1, 32, 32}, // the smallest upper bound is one
                                         Case{33, 33, 0, 0, 64, 64}, //
                                         Case{100, 100, 20000, 5000, 64, 64}, // at odds: the upper one wins
                                         Case{4, 5, 30, 4, 32, 32}));

// What no caller asks for must still give a size that exists.
INSTANTIATE_TEST_SUITE_P(Odd, Fit,
                         testing::Values(Case{0, 0, 16384, 28224, 128, 128}, Case{0, 0, 0, 0, 32, 32},
                                         Case{0, 320, 0, 0, 32, 320}, Case{16, 4000, 0, 28224, 32, 2656},
                                         Case{UINT32_MAX, UINT32_MAX, 0, 0, 32736, 32736},
                                         Case{UINT32_MAX, UINT32_MAX, 16384, 28224, 160, 160},
                                         Case{1, UINT32_MAX, INT32_MAX, 0, 32, 32736},
                                         Case{32736, 32737, 0, 0, 32736, 32736}));

TEST(FitAlignment, IsTheShiftsPowerOfTwo)
{
    const nn_input_size up = nn_input_fit(33, 49, 0, 0, 4);
    EXPECT_EQ(up.height, 48);
    EXPECT_EQ(up.width, 64);
    const nn_input_size down = nn_input_fit(100, 100, 0, 5000, 3); // 70.7
    EXPECT_EQ(down.height, 64);
    EXPECT_EQ(down.width, 64);
    const nn_input_size none = nn_input_fit(100, 99, 0, 5000, 0); // 71.06 x 70.35
    EXPECT_EQ(none.height, 71);
    EXPECT_EQ(none.width, 70);
}

// Whatever the moving rectangle is, a pass costs no more than the budget allows.
TEST(FitArea, StaysWithinTheBudgetForEveryCrop)
{
    for (uint32_t height = 32; height <= 192; height += 32)
        for (uint32_t width = 32; width <= 320; width += 32) {
            const nn_input_size size = nn_input_fit(height, width, 16384, 28224, 5);
            const int area = size.height * size.width;
            EXPECT_EQ(size.height % 32, 0);
            EXPECT_EQ(size.width % 32, 0);
            EXPECT_GE(area, height * width > 28224 ? 28224 / 2 : 16384) << height << "x" << width;
            EXPECT_LE(area, height * width < 16384 ? 2 * 16384 : 28224) << height << "x" << width;
        }
}

} // namespace
