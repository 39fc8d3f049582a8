// Lamps, screens, plants, pictures and what lies about: small things that make a room look lived in.
#include "furniture.h"

#include <algorithm>

namespace
{
// A part with its own light: begins its mesh at the piece's place. The maker writes into the new part.
shape_maker lit_part(furniture_work *work, furniture_light light, scene_vec place, scene_vec ahead,
                     float width, float height)
{
    work->lit->push_back({light,
                          {},
                          scene_put(work->solid.place, place),
                          scene_unit(scene_turn(work->solid.place, ahead)),
                          {width, height}});
    shape_maker maker = {&work->lit->back().mesh, work->solid.place, 0};
    return maker;
}

void on_wall(shape_maker *m, float w, float h, stuff frame, stuff inside)
{
    m->material = frame;
    shape_box(m, {-w / 2, 0, 0}, {w / 2, 0.02f, h}, 0.006f);
    m->material = STUFF_PAPER;
    const float in = 0.022f;
    m->material = inside;
    shape_picture(m, {w / 2 - in, 0.0212f, in}, {-w / 2 + in, 0.0212f, in}, {-w / 2 + in, 0.0212f, h - in},
                  {w / 2 - in, 0.0212f, h - in});
}
} // namespace

// On a desk whose user sits before it; the screen faces the way the piece faces.
void furniture_monitor(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const float w = item->w / 2, low = 0.1f, high = low + item->h;
    m->material = STUFF_BLACK_PLASTIC;
    shape_box(m, {-0.12f, -0.1f, 0}, {0.12f, 0.08f, 0.015f}, 0.005f);
    shape_box(m, {-0.025f, -0.06f, 0.01f}, {0.025f, -0.04f, low + 0.1f});
    shape_box(m, {-w, -0.045f, low}, {w, -0.005f, high}, 0.012f);
    shape_box(m, {-0.22f, 0.24f, 0.002f}, {0.22f, 0.37f, 0.02f}, 0.006f); // keyboard, by the user
    m->material = STUFF_GREY_PLASTIC;
    shape_cushion(m, {-0.32f, 0.3f, 0.018f}, {0.03f, 0.055f, 0.018f}, 0.8f, 8, 4);
    m->material = STUFF_PAPER;
    for (int i = 0; i < 3; i++) {
        const scene_place kept = m->place;
        const scene_place own = scene_standing({0.46f, 0.15f, 0.001f + 0.004f * static_cast<float>(i)},
                                               scene_uniform(&work->random, -30, 30));
        m->place = {scene_turn(kept, own.x), scene_turn(kept, own.y), own.z, scene_put(kept, own.origin)};
        shape_box(m, {-0.105f, -0.148f, 0}, {0.105f, 0.148f, 0.004f});
        m->place = kept;
    }
    m->material = STUFF_CERAMIC;
    shape_cylinder(m, {-0.48f, 0.1f, 0}, 0.04f, 0.095f, 10);
    shape_maker screen =
        lit_part(work, LIT_MONITOR, {0, 0.01f, (low + high) / 2}, {0, 1, 0}, item->w, item->h);
    const float in = 0.012f, y = -0.0045f;
    shape_picture(&screen, {w - in, y, low + in}, {-w + in, y, low + in}, {-w + in, y, high - in},
                  {w - in, y, high - in});
}

void furniture_tv(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const float w = item->w / 2, low = 0.07f, high = low + item->h, in = 0.015f, y = 0.0215f;
    m->material = STUFF_BLACK_PLASTIC;
    for (int side = -1; side <= 1; side += 2) {
        const float x = static_cast<float>(side) * w * 0.6f;
        shape_box(m, {x - 0.015f, -0.1f, 0}, {x + 0.015f, 0.1f, 0.012f});
        shape_box(m, {x - 0.012f, -0.02f, 0.01f}, {x + 0.012f, 0, low + 0.02f});
    }
    shape_box(m, {-w, -0.03f, low}, {w, 0.02f, high}, 0.008f);
    shape_maker screen = lit_part(work, LIT_TV, {0, 0.03f, (low + high) / 2}, {0, 1, 0}, item->w, item->h);
    shape_picture(&screen, {w - in, y, low + in}, {-w + in, y, low + in}, {-w + in, y, high - in},
                  {w - in, y, high - in});
}

