// The rooms: sound meshes, places where people can be, and what moves in them.
#include "room_plan.h"

#include "mesh_checks.h"

#include <string>

namespace
{
struct held {
    room *r;
    explicit held(const char *name, uint32_t seed = 1) : r(room_make(name, seed)) {}
    ~held() { room_free(r); }
};
typedef void each_room(const room *room, const char *name);
void for_each_room(each_room *check)
{
    for (int i = 0; room_name(i); i++) {
        held made(room_name(i), static_cast<uint32_t>(i));
        check(made.r, room_name(i));
    }
}
room_anchor found(const room *room, const std::string &name)
{
    room_anchor anchor = {};
    EXPECT_TRUE(room_find(room, name.c_str(), &anchor)) << name;
    return anchor;
}
// A spot of 0.22 m radius, for a person who squeezes by.
const float BODY = 0.22f, STEP = 0.05f;

// All spots of a coarse grid that can be walked to from a place.
struct walked {
    int wide, deep;
    float low_x, low_y;
    std::vector<bool> reached;
    bool at(float x, float y) const
    {
        const int i = static_cast<int>(lroundf((x - low_x) / STEP)),
                  j = static_cast<int>(lroundf((y - low_y) / STEP));
        // Within a step: anchors do not stand on the grid.
        for (int dj = -1; dj <= 1; dj++)
            for (int di = -1; di <= 1; di++)
                if (i + di >= 0 && j + dj >= 0 && i + di < wide && j + dj < deep &&
                    reached[static_cast<size_t>((j + dj) * wide + i + di)])
                    return true;
        return false;
    }
};
walked walk(const room *room, float x, float y)
{
    const scene_vec size = room_size(room);
    walked w;
    w.low_x = w.low_y = -2;
    w.wide = static_cast<int>((size.x + 4) / STEP);
    w.deep = static_cast<int>((size.y + 4) / STEP);
    w.reached.assign(static_cast<size_t>(w.wide * w.deep), false);
    std::vector<int> open = {static_cast<int>(lroundf((y - w.low_y) / STEP)) * w.wide +
                             static_cast<int>(lroundf((x - w.low_x) / STEP))};
    while (!open.empty()) {
        const int at = open.back(), i = at % w.wide, j = at / w.wide;
        open.pop_back();
        if (i <= 0 || j <= 0 || i >= w.wide - 1 || j >= w.deep - 1 || w.reached[static_cast<size_t>(at)] ||
            !room_free_spot(room, w.low_x + STEP * static_cast<float>(i),
                            w.low_y + STEP * static_cast<float>(j), BODY))
            continue;
        w.reached[static_cast<size_t>(at)] = true;
        open.insert(open.end(), {at - 1, at + 1, at - w.wide, at + w.wide});
    }
    return w;
}
} // namespace

TEST(rooms, six_are_built_in_and_no_others)
{
    const char *names[] = {"living-room", "bedroom", "office", "hall", "kitchen", "nursery"};
    for (int i = 0; i < 6; i++)
        EXPECT_STREQ(room_name(i), names[i]);
    EXPECT_EQ(room_name(6), nullptr);
    EXPECT_EQ(room_name(-1), nullptr);
    EXPECT_EQ(room_make("cellar", 1), nullptr);
    EXPECT_EQ(room_make("", 1), nullptr);
}

TEST(rooms, they_are_as_large_as_rooms_are)
{
    for_each_room([](const room *room, const char *name) {
        const scene_vec size = room_size(room);
        EXPECT_GE(size.x, 2) << name;
        EXPECT_LE(size.x, 9) << name;
        EXPECT_GE(size.y, 4) << name;
        EXPECT_LE(size.y, 9) << name;
        EXPECT_GE(size.z, 2.4f) << name;
    });
    held hall("hall");
    EXPECT_GE(room_size(hall.r).y, 8);
}

