// The ISP model: its laws, not its numbers.
#include "isp_model.h"

#include <gtest/gtest.h>
#include <math.h>

namespace
{

const isp_program program;

struct Model : testing::Test {
    void step(double visible, double infrared, bool filter, double seconds = 10)
    {
        const isp_light light = {visible, infrared};
        isp_model_step(&constants, &metering, &light, filter, seconds, &exposure, &balance);
    }
    uint32_t ev() const { return exposure.word[0]; }
    int32_t bv() const { return static_cast<int32_t>(exposure.word[1]); }
    double product() const
    {
        return static_cast<double>(exposure.word[2]) * exposure.word[3] * exposure.word[4] / 1024;
    }
    double gain_sum() const { return balance.word[0] / 1024. + balance.word[1] / 1024.; }
    isp_constants constants;
    isp_metering metering = {};
    naro_isp_ev_attr exposure;
    naro_isp_wb_attr balance;
};

TEST(ExposureProgram, GivesTheProductThatWasAskedFor)
{
    for (double wanted = 1e4; wanted < 6e9; wanted *= 1.07) {
        const isp_exposure set = isp_exposure_program(&program, wanted);
        EXPECT_NEAR(set.expr_us * set.again * set.dgain / 1024 / wanted, 1, 1e-9) << wanted;
    }
}

TEST(ExposureProgram, GrowsInEveryMember)
{
    isp_exposure last = isp_exposure_program(&program, 1);
    for (double wanted = 1e3; wanted < 1e11; wanted *= 1.03) {
        const isp_exposure set = isp_exposure_program(&program, wanted);
        EXPECT_GE(set.expr_us, last.expr_us * (1 - 1e-12));
        EXPECT_GE(set.again, last.again * (1 - 1e-12));
        EXPECT_GE(set.dgain, last.dgain * (1 - 1e-12));
        last = set;
    }
}

TEST(ExposureProgram, HasEnds)
{
    EXPECT_EQ(isp_exposure_program(&program, 0).expr_us, 30);
    EXPECT_EQ(isp_exposure_program(&program, 0).again, 256);
    const isp_exposure dark = isp_exposure_program(&program, 1e30);
    EXPECT_EQ(dark.expr_us, 100000);
    EXPECT_EQ(dark.again, 16384);
    EXPECT_EQ(dark.dgain, 4096);
}

TEST(ExposureProgram, LengthensTheShutterLast)
{
    EXPECT_EQ(isp_exposure_program(&program, 66667. * 16384 * 3.9).expr_us, 66667);
    EXPECT_GT(isp_exposure_program(&program, 66667. * 16384 * 4.1).expr_us, 66667);
}

TEST_F(Model, ExposesByTheLawOfMeters)
{
    // 127 lux on 40 % send back 16.2 cd/m2: K N^2 / (S L) = 12.5 x 4 / (440 x 16.2) seconds at 1x.
    EXPECT_NEAR(isp_exposure_product(&constants, 16.2) / 1024 / 1e6, 50 / (440 * 16.2), 1e-9);
    step(16.2, 0, true);
    EXPECT_NEAR(product() / 1024 / 1e6, 50 / (440 * 16.2), 1e-5);
    constants.f_number = 4;
    EXPECT_NEAR(isp_exposure_product(&constants, 16.2) / 1024 / 1e6, 200 / (440 * 16.2), 1e-9);
}

TEST_F(Model, TwiceTheLightIsTwiceTheEvHalfTheExposureAndOneStop)
{
    step(2, 0, true);
    const uint32_t ev_before = ev();
    const double product_before = product();
    const int32_t bv_before = bv();
    metering = {};
    step(4, 0, true);
    EXPECT_EQ(ev(), 2 * ev_before);
    EXPECT_NEAR(product() / product_before, 0.5, 0.001);
    EXPECT_EQ(bv() - bv_before, 16384);
}

TEST_F(Model, AtTheReferenceBvIsZero)
{
    step(3.426, 0, true);
    EXPECT_EQ(bv(), 0);
}

TEST_F(Model, DarknessIsTheEndOfTheProgram)
{
    step(0, 0, true);
    EXPECT_EQ(ev(), 0u);
    EXPECT_EQ(exposure.word[2], 100000u);
    EXPECT_EQ(exposure.word[3], 16384u);
    EXPECT_EQ(exposure.word[4], 4096u);
    EXPECT_LT(bv(), 0);
    EXPECT_EQ(exposure.word[5] + exposure.word[6], 0u);
}

TEST_F(Model, TheFilterKeepsInfraredOut)
{
    step(1, 10, true);
    const uint32_t with = ev();
    metering = {};
    step(1, 10, false);
    EXPECT_NEAR(with, 24 * 1.05, 1);
    EXPECT_NEAR(ev(), 24 * 11., 1);
}

TEST_F(Model, VisibleLightIsStronglyNegativeInfraredIsNot)
{
    step(10, 0, false);
    EXPECT_LT(gain_sum(), -9000);
    metering = {};
    step(0, 10, false);
    EXPECT_GT(gain_sum(), 0);
    metering = {};
    step(0.02, 0, true);
    EXPECT_GT(gain_sum(), -4000) << "noise has no colour";
}

TEST_F(Model, TheFirstLookIsRightAndThenItLags)
{
    step(1, 0, true, 0);
    EXPECT_EQ(ev(), 24u);
    step(4, 0, true, 0.4); // one time constant: 63 % of two stops
    EXPECT_NEAR(log2(ev() / 24.), 2 * (1 - exp(-1)), 0.03);
    for (int i = 0; i < 50; i++)
        step(4, 0, true, 0.1);
    EXPECT_EQ(ev(), 96u);
}

TEST_F(Model, ManyShortStepsAreOneLongOne)
{
    isp_metering other = {};
    step(1, 0, true, 0);
    other = metering;
    for (int i = 0; i < 10; i++)
        step(9, 0, true, 0.05);
    const double many = metering.log_signal;
    metering = other;
    step(9, 0, true, 0.5);
    EXPECT_NEAR(metering.log_signal, many, 1e-9);
}

} // namespace
