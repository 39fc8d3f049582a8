// Light: sun and sky by the published tables, lamps by what they are, and what falls where people stand.
#include "room_plan.h"

#include "mesh_checks.h"

namespace
{
float lux_of(const float bands[BANDS])
{
    return 0.2126f * bands[0] + 0.7152f * bands[1] + 0.0722f * bands[2];
}
sky_light sky_at(double hour, float cloud = 0)
{
    sky_light sky;
    light_sky(hour, cloud, &sky);
    return sky;
}
float ground(const sky_light &sky) // lux on level ground
{
    const float sine = sinf(sky.elevation * static_cast<float>(M_PI / 180));
    return lux_of(sky.sky) + lux_of(sky.sun) * std::max(0.f, sine);
}
struct light_there {
    float lux, infrared;
};
light_there at_floor(const char *name, const room_state &state, float z = 1.2f)
{
    room *made = room_make(name, 1);
    scene_snapshot snapshot;
    room_snapshot(made, &state, &snapshot);
    room_anchor spot;
    room_find(made, "floor", &spot);
    light_there there;
    scene_light_at(&snapshot, spot.position + scene_vec{0, 0, z}, &there.lux, &there.infrared);
    room_free(made);
    return there;
}
room_state night()
{
    room_state state;
    state.hour = 23.5;
    return state;
}
int count(const scene_snapshot &snapshot, scene_light_kind kind)
{
    int found = 0;
    for (const scene_light &light : snapshot.lights)
        found += light.kind == kind;
    return found;
}
scene_snapshot snapshot_of(const char *name, const room_state &state)
{
    room *made = room_make(name, 1);
    scene_snapshot snapshot;
    room_snapshot(made, &state, &snapshot);
    snapshot.objects.clear(); // they point into the room
    room_free(made);
    return snapshot;
}
} // namespace

TEST(sun, stands_highest_at_noon_in_the_south)
{
    const sky_light noon = sky_at(12);
    EXPECT_NEAR(noon.elevation, 90 - 50 + 11.5, 0.01);
    EXPECT_NEAR(noon.azimuth, 180, 0.01);
    EXPECT_NEAR(sky_at(9).elevation, sky_at(15).elevation, 0.01);
    EXPECT_LT(sky_at(9).azimuth, 150);
    EXPECT_GT(sky_at(9).azimuth, 100);
    EXPECT_GT(sky_at(15).azimuth, 210);
    EXPECT_NEAR(sky_at(36).elevation, noon.elevation, 0.01); // hours go round
}

TEST(sun, rises_about_five_and_sets_about_seven)
{
    EXPECT_LT(sky_at(5).elevation, 0);
    EXPECT_GT(sky_at(5.2).elevation, 0);
    EXPECT_GT(sky_at(18.8).elevation, 0);
    EXPECT_LT(sky_at(19).elevation, 0);
}

// Table values of the Explanatory Supplement's formula: 758 lux at sunrise, 3.4 at the end of civil twilight.
TEST(sun, daylight_and_twilight_follow_the_almanac)
{
    EXPECT_NEAR(ground(sky_at(12)), 93000, 5000);
    double rise = 5;
    while (sky_at(rise).elevation < 0)
        rise += 0.001;
    EXPECT_NEAR(ground(sky_at(rise)), 758, 60);
    double civil = 19;
    while (sky_at(civil).elevation > -6)
        civil += 0.001;
    EXPECT_NEAR(ground(sky_at(civil)), 3.4 + 0.3, 0.3);
    EXPECT_NEAR(ground(sky_at(0)), 0.3, 0.02); // street lamps
    float last = 0;
    for (double hour = 3; hour < 12; hour += 0.02) { // without a step down on the way up
        EXPECT_GT(ground(sky_at(hour)), last * 0.97f) << hour;
        last = ground(sky_at(hour));
    }
}