void furniture_table_lamp(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    m->material = STUFF_CERAMIC;
    const shape_ring foot[7] = {{0, 0},         {0.07f, 0},     {0.075f, 0.02f}, {0.05f, 0.06f},
                                {0.06f, 0.12f}, {0.03f, 0.19f}, {0.012f, 0.22f}};
    shape_turned(m, {0, 0, 0}, foot, 7, 12, true);
    m->material = STUFF_METAL;
    shape_rod(m, {0, 0, 0.2f}, {0, 0, item->h - 0.06f}, 0.008f, 5);
    shape_maker shade = lit_part(work, LIT_TABLE_LAMP, {0, 0, item->h - 0.1f}, {0, 0, -1}, item->w, item->w);
    const shape_ring cloth[2] = {{item->w / 2, item->h - 0.2f}, {item->w * 0.32f, item->h}};
    shape_turned(&shade, {0, 0, 0}, cloth, 2, 16, true);
}

void furniture_floor_lamp(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    m->material = STUFF_DARK_METAL;
    shape_cylinder(m, {0, 0, 0}, 0.14f, 0.025f, 14);
    shape_rod(m, {0, 0, 0.02f}, {0, 0, item->h - 0.1f}, 0.012f, 6);
    shape_maker shade = lit_part(work, LIT_TABLE_LAMP, {0, 0, item->h - 0.13f}, {0, 0, -1}, item->w, item->w);
    const shape_ring cloth[2] = {{item->w / 2, item->h - 0.27f}, {item->w * 0.4f, item->h}};
    shape_turned(&shade, {0, 0, 0}, cloth, 2, 16, true);
}

void furniture_rug(furniture_work *work, const furniture_item *item)
{
    work->solid.material = STUFF_RUG;
    shape_box(&work->solid, {-item->w / 2, -item->d / 2, 0}, {item->w / 2, item->d / 2, 0.012f}, 0.006f);
}

void furniture_plant(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid, *leaf = &work->leaves;
    scene_random *r = &work->random;
    const float pot = std::min(0.32f, item->h * 0.3f), radius = item->w * 0.32f;
    m->material = STUFF_POT;
    const shape_ring side[4] = {
        {radius * 0.7f, 0}, {radius, pot}, {radius * 1.06f, pot}, {radius * 0.9f, pot - 0.02f}};
    shape_turned(m, {0, 0, 0}, side, 4, 12, false);
    m->material = STUFF_SOIL;
    const shape_ring earth[2] = {{radius * 0.95f, pot - 0.03f}, {0, pot - 0.02f}};
    shape_turned(m, {0, 0, 0}, earth, 2, 12, false);
    m->material = leaf->material = STUFF_LEAF;
    const int leaves = item->h > 0.7f ? 20 : 12;
    for (int i = 0; i < leaves; i++) {
        const float turn = static_cast<float>(i) * 2.4f + scene_uniform(r, -0.3f, 0.3f); // the golden angle
        const float rise = scene_uniform(r, 0.35f, 1.f), c = cosf(turn), s = sinf(turn);
        const float top = pot + (item->h - pot) * rise, out = item->w * scene_uniform(r, 0.3f, 0.52f),
                    wide = 0.045f + item->w * 0.07f;
        const scene_vec root = {0.02f * c, 0.02f * s, pot - 0.02f};
        const scene_vec neck = {out * 0.35f * c, out * 0.35f * s, pot + (top - pot) * 0.8f};
        const scene_vec middle = {out * 0.75f * c, out * 0.75f * s, top},
                        tip = {out * 1.25f * c, out * 1.25f * s, top - 0.16f * item->w - 0.04f};
        const scene_vec across = {-s * wide, c * wide, 0};
        m->material = STUFF_LEAF;
        if (i % 2 == 0)
            shape_rod(m, root, neck, 0.006f, 4);
        shape_quad(leaf, neck - across * 0.3f, neck + across * 0.3f, middle + across, middle - across);
        shape_triangle(leaf, middle - across, middle + across, tip);
    }
}

