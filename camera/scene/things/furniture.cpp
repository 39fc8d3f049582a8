// The table of kinds, and seats and beds: what people sit and lie on.
#include "furniture.h"

#include <algorithm>

namespace
{
struct kind_row {
    furniture_builder *build;
    bool blocks;
};
// In the order of furniture_kind.
const kind_row kinds[] = {
    {furniture_sofa, true},        {furniture_chair, true},     {furniture_office_chair, true},
    {furniture_stool, true},       {furniture_table, true},     {furniture_desk, true},
    {furniture_monitor, false},    {furniture_bed, true},       {furniture_cot, true},
    {furniture_drawers, true},     {furniture_wardrobe, true},  {furniture_bookcase, true},
    {furniture_sideboard, true},   {furniture_tv, false},       {furniture_table_lamp, false},
    {furniture_floor_lamp, true},  {furniture_rug, false},      {furniture_plant, true},
    {furniture_radiator, true},    {furniture_picture, false},  {furniture_poster, false},
    {furniture_mirror, false},     {furniture_clock, false},    {furniture_hooks, false},
    {furniture_wall_shelf, false}, {furniture_base_unit, true}, {furniture_wall_unit, false},
    {furniture_sink, false},       {furniture_stove, true},     {furniture_hood, false},
    {furniture_fridge, true},      {furniture_cups, false},     {furniture_books, false},
    {furniture_toys, true},        {furniture_bear, false},     {furniture_basket, true},
    {furniture_bin, true},         {furniture_boxes, true},     {furniture_board, false},
    {furniture_shoes, true},       {furniture_switch, false},   {furniture_bench, true},
    {furniture_printer, false},    {furniture_door, false},     {furniture_clothes, true},
};
static_assert(sizeof kinds / sizeof kinds[0] == FURNITURE_KINDS, "one row for each kind");
} // namespace

void furniture_build(furniture_work *work, const furniture_item *item)
{
    kinds[item->kind].build(work, item);
}

bool furniture_blocks(const furniture_item *item)
{
    // What hangs or stands above the floor is walked under or belongs to what carries it.
    return kinds[item->kind].blocks && item->z < 0.3f;
}

// A two- or three-seater, or an armchair where it is narrow. The seat's top is 0.45 m high.
void furniture_sofa(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const float w = item->w / 2, d = item->d / 2, arm = 0.17f, back = 0.22f;
    m->material = STUFF_DARK_WOOD;
    for (int i = 0; i < 4; i++) {
        const float x = i & 1 ? w - 0.1f : -w + 0.04f, y = i & 2 ? d - 0.1f : -d + 0.04f;
        shape_box(m, {x, y, 0}, {x + 0.06f, y + 0.06f, 0.1f});
    }
    m->material = STUFF_SOFA;
    shape_box(m, {-w + 0.02f, -d + 0.04f, 0.09f}, {w - 0.02f, d - 0.04f, 0.32f}, 0.03f);
    shape_box(m, {-w, -d, 0.1f}, {-w + arm, d - 0.02f, 0.62f}, 0.06f);
    shape_box(m, {w - arm, -d, 0.1f}, {w, d - 0.02f, 0.62f}, 0.06f);
    shape_box(m, {-w + 0.04f, -d, 0.12f}, {w - 0.04f, -d + back, item->h}, 0.07f);
    const int seats = item->w > 1.9f ? 3 : item->w > 1.3f ? 2 : 1;
    const float each = (item->w - 2 * arm) / static_cast<float>(seats);
    for (int i = 0; i < seats; i++) {
        const float x = -w + arm + each * (static_cast<float>(i) + 0.5f);
        shape_cushion(m, {x, 0.06f, 0.365f}, {each / 2 - 0.004f, d - 0.07f, 0.095f}, 0.22f, 12, 5);
        const scene_place kept = m->place;
        m->place.origin = scene_put(kept, {x, -d + back + 0.06f, 0.64f});
        // Leans back by some 12 degrees.
        const float c = 0.978f, s = 0.208f;
        m->place.y = kept.y * c + kept.z * s;
        m->place.z = kept.z * c - kept.y * s;
        shape_cushion(m, {0, 0, 0}, {each / 2 - 0.01f, 0.09f, 0.23f}, 0.28f, 10, 5);
        m->place = kept;
    }
    // Loose cushions lie where the last one to sit there left them.
    m->material = STUFF_CUSHION;
    const int loose = seats == 1 ? 1 : 2;
    for (int i = 0; i < loose; i++) {
        const scene_place kept = m->place;
        const float side = i == 0 ? -1.f : 1.f, turn = scene_uniform(&work->random, -25, 25);
        scene_place own =
            scene_standing({side * (w - arm - 0.22f), 0.02f - d + back + 0.16f, 0.62f}, turn + side * -18);
        const scene_vec up = scene_unit(own.z * 0.9f + own.y * -0.42f);
        own.y = scene_cross(up, own.x);
        own.z = up;
        m->place = {scene_turn(kept, own.x), scene_turn(kept, own.y), scene_turn(kept, own.z),
                    scene_put(kept, own.origin)};
        shape_cushion(m, {0, 0, 0}, {0.21f, 0.07f, 0.2f}, 0.45f, 10, 5);
        m->place = kept;
    }
    if (seats == 3) { // a blanket over the arm
        m->material = STUFF_THROW;
        shape_box(m, {w - arm - 0.012f, -0.25f, 0.36f}, {w + 0.012f, 0.22f, 0.632f}, 0.05f);
    }
}