TEST(sun, clouds_take_the_sun_and_leave_a_fifth)
{
    const sky_light grey = sky_at(12, 1);
    EXPECT_EQ(lux_of(grey.sun), 0);
    EXPECT_NEAR(ground(grey), 300 + 21000 * sin(51.5 * M_PI / 180), 300);
    EXPECT_LT(lux_of(sky_at(12, 0.5f).sun), lux_of(sky_at(12).sun));
    EXPECT_NEAR((ground(sky_at(19.3, 1)) - 0.3f) / (ground(sky_at(19.3)) - 0.3f), 0.4, 0.01);
    EXPECT_LE(ground(sky_at(18.9, 1)), ground(sky_at(18.9)) * 0.55f);
}

TEST(sun, is_redder_and_richer_in_infrared_when_low)
{
    const sky_light high = sky_at(12), low = sky_at(18.3);
    EXPECT_GT(low.sun[BAND_RED] / low.sun[BAND_BLUE], 2 * high.sun[BAND_RED] / high.sun[BAND_BLUE]);
    EXPECT_GT(low.sun[BAND_INFRARED] / lux_of(low.sun), 1.4f * high.sun[BAND_INFRARED] / lux_of(high.sun));
    EXPECT_LT(high.sky[BAND_INFRARED] / lux_of(high.sky), 0.6f); // scattered light is blue
}

TEST(room_light, day_through_the_window_is_50_to_500_lux)
{
    for (int i = 0; room_name(i); i++) {
        room_state state;
        state.cloud = 1; // no sun patch
        state.hour = 11;
        const light_there there = at_floor(room_name(i), state);
        EXPECT_GT(there.lux, 50) << room_name(i);
        EXPECT_LT(there.lux, 700) << room_name(i);
        EXPECT_GT(there.infrared, 0.3f * there.lux) << room_name(i);
        state.curtain = 1;
        EXPECT_LT(at_floor(room_name(i), state).lux, there.lux * 0.6f) << room_name(i);
    }
}

TEST(room_light, the_sun_comes_in_where_its_window_looks_and_when_it_is_up)
{
    room_state state;
    state.hour = 14; // the living room looks south-west
    EXPECT_EQ(count(snapshot_of("living-room", state), LIGHT_SUN), 1);
    state.hour = 8;
    EXPECT_EQ(count(snapshot_of("living-room", state), LIGHT_SUN), 0);
    state.hour = 14;
    state.curtain = 1;
    EXPECT_EQ(count(snapshot_of("living-room", state), LIGHT_SUN), 0);
    state.curtain = 0.4f;
    const scene_snapshot snapshot = snapshot_of("living-room", state);
    for (const scene_light &light : snapshot.lights)
        if (light.kind == LIGHT_SUN) {
            EXPECT_TRUE(light.through_window);
            EXPECT_GT(light.shadow, 0);
            EXPECT_LT(light.direction.x, 0); // the window is in the right wall
            EXPECT_LT(light.direction.z, 0);
            EXPECT_NEAR(scene_length(light.window_u), 1.7 / 2 * 0.6, 1e-4);
            EXPECT_NEAR(light.window_centre.x, 5.2 + WALL_THICK / 2, 1e-4);
            EXPECT_NEAR(light.window_centre.z, 0.85 + 1.35 / 2, 1e-4);
        }
}

TEST(room_light, the_sky_behind_the_window_goes_with_the_hour)
{
    room_state day;
    const scene_snapshot noon = snapshot_of("kitchen", day), dark = snapshot_of("kitchen", night());
    EXPECT_GT(lux_of(noon.sky), 1000);
    EXPECT_LT(lux_of(dark.sky), 0.2f);
    EXPECT_GT(lux_of(dark.sky), 0);
}

