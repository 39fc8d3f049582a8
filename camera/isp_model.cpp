// The model's arithmetic.
#include "isp_model.h"

#include <algorithm>
#include <math.h>
#include <stddef.h>
#include <stdint.h>

namespace
{

enum { GAIN_1X = 1024 };

// The exposure program: between two nodes one member grows with the product. 10 ms is the flicker period of mains light
// at 50 Hz; 33.3 and 66.7 ms are 30 and 15 pictures a second. The analogue gain starts at a quarter: the sensor's low
// conversion gain.
const isp_exposure nodes[] = {
    {30, 256, 1024},      {10000, 256, 1024},   {10000, 1024, 1024},
    {33333, 1024, 1024},  {33333, 4096, 1024},  {66667, 4096, 1024},
    {66667, 16384, 1024}, {66667, 16384, 4096}, {100000, 16384, 4096},
};
const size_t NODES = sizeof nodes / sizeof *nodes;

double product_of(const isp_exposure &node)
{
    return node.expr_us * node.again * node.dgain / GAIN_1X;
}

// What is reported is a whole number that fits.
uint32_t word(double value)
{
    return static_cast<uint32_t>(std::clamp(floor(value + 0.5), 0., 4294967295.));
}

uint32_t signed_word(double value)
{
    return static_cast<uint32_t>(
        static_cast<int32_t>(std::clamp(floor(value + 0.5), -2147483648., 2147483647.)));
}

} // namespace

isp_exposure isp_exposure_program(double product)
{
    if (product <= product_of(nodes[0]))
        return nodes[0];
    for (size_t i = 1; i < NODES; i++) {
        if (product > product_of(nodes[i]))
            continue;
        const double grow = product / product_of(nodes[i - 1]);
        isp_exposure found = nodes[i - 1];
        for (double isp_exposure::*member :
             {&isp_exposure::expr_us, &isp_exposure::again, &isp_exposure::dgain})
            if (nodes[i].*member != nodes[i - 1].*member)
                found.*member *= grow;
        return found;
    }
    return nodes[NODES - 1];
}

void isp_model_step(const isp_constants *constants, isp_metering *metering, const isp_light *light,
                    bool filter, double seconds, naro_isp_ev_attr *exposure, naro_isp_wb_attr *white_balance)
{
    const double darkest = 1e-6; // cd/m2: no logarithm of nothing
    const double visible = light->visible * (filter ? constants->visible_through_filter : 1);
    const double infrared = light->infrared * (filter ? constants->infrared_through_filter : 1);
    const double signal = std::max(visible + infrared, darkest);
    const double whole = visible + infrared + constants->noise_luminance;
    const double red = 1024 * (constants->red_visible * visible + constants->red_infrared * infrared) / whole;
    const double blue =
        1024 * (constants->blue_visible * visible + constants->blue_infrared * infrared) / whole;

    const double part = metering->running ? 1 - exp(-seconds / constants->lag_s) : 1;
    metering->running = true;
    metering->log_signal += (log2(signal) - metering->log_signal) * part;
    metering->red += (red - metering->red) * part;
    metering->blue += (blue - metering->blue) * part;

    const double believed = exp2(metering->log_signal), ev = constants->ev_per_luminance * believed;
    const isp_exposure set = isp_exposure_program(constants->exposure_product / ev);
    *exposure = {{word(ev), signed_word(constants->bv_per_stop * log2(believed / constants->bv_reference)),
                  word(set.expr_us), word(set.again), word(set.dgain), 0, 0}};
    *white_balance = {{static_cast<int32_t>(signed_word(metering->red)),
                       static_cast<int32_t>(signed_word(metering->blue)), 0, 0, 0, 0, 0, 0}};
}