void furniture_chair(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const float w = item->w / 2, d = item->d / 2, seat = 0.45f;
    m->material = STUFF_WOOD;
    for (int i = 0; i < 4; i++) {
        const float x = i & 1 ? w - 0.03f : -w + 0.03f, y = i & 2 ? d - 0.03f : -d + 0.03f;
        const float lean = i & 2 ? 0 : -0.05f;
        shape_rod(m, {x, y + lean, 0}, {x, y, seat - 0.02f}, 0.018f, 5);
        if (!(i & 2))
            shape_rod(m, {x, y, seat - 0.03f}, {x, y - 0.07f, item->h}, 0.018f, 5);
    }
    shape_box(m, {-w, -d, seat - 0.05f}, {w, d, seat - 0.02f}, 0.012f);
    shape_box(m, {-w + 0.02f, -d - 0.055f, item->h - 0.1f}, {w - 0.02f, -d - 0.03f, item->h}, 0.01f);
    shape_box(m, {-w + 0.02f, -d - 0.035f, item->h - 0.25f}, {w - 0.02f, -d - 0.015f, item->h - 0.18f});
    m->material = STUFF_CHAIR_CLOTH;
    shape_box(m, {-w + 0.015f, -d + 0.02f, seat - 0.022f}, {w - 0.015f, d - 0.01f, seat + 0.005f}, 0.012f);
}

void furniture_office_chair(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    m->material = STUFF_DARK_METAL;
    for (int i = 0; i < 5; i++) {
        const float turn = static_cast<float>(i) * 1.2566f + 0.3f;
        const scene_vec end = {0.28f * cosf(turn), 0.28f * sinf(turn), 0.07f};
        shape_rod(m, {0, 0, 0.1f}, end, 0.02f, 5);
        shape_box(m, end + scene_vec{-0.02f, -0.02f, -0.07f}, end + scene_vec{0.02f, 0.02f, -0.01f});
    }
    shape_rod(m, {0, 0, 0.08f}, {0, 0, 0.4f}, 0.028f, 6);
    m->material = STUFF_CHAIR_CLOTH;
    shape_cushion(m, {0, 0.01f, 0.415f}, {item->w / 2 - 0.06f, item->d / 2 - 0.07f, 0.05f}, 0.35f, 12, 6);
    const shape_section back[5] = {{{0, -0.22f, 0.52f}, 0.16f, 0.03f},
                                   {{0, -0.255f, 0.62f}, 0.2f, 0.035f},
                                   {{0, -0.26f, 0.78f}, 0.22f, 0.035f},
                                   {{0, -0.285f, 0.94f}, 0.2f, 0.032f},
                                   {{0, -0.31f, item->h}, 0.13f, 0.02f}};
    shape_tube(m, back, 5, {0, 1, 0}, 10);
    m->material = STUFF_BLACK_PLASTIC;
    shape_rod(m, {0, -0.1f, 0.38f}, {0, -0.28f, 0.56f}, 0.025f, 5);
    for (int side = -1; side <= 1; side += 2) {
        const float x = static_cast<float>(side) * (item->w / 2 - 0.04f);
        shape_rod(m, {x * 0.7f, -0.05f, 0.4f}, {x, -0.05f, 0.62f}, 0.015f, 5);
        shape_box(m, {x - 0.035f, -0.16f, 0.61f}, {x + 0.035f, 0.12f, 0.64f}, 0.012f);
    }
}

