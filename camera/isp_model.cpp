// The model's arithmetic.
#include "isp_model.h"

#include <algorithm>
#include <math.h>
#include <stddef.h>
#include <stdint.h>

namespace
{

enum { GAIN_1X = 1024 };

const double METER = 12.5; // K of ISO 2720, in cd s/m2: the reflected-light meters' common choice
const double PRODUCT_UNIT = 1e6 * GAIN_1X; // microseconds x 1024ths in a second at 1x

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

isp_exposure isp_exposure_program(const isp_program *p, double product)
{
    // Between two nodes one member grows with the product.
    const isp_exposure nodes[] = {
        {p->shortest_us, p->again_low, GAIN_1X},
        {p->flicker_us, p->again_low, GAIN_1X},
        {p->flicker_us, GAIN_1X, GAIN_1X},
        {p->frame_us, GAIN_1X, GAIN_1X},
        {p->frame_us, p->again_mid, GAIN_1X},
        {p->slow_us, p->again_mid, GAIN_1X},
        {p->slow_us, p->again_high, GAIN_1X},
        {p->slow_us, p->again_high, p->dgain_high},
        {p->longest_us, p->again_high, p->dgain_high},
    };
    const size_t count = sizeof nodes / sizeof *nodes;
    if (product <= product_of(nodes[0]))
        return nodes[0];
    for (size_t i = 1; i < count; i++) {
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
    return nodes[count - 1];
}

double isp_exposure_product(const isp_constants *constants, double luminance)
{
    const double exposure =
        METER * constants->f_number * constants->f_number / (constants->iso_speed * luminance);
    return exposure * PRODUCT_UNIT;
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
    const isp_exposure set =
        isp_exposure_program(&constants->program, isp_exposure_product(constants, believed));
    *exposure = {{word(ev), signed_word(constants->bv_per_stop * log2(believed / constants->bv_reference)),
                  word(set.expr_us), word(set.again), word(set.dgain), 0, 0}};
    *white_balance = {{static_cast<int32_t>(signed_word(metering->red)),
                       static_cast<int32_t>(signed_word(metering->blue)), 0, 0, 0, 0, 0, 0}};
}