void furniture_radiator(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const float w = item->w / 2, low = 0.12f;
    m->material = STUFF_WHITE_LACQUER;
    shape_box(m, {-w, -0.02f, low}, {w, 0, item->h}, 0.004f);
    const int ribs = static_cast<int>(item->w / 0.1f);
    for (int i = 0; i < ribs; i++) {
        const float x = -w + item->w * (static_cast<float>(i) + 0.5f) / static_cast<float>(ribs);
        shape_board(m, {x - 0.03f, -0.005f, low + 0.02f}, {x + 0.03f, 0.035f, item->h - 0.02f});
    }
    shape_rod(m, {w - 0.03f, 0, 0}, {w - 0.03f, 0, low + 0.03f}, 0.01f, 5);
    shape_rod(m, {w + 0.02f, 0, low + 0.05f}, {w + 0.07f, 0, low + 0.05f}, 0.02f, 6);
}

void furniture_picture(furniture_work *work, const furniture_item *item)
{
    const stuff frames[3] = {STUFF_DARK_WOOD, STUFF_WHITE_LACQUER, STUFF_LIGHT_WOOD};
    const stuff inside = static_cast<stuff>(STUFF_PICTURE_A + static_cast<int>(item->heading) % 3);
    on_wall(&work->solid, item->w, item->h, frames[scene_next(&work->random) % 3], inside);
}

void furniture_poster(furniture_work *work, const furniture_item *item)
{
    work->solid.material = STUFF_POSTER;
    const float w = item->w / 2;
    shape_picture(&work->solid, {w, 0.004f, 0}, {-w, 0.004f, 0}, {-w, 0.004f, item->h}, {w, 0.004f, item->h});
}

void furniture_mirror(furniture_work *work, const furniture_item *item)
{
    on_wall(&work->solid, item->w, item->h, STUFF_LIGHT_WOOD, STUFF_MIRROR);
}

void furniture_clock(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const scene_place kept = m->place;
    // Turned on its back: its own z looks into the room.
    m->place = {kept.x, kept.z * -1, kept.y, kept.origin};
    m->material = STUFF_BLACK_PLASTIC;
    shape_cylinder(m, {0, 0, 0}, item->w / 2, 0.03f, 18);
    m->material = STUFF_PAPER;
    shape_cylinder(m, {0, 0, 0.01f}, item->w / 2 - 0.015f, 0.022f, 18);
    m->material = STUFF_BLACK_PLASTIC;
    shape_box(m, {-0.006f, -0.01f, 0.032f}, {0.006f, item->w * 0.36f, 0.035f});
    shape_box(m, {-0.01f, -0.006f, 0.032f}, {item->w * 0.26f, 0.006f, 0.035f});
    m->place = kept;
}

