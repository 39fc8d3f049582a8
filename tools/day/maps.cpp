// Asking at every point.
#include "maps.h"

#include <math.h>

#include "ircut_decide.h"
#include "light_modes.h"

namespace
{

bool is_dark(const ircut_sample &sample, int mode)
{
    return mode == NARO_IRCUT_MODE_AUTO_FULL_COLOR ? ircut_dark_full_color(sample) : ircut_dark(sample);
}

char bright_letter(const ircut_sample &sample, int mode)
{
    if (!ircut_bright(sample, mode, 0, false))
        return '.';
    if (mode == NARO_IRCUT_MODE_AUTO_FULL_COLOR)
        return 'b';
    const unsigned reasons = ircut_bright_reasons(sample);
    char letter = '1';
    while (!(reasons >> (letter - '1') & 1))
        letter++;
    return letter;
}

double along(double from, double to, double part, bool log_scale)
{
    return log_scale ? from * pow(to / from, part) : from + (to - from) * part;
}

template <class Letter> void fill(map_plane *plane, Letter letter)
{
    for (int row = 0; row < MAP_ROWS; row++) {
        const double y = along(plane->from_y, plane->to_y, (row + 0.5) / MAP_ROWS, plane->log_y);
        std::string line;
        for (int column = 0; column < MAP_COLUMNS; column++)
            line += letter(along(plane->from_x, plane->to_x, (column + 0.5) / MAP_COLUMNS, true), y);
        plane->rows.push_back(line);
    }
}

// What the ISP reports once it has settled.
ircut_sample settled(const isp_constants &isp, const isp_light &light, bool filter)
{
    isp_metering metering = {};
    naro_isp_ev_attr exposure;
    naro_isp_wb_attr balance;
    isp_model_step(&isp, &metering, &light, filter, 0, &exposure, &balance);
    return ircut_sample_of(exposure, balance);
}

} // namespace

map_plane map_statistics(int mode, const isp_constants &isp)
{
    map_plane plane = {0.3, 300, -10000, 1000, false, {}};
    // A light whose mixture gives the sum that is wanted, and no noise: the plane has what no room could show, too.
    isp_constants clean = isp;
    clean.noise_luminance = 0;
    const double visible = isp.red_visible + isp.blue_visible,
                 infrared = isp.red_infrared + isp.blue_infrared;
    fill(&plane, [&](double ev, double gain_sum) {
        const double share = (gain_sum - infrared) / (visible - infrared);
        const double luminance = ev / isp.ev_per_luminance;
        const ircut_sample sample = settled(clean, {luminance * share, luminance * (1 - share)}, false);
        if (is_dark(sample, mode))
            return 'd';
        return bright_letter(sample, mode);
    });
    return plane;
}

map_plane map_room(int mode, const isp_constants &isp, const room_constants &room)
{
    map_plane plane = {0.03, 300, 0.02, 1, true, {}};
    const bool white = mode == NARO_IRCUT_MODE_AUTO_FULL_COLOR;
    board_state day, night;
    board_init(&day);
    board_init(&night);
    night.high[white ? BOARD_WHITE_LED : BOARD_IR_LED] = true;
    night.filter_day = white;
    fill(&plane, [&](double lux, double reflectance) {
        room_constants here = room;
        here.reflectance = reflectance;
        const light_moment moment = {0, lux, lux * room.infrared_of_daylight};
        const bool dark = is_dark(settled(isp, light_of_room(moment, day, here), day.filter_day), mode);
        const char bright =
            bright_letter(settled(isp, light_of_room(moment, night, here), night.filter_day), mode);
        if (dark)
            return bright == '.' ? 'd' : 'x';
        return bright == '.' ? '.' : 'b';
    });
    return plane;
}
