// What a camera's ISP reports of the light, as a model: from the luminance on the sensor to exposure, gains, the two
// brightness values and the white balance, in the units that the daemon reads.
//
// The physics, before any threshold is looked at (docs/light.md has the sources and the sizes):
// - A matt surface of reflectance r in E lux has the luminance r E / pi (Lambert).
// - A picture is exposed right when luminance x exposure time x gain is K N^2 / S (ISO 2720). Automatic exposure holds
//   that, so exposure x gain is inverse to the luminance, until both are at their ends.
// - How exposure and gain share that product is a program of nodes, as every camera has one: a short exposure first,
//   then gain up to 1x, then longer exposures and gain in turn, slow shutter last.
// - Automatic exposure follows with a lag of first order.
// - White balance weighs red and blue against green. Near infrared falls on all three alike, so that the more of the
//   signal is infrared, the less there is to balance; noise, which is alike in all three, does the same in the dark.
// Every constant is in one record, so that reports can vary each.
#ifndef ISP_MODEL_H
#define ISP_MODEL_H

#include "naro_ipc_wire.h"

// The nodes of the exposure program; 1024 = 1x. Each member grows from line to line.
struct isp_program {
    double shortest_us = 30;
    double flicker_us = 10000; // the period of mains light at 50 Hz, which no exposure should cut
    double frame_us = 33333;   // 30 pictures a second
    double slow_us = 66667;    // 15 pictures a second
    double longest_us = 100000;
    double again_low = 256; // low conversion gain, at which the sensor is a quarter as sensitive
    double again_mid = 4096;
    double again_high = 16384;
    double dgain_high = 4096;
};

struct isp_constants {
    double ev_per_luminance =
        24;                      // units of ev for one cd/m2: 100 lux on a room of 40 % reflectance reads 300
    double f_number = 2;         // N
    double iso_speed = 440;      // S at gain 1x; 110 at the low conversion gain
    double bv_reference = 3.426; // cd/m2 at which bv is 0 (one foot-lambert, where the APEX scale begins)
    double bv_per_stop = 16384;  // units of bv for a doubling
    double visible_through_filter = 1; // share of each band that the filter lets pass,
    double infrared_through_filter = 0.005;
    double red_visible = -4200, blue_visible = -5100; // of light that is visible, in units of 1024
    double red_infrared = 250, blue_infrared = 350;   // of light that is infrared
    double noise_luminance = 0.04; // cd/m2 of evenly coloured signal that is noise at full gain
    double lag_s = 0.4;            // time constant of automatic exposure
    isp_program program;
};

// Luminance before the filter: cd/m2, and of infrared in the unit that the bare sensor answers alike.
struct isp_light {
    double visible, infrared;
};

struct isp_metering {
    double log_signal; // what automatic exposure believes of log2 of the luminance, after its lag
    bool running;      // false: nothing has been metered yet
    double red, blue;  // white balance, after its lag
};

// Follows the light for `seconds`, with the filter before the sensor or not, and fills in what the ISP reports.
void isp_model_step(const isp_constants *constants, isp_metering *metering, const isp_light *light,
                    bool filter, double seconds, naro_isp_ev_attr *exposure, naro_isp_wb_attr *white_balance);

// Exposure time in microseconds and gains (1024 = 1x) for a product of both (microseconds x 1024ths): what the exposure
// program gives. Grows with the product in every member.
struct isp_exposure {
    double expr_us, again, dgain;
};
isp_exposure isp_exposure_program(const isp_program *program, double product);
// The product that a luminance (cd/m2) is exposed right with.
double isp_exposure_product(const isp_constants *constants, double luminance);

#endif