// A rail of hooks; a scarf and a bag hang there, the coat is a thing of its own.
void furniture_hooks(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const float w = item->w / 2;
    m->material = STUFF_WOOD;
    shape_box(m, {-w, 0, -0.05f}, {w, 0.02f, 0.05f}, 0.005f);
    m->material = STUFF_METAL;
    const int hooks = std::max(2, static_cast<int>(item->w / 0.2f));
    for (int i = 0; i < hooks; i++) {
        const float x = -w + item->w * (static_cast<float>(i) + 0.5f) / static_cast<float>(hooks);
        shape_rod(m, {x, 0.01f, -0.01f}, {x, 0.07f, 0.015f}, 0.007f, 5);
    }
    const float first = -w + item->w * 0.5f / static_cast<float>(hooks), last = -first;
    m->material = STUFF_SCARF;
    shape_box(m, {first - 0.05f, 0.02f, -0.62f}, {first + 0.04f, 0.055f, -0.01f}, 0.015f);
    m->material = STUFF_WICKER;
    shape_cushion(m, {last, 0.08f, -0.42f}, {0.16f, 0.06f, 0.15f}, 0.5f, 12, 6);
    shape_rod(m, {last - 0.1f, 0.06f, -0.3f}, {last, 0.05f, 0.01f}, 0.008f, 4);
    shape_rod(m, {last + 0.1f, 0.06f, -0.3f}, {last, 0.05f, 0.01f}, 0.008f, 4);
}

void furniture_cups(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    scene_random *r = &work->random;
    const float w = item->w / 2, d = item->d / 2;
    m->material = STUFF_CERAMIC;
    const shape_ring bowl[4] = {{0, 0}, {0.05f, 0}, {0.1f, 0.06f}, {0.095f, 0.06f}};
    shape_turned(m, {scene_uniform(r, -0.3f, 0.3f) * w, 0, 0}, bowl, 4, 12, false);
    shape_cylinder(m, {-w * 0.8f, scene_uniform(r, -d, d), 0}, 0.04f, 0.09f, 10);
    m->material = STUFF_TOY_BLUE;
    shape_cylinder(m, {-w * 0.5f, scene_uniform(r, -d, d), 0}, 0.04f, 0.1f, 10);
    m->material = STUFF_BOOK_D;
    const shape_ring bottle[5] = {{0.037f, 0}, {0.037f, 0.17f}, {0.014f, 0.24f}, {0.014f, 0.3f}, {0, 0.3f}};
    shape_turned(m, {w * 0.7f, scene_uniform(r, -d, d), 0}, bottle, 5, 10, false);
    m->material = STUFF_TOY_RED; // apples
    for (int i = 0; i < 2; i++)
        shape_ball(m, {scene_uniform(r, 0.1f, 0.5f) * w, scene_uniform(r, -d, d), 0.035f},
                   {.038f, .038f, .035f}, 6, 4);
}

void furniture_books(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const scene_place kept = m->place;
    float z = 0;
    for (int i = 0; i < 3; i++) {
        const scene_place own = scene_standing({0, 0, z}, scene_uniform(&work->random, -25, 25));
        m->place = {scene_turn(kept, own.x), scene_turn(kept, own.y), own.z, scene_put(kept, own.origin)};
        m->material = STUFF_BOOK_A + static_cast<uint32_t>(scene_next(&work->random) % 5);
        const float size = 1 - 0.12f * static_cast<float>(i);
        shape_box(m, {-item->w / 2 * size, -item->d / 2 * size, 0},
                  {item->w / 2 * size, item->d / 2 * size, 0.028f});
        z += 0.029f;
    }
    m->place = kept;
}

void furniture_toys(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    scene_random *r = &work->random;
    const stuff colours[4] = {STUFF_TOY_RED, STUFF_TOY_YELLOW, STUFF_TOY_BLUE, STUFF_TOY_GREEN};
    const float w = item->w / 2, d = item->d / 2;
    for (int i = 0; i < 9; i++) { // blocks, some on others
        const float x = scene_uniform(r, -w, w - 0.06f), y = scene_uniform(r, -d, d - 0.06f);
        m->material = colours[i % 4];
        shape_box(m, {x, y, 0}, {x + 0.055f, y + 0.055f, 0.055f}, i < 3 ? 0.004f : 0);
        if (i % 3 == 0) {
            m->material = colours[(i + 1) % 4];
            shape_box(m, {x + 0.01f, y, 0.055f}, {x + 0.065f, y + 0.055f, 0.11f});
        }
    }
    m->material = STUFF_TOY_YELLOW; // a truck
    shape_box(m, {-0.16f, -0.07f, 0.05f}, {0.02f, 0.07f, 0.14f}, 0.01f);
    m->material = STUFF_TOY_RED;
    shape_box(m, {0.03f, -0.065f, 0.05f}, {0.13f, 0.065f, 0.17f}, 0.015f);
    m->material = STUFF_BLACK_PLASTIC;
    for (int i = 0; i < 4; i++) {
        const float x = i & 1 ? 0.07f : -0.1f, y = i & 2 ? 0.05f : -0.08f;
        shape_rod(m, {x, y, 0.04f}, {x, y + 0.03f, 0.04f}, 0.04f, 8);
    }
}