TEST(rooms, meshes_are_sound_for_many_seeds)
{
    for (int i = 0; room_name(i); i++)
        for (uint32_t seed = 0; seed < 12; seed++) {
            held made(room_name(i), seed);
            room_state state;
            state.wind = 1;
            scene_snapshot snapshot;
            room_snapshot(made.r, &state, &snapshot);
            size_t triangles = 0;
            for (const scene_object &object : snapshot.objects) {
                expect_sound(*object.mesh, object.materials->size(), room_name(i));
                expect_facing(*object.mesh, 0.002f, room_name(i));
                EXPECT_EQ(object.actor, 0u);
                triangles += object.mesh->indices.size() / 3;
            }
            EXPECT_LE(triangles, 8000u) << room_name(i) << " seed " << seed;
            EXPECT_GE(triangles, 3000u) << room_name(i);
        }
}

TEST(rooms, what_stands_in_it_stays_between_its_walls)
{
    for_each_room([](const room *room, const char *name) {
        const mesh_box box = box_of(room->solid);
        const scene_vec size = room_size(room);
        const float wall = WALL_THICK + 0.001f;
        EXPECT_GE(box.low.x, -wall) << name;
        EXPECT_GE(box.low.y, -wall) << name;
        EXPECT_GE(box.low.z, -0.003f) << name; // feet of legs that lean
        EXPECT_LE(box.high.x, size.x + wall) << name;
        EXPECT_LE(box.high.y, size.y + wall) << name;
        EXPECT_LE(box.high.z, size.z + 0.001f) << name;
    });
}

TEST(rooms, furniture_does_not_stand_in_furniture)
{
    for_each_room([](const room *room, const char *name) {
        for (size_t i = 0; i < room->footprints.size(); i++)
            for (size_t j = 0; j < room->footprints.size(); j++) {
                if (i == j)
                    continue;
                // No point of one's grid lies more than a hand deep in the other.
                const room_footprint &one = room->footprints[i], &other = room->footprints[j];
                for (float u = -1; u <= 1; u += 0.25f)
                    for (float v = -1; v <= 1; v += 0.25f) {
                        const scene_vec at =
                            scene_put(one.place, {u * one.w, v * one.d, 0}) - other.place.origin;
                        EXPECT_FALSE(fabsf(scene_dot(at, other.place.x)) < other.w - 0.08f &&
                                     fabsf(scene_dot(at, other.place.y)) < other.d - 0.08f)
                            << name << " " << i << " in " << j;
                    }
            }
    });
}

TEST(rooms, the_same_seed_gives_the_same_room_and_others_other_colours)
{
    for (int i = 0; room_name(i); i++) {
        held one(room_name(i), 5), same(room_name(i), 5), other(room_name(i), 6);
        EXPECT_TRUE(same_mesh(one.r->solid, same.r->solid)) << room_name(i);
        EXPECT_TRUE(same_mesh(one.r->leaves, same.r->leaves)) << room_name(i);
        EXPECT_FALSE(same_mesh(one.r->solid, other.r->solid)) << room_name(i);
        bool colours = false;
        for (int k = 0; k < STUFFS; k++)
            colours = colours || one.r->materials[static_cast<size_t>(k)].first[1] !=
                                     other.r->materials[static_cast<size_t>(k)].first[1];
        EXPECT_TRUE(colours) << room_name(i);
        EXPECT_EQ(found(one.r, "door").position.x, found(other.r, "door").position.x);
    }
}

