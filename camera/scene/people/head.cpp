// Heads: skull and face, hair, what is worn on them. Tables are metres of an adult's head, 0.2275 m from chin to
// crown, 0.155 m wide, 0.195 m deep; the middle is the axis between the ears.
#include "body.h"

#include <algorithm>

namespace
{
const float ADULT_HEAD = 0.2275f;

// From the chin (0) to the crown (1): half breadth, how far the front lies before the ears' axis, the back behind it.
const float head_table[][4] = {
    {-.02f, .012f, .072f, -.050f}, {.02f, .030f, .086f, -.020f}, {.08f, .043f, .094f, .000f},
    {.16f, .053f, .095f, .030f},   {.26f, .061f, .094f, .055f},  {.36f, .067f, .093f, .074f},
    {.45f, .070f, .090f, .087f},   {.52f, .072f, .086f, .094f},  {.60f, .0735f, .093f, .099f},
    {.70f, .0755f, .090f, .101f},  {.79f, .073f, .081f, .097f},  {.87f, .065f, .065f, .085f},
    {.935f, .050f, .043f, .066f},  {.975f, .032f, .019f, .042f}, {1.0f, .009f, -.004f, .016f}};

struct maker {
    const person_look &look;
    const figure &f;
    shape *s;
    float k;        // this head against the table's
    scene_vec base; // the chin's height on the ears' axis
    float round;    // how full the face is
};

shape_ring head_ring(const maker &m, float at, float more)
{
    float v[3];
    body_between(head_table[0], sizeof head_table / sizeof head_table[0], 4, at, v);
    const float full = m.round * smooth(.6f, .2f, at);
    const float front = v[1] * m.k + more, back = -v[2] * m.k - more, y = (front + back) / 2;
    return shape_level({0, m.base.y + y, m.base.z + at * ADULT_HEAD * m.k}, (v[0] + full) * m.k + more,
                       front - y, front - y, at > .1f && at < .5f ? 2.25f : 2.1f);
}

// The face's surface at a place given in an adult's metres: x to the side, `at` from chin to crown; `more` before it.
scene_vec face(const maker &m, float x, float at, float more)
{
    const shape_ring r = head_ring(m, at, 0);
    const float part = clamped(fabsf(x) * m.k / r.across.x, 0, 0.99f);
    const float y = r.front.y * powf(1 - powf(part, r.square), 1 / r.square);
    return {x * m.k, r.centre.y + y + more * m.k, r.centre.z};
}

// An oval on the face.
void add_patch(const maker &m, float x, float at, float half_x, float half_z, float more, float slant,
               uint32_t material)
{
    std::vector<scene_vec> points = {face(m, x, at, more)};
    std::vector<uint32_t> indices;
    const uint32_t count = 8;
    for (uint32_t i = 0; i < count; i++) {
        const float a = static_cast<float>(i) * static_cast<float>(2 * M_PI) / static_cast<float>(count);
        const float dx = half_x * cosf(a), dz = half_z * sinf(a) + slant * dx * (x > 0 ? -1.f : 1.f);
        points.push_back(face(m, x + dx, at + dz / ADULT_HEAD, more));
        // Seen from the front, +x is to the left: counter-clockwise is from +z to +x.
        indices.insert(indices.end(), {0, 1 + (i + 1) % count, 1 + i});
    }
    shape_add_triangles(m.s, points, indices, material, m.f, FIGURE_RIGHT, body_on_head);
}

void add_nose(const maker &m)
{
    std::vector<scene_vec> p = {
        face(m, 0, .60f, -.002f),        face(m, 0, .50f, .010f),        face(m, 0, .385f, .024f),
        face(m, 0, .335f, .010f),        face(m, 0.010f, .55f, -.003f),  face(m, -0.010f, .55f, -.003f),
        face(m, 0.017f, .37f, -.002f),   face(m, -0.017f, .37f, -.002f), face(m, 0.014f, .335f, -.003f),
        face(m, -0.014f, .335f, -.003f), face(m, 0.012f, .375f, .013f),  face(m, -0.012f, .375f, .013f)};
    const std::vector<uint32_t> t = {0,  1, 4,  0, 5, 1,  4, 1, 10, 1,  2,  10, 1, 5,
                                     11, 1, 11, 2, 4, 10, 6, 5, 7,  11, 10, 2,  3, 10,
                                     3,  8, 10, 8, 6, 11, 3, 2, 11, 9,  3,  11, 7, 9};
    shape_add_triangles(m.s, p, t, BODY_SKIN, m.f, FIGURE_RIGHT, body_on_head);
}

void add_ear(const maker &m, float side)
{
    shape_loft ear;
    ear.segments = 8;
    ear.material = BODY_SKIN;
    ear.first = ear.last = SHAPE_ROUND;
    const float outline[][3] = {{.34f, .006f, .006f}, {.38f, .011f, .011f}, {.46f, .013f, .016f},
                                {.54f, .014f, .019f}, {.60f, .012f, .018f}, {.64f, .006f, .010f}};
    for (const float *o : outline) {
        const shape_ring r = head_ring(m, o[0], 0);
        ear.rings.push_back(shape_level({side * (r.across.x + 0.002f), m.base.y - 0.010f * m.k, r.centre.z},
                                        o[1] * m.k, o[2] * m.k, o[2] * m.k, 2));
    }
    shape_add(m.s, ear, m.f, FIGURE_RIGHT, body_on_head);
}

// A shell over the head: down to `end` (of the head's height, may be below the chin) at each place round; `thick`
// metres proud of the skull. Its edge is turned in.
typedef float (*shell_end)(const maker &m, float away); // away: 0 in front to 1 at the back
void add_shell(const maker &m, shell_end end, float thick, float top, float drape, uint32_t material,
               int columns, int rows, float rough)
{
    std::vector<scene_vec> points;
    std::vector<uint32_t> indices;
    const uint32_t width = static_cast<uint32_t>(columns);
    for (int i = 0; i <= rows + 1; i++)
        for (int j = 0; j < columns; j++) {
            const float round = static_cast<float>(j) / static_cast<float>(columns),
                        away = fabsf(round - .5f) * 2;
            const bool edge = i == rows + 1;
            const float low = end(m, away),
                        down = static_cast<float>(std::min(i, rows)) / static_cast<float>(rows);
            // More rows where the crown bends.
            const float at = 1 - (1 - low) * powf(down, 1.6f);
            const float more =
                edge ? -0.004f : (thick + top * smooth(.5f, 1, at)) * smooth(0, .12f, 1.02f - down * .9f);
            shape_ring r = head_ring(m, std::max(at, .34f), more);
            if (at < .34f) { // below the skull: hangs, wider towards the shoulders
                const float fall = (.34f - at);
                r.centre.z = m.base.z + at * ADULT_HEAD * m.k;
                r.across.x += drape * fall * m.k;
                r.back.y += (0.045f * smooth(.3f, .8f, fall) - 0.012f * smooth(0, .3f, fall)) * m.k;
            }
            r.centre.z += edge ? 0.003f : (thick + top) * smooth(.7f, 1, at);
            scene_vec p = shape_point(r, round);
            p = p + scene_unit(p - r.centre) * (rough * shape_noise(p * 38, m.look.hair.seed + 3));
            points.push_back(p);
        }
    for (uint32_t i = 0; i <= static_cast<uint32_t>(rows); i++)
        for (uint32_t j = 0; j < width; j++) {
            const uint32_t a = i * width + j, b = i * width + (j + 1) % width, c = a + width, d = b + width;
            indices.insert(indices.end(), {a, c, b, b, c, d});
        }
    shape_add_triangles(m.s, points, indices, material, m.f, FIGURE_RIGHT, body_on_head);
}

float hair_end(const maker &m, float back) // 0 in front, 1 at the back
{
    const float length = m.look.hair_length;
    const float front = .80f, temple = .66f,
                side = length > .45f ? blend(.40f, -.50f, (length - .45f) / .55f) : .44f,
                nape = length > .2f ? .22f - .80f * (length - .2f) / .8f : blend(.40f, .22f, length / .2f);
    if (back < .22f)
        return blend(front, blend(front, temple, .5f), smooth(.10f, .22f, back));
    if (back < .40f)
        return blend(blend(front, temple, .5f), length > .45f ? blend(temple, side, .3f) : temple,
                     smooth(.22f, .40f, back));
    if (back < .52f)
        return blend(length > .45f ? blend(temple, side, .3f) : temple, side, smooth(.40f, .50f, back));
    return blend(side, nape, smooth(.52f, .72f, back));
}

float cap_end(const maker &m, float back)
{
    (void)m;
    return blend(.74f, .56f, smooth(.1f, .9f, back));
}

float hood_end(const maker &m, float back)
{
    (void)m;
    return back < .15f ? .90f : blend(.90f, -.22f, smooth(.15f, .36f, back));
}

float beard_top(float x)
{
    return x < .018f ? .165f : blend(.26f, .42f, smooth(.03f, .07f, x));
}

void add_beard(const maker &m)
{
    std::vector<scene_vec> points;
    std::vector<uint32_t> indices;
    const int columns = 12, rows = 4;
    for (int i = 0; i <= rows; i++)
        for (int j = 0; j <= columns; j++) {
            const float side = static_cast<float>(j) / columns, round = .5f + (side - .5f) * .56f;
            const float x = fabsf(side - .5f) * .14f;
            const float at = blend(beard_top(x), -.015f, static_cast<float>(i) / rows);
            const bool rim = i == 0 || j == 0 || j == columns;
            points.push_back(shape_point(head_ring(m, at, rim ? -0.002f : 0.007f * m.k), round));
        }
    for (int i = 0; i < rows; i++)
        for (int j = 0; j < columns; j++) {
            const uint32_t a = static_cast<uint32_t>(i * (columns + 1) + j), b = a + 1, c = a + columns + 1,
                           d = c + 1;
            indices.insert(indices.end(), {a, c, b, b, c, d});
        }
    shape_add_triangles(m.s, points, indices, BODY_HAIR, m.f, FIGURE_RIGHT, body_on_head);
    add_patch(m, 0, .275f, .026f, .006f, .006f, 0, BODY_HAIR); // moustache
}

void add_glasses(const maker &m)
{
    for (const float side : {1.f, -1.f}) {
        std::vector<scene_vec> points;
        std::vector<uint32_t> indices;
        const uint32_t count = 10;
        for (uint32_t i = 0; i < count; i++) {
            const float a = static_cast<float>(i) * static_cast<float>(2 * M_PI) / count;
            for (const float out : {1.f, .74f}) {
                scene_vec p = face(m, side * .034f, .53f, .014f);
                p.x += .025f * out * cosf(a) * m.k;
                p.z += .020f * out * sinf(a) * m.k;
                points.push_back(p);
            }
            const uint32_t o = 2 * i, n = 2 * ((i + 1) % count);
            indices.insert(indices.end(), {o, o + 1, n, n, o + 1, n + 1});
        }
        shape_add_triangles(m.s, points, indices, BODY_FRAMES, m.f, FIGURE_RIGHT, body_on_head);
        // The temple, from the frame to the ear.
        const scene_vec front = points[side > 0 ? 0 : 10];
        const shape_ring ear = head_ring(m, .56f, 0.004f);
        shape_loft bar;
        bar.segments = 4;
        bar.material = BODY_FRAMES;
        const scene_vec back = {side * ear.across.x, m.base.y - 0.01f, ear.centre.z};
        bar.rings = {{front, {.003f, 0, 0}, {0, 0, .004f}, {0, 0, .004f}, 2},
                     {back, {.003f, 0, 0}, {0, 0, .004f}, {0, 0, .004f}, 2}};
        shape_add(m.s, bar, m.f, FIGURE_RIGHT, body_on_head);
    }
}

void add_brim(const maker &m)
{
    std::vector<scene_vec> points;
    std::vector<uint32_t> indices;
    const int columns = 8;
    for (int under = 0; under < 2; under++)
        for (int j = 0; j <= columns; j++) {
            const float round = .5f + (static_cast<float>(j) / columns - .5f) * .40f,
                        side = fabsf(static_cast<float>(j) / columns - .5f) * 2;
            scene_vec p = shape_point(head_ring(m, .75f, 0.008f), round);
            scene_vec q = p + scene_vec{0, .075f * m.k * (1 - side * side), -.016f * m.k};
            p.z -= .006f * static_cast<float>(under);
            q.z -= .006f * static_cast<float>(under);
            points.push_back(p);
            points.push_back(q);
        }
    const uint32_t below = 2 * (columns + 1);
    for (uint32_t j = 0; j < columns; j++) {
        const uint32_t a = 2 * j;
        indices.insert(indices.end(), {a, a + 2, a + 1, a + 1, a + 2, a + 3});
        indices.insert(indices.end(), {below + a, below + a + 1, below + a + 2, below + a + 1, below + a + 3,
                                       below + a + 2});
    }
    shape_add_triangles(m.s, points, indices, BODY_ACCENT, m.f, FIGURE_RIGHT, body_on_head);
}

void add_face(const maker &m)
{
    add_nose(m);
    for (const float side : {1.f, -1.f}) {
        add_ear(m, side);
        add_patch(m, side * .032f, .535f, .022f, .015f, .0005f, .1f, BODY_SHADE);
        add_patch(m, side * .032f, .530f, .014f, .0065f, .0015f, .05f, BODY_EYES);
        add_patch(m, side * .033f, .603f, .020f, .0045f, .0025f, .1f, BODY_HAIR);
    }
    add_patch(m, 0, .215f, .024f, .0065f, .0015f, 0, BODY_LIPS);
    add_patch(m, 0, .325f, .012f, .004f, .003f, 0, BODY_SHADE); // below the nose
}
} // namespace