// A plush bear that sits.
void furniture_bear(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const float s = item->h;
    m->material = STUFF_PLUSH;
    shape_ball(m, {0, 0, s * 0.28f}, {s * 0.22f, s * 0.2f, s * 0.28f}, 10, 6);
    shape_ball(m, {0, s * 0.03f, s * 0.68f}, {s * 0.19f, s * 0.18f, s * 0.18f}, 10, 6);
    shape_ball(m, {0, s * 0.19f, s * 0.63f}, {s * 0.09f, s * 0.09f, s * 0.07f}, 8, 4);
    for (int side = -1; side <= 1; side += 2) {
        const float x = static_cast<float>(side);
        shape_ball(m, {x * s * 0.15f, 0, s * 0.84f}, {s * 0.07f, s * 0.04f, s * 0.07f}, 8, 4);
        shape_ball(m, {x * s * 0.24f, s * 0.1f, s * 0.36f}, {s * 0.08f, s * 0.15f, s * 0.08f}, 8, 4);
        shape_ball(m, {x * s * 0.17f, s * 0.26f, s * 0.1f}, {s * 0.1f, s * 0.2f, s * 0.1f}, 8, 4);
    }
}

void furniture_board(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    scene_random *r = &work->random;
    const float w = item->w / 2;
    m->material = STUFF_METAL;
    shape_box(m, {-w, 0, 0}, {w, 0.02f, item->h}, 0.005f);
    shape_box(m, {-w * 0.5f, 0.02f, -0.02f}, {w * 0.5f, 0.08f, 0}, 0.003f);
    m->material = STUFF_CERAMIC;
    shape_box(m, {-w + 0.02f, 0.01f, 0.02f}, {w - 0.02f, 0.022f, item->h - 0.02f});
    for (int i = 0; i < 9; i++) { // lines of writing and notes
        const float x = scene_uniform(r, -w + 0.06f, w - 0.4f), z = scene_uniform(r, 0.1f, item->h - 0.12f);
        m->material = i < 6 ? STUFF_BOOK_B : STUFF_TOY_YELLOW;
        const float wide = i < 6 ? scene_uniform(r, 0.1f, 0.32f) : 0.076f, tall = i < 6 ? 0.008f : 0.076f;
        shape_quad(m, {x + wide, 0.0232f, z}, {x, 0.0232f, z}, {x, 0.0232f, z + tall},
                   {x + wide, 0.0232f, z + tall});
    }
}

void furniture_shoes(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    scene_random *r = &work->random;
    const stuff colours[3] = {STUFF_BLACK_PLASTIC, STUFF_PLUSH, STUFF_PAPER};
    const int pairs = std::max(1, static_cast<int>(item->w / 0.28f));
    for (int i = 0; i < pairs * 2; i++) {
        const float x = -item->w / 2 + 0.07f + 0.14f * static_cast<float>(i) / 1.1f;
        const float y = scene_uniform(r, -0.03f, 0.03f);
        m->material = colours[i / 2 % 3];
        const shape_section shoe[4] = {{{x, y - 0.12f, 0.045f}, 0.03f, 0.045f},
                                       {{x, y - 0.05f, 0.045f}, 0.038f, 0.045f},
                                       {{x, y + 0.05f, 0.032f}, 0.045f, 0.032f},
                                       {{x, y + 0.13f, 0.022f}, 0.034f, 0.022f}};
        shape_tube(m, shoe, 4, {0, 0, 1}, 7);
    }
}