TEST(room_light, the_ceiling_lamp_gives_100_to_200_lux_and_no_infrared)
{
    for (int i = 0; room_name(i); i++) {
        room_state state = night();
        EXPECT_LT(at_floor(room_name(i), state).lux, 0.2f) << room_name(i);
        state.ceiling_lamp = true;
        const light_there there = at_floor(room_name(i), state);
        EXPECT_GT(there.lux, 80) << room_name(i);
        EXPECT_LT(there.lux, 230) << room_name(i);
        EXPECT_LT(there.infrared, there.lux * 0.05f) << room_name(i);
    }
}

TEST(room_light, the_table_lamp_is_weaker_and_full_of_infrared)
{
    for (int i = 0; room_name(i); i++) {
        room_state state = night(), ceiling = night();
        state.table_lamp = true;
        ceiling.ceiling_lamp = true;
        const light_there there = at_floor(room_name(i), state);
        EXPECT_GT(there.lux, 3) << room_name(i);
        EXPECT_LT(there.lux, at_floor(room_name(i), ceiling).lux) << room_name(i);
        EXPECT_GT(there.infrared, there.lux * 3) << room_name(i);
    }
}

TEST(room_light, the_television_flickers_with_its_picture)
{
    room_state state = night();
    state.tv = true;
    float least = 1e9f, most = 0;
    for (state.time = 0; state.time < 40; state.time += 0.5) {
        const light_there there = at_floor("living-room", state);
        least = std::min(least, there.lux);
        most = std::max(most, there.lux);
        EXPECT_LT(there.infrared, there.lux * 0.05f);
    }
    EXPECT_GT(least, 0.1f);
    EXPECT_LT(most, 60);
    EXPECT_GT(most, least * 2);
}

TEST(room_light, a_screen_is_cut_every_3_7_seconds)
{
    int cuts = 0;
    float last[3];
    light_screen(0, 77, last);
    for (int i = 1; i < 370; i++) {
        float now[3];
        light_screen(i * 0.1, 77, now);
        cuts += fabsf(now[1] - last[1]) > 0.05f * last[1] || fabsf(now[0] - last[0]) > 0.05f * last[0];
        for (int band = 0; band < 3; band++) {
            EXPECT_GE(now[band], 0);
            EXPECT_LT(now[band], 3);
            last[band] = now[band];
        }
    }
    EXPECT_NEAR(cuts, 10, 1);
}

TEST(room_light, headlights_sweep_from_one_side_of_the_window_to_the_other)
{
    room_state state = night();
    state.headlights = -0.1f;
    EXPECT_EQ(count(snapshot_of("bedroom", state), LIGHT_SPOT), 0);
    state.headlights = 1.1f;
    EXPECT_EQ(count(snapshot_of("bedroom", state), LIGHT_SPOT), 0);
    float last_y = 1e9f, most = 0, end = 0;
    for (float way : {0.f, 0.25f, 0.5f, 0.75f, 1.f}) {
        state.headlights = way;
        const scene_snapshot snapshot = snapshot_of("bedroom", state);
        ASSERT_EQ(count(snapshot, LIGHT_SPOT), 1) << way;
        for (const scene_light &light : snapshot.lights)
            if (light.kind == LIGHT_SPOT) {
                EXPECT_TRUE(light.through_window);
                EXPECT_GT(light.position.x, 8);
                EXPECT_LT(light.position.z, 1); // lower than the window, so that it lights up to the ceiling
                EXPECT_LT(light.position.y, last_y); // seen from inside, left to right is far to near
                EXPECT_GT(light.strength[BAND_INFRARED], light.strength[BAND_GREEN]);
                last_y = light.position.y;
                (way == 0.5f ? most : end) = light.strength[BAND_GREEN];
            }
    }
    EXPECT_GT(most, 3 * end);
}