void head_make(const person_look &look, const figure &f, shape *s)
{
    const float k = f.head / ADULT_HEAD;
    const maker m = {look, f, s, k, {0, 0.024f * f.scale, f.height - f.head}, (look.build - 0.35f) * 0.014f};
    shape_loft skull;
    skull.segments = 14;
    skull.material = BODY_SKIN;
    skull.first = skull.last = SHAPE_ROUND;
    for (int i = 0; i <= 13; i++)
        skull.rings.push_back(
            head_ring(m, 1.02f * (1 - powf(1 - static_cast<float>(i) / 13, 1.15f)) - .02f, 0));
    shape_add(s, skull, f, FIGURE_RIGHT, body_on_head);
    add_face(m);
    const float length = look.hair_length;
    const bool hood = look.clothes == CLOTHES_HOOD && !look.cap;
    if (hood)
        add_shell(m, hood_end, 0.024f, 0.012f, .07f, BODY_TOP, 18, 8, 0.003f);
    else if (length > 0.04f)
        add_shell(m, hair_end, 0.008f + 0.010f * length, look.cap ? 0.f : 0.008f + 0.006f * length, .03f,
                  BODY_HAIR, 18, look.cap ? 6 : 8, 0.003f + 0.003f * length);
    if (look.cap) {
        add_shell(m, cap_end, 0.016f + 0.008f * length, 0.010f, 0, BODY_ACCENT, 16, 5, 0);
        add_brim(m);
    }
    if (look.beard)
        add_beard(m);
    if (look.glasses)
        add_glasses(m);
}