TEST(rooms, each_has_the_places_that_stories_need)
{
    for_each_room([](const room *room, const char *name) {
        for (const char *place : {"door", "door-outside", "floor", "far", "near", "window", "window-outside",
                                  "coat-hook", "ceiling-lamp", "table-lamp", "shelf", "corner"}) {
            room_anchor anchor;
            EXPECT_TRUE(room_find(room, place, &anchor)) << name << " " << place;
        }
        room_anchor untouched = {{7, 7, 7}, 7, 7};
        EXPECT_FALSE(room_find(room, "moon", &untouched));
        EXPECT_EQ(untouched.heading, 7);
        int count = 0;
        while (room_anchor_name(room, count))
            count++;
        EXPECT_GE(count, 15) << name;
        EXPECT_EQ(room_anchor_name(room, -1), nullptr);
    });
    held living("living-room");
    for (const char *place : {"sofa", "sofa-left", "sofa-right", "armchair", "chair", "table", "tv"})
        found(living.r, place);
    held bedroom("bedroom");
    found(bedroom.r, "bed");
    held office("office");
    found(office.r, "desk");
    found(office.r, "desk-chair");
}

TEST(rooms, people_can_stand_where_they_are_to_stand_and_walk_there_from_outside)
{
    for_each_room([](const room *room, const char *name) {
        const room_anchor outside = found(room, "door-outside");
        const walked all = walk(room, outside.position.x, outside.position.y);
        for (int i = 0; room_anchor_name(room, i); i++) {
            const std::string place = room_anchor_name(room, i);
            if (place == "shelf" || place == "corner" || place == "coat-hook" || place == "window-outside" ||
                place == "ceiling-lamp")
                continue;
            const room_anchor anchor = found(room, place);
            if (anchor.position.z > 0) { // seats and beds: beside them
                const room_anchor stand = found(room, place + "-stand");
                EXPECT_EQ(stand.position.z, 0) << name << " " << place;
                const scene_vec way = stand.position - anchor.position;
                EXPECT_LT(sqrtf(way.x * way.x + way.y * way.y), 1.35f) << name << " " << place;
                EXPECT_FALSE(room_free_spot(room, anchor.position.x, anchor.position.y, BODY))
                    << name << " " << place;
                continue;
            }
            EXPECT_TRUE(room_free_spot(room, anchor.position.x, anchor.position.y, BODY))
                << name << " " << place;
            EXPECT_TRUE(all.at(anchor.position.x, anchor.position.y)) << name << " " << place;
        }
    });
}

TEST(rooms, seats_are_as_high_as_seats_are)
{
    for_each_room([](const room *room, const char *name) {
        for (int i = 0; room_anchor_name(room, i); i++) {
            const std::string place = room_anchor_name(room, i);
            const room_anchor anchor = found(room, place);
            if (anchor.position.z == 0 || place == "shelf" || place == "corner" || place == "coat-hook" ||
                place == "window-outside")
                continue;
            EXPECT_GE(anchor.position.z, 0.43f) << name << " " << place;
            EXPECT_LE(anchor.position.z, 0.58f) << name << " " << place;
        }
    });
}

// Corners of a spot at three heights that a view of 96 degrees has in its picture of 5 to 3.
static bool in_view(const room_anchor &camera, scene_vec point)
{
    const float pan = camera.heading * static_cast<float>(M_PI / 180),
                tilt = camera.tilt * static_cast<float>(M_PI / 180);
    const scene_vec ahead = {cosf(tilt) * sinf(pan), cosf(tilt) * cosf(pan), sinf(tilt)},
                    right = {cosf(pan), -sinf(pan), 0}, up = scene_cross(right, ahead),
                    way = point - camera.position;
    const float deep = scene_dot(way, ahead), half = tanf(48 * static_cast<float>(M_PI / 180));
    return deep > 0.2f && fabsf(scene_dot(way, right)) < deep * half &&
           fabsf(scene_dot(way, up)) < deep * half * 0.6f;
}

