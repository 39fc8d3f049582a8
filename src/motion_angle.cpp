// See the header; nothing here keeps state.
#include "motion_angle.h"

#include <math.h>
#include <stddef.h>
#include <stdint.h>

#include <algorithm>
#include <iterator>

#include "event_channels.h"
#include "naro_util.h"

namespace
{

// Half a picture, and the distance at which it is seen.
const double H_HALF = 2.56, H_DISTANCE = 2.6856;
const double V_HALF = 1.44, V_DISTANCE = 3.3888;

const int angle_h_src[] = {10, 20, 25, 30, 35, 45, 50, 60};
const int angle_h_dst[] = {20, 30, 40, 50, 60, 70, 80, 90};

// From the middle of first .. last to the middle of `size` pixels. The products are double, the rest
// single: whoever compares this with a camera gets the same degree in every place.
int degrees(int first, int last, int size, double half, double distance)
{
    const float d = (static_cast<float>(first) + static_cast<float>(last)) / 2 - static_cast<float>(size) / 2;
    const float angle = atanf(static_cast<float>(2 * d / static_cast<float>(size) * half / distance));
    return static_cast<int>(angle * 180 / 3.1415927f + 0.5f);
}

} // namespace

int cal_h_v_degree(int *h_out, int *v_out, int x1, int y1, int x2, int y2)
{
    if (!h_out || !v_out) {
        log_err("[%s] no place for the angles\n", __func__);
        return -1;
    }
    *h_out = degrees(x1, x2, ANALYSIS_WIDTH, H_HALF, H_DISTANCE);
    *v_out = degrees(y1, y2, ANALYSIS_HEIGHT, V_HALF, V_DISTANCE);
    return 0;
}

int angle_h_dst_cal(int angle)
{
    const int64_t a = angle < 0 ? -static_cast<int64_t>(angle) : angle;
    const int *above = std::upper_bound(std::begin(angle_h_src), std::end(angle_h_src), a);
    const ptrdiff_t i = above - angle_h_src;
    int result;
    if (i == 0) {
        result = angle_h_dst[0];
    } else if (above == std::end(angle_h_src)) {
        result = angle_h_dst[i - 1];
    } else {
        // In whole numbers: what a division of floats cut off would be, without its doubts at the whole
        // degrees.
        const int beyond = static_cast<int>(a) - angle_h_src[i - 1];
        const int wide = angle_h_src[i] - angle_h_src[i - 1];
        result = angle_h_dst[i - 1] + beyond * (angle_h_dst[i] - angle_h_dst[i - 1]) / wide;
    }
    return angle < 0 ? -result : result;
}
