// Where the window lies, and cutting a picture to it without copying.
#include "wide.h"

#include <algorithm>
#include <math.h>

extern "C" {
#include <libavutil/frame.h>
}

#include "event_channels.h"

namespace
{

// Colours come for pairs of pixels.
int even(double pixels)
{
    return static_cast<int>(pixels / 2) * 2;
}

int inside(double at, int room)
{
    return even(std::max(0., std::min(static_cast<double>(room), round(at))));
}

} // namespace

wide_window wide_window_of(int width, int height, double share, double pan, double tilt)
{
    const double shape = static_cast<double>(ANALYSIS_WIDTH) / ANALYSIS_HEIGHT;
    wide_window window;
    window.width = std::max(2, even(std::min(static_cast<double>(width), height * shape) * share));
    window.height = std::max(2, even(std::min(static_cast<double>(height), width / shape) * share));
    const double degree = window.width / WIDE_ANGLE;
    window.x = inside((width - window.width) / 2. + pan * degree, width - window.width);
    window.y = inside((height - window.height) / 2. - tilt * degree, height - window.height);
    return window;
}

bool wide_cut(AVFrame *frame, double share, double pan, double tilt)
{
    if (av_frame_get_side_data(frame, AV_FRAME_DATA_DISPLAYMATRIX))
        return false;
    const wide_window window = wide_window_of(frame->width, frame->height, share, pan, tilt);
    if (window.width > frame->width || window.height > frame->height)
        return false;
    frame->crop_left = static_cast<size_t>(window.x);
    frame->crop_top = static_cast<size_t>(window.y);
    frame->crop_right = static_cast<size_t>(frame->width - window.x - window.width);
    frame->crop_bottom = static_cast<size_t>(frame->height - window.y - window.height);
    if (av_frame_apply_cropping(frame, AV_FRAME_CROP_UNALIGNED) >= 0)
        return true;
    frame->crop_left = frame->crop_top = frame->crop_right = frame->crop_bottom = 0;
    return false;
}