TEST(rooms, both_camera_places_see_most_of_the_room)
{
    for_each_room([](const room *room, const char *name) {
        const scene_vec size = room_size(room);
        for (const char *place : {"shelf", "corner"}) {
            const room_anchor camera = found(room, place);
            EXPECT_GT(camera.position.x, 0) << name;
            EXPECT_LT(camera.position.x, size.x) << name;
            EXPECT_LT(camera.position.z, size.z) << name;
            EXPECT_LT(camera.tilt, 0) << name;
            int all = 0, seen = 0;
            for (float x = 0.3f; x < size.x; x += 0.2f)
                for (float y = 0.3f; y < size.y; y += 0.2f) {
                    all++;
                    seen += in_view(camera, {x, y, 1});
                }
            EXPECT_GT(seen, all * 6 / 10) << name << " " << place;
            EXPECT_TRUE(in_view(camera, found(room, "door").position + scene_vec{0, 0, 1}))
                << name << " " << place;
            EXPECT_TRUE(in_view(camera, found(room, "floor").position + scene_vec{0, 0, 1}))
                << name << " " << place;
        }
        EXPECT_GE(found(room, "shelf").position.z, 1.4f) << name;
        EXPECT_LE(found(room, "shelf").position.z, 1.8f) << name;
        EXPECT_GE(found(room, "corner").position.z, size.z - 0.25f) << name;
    });
}

TEST(rooms, nothing_stands_before_the_cameras)
{
    for (int i = 0; room_name(i); i++) {
        held made(room_name(i), 3);
        room_state state;
        scene_snapshot snapshot;
        room_snapshot(made.r, &state, &snapshot);
        for (const char *place : {"shelf", "corner"}) {
            const room_anchor camera = found(made.r, place);
            for (const scene_object &object : snapshot.objects)
                for (const scene_vertex &v : object.mesh->vertices) {
                    const scene_vec at = scene_put(object.place, v.position), way = at - camera.position;
                    if (in_view(camera, at)) {
                        EXPECT_GT(scene_length(way), 0.45f) << room_name(i) << " " << place;
                    }
                }
        }
    }
}

TEST(rooms, free_spots_keep_the_radius_from_walls_and_furniture)
{
    held living("living-room");
    const scene_vec size = room_size(living.r);
    EXPECT_TRUE(room_free_spot(living.r, size.x / 2, 0.31f, 0.3f));
    EXPECT_FALSE(room_free_spot(living.r, size.x / 2, 0.29f, 0.3f));
    EXPECT_FALSE(room_free_spot(living.r, size.x / 2, -1, 0.1f));
    EXPECT_FALSE(room_free_spot(living.r, size.x + 0.5f, 3, 0.1f));
    // The coffee table: its side is at x = 1.75 + 0.275.
    EXPECT_FALSE(room_free_spot(living.r, 1.75f, 2.6f, 0));
    EXPECT_FALSE(room_free_spot(living.r, 2.025f + 0.19f, 2.6f, 0.2f));
    EXPECT_TRUE(room_free_spot(living.r, 2.025f + 0.21f, 2.6f, 0.2f));
    // Beyond its corner the distance is measured across.
    EXPECT_TRUE(room_free_spot(living.r, 2.025f + 0.15f, 2.6f + 0.525f + 0.15f, 0.2f));
    EXPECT_FALSE(room_free_spot(living.r, 2.025f + 0.13f, 2.6f + 0.525f + 0.13f, 0.2f));
    EXPECT_FALSE(room_free_spot(living.r, NAN, 1, 0.2f));
}

TEST(rooms, the_doorway_is_free_in_its_middle_and_ends_in_the_corridor)
{
    for_each_room([](const room *room, const char *name) {
        const room_anchor door = found(room, "door"), outside = found(room, "door-outside");
        // The opening lies between the two, 0.9 m wide or so.
        for (float t = 0; t <= 1; t += 0.05f) {
            const scene_vec at = door.position + (outside.position - door.position) * t;
            EXPECT_TRUE(room_free_spot(room, at.x, at.y, BODY)) << name << " " << t;
        }
        const scene_vec way = scene_unit(outside.position - door.position), across = {way.y, -way.x, 0};
        const scene_vec wall = door.position + way * 0.55f; // about where the wall is
        EXPECT_FALSE(room_free_spot(room, (wall + way * 0.1f + across * 0.5f).x,
                                    (wall + way * 0.1f + across * 0.5f).y, BODY))
            << name;
        const scene_vec beyond = outside.position + way;
        EXPECT_FALSE(room_free_spot(room, beyond.x, beyond.y, BODY)) << name;
        // Who stands at the door has it in the back, one step away.
        const float heading = door.heading * static_cast<float>(M_PI / 180);
        EXPECT_LT(scene_dot({sinf(heading), cosf(heading), 0}, way), -0.98f) << name;
    });
}