void furniture_stool(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    m->material = STUFF_LIGHT_WOOD;
    for (int i = 0; i < 4; i++) {
        const float x = i & 1 ? 1.f : -1.f, y = i & 2 ? 1.f : -1.f;
        shape_rod(m, {x * item->w / 2, y * item->w / 2, 0}, {x * item->w * 0.3f, y * item->w * 0.3f, item->h},
                  0.016f, 5);
    }
    shape_cylinder(m, {0, 0, item->h - 0.03f}, item->w / 2, 0.03f, 14);
}

void furniture_bench(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const float w = item->w / 2, d = item->d / 2;
    m->material = STUFF_LIGHT_WOOD;
    shape_box(m, {-w, -d, 0}, {-w + 0.03f, d, item->h - 0.04f});
    shape_box(m, {w - 0.03f, -d, 0}, {w, d, item->h - 0.04f});
    shape_box(m, {-w, -d, 0.14f}, {w, d, 0.16f});
    shape_box(m, {-w, -d, item->h - 0.07f}, {w, d, item->h - 0.04f}, 0.008f);
    m->material = STUFF_CUSHION;
    shape_cushion(m, {0, 0, item->h - 0.015f}, {w - 0.01f, d - 0.01f, 0.035f}, 0.2f, 16, 4);
}

// The head end is at its back, against the wall; the mattress' top is item->h high.
void furniture_bed(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const float w = item->w / 2, d = item->d / 2, top = item->h;
    m->material = STUFF_WOOD;
    shape_box(m, {-w - 0.02f, -d, 0.05f}, {w + 0.02f, -d + 0.05f, 0.95f}, 0.02f);
    shape_box(m, {-w, -d + 0.04f, 0.12f}, {w, d, top - 0.2f}, 0.015f);
    shape_box(m, {-w - 0.02f, d - 0.04f, 0.05f}, {w + 0.02f, d, top - 0.1f}, 0.015f);
    for (int i = 0; i < 4; i++) {
        const float x = i & 1 ? w - 0.08f : -w + 0.02f, y = i & 2 ? d - 0.1f : -d + 0.06f;
        shape_box(m, {x, y, 0}, {x + 0.06f, y + 0.06f, 0.14f});
    }
    m->material = STUFF_SHEET;
    shape_cushion(m, {0, 0.02f, top - 0.11f}, {w - 0.01f, d - 0.05f, 0.11f}, 0.16f, 16, 6);
    m->material = STUFF_PILLOW;
    const int pillows = item->w > 1.2f ? 2 : 1;
    for (int i = 0; i < pillows; i++) {
        const float x = pillows == 1 ? 0 : (i == 0 ? -1.f : 1.f) * w / 2;
        const scene_place kept = m->place;
        const scene_place own =
            scene_standing({x, -d + 0.34f, top + 0.06f}, scene_uniform(&work->random, -8, 8));
        m->place = {scene_turn(kept, own.x), scene_turn(kept, own.y), own.z, scene_put(kept, own.origin)};
        shape_cushion(m, {0, 0, 0}, {std::min(0.36f, w - 0.06f), 0.2f, 0.09f}, 0.42f, 14, 6);
        m->place = kept;
    }
    // The blanket: a sheet with waves, from the foot to the pillows, that hangs over both sides.
    m->material = STUFF_BEDDING;
    enum { ACROSS = 14, ALONG = 10 };
    const float phase = scene_uniform(&work->random, 0, 6), from = -d + 0.62f, to = d + 0.02f;
    scene_vec net[ALONG + 1][ACROSS + 1];
    for (int j = 0; j <= ALONG; j++) {
        for (int i = 0; i <= ACROSS; i++) {
            const float s = static_cast<float>(i) / ACROSS * 2 - 1, t = static_cast<float>(j) / ALONG;
            const float over = std::max(0.f, fabsf(s) - 0.8f) / 0.2f; // part that hangs down
            const float wave =
                0.02f * sinf(9 * s + phase) * sinf(7 * t + 2 * phase) + 0.012f * sinf(17 * t + 5 * s + phase);
            const float puff = 0.05f * (1 - t * t * t * t);
            net[j][i] = {(s < 0 ? -1.f : 1.f) * std::min(fabsf(s) / 0.8f, 1.f) * (w + 0.015f) +
                             (s < 0 ? -1.f : 1.f) * over * 0.02f,
                         from + (to - from) * t + 0.02f * sinf(5 * s + phase),
                         top + puff + wave - over * 0.24f - (t > 0.95f ? 0.1f : 0)};
        }
    }
    uint32_t index[ALONG + 1][ACROSS + 1];
    for (int j = 0; j <= ALONG; j++) {
        for (int i = 0; i <= ACROSS; i++) {
            const scene_vec du = net[j][std::min<int>(i + 1, ACROSS)] - net[j][std::max(i - 1, 0)],
                            dv = net[std::min<int>(j + 1, ALONG)][i] - net[std::max(j - 1, 0)][i];
            index[j][i] = shape_vertex(m, net[j][i], scene_unit(scene_cross(du, dv)),
                                       static_cast<float>(i) / ACROSS * (item->w + 0.48f),
                                       static_cast<float>(j) / ALONG * (to - from));
        }
    }
    for (int j = 0; j < ALONG; j++) {
        for (int i = 0; i < ACROSS; i++) {
            const uint32_t two[6] = {index[j][i], index[j][i + 1],     index[j + 1][i + 1],
                                     index[j][i], index[j + 1][i + 1], index[j + 1][i]};
            m->mesh->indices.insert(m->mesh->indices.end(), two, two + 6);
        }
    }
    m->material = STUFF_THROW;
    shape_box(m, {-w - 0.03f, d - 0.5f, top - 0.14f}, {w + 0.03f, d - 0.05f, top + 0.075f}, 0.04f);
}