TEST(room_light, the_cameras_infrared_is_invisible_blinds_near_and_fades_with_the_square)
{
    room_state state = night();
    state.infrared_lamp = true;
    state.view.position = {2.5f, 0.1f, 1.6f};
    scene_snapshot snapshot = snapshot_of("living-room", state);
    const auto there = [&](float away) {
        light_there found;
        scene_light_at(&snapshot, {2.5f, 0.1f + away, 1.6f}, &found.lux, &found.infrared);
        return found;
    };
    EXPECT_LT(there(2).lux, 0.1f);
    EXPECT_NEAR(there(1).infrared / there(4).infrared, 16, 2.5);
    EXPECT_GT(there(0.3f).infrared, 1000);
    EXPECT_GT(there(3).infrared, 10);
    light_there aside;
    scene_light_at(&snapshot, scene_vec{2.5f, 0.1f, 1.6f} + scene_vec{sinf(.663f), cosf(.663f), 0} * 2,
                   &aside.lux,
                   &aside.infrared); // 38 degrees off the axis
    EXPECT_NEAR(aside.infrared / there(2).infrared, 0.5, 0.03);
    state.infrared_level = 0.25f;
    const light_there full = there(2);
    snapshot = snapshot_of("living-room", state);
    EXPECT_NEAR(there(2).infrared / full.infrared, 0.25, 0.01);
    state.infrared_level = 0;
    EXPECT_EQ(count(snapshot_of("living-room", state), LIGHT_SPOT), 0);
}

TEST(room_light, the_cameras_white_lamp_goes_where_it_looks)
{
    room_state state = night();
    state.white_lamp = true;
    state.view.position = {2, 0.1f, 2};
    state.view.pan = 90;
    state.view.tilt = -30;
    const scene_snapshot snapshot = snapshot_of("bedroom", state);
    ASSERT_EQ(count(snapshot, LIGHT_SPOT), 1);
    for (const scene_light &light : snapshot.lights)
        if (light.kind == LIGHT_SPOT) {
            EXPECT_NEAR(light.direction.x, cos(M_PI / 6), 1e-4);
            EXPECT_NEAR(light.direction.z, -0.5, 1e-4);
            EXPECT_LT(light.strength[BAND_INFRARED], light.strength[BAND_GREEN] * 0.05f);
        }
}

TEST(room_light, the_corridor_shines_in_by_the_open_door_only)
{
    room_state state = night();
    state.corridor_lamp = true;
    const float shut = at_floor("bedroom", state).lux;
    state.door = 30;
    room_anchor door;
    room *made = room_make("bedroom", 1);
    room_find(made, "door", &door);
    scene_snapshot some, wide;
    room_snapshot(made, &state, &some);
    state.door = 90;
    room_snapshot(made, &state, &wide);
    light_there half, open;
    scene_light_at(&some, door.position + scene_vec{0, 0, 1}, &half.lux, &half.infrared);
    scene_light_at(&wide, door.position + scene_vec{0, 0, 1}, &open.lux, &open.infrared);
    EXPECT_LT(shut, 0.2f);
    EXPECT_GT(open.lux, 10);
    EXPECT_GT(wide.ambient[BAND_GREEN], some.ambient[BAND_GREEN]);
    room_free(made);
}

// Flux / area * r / (1 - r), with the flux of a point lamp of I candela: 4 pi I.
TEST(room_light, walls_give_back_what_an_integrating_sphere_would)
{
    room *made = room_make("kitchen", 1);
    room_state state = night();
    scene_snapshot dark, lit;
    room_snapshot(made, &state, &dark);
    state.ceiling_lamp = true;
    room_snapshot(made, &state, &lit);
    float candela[BANDS] = {0, 0, 0, 0};
    for (const scene_light &light : lit.lights)
        if (light.kind == LIGHT_POINT)
            for (int band = 0; band < BANDS; band++)
                candela[band] = light.strength[band];
    for (int band = 0; band < BANDS; band++) {
        const float r = made->mean[band];
        EXPECT_GT(r, 0.25f);
        EXPECT_LT(r, 0.8f);
        EXPECT_NEAR(lit.ambient[band] - dark.ambient[band],
                    4 * static_cast<float>(M_PI) * candela[band] / made->area * r / (1 - r), 1e-2);
    }
    EXPECT_GT(made->area, 80); // 4 x 5 x 2.55 m: 86 m2 of walls and more of furniture
    EXPECT_LT(made->area, 200);
    room_free(made);
}