TEST(rooms, the_door_opens_outwards_by_its_degrees)
{
    held bedroom("bedroom");
    const scene_vec size = room_size(bedroom.r);
    const scene_place shut = room_door_place(bedroom.r, 0), open = room_door_place(bedroom.r, 90),
                      half = room_door_place(bedroom.r, 45);
    const scene_vec edge = {0.85f, 0, 1};
    EXPECT_NEAR(scene_put(shut, edge).y, size.y + 0.12, 1e-4);
    EXPECT_NEAR(scene_put(shut, edge).x, 3.35 - 0.425 + 0.85, 1e-4);
    EXPECT_NEAR(scene_put(open, edge).y, size.y + 0.12 + 0.85, 1e-4);
    EXPECT_NEAR(scene_put(open, edge).x, 3.35 - 0.425, 1e-4);
    EXPECT_NEAR(scene_put(half, edge).y, size.y + 0.12 + 0.85 * M_SQRT1_2, 1e-4);
    EXPECT_NEAR(scene_put(room_door_place(bedroom.r, -30), edge).y, size.y + 0.12, 1e-4);
    room_state state;
    state.door = 90;
    scene_snapshot snapshot;
    room_snapshot(bedroom.r, &state, &snapshot);
    bool found_leaf = false;
    for (const scene_object &object : snapshot.objects)
        found_leaf = found_leaf || (object.mesh == &bedroom.r->door && object.place.x.y == open.x.y);
    EXPECT_TRUE(found_leaf);
}

static mesh_box curtain_at(room *room, float covered, float wind, double time)
{
    room_state state;
    state.curtain = covered;
    state.wind = wind;
    state.time = time;
    scene_snapshot snapshot;
    room_snapshot(room, &state, &snapshot);
    const scene_object &object = snapshot.objects.back();
    EXPECT_TRUE(object.two_sided);
    EXPECT_EQ(object.moves, wind > 0);
    return box_of(*object.mesh);
}

TEST(rooms, the_curtain_covers_its_share_and_wind_blows_it_in)
{
    held bedroom("bedroom"); // window in the right wall, x = 4, 1.4 m wide
    const auto gap = [&](float covered) {
        curtain_at(bedroom.r, covered, 0, 0);
        float most = -1e9f, least = 1e9f; // of the near half's far edge and the far half's near edge
        for (const scene_vertex &v : bedroom.r->curtain.vertices) {
            if (v.position.y < 2.3f)
                most = std::max(most, v.position.y);
            else
                least = std::min(least, v.position.y);
        }
        return least - most;
    };
    EXPECT_NEAR(gap(0), 1.4f, 0.1);
    EXPECT_NEAR(gap(0.5f), 0.7f, 0.1);
    EXPECT_LT(gap(1), 0.05f);
    const mesh_box still = curtain_at(bedroom.r, 0.3f, 0, 0), calm = curtain_at(bedroom.r, 0.3f, 0, 50),
                   blown = curtain_at(bedroom.r, 0.3f, 2, 1), later = curtain_at(bedroom.r, 0.3f, 2, 1.4);
    EXPECT_EQ(still.low.x, calm.low.x); // without wind time does not matter
    EXPECT_LT(blown.low.x, still.low.x - 0.05f);
    EXPECT_NE(blown.low.x, later.low.x);
    EXPECT_GT(blown.low.x, 4 - 1.0f);
}

