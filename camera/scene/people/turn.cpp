// See the header.
#include "turn.h"

namespace
{
turn about(float degrees, float x, float y, float z)
{
    const float half = radians(degrees) / 2, s = sinf(half);
    return {cosf(half), x * s, y * s, z * s};
}

turn unit(turn a)
{
    const float length = sqrtf(a.w * a.w + a.x * a.x + a.y * a.y + a.z * a.z);
    if (!(length > 1e-6f))
        return {};
    const float s = 1 / length;
    return {a.w * s, a.x * s, a.y * s, a.z * s};
}
} // namespace

turn turn_x(float degrees)
{
    return about(degrees, 1, 0, 0);
}

turn turn_y(float degrees)
{
    return about(degrees, 0, 1, 0);
}

turn turn_z(float degrees)
{
    return about(degrees, 0, 0, 1);
}

turn operator*(turn a, turn b)
{
    return {a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z, a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y,
            a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x, a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w};
}

turn turn_back(turn a)
{
    return {a.w, -a.x, -a.y, -a.z};
}

turn turn_mix(turn a, turn b, float share)
{
    // A quaternion and its negative are the same rotation; of the two ways the shorter one.
    const float side = a.w * b.w + a.x * b.x + a.y * b.y + a.z * b.z < 0 ? -share : share, rest = 1 - share;
    return unit(
        {a.w * rest + b.w * side, a.x * rest + b.x * side, a.y * rest + b.y * side, a.z * rest + b.z * side});
}

scene_vec turn_apply(turn a, scene_vec v)
{
    const scene_vec axis = {a.x, a.y, a.z};
    const scene_vec t = scene_cross(axis, v) * 2;
    return v + t * a.w + scene_cross(axis, t);
}

scene_place turn_place(turn a, scene_vec origin)
{
    return {turn_apply(a, {1, 0, 0}), turn_apply(a, {0, 1, 0}), turn_apply(a, {0, 0, 1}), origin};
}

turn turn_of(const scene_place &p)
{
    // The largest of the four is taken first, so that nothing is divided by a small number.
    const float w = 1 + p.x.x + p.y.y + p.z.z, x = 1 + p.x.x - p.y.y - p.z.z, y = 1 - p.x.x + p.y.y - p.z.z,
                z = 1 - p.x.x - p.y.y + p.z.z;
    if (w >= x && w >= y && w >= z)
        return unit({w, p.y.z - p.z.y, p.z.x - p.x.z, p.x.y - p.y.x});
    if (x >= y && x >= z)
        return unit({p.y.z - p.z.y, x, p.x.y + p.y.x, p.z.x + p.x.z});
    if (y >= z)
        return unit({p.z.x - p.x.z, p.x.y + p.y.x, y, p.y.z + p.z.y});
    return unit({p.x.y - p.y.x, p.z.x + p.x.z, p.y.z + p.z.y, z});
}