// What each lamp brings in, by its own geometry, goes round in the room.
TEST(room_light, every_lamps_flux_counts_in_what_the_walls_give_back)
{
    room *made = room_make("living-room", 1);
    const float pi = static_cast<float>(M_PI), g = made->mean[BAND_GREEN], back = g / (1 - g) / made->area;
    const auto gain = [&](const room_state &state, float per_candela, scene_light_kind kind, size_t least) {
        scene_snapshot dark, lit;
        room_state off = night();
        room_snapshot(made, &off, &dark);
        room_snapshot(made, &state, &lit);
        float candela = 0;
        size_t found = 0;
        for (size_t i = 1; i < lit.lights.size(); i++) // the window's is the first
            if (lit.lights[i].kind == kind) {
                candela += lit.lights[i].strength[BAND_GREEN];
                found++;
            }
        EXPECT_EQ(found, least);
        EXPECT_NEAR((lit.ambient[BAND_GREEN] - dark.ambient[BAND_GREEN]) / (candela * per_candela * back), 1,
                    0.01);
    };
    room_state state = night();
    state.table_lamp = true;
    gain(state, 4 * pi, LIGHT_POINT, 2); // and the floor lamp
    state = night();
    state.tv = true;
    gain(state, pi, LIGHT_AREA, 1);
    state = night();
    state.white_lamp = true;
    gain(state, 2 * pi * (1 - cosf(42 * pi / 180)), LIGHT_SPOT, 1);
    state = night();
    state.corridor_lamp = true;
    state.door = 30;
    gain(state, 0.5f * 0.9f * 2.03f / 1.5f, LIGHT_AREA, 1);
    state = night();
    state.headlights = 0.5f; // nine metres before the wall, 0.825 m below the window's middle
    const float square = (9 - WALL_THICK / 2) * (9 - WALL_THICK / 2) + 0.825f * 0.825f;
    gain(state, 1.7f * 0.7f * 1.35f / square * 0.6f, LIGHT_SPOT, 1);
    room_free(made);
}

TEST(room_light, the_sun_shines_from_where_it_stands)
{
    room_state state;
    state.hour = 14;
    state.curtain = 0;
    const scene_snapshot snapshot = snapshot_of("living-room", state);
    const sky_light sky = sky_at(14);
    const float h = sky.elevation * static_cast<float>(M_PI / 180),
                heading =
                    (sky.azimuth - 135) * static_cast<float>(M_PI / 180); // the room is turned by 135 degrees
    const scene_vec from = {cosf(h) * sinf(heading), cosf(h) * cosf(heading), sinf(h)};
    ASSERT_EQ(snapshot.lights.size(), 2u);
    EXPECT_NEAR(scene_dot(snapshot.lights[1].direction, from), -1, 1e-4);
    // Half of what the two bring goes by the sun's share of the open window, across its rays.
    room *made = room_make("living-room", 1);
    const float r = made->mean[BAND_GREEN];
    const float flux = snapshot.lights[0].strength[BAND_GREEN] * static_cast<float>(M_PI) +
                       snapshot.lights[1].strength[BAND_GREEN] * 1.7f * 1.35f * from.x;
    EXPECT_NEAR(snapshot.ambient[BAND_GREEN] / (flux / made->area * r / (1 - r)), 1, 1e-3);
    room_free(made);
}

