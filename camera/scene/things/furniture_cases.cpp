// Tables, cupboards, shelves and the kitchen: what is made of boards.
#include "furniture.h"

#include <algorithm>

namespace
{
// Doors or drawers on the front of a case, with gaps between and a handle each.
void fronts(shape_maker *m, float w, float y, float low, float high, int across, int up, stuff front,
            bool side)
{
    const float dx = w / static_cast<float>(across), dz = (high - low) / static_cast<float>(up);
    for (int j = 0; j < up; j++) {
        for (int i = 0; i < across; i++) {
            const float x = -w / 2 + dx * static_cast<float>(i), z = low + dz * static_cast<float>(j);
            m->material = front;
            shape_board(m, {x + 0.004f, y - 0.004f, z + 0.004f},
                        {x + dx - 0.004f, y + 0.016f, z + dz - 0.004f});
            m->material = STUFF_METAL;
            if (side) { // a door: the handle at the side where it opens
                const float at = i % 2 == 0 ? x + dx - 0.05f : x + 0.035f;
                shape_box(m, {at, y + 0.016f, z + dz * 0.45f}, {at + 0.015f, y + 0.04f, z + dz * 0.58f});
            } else {
                shape_box(m, {x + dx / 2 - 0.06f, y + 0.016f, z + dz - 0.06f},
                          {x + dx / 2 + 0.06f, y + 0.036f, z + dz - 0.045f});
            }
        }
    }
}

// A row of books from x to `end`, standing on z, their backs at y.
void books(furniture_work *work, float x, float end, float y, float z, float room)
{
    shape_maker *m = &work->solid;
    scene_random *r = &work->random;
    while (x < end) {
        const float thick = scene_uniform(r, 0.026f, 0.07f),
                    tall = std::min(room, scene_uniform(r, 0.17f, 0.29f)),
                    deep = scene_uniform(r, 0.13f, 0.2f);
        if (x + thick > end)
            break;
        m->material = STUFF_BOOK_A + static_cast<uint32_t>(scene_next(r) % 5);
        shape_board(m, {x, y, z}, {x + thick - 0.002f, y + deep, z + tall});
        x += thick;
        if (scene_chance(r, 0.08f)) // a gap where one was taken out
            x += scene_uniform(r, 0.03f, 0.12f);
    }
}
} // namespace

void furniture_table(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const float w = item->w / 2, d = item->d / 2, leg = item->h > 0.6f ? 0.06f : 0.045f;
    m->material = STUFF_WOOD;
    for (int i = 0; i < 4; i++) {
        const float x = i & 1 ? w - 0.04f - leg : -w + 0.04f, y = i & 2 ? d - 0.04f - leg : -d + 0.04f;
        shape_box(m, {x, y, 0}, {x + leg, y + leg, item->h - 0.03f}, 0.008f);
    }
    shape_box(m, {-w + 0.06f, -d + 0.06f, item->h - 0.1f}, {w - 0.06f, d - 0.06f, item->h - 0.03f});
    shape_box(m, {-w, -d, item->h - 0.035f}, {w, d, item->h}, 0.012f);
    if (item->h < 0.6f) // a low one has a board for magazines
        shape_box(m, {-w + 0.06f, -d + 0.06f, 0.14f}, {w - 0.06f, d - 0.06f, 0.16f});
}

void furniture_desk(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const float w = item->w / 2, d = item->d / 2;
    m->material = STUFF_LIGHT_WOOD;
    shape_box(m, {-w, -d, item->h - 0.03f}, {w, d, item->h}, 0.008f);
    shape_box(m, {-w + 0.02f, -d + 0.02f, 0}, {-w + 0.045f, d - 0.03f, item->h - 0.03f});
    shape_box(m, {-w + 0.03f, -d + 0.02f, 0.3f}, {w - 0.45f, -d + 0.04f, item->h - 0.03f});
    const scene_place kept = m->place;
    m->place.origin = scene_put(kept, {w - 0.24f, 0, 0});
    shape_box(m, {-0.21f, -d + 0.02f, 0.02f}, {0.21f, d - 0.05f, item->h - 0.03f}, 0.004f);
    fronts(m, 0.42f, d - 0.05f, 0.05f, item->h - 0.05f, 1, 3, STUFF_LIGHT_WOOD, false);
    m->place = kept;
}

void furniture_drawers(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const float w = item->w / 2, d = item->d / 2;
    m->material = STUFF_WOOD;
    shape_box(m, {-w, -d, 0.05f}, {w, d - 0.02f, item->h}, 0.01f);
    const int up = std::max(1, static_cast<int>(item->h / 0.22f));
    fronts(m, item->w - 0.04f, d - 0.02f, 0.08f, item->h - 0.03f, item->w > 0.9f ? 2 : 1, up, STUFF_WOOD,
           false);
}

