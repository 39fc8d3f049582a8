// What a camera's ISP reports of the light, as a model: from the luminance on the sensor to exposure, gains, the two
// brightness values and the white balance, in the units that the daemon reads.
//
// The physics, before any threshold is looked at:
// - A matt surface of reflectance r in E lux has the luminance r E / pi (Lambert).
// - The sensor's signal is luminance x exposure time x gain. Automatic exposure holds it at a target, so exposure x gain
//   is inverse to the luminance, until both are at their ends (reciprocity; ISO 2720 has the same law for meters).
// - How exposure and gain share that product is a program of nodes, as every camera has one: a short exposure first,
//   then gain up to 1x, then longer exposures and gain in turn, slow shutter last.
// - Automatic exposure follows with a lag of first order.
// - White balance weighs red and blue against green. Near infrared falls on all three alike, so that the more of the
//   signal is infrared, the less there is to balance; noise, which is alike in all three, does the same in the dark.
// Every constant is in one record, so that reports can vary each.
#ifndef ISP_MODEL_H
#define ISP_MODEL_H

#include "naro_ipc_wire.h"

struct isp_constants {
    double ev_per_luminance =
        24; // units of ev for one cd/m2: 100 lux on a room of 40 % reflectance reads 300
    double exposure_product = 2.8e9; // microseconds x gain (1024 = 1x) x ev that automatic exposure holds
    double bv_reference = 3.4;       // cd/m2 at which bv is 0 (one foot-lambert, where the APEX scale begins)
    double bv_per_stop = 16384;      // units of bv for a doubling
    double visible_through_filter = 1; // share of each band that the filter lets pass,
    double infrared_through_filter = 0.005;
    double red_visible = -4200, blue_visible = -5100; // of light that is visible, in units of 1024
    double red_infrared = 250, blue_infrared = 350;   // of light that is infrared
    double noise_luminance = 0.04; // cd/m2 of evenly coloured signal that is noise at full gain
    double lag_s = 0.4;            // time constant of automatic exposure
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
isp_exposure isp_exposure_program(double product);

#endif