TEST(room_light, a_grazing_or_low_sun_stays_outside)
{
    int in = 0;
    for (double hour = 4; hour < 20; hour += 0.05) {
        room_state state;
        state.hour = hour;
        const scene_snapshot snapshot = snapshot_of("living-room", state);
        for (const scene_light &light : snapshot.lights)
            if (light.kind == LIGHT_SUN) {
                in++;
                EXPECT_LT(light.direction.x, -0.02f) << hour;
                EXPECT_LT(light.direction.z, -sinf(static_cast<float>(M_PI / 180))) << hour;
                EXPECT_GT(light.strength[BAND_RED], 0) << hour;
            }
    }
    EXPECT_GT(in, 80); // more than four hours
    room_state state;
    state.hour = 14;
    state.curtain = 0.96f;
    EXPECT_EQ(count(snapshot_of("living-room", state), LIGHT_SUN), 1);
    state.curtain = 0.98f;
    EXPECT_EQ(count(snapshot_of("living-room", state), LIGHT_SUN), 0);
}

// The renderer draws the shadow of the greatest only.
TEST(room_light, shadows_matter_in_the_order_of_what_is_seen_of_them)
{
    room_state all;
    all.hour = 14;
    all.headlights = 0.5f;
    all.ceiling_lamp = all.table_lamp = all.tv = all.corridor_lamp = all.infrared_lamp = true;
    all.door = 90;
    const scene_snapshot snapshot = snapshot_of("living-room", all);
    // In the order in which they are added: sky, sun, car, floor lamp, television, table lamp, ceiling,
    // corridor, own.
    std::vector<int> ranks;
    for (const scene_light &light : snapshot.lights)
        ranks.push_back(light.shadow);
    EXPECT_EQ(ranks, (std::vector<int>{3, 9, 8, 2, 5, 5, 6, 4, 0}));
}

TEST(room_light, the_opening_to_the_corridor_is_as_wide_as_the_door_is_open)
{
    room_state state = night();
    state.corridor_lamp = true;
    for (float degrees : {30.f, 90.f}) {
        state.door = degrees;
        const scene_snapshot snapshot = snapshot_of("living-room", state);
        const scene_light &light = snapshot.lights.back();
        ASSERT_TRUE(light.through_window);
        const float open = sinf(degrees * static_cast<float>(M_PI / 180));
        EXPECT_NEAR(scene_length(light.window_u), 0.45f * open, 1e-4);
        EXPECT_NEAR(scene_length(light.window_v), 2.03f / 2, 1e-4);
        // At the side away from the hinges.
        EXPECT_NEAR(light.window_centre.x + 0.45f * open, 3.1f + 0.45f, 1e-4);
        EXPECT_LT(light.direction.y, -0.99f);
        EXPECT_GT(light.position.y, 6.4f + WALL_THICK);
    }
}

TEST(room_light, levels_of_the_cameras_lamps_are_shares)
{
    room_state state = night();
    state.white_lamp = true;
    const auto candela = [&](float level) {
        state.white_level = level;
        const scene_snapshot snapshot = snapshot_of("hall", state);
        return snapshot.lights.back().strength[BAND_GREEN];
    };
    EXPECT_NEAR(candela(1), 120, 1);
    EXPECT_NEAR(candela(0.5f), 60, 1);
    EXPECT_NEAR(candela(3), 120, 1);
}

TEST(room_light, lamps_are_as_large_as_they_look)
{
    room_state state = night();
    state.tv = state.table_lamp = state.ceiling_lamp = true;
    const scene_snapshot snapshot = snapshot_of("living-room", state);
    for (const scene_light &light : snapshot.lights) {
        if (light.kind == LIGHT_AREA && light.position.z < 1.2f) {
            EXPECT_NEAR(light.size[0], 1.23, 1e-4);
            EXPECT_NEAR(light.size[1], 0.7, 1e-4);
            EXPECT_LT(light.direction.x, -0.99f); // from the right wall into the room
        } else if (light.kind == LIGHT_POINT) {
            EXPECT_GT(light.size[0], 0.3f);
            EXPECT_LT(light.size[0], 0.5f);
        }
    }
}

