// A window in a larger picture, for sources that do not turn by themselves: where a pan-tilt head would look, the window
// lies.
//
// The picture is taken as a panorama, in which as many pixels are a degree everywhere, so the window moves by the same
// way for the same turn wherever it is; at the picture's edge it stops.
#ifndef WIDE_H
#define WIDE_H

struct AVFrame;

// Degrees from the window's left edge to its right one: what the daemon takes the analysis picture to show
// (2 atan(2.56 / 2.6856), see src/motion_angle.h).
#define WIDE_ANGLE 87.26

// Where the window lies in a picture: pixels, all even.
struct wide_window {
    int x, y, width, height;
};
// The window is of the analysis picture's shape: the largest that fits, times `share` (above 0, at most 1). `pan` to the
// right and `tilt` upwards are degrees from the middle. Any thread.
wide_window wide_window_of(int width, int height, double share, double pan, double tilt);

// Cuts the picture, which shares its memory with others, to its window. False, and the picture untouched, where that
// cannot be done (it lies on its side, or its format is no plain one). Any thread.
bool wide_cut(AVFrame *frame, double share, double pan, double tilt);

#endif