void furniture_wardrobe(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const float w = item->w / 2, d = item->d / 2;
    m->material = STUFF_LIGHT_WOOD;
    shape_box(m, {-w, -d, 0}, {w, d - 0.02f, item->h}, 0.008f);
    shape_box(m, {-w - 0.015f, -d, item->h - 0.01f}, {w + 0.015f, d + 0.015f, item->h + 0.025f}, 0.006f);
    fronts(m, item->w - 0.02f, d - 0.02f, 0.08f, item->h - 0.02f,
           std::max(2, static_cast<int>(item->w / 0.5f)), 1, STUFF_LIGHT_WOOD, true);
    // What found no place inside lies on top.
    m->material = STUFF_CARDBOARD;
    shape_box(m, {-w + 0.1f, -d + 0.1f, item->h + 0.02f}, {-w + 0.55f, d - 0.1f, item->h + 0.24f}, 0.006f);
    m->material = STUFF_GREY_PLASTIC;
    shape_box(m, {w - 0.5f, -d + 0.08f, item->h + 0.02f}, {w - 0.06f, d - 0.08f, item->h + 0.17f}, 0.03f);
}

void furniture_bookcase(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    scene_random *r = &work->random;
    const float w = item->w / 2, d = item->d / 2;
    const stuff wood = STUFF_WOOD;
    m->material = wood;
    shape_box(m, {-w, -d, 0}, {-w + 0.022f, d, item->h});
    shape_box(m, {w - 0.022f, -d, 0}, {w, d, item->h});
    shape_box(m, {-w, -d, 0}, {w, -d + 0.008f, item->h});
    const int shelves = std::max(2, static_cast<int>(item->h / 0.36f));
    const float each = (item->h - 0.07f) / static_cast<float>(shelves);
    for (int i = 0; i <= shelves; i++) {
        const float z = 0.05f + each * static_cast<float>(i);
        m->material = wood;
        shape_box(m, {-w + 0.02f, -d, z}, {w - 0.02f, d - 0.005f, z + 0.02f});
        if (i == shelves)
            break;
        const float start = -w + 0.03f, end = w - 0.03f, split = scene_uniform(r, 0.4f, 0.95f);
        books(work, start, start + (end - start) * split, -d + 0.03f, z + 0.02f, each - 0.04f);
        const float from = start + (end - start) * split + 0.05f;
        if (end - from > 0.16f) { // what else stands on shelves
            const float x = (from + end) / 2;
            switch (scene_next(r) % 3) {
            case 0: {
                m->material = STUFF_CERAMIC;
                const shape_ring vase[6] = {{0, 0},         {0.045f, 0},     {0.07f, 0.07f},
                                            {0.04f, 0.15f}, {0.025f, 0.18f}, {0.035f, 0.21f}};
                shape_turned(m, {x, 0, z + 0.02f}, vase, 6, 10, true);
                break;
            }
            case 1:
                m->material = STUFF_CARDBOARD;
                shape_box(m, {from, -d + 0.04f, z + 0.02f}, {end, d - 0.04f, z + 0.2f}, 0.006f);
                break;
            default: // books that lie
                for (int k = 0; k < 3; k++) {
                    m->material = STUFF_BOOK_A + static_cast<uint32_t>(scene_next(r) % 5);
                    const float low = z + 0.02f + 0.03f * static_cast<float>(k);
                    shape_box(m, {from, -d + 0.05f, low},
                              {end - 0.01f * static_cast<float>(k), d - 0.05f, low + 0.028f});
                }
            }
        }
    }
}

void furniture_sideboard(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const float w = item->w / 2, d = item->d / 2;
    m->material = STUFF_WOOD;
    for (int i = 0; i < 4; i++) {
        const float x = i & 1 ? w - 0.1f : -w + 0.06f, y = i & 2 ? d - 0.1f : -d + 0.06f;
        shape_rod(m, {x, y, 0}, {x, y, 0.14f}, 0.018f, 6);
    }
    shape_box(m, {-w, -d, 0.13f}, {w, d - 0.018f, item->h}, 0.01f);
    fronts(m, item->w - 0.04f, d - 0.018f, 0.15f, item->h - 0.03f, 3, 1, STUFF_WOOD, true);
}

void furniture_wall_shelf(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const float w = item->w / 2, d = item->d / 2;
    m->material = STUFF_WOOD;
    shape_box(m, {-w, -d, 0}, {w, d, 0.025f}, 0.004f);
    books(work, -w + 0.02f, w * 0.4f, -d + 0.01f, 0.025f, 0.3f);
    m->material = STUFF_POT;
    shape_cylinder(m, {w * 0.75f, 0, 0.025f}, 0.05f, 0.09f, 10);
}