// A child's bed with bars.
void furniture_cot(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const float w = item->w / 2, d = item->d / 2;
    m->material = STUFF_LIGHT_WOOD;
    for (int i = 0; i < 4; i++) {
        const float x = i & 1 ? w : -w, y = i & 2 ? d : -d;
        shape_box(m, {x - 0.025f, y - 0.025f, 0}, {x + 0.025f, y + 0.025f, item->h}, 0.01f);
    }
    for (int side = -1; side <= 1; side += 2) {
        const float s = static_cast<float>(side);
        shape_box(m, {-w, s * d - 0.015f, item->h - 0.05f}, {w, s * d + 0.015f, item->h - 0.015f});
        shape_box(m, {-w, s * d - 0.015f, 0.22f}, {w, s * d + 0.015f, 0.26f});
        shape_box(m, {s * w - 0.012f, -d, 0.22f}, {s * w + 0.012f, d, item->h - 0.04f});
        const int bars = static_cast<int>(item->w / 0.11f);
        for (int i = 1; i < bars; i++) {
            const float x = -w + item->w * static_cast<float>(i) / static_cast<float>(bars);
            shape_box(m, {x - 0.008f, s * d - 0.008f, 0.25f}, {x + 0.008f, s * d + 0.008f, item->h - 0.04f});
        }
    }
    m->material = STUFF_SHEET;
    shape_cushion(m, {0, 0, 0.33f}, {w - 0.02f, d - 0.02f, 0.07f}, 0.16f, 14, 4);
    m->material = STUFF_BEDDING;
    shape_cushion(m, {w * 0.25f, 0, 0.4f}, {w * 0.6f, d - 0.05f, 0.06f}, 0.4f, 14, 6);
    m->material = STUFF_PILLOW;
    shape_cushion(m, {-w * 0.7f, 0, 0.42f}, {0.14f, 0.2f, 0.05f}, 0.45f, 10, 4);
}