void furniture_switch(furniture_work *work, const furniture_item *item)
{
    work->solid.material = STUFF_WHITE_PLASTIC;
    shape_box(&work->solid, {-0.04f, 0, 0}, {0.04f, 0.012f, item->h}, 0.004f);
}

void furniture_printer(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const float w = item->w / 2, d = item->d / 2;
    m->material = STUFF_GREY_PLASTIC;
    shape_box(m, {-w, -d, 0}, {w, d, item->h}, 0.02f);
    m->material = STUFF_BLACK_PLASTIC;
    shape_box(m, {-w + 0.04f, d - 0.05f, item->h * 0.35f}, {w - 0.04f, d + 0.003f, item->h * 0.6f});
    m->material = STUFF_PAPER;
    shape_box(m, {-0.105f, d - 0.05f, item->h * 0.36f}, {0.105f, d + 0.12f, item->h * 0.37f + 0.01f});
}

void furniture_door(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const scene_place kept = m->place;
    m->place.origin = scene_put(kept, {-item->w / 2, 0, 0}); // from its side: a wooden leaf is one board
    const float w = item->w, h = item->h;
    m->material = STUFF_WHITE_LACQUER;
    shape_box(m, {-0.07f, 0, 0}, {0, 0.025f, h + 0.07f});
    shape_box(m, {w, 0, 0}, {w + 0.07f, 0.025f, h + 0.07f});
    shape_box(m, {0, 0, h}, {w, 0.025f, h + 0.07f});
    m->material = STUFF_DOOR;
    shape_board(m, {0, 0, 0.005f}, {w, 0.008f, h});
    shape_box(m, {0.12f, 0.006f, 0.15f}, {w - 0.12f, 0.016f, 0.85f}, 0.005f);
    shape_box(m, {0.12f, 0.006f, 1.1f}, {w - 0.12f, 0.016f, h - 0.15f}, 0.005f);
    m->material = STUFF_METAL;
    shape_rod(m, {w - 0.06f, 0.008f, 1.05f}, {w - 0.06f, 0.06f, 1.05f}, 0.01f, 5);
    shape_rod(m, {w - 0.06f, 0.055f, 1.05f}, {w - 0.18f, 0.055f, 1.05f}, 0.01f, 5);
    m->place = kept;
}

// Trousers, a shirt and a jumper as they came off.
void furniture_clothes(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    scene_random *r = &work->random;
    const stuff cloth[3] = {STUFF_COAT, STUFF_SHEET, STUFF_CHAIR_CLOTH};
    float z = 0;
    for (int i = 0; i < 3; i++) {
        const scene_place kept = m->place;
        const float size = 1 - 0.2f * static_cast<float>(i), thick = scene_uniform(r, 0.03f, 0.05f);
        const float x = scene_uniform(r, -0.1f, 0.1f) * item->w, y = scene_uniform(r, -0.1f, 0.1f) * item->d;
        const scene_place own = scene_standing({x, y, z + thick}, scene_uniform(r, -60, 60));
        m->place = {scene_turn(kept, own.x), scene_turn(kept, own.y), own.z, scene_put(kept, own.origin)};
        m->material = cloth[i];
        shape_cushion(m, {0, 0, 0}, {item->w * 0.42f * size, item->d * 0.36f * size, thick}, 0.7f, 10, 5);
        shape_cushion(m, {item->w * 0.2f * size, item->d * 0.15f, -thick * 0.1f},
                      {item->w * 0.24f * size, item->d * 0.2f * size, thick * 0.85f}, 0.9f, 8, 4);
        m->place = kept;
        z += thick * 1.1f;
    }
}