TEST(rooms, a_lamp_that_hangs_swings_and_takes_its_light_along)
{
    held living("living-room");
    room_state state;
    state.ceiling_lamp = true;
    state.lamp_swing = 20;
    scene_snapshot snapshot;
    room_snapshot(living.r, &state, &snapshot);
    const scene_light *lamp = nullptr;
    for (const scene_light &light : snapshot.lights)
        if (light.kind == LIGHT_POINT)
            lamp = &light;
    ASSERT_NE(lamp, nullptr);
    const room_anchor below = found(living.r, "ceiling-lamp");
    EXPECT_NEAR(lamp->position.x - below.position.x, 0.55 * sin(20 * M_PI / 180), 1e-3);
    EXPECT_NEAR(lamp->position.z, 2.55 - 0.55 * cos(20 * M_PI / 180), 1e-3);
    held bedroom("bedroom"); // its lamp is fixed to the ceiling
    EXPECT_EQ(room_lamp_place(bedroom.r, 0, 20).x.z, 0);
    EXPECT_EQ(room_lamp_place(living.r, 0, NAN).x.z, 0);
}

static const scene_material *screen_of(const scene_snapshot &snapshot)
{
    for (const scene_object &object : snapshot.objects)
        if (object.materials->size() == 1 && object.materials->front().pattern == PATTERN_SCREEN)
            return &object.materials->front();
    return nullptr;
}

TEST(rooms, lamps_and_screens_glow_when_they_are_on)
{
    held living("living-room");
    room_state state;
    scene_snapshot dark, lit;
    room_snapshot(living.r, &state, &dark);
    state.tv = state.table_lamp = state.ceiling_lamp = true;
    room_snapshot(living.r, &state, &lit);
    EXPECT_EQ(screen_of(dark), nullptr);
    ASSERT_NE(screen_of(lit), nullptr);
    EXPECT_GT(screen_of(lit)->emission[BAND_GREEN], 100);
    ASSERT_EQ(dark.objects.size(), lit.objects.size());
    int glowing = 0;
    for (size_t i = 0; i < dark.objects.size(); i++) {
        EXPECT_EQ(dark.objects[i].mesh, lit.objects[i].mesh);
        EXPECT_EQ((*dark.objects[i].materials)[0].emission[BAND_GREEN], 0);
        glowing += (*lit.objects[i].materials)[0].emission[BAND_GREEN] > 0;
    }
    EXPECT_EQ(glowing, 4); // television, two table lamps, ceiling lamp
}

TEST(rooms, any_numbers_are_taken)
{
    held kitchen("kitchen");
    for (float odd : {-1e30f, 1e30f, -INFINITY, INFINITY, NAN}) {
        room_state state;
        state.time = state.hour = static_cast<double>(odd);
        state.cloud = state.curtain = state.wind = state.door = state.headlights = state.lamp_swing = odd;
        state.infrared_level = state.white_level = odd;
        state.ceiling_lamp = state.table_lamp = state.tv = state.corridor_lamp = state.infrared_lamp =
            state.white_lamp = true;
        scene_snapshot snapshot;
        room_snapshot(kitchen.r, &state, &snapshot);
        for (const scene_object &object : snapshot.objects) {
            expect_sound(*object.mesh, object.materials->size(), "odd");
            EXPECT_TRUE(isfinite(object.place.x.x) && isfinite(object.place.origin.x));
        }
        for (const scene_light &light : snapshot.lights)
            for (int band = 0; band < BANDS; band++)
                EXPECT_TRUE(isfinite(light.strength[band]) && light.strength[band] >= 0) << light.kind;
        for (int band = 0; band < BANDS; band++)
            EXPECT_TRUE(isfinite(snapshot.ambient[band]) && isfinite(snapshot.sky[band]));
    }
}