// Values made once from the same hash by hand.
TEST(room_light, a_screens_light_is_that_of_its_picture)
{
    const struct {
        double time;
        uint32_t seed;
        float level[3];
    } known[] = {{1, 77, {1.29390f, 0.65021f, 1.13390f}}, {20, 123456, {0.48871f, 0.18366f, 0.17634f}}};
    for (const auto &one : known) {
        float level[3];
        light_screen(one.time, one.seed, level);
        for (int i = 0; i < 3; i++)
            EXPECT_NEAR(level[i], one.level[i], 2e-4) << one.time;
        light_screen(one.time, one.seed | 0x5000000, level); // the renderer keeps 24 bits of a seed
        EXPECT_NEAR(level[0], one.level[0], 2e-4);
    }
}

TEST(light_at, sums_lamps_and_walls_on_an_upright_surface)
{
    scene_snapshot snapshot;
    snapshot.ambient[BAND_RED] = snapshot.ambient[BAND_GREEN] = snapshot.ambient[BAND_BLUE] = 5;
    snapshot.ambient[BAND_INFRARED] = 3;
    scene_light lamp;
    lamp.position = {0, 0, 0};
    for (int band = 0; band < BANDS; band++)
        lamp.strength[band] = band == BAND_INFRARED ? 8.f : 40.f;
    snapshot.lights.push_back(lamp);
    light_there there;
    scene_light_at(&snapshot, {0, 2, 0}, &there.lux, &there.infrared); // level with it
    EXPECT_NEAR(there.lux, 15, 0.05);
    EXPECT_NEAR(there.infrared, 5, 0.05);
    scene_light_at(&snapshot, {0, 0, -2}, &there.lux,
                   &there.infrared); // under it: an upright surface gets none
    EXPECT_NEAR(there.lux, 5, 1e-3);
    scene_light_at(&snapshot, {0, 0, 0}, &there.lux, &there.infrared);
    EXPECT_TRUE(isfinite(there.lux));
    snapshot.lights[0].kind = LIGHT_AREA; // shines downwards only
    scene_light_at(&snapshot, {0, 2, 0.5f}, &there.lux, &there.infrared);
    EXPECT_NEAR(there.lux, 5, 1e-3);
}

TEST(light_at, what_comes_through_a_window_is_cut_by_its_frame)
{
    scene_snapshot snapshot;
    scene_light sun;
    sun.kind = LIGHT_SUN;
    sun.direction = scene_unit({-1, 0, -1});
    sun.through_window = true;
    sun.window_centre = {0, 0, 2};
    sun.window_u = {0, 0.5f, 0};
    sun.window_v = {0, 0, 0.4f};
    for (float &one : sun.strength)
        one = 1000;
    snapshot.lights.push_back(sun);
    light_there there;
    const auto lit = [&](scene_vec at) {
        scene_light_at(&snapshot, at, &there.lux, &there.infrared);
        return there.lux > 1;
    };
    EXPECT_TRUE(lit({-2, 0, 0})); // the ray passes the middle
    EXPECT_NEAR(there.lux, 1000 * M_SQRT1_2, 1);
    EXPECT_TRUE(lit({-2, 0.49f, 0}));
    EXPECT_FALSE(lit({-2, 0.51f, 0}));
    EXPECT_TRUE(lit({-2, -0.49f, 0}));
    EXPECT_FALSE(lit({-2, -0.51f, 0}));
    EXPECT_TRUE(lit({-2, 0, 0.39f}));
    EXPECT_FALSE(lit({-2, 0, 0.41f}));
    EXPECT_TRUE(lit({-2, 0, -0.39f}));
    EXPECT_FALSE(lit({-2, 0, -0.41f}));
    EXPECT_FALSE(lit({2, 0, 4})); // before the window
}