void furniture_base_unit(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const float w = item->w / 2, d = item->d / 2;
    m->material = STUFF_DARK_METAL;
    shape_box(m, {-w, -d, 0}, {w, d - 0.07f, 0.1f});
    m->material = STUFF_CABINET;
    shape_box(m, {-w, -d, 0.1f}, {w, d - 0.03f, item->h - 0.04f});
    fronts(m, item->w, d - 0.03f, 0.1f, item->h - 0.05f, std::max(1, static_cast<int>(item->w / 0.5f + 0.5f)),
           1, STUFF_CABINET, true);
    m->material = STUFF_WORKTOP;
    shape_box(m, {-w, -d, item->h - 0.04f}, {w, d, item->h}, 0.006f);
    m->material = STUFF_WALL_TILES;
    shape_quad(m, {w, -d + 0.006f, item->h}, {-w, -d + 0.006f, item->h}, {-w, -d + 0.006f, item->h + 0.56f},
               {w, -d + 0.006f, item->h + 0.56f});
}

void furniture_wall_unit(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const float w = item->w / 2, d = item->d / 2;
    m->material = STUFF_CABINET;
    shape_box(m, {-w, -d, 0}, {w, d - 0.02f, item->h});
    fronts(m, item->w, d - 0.02f, 0.005f, item->h - 0.005f,
           std::max(1, static_cast<int>(item->w / 0.5f + 0.5f)), 1, STUFF_CABINET, true);
}

// Set into a worktop: z is the worktop's height.
void furniture_sink(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const float w = item->w / 2, d = item->d / 2;
    m->material = STUFF_METAL;
    shape_box(m, {-w, -d, 0.001f}, {w, d, 0.01f}, 0.004f);
    m->material = STUFF_DARK_METAL;
    shape_quad(m, {-w + 0.04f, -d + 0.06f, 0.0115f}, {0.06f, -d + 0.06f, 0.0115f},
               {0.06f, d - 0.04f, 0.0115f}, {-w + 0.04f, d - 0.04f, 0.0115f});
    m->material = STUFF_CHROME;
    const shape_section tap[5] = {{{-0.1f, -d + 0.03f, 0}, 0.014f, 0.014f},
                                  {{-0.1f, -d + 0.03f, 0.22f}, 0.012f, 0.012f},
                                  {{-0.1f, -d + 0.07f, 0.28f}, 0.012f, 0.012f},
                                  {{-0.1f, -d + 0.15f, 0.28f}, 0.012f, 0.012f},
                                  {{-0.1f, -d + 0.18f, 0.24f}, 0.011f, 0.011f}};
    shape_tube(m, tap, 5, {1, 0, 0}, 6);
    m->material = STUFF_WHITE_PLASTIC; // washing-up liquid
    shape_cylinder(m, {0.1f, -d + 0.03f, 0}, 0.03f, 0.2f, 8);
    m->material = STUFF_CERAMIC; // plates that dry
    for (int i = 0; i < 3; i++)
        shape_cylinder(m, {0.2f, 0.02f, 0.012f + 0.02f * static_cast<float>(i)}, 0.11f, 0.016f, 12);
}

void furniture_stove(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const float w = item->w / 2, d = item->d / 2;
    m->material = STUFF_METAL;
    shape_box(m, {-w + 0.003f, -d, 0}, {w - 0.003f, d - 0.02f, item->h - 0.005f}, 0.005f);
    m->material = STUFF_GLASS_DARK;
    shape_box(m, {-w + 0.01f, -d + 0.02f, item->h - 0.006f}, {w - 0.01f, d - 0.02f, item->h + 0.004f});
    shape_box(m, {-w + 0.04f, d - 0.03f, 0.2f}, {w - 0.04f, d - 0.012f, item->h - 0.22f}, 0.004f);
    m->material = STUFF_CHROME;
    shape_rod(m, {-w + 0.05f, d + 0.015f, item->h - 0.2f}, {w - 0.05f, d + 0.015f, item->h - 0.2f}, 0.01f, 6);
    m->material = STUFF_BLACK_PLASTIC;
    for (int i = 0; i < 5; i++)
        shape_rod(m, {-0.2f + 0.1f * static_cast<float>(i), d - 0.03f, item->h - 0.08f},
                  {-0.2f + 0.1f * static_cast<float>(i), d, item->h - 0.08f}, 0.018f, 6);
    m->material = STUFF_CHROME; // a pot
    const shape_ring pot[5] = {{0, 0}, {0.1f, 0}, {0.105f, 0.13f}, {0.09f, 0.14f}, {0, 0.155f}};
    shape_turned(m, {-0.12f, 0.1f, item->h + 0.004f}, pot, 5, 14, false);
    m->material = STUFF_BLACK_PLASTIC; // a pan
    const shape_ring pan[3] = {{0, 0}, {0.1f, 0}, {0.125f, 0.045f}};
    shape_turned(m, {0.13f, -0.12f, item->h + 0.004f}, pan, 3, 14, false);
    shape_rod(m, {0.2f, -0.02f, item->h + 0.045f}, {0.3f, 0.14f, item->h + 0.06f}, 0.012f, 5);
}

