// From a point of the world to a point of the picture and back. The renderer and the truth both use these functions,
// so that a box that the truth tells lies on the pixels that the renderer draws.
//
//   world --scene_to_camera--> camera --scene_ideal--> ideal --scene_distort--> seen --scene_to_pixel--> pixel
//         <--scene_to_world---        <--scene_ray----       <--scene_undistort-     <--scene_from_pixel--
//
// world   metres.
// camera  metres from the lens: x to the right, y up, z straight ahead. Nothing with z <= 0 can be seen.
// ideal   x / z and y / z of a pinhole, in units of tan(width_angle / 2): -1 and 1 are the directions at the left and
//         right edges of the picture, at half height. y up.
// seen    the same after the lens. With r the ideal radius and k the distortion
//             r' = r (1 + k r^2) / (1 + k)
//         the first term of the radial polynomial (D. C. Brown, Decentering distortion of lenses, 1966), divided by
//         its value at r = 1, so that width_angle stays the angle between the edges that are seen.
// pixel   columns to the right from the left edge, rows down from the upper one; pixel (0, 0) reaches from 0 to 1
//         and its middle is 0.5. Pixels are square: the width sets the scale, the height only how much is seen.
//
// Only + - * / and square roots (which IEEE 754 rounds exactly) but for the angles of the view; those go through
// double, where the last digit of a sine does not reach the float that is kept. With -ffp-contract=off the results are
// the same on every machine.
#ifndef PROJECTION_H
#define PROJECTION_H

#include "scene_types.h"

struct scene_lens {
    scene_vec position, right, up, ahead; // the camera's axes, of unit length
    float half_width;                     // tan(width_angle / 2)
    float distortion;                     // k
    float fold;                           // largest ideal radius that the lens can show
    float width, height;                  // of the picture, pixels
};

struct scene_point {
    float x, y;
};

// The lens of a view for a picture of that many pixels. A width angle outside 10 to 150 degrees and a distortion
// outside -0.12 to 0.3 are taken as the nearest bound. Below -0.12 the corners of a 4:3 picture would lie past the
// fold, where r' stops growing with r: the derivative 1 + 3 k r^2 is 0 at r = sqrt(-1 / (3 k)).
inline scene_lens scene_lens_of(const scene_view *view, int width, int height)
{
    const double degree = M_PI / 180;
    const double angle = view->width_angle < 10    ? 10
                         : view->width_angle > 150 ? 150
                                                   : static_cast<double>(view->width_angle);
    const double pan = view->pan * degree, tilt = view->tilt * degree;
    const float sp = static_cast<float>(sin(pan)), cp = static_cast<float>(cos(pan));
    const float st = static_cast<float>(sin(tilt)), ct = static_cast<float>(cos(tilt));
    scene_lens lens;
    lens.position = view->position;
    lens.right = {cp, -sp, 0};
    lens.ahead = {sp * ct, cp * ct, st};
    lens.up = {-sp * st, -cp * st, ct};
    lens.half_width = static_cast<float>(tan(angle / 2 * degree));
    lens.distortion = view->distortion < -0.12f ? -0.12f : view->distortion > 0.3f ? 0.3f : view->distortion;
    lens.fold = lens.distortion < -0.01f ? sqrtf(-1 / (3 * lens.distortion)) : 5.f;
    lens.width = static_cast<float>(width);
    lens.height = static_cast<float>(height);
    return lens;
}

inline scene_vec scene_to_camera(const scene_lens &lens, scene_vec world)
{
    const scene_vec d = world - lens.position;
    return {scene_dot(d, lens.right), scene_dot(d, lens.up), scene_dot(d, lens.ahead)};
}
inline scene_vec scene_to_world(const scene_lens &lens, scene_vec camera)
{
    return lens.position + lens.right * camera.x + lens.up * camera.y + lens.ahead * camera.z;
}

// Only for camera.z > 0.
inline scene_point scene_ideal(const scene_lens &lens, scene_vec camera)
{
    const float scale = 1 / (camera.z * lens.half_width);
    return {camera.x * scale, camera.y * scale};
}
// The direction in which an ideal point lies, in camera coordinates with z = 1.
inline scene_vec scene_ray(const scene_lens &lens, scene_point ideal)
{
    return {ideal.x * lens.half_width, ideal.y * lens.half_width, 1};
}

// Beyond the fold a point stays in its direction at the fold's distance: outside any picture, and on the right side.
inline scene_point scene_distort(const scene_lens &lens, scene_point ideal)
{
    const float k = lens.distortion, square = ideal.x * ideal.x + ideal.y * ideal.y;
    float scale = (1 + k * square) / (1 + k);
    if (square > lens.fold * lens.fold)
        scale = (1 + k * lens.fold * lens.fold) / (1 + k) * lens.fold / sqrtf(square);
    return {ideal.x * scale, ideal.y * scale};
}
// The inverse, by Newton's method on r (1 + k r^2) = r' (1 + k). Always eight steps: from r = r' fewer do, and the
// same number everywhere gives the same digits. A radius past the fold gives the fold.
inline scene_point scene_undistort(const scene_lens &lens, scene_point seen)
{
    const float k = lens.distortion, wanted = sqrtf(seen.x * seen.x + seen.y * seen.y);
    if (wanted <= 0)
        return seen;
    const float most = lens.fold * (1 + k * lens.fold * lens.fold) / (1 + k);
    if (wanted >= most)
        return {seen.x * (lens.fold / wanted), seen.y * (lens.fold / wanted)};
    float r = wanted < lens.fold ? wanted : lens.fold * 0.9f;
    for (int i = 0; i < 8; i++) {
        const float slope = 1 + 3 * k * r * r;
        r -= (r * (1 + k * r * r) - wanted * (1 + k)) / (slope < 0.05f ? 0.05f : slope);
        if (r > lens.fold)
            r = lens.fold;
        if (r < 0)
            r = 0;
    }
    return {seen.x * (r / wanted), seen.y * (r / wanted)};
}

inline scene_point scene_to_pixel(const scene_lens &lens, scene_point seen)
{
    const float half = lens.width * 0.5f;
    return {half + seen.x * half, lens.height * 0.5f - seen.y * half};
}
inline scene_point scene_from_pixel(const scene_lens &lens, scene_point pixel)
{
    const float half = lens.width * 0.5f;
    return {(pixel.x - half) / half, (lens.height * 0.5f - pixel.y) / half};
}

// The whole road. False, and nothing written, for a point that is not before the lens.
inline bool scene_project(const scene_lens &lens, scene_vec world, scene_point *pixel)
{
    const scene_vec camera = scene_to_camera(lens, world);
    if (camera.z <= 0)
        return false;
    *pixel = scene_to_pixel(lens, scene_distort(lens, scene_ideal(lens, camera)));
    return true;
}
// The direction in the world, not of unit length, that is seen at a pixel.
inline scene_vec scene_pixel_ray(const scene_lens &lens, scene_point pixel)
{
    const scene_vec ray = scene_ray(lens, scene_undistort(lens, scene_from_pixel(lens, pixel)));
    return lens.right * ray.x + lens.up * ray.y + lens.ahead * ray.z;
}

#endif