void furniture_hood(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const float w = item->w / 2, d = item->d / 2;
    m->material = STUFF_METAL;
    shape_box(m, {-w, -d, 0}, {w, d, 0.06f}, 0.004f);
    shape_box(m, {-0.13f, -d, 0.06f}, {0.13f, -d + 0.26f, item->h}, 0.004f);
}

void furniture_fridge(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const float w = item->w / 2, d = item->d / 2, split = item->h * 0.36f;
    m->material = STUFF_METAL;
    shape_box(m, {-w, -d, 0.03f}, {w, d - 0.05f, item->h}, 0.01f);
    shape_box(m, {-w, d - 0.045f, 0.05f}, {w, d, split - 0.005f}, 0.015f);
    shape_box(m, {-w, d - 0.045f, split + 0.005f}, {w, d, item->h}, 0.015f);
    m->material = STUFF_CHROME;
    shape_rod(m, {-w + 0.05f, d + 0.035f, split + 0.06f}, {-w + 0.05f, d + 0.035f, split + 0.5f}, 0.011f, 6);
    shape_rod(m, {-w + 0.05f, d + 0.035f, split - 0.4f}, {-w + 0.05f, d + 0.035f, split - 0.06f}, 0.011f, 6);
    scene_random *r = &work->random; // notes and magnets
    for (int i = 0; i < 4; i++) {
        m->material = i % 2 == 0 ? STUFF_PAPER : STUFF_TOY_YELLOW;
        const float x = scene_uniform(r, -w + 0.14f, w - 0.2f),
                    z = scene_uniform(r, split + 0.3f, item->h - 0.25f);
        shape_box(m, {x, d, z},
                  {x + scene_uniform(r, 0.05f, 0.14f), d + 0.003f, z + scene_uniform(r, 0.06f, 0.18f)});
    }
    m->material = STUFF_CARDBOARD;
    shape_box(m, {-0.2f, -d + 0.1f, item->h}, {0.12f, d - 0.15f, item->h + 0.16f}, 0.005f);
}

void furniture_basket(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    m->material = STUFF_WICKER;
    const shape_ring side[3] = {
        {item->w * 0.4f, 0}, {item->w * 0.48f, item->h * 0.6f}, {item->w * 0.5f, item->h}};
    shape_turned(m, {0, 0, 0}, side, 3, 12, true);
    m->material = STUFF_SHEET; // laundry
    shape_cushion(m, {0.02f, 0, item->h - 0.05f}, {item->w * 0.43f, item->w * 0.4f, 0.12f}, 0.8f, 10, 5);
    m->material = STUFF_BOOK_B;
    shape_cushion(m, {-0.06f, 0.05f, item->h}, {item->w * 0.25f, item->w * 0.3f, 0.1f}, 0.7f, 8, 5);
}

void furniture_bin(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    m->material = STUFF_GREY_PLASTIC;
    const shape_ring side[3] = {{item->w * 0.4f, 0}, {item->w * 0.5f, item->h}, {item->w * 0.46f, item->h}};
    shape_turned(m, {0, 0, 0}, side, 3, 14, false);
    m->material = STUFF_PAPER;
    shape_ball(m, {0, 0, item->h - 0.06f}, {item->w * 0.4f, item->w * 0.4f, 0.07f}, 8, 4);
}

void furniture_boxes(furniture_work *work, const furniture_item *item)
{
    shape_maker *m = &work->solid;
    const float w = item->w / 2, d = item->d / 2;
    m->material = STUFF_CARDBOARD;
    shape_box(m, {-w, -d, 0}, {w, d, item->h * 0.6f}, 0.004f);
    const scene_place kept = m->place;
    const scene_place own = scene_standing({0.02f, 0, item->h * 0.6f}, scene_uniform(&work->random, -20, 20));
    m->place = {scene_turn(kept, own.x), scene_turn(kept, own.y), own.z, scene_put(kept, own.origin)};
    shape_box(m, {-w * 0.7f, -d * 0.75f, 0}, {w * 0.7f, d * 0.75f, item->h * 0.4f}, 0.004f);
    m->material = STUFF_WICKER; // parcel tape
    shape_box(m, {-w * 0.08f, -d * 0.76f, 0.02f}, {w * 0.08f, d * 0.76f, item->h * 0.4f + 0.002f});
    m->place = kept;
}
