// Light in a room: sun and sky by hour and cloud, lamps, screens, passing cars, the camera's own, and what
// the walls give back.
//
// Sun. Declination 11.5 degrees (20 April, near the mean of the year's light half), 50 degrees north:
//     sin h = sin(lat) sin(dec) + cos(lat) cos(dec) cos(hour angle)
// Light on level ground from sun and sky together, by elevation, twilight included: P. K. Seidelmann (ed.),
// Explanatory Supplement to the Astronomical Almanac, 1992, section 9.3 (piecewise cubic of log10 lux).
// Direct sun across its rays 127.5 klx exp(-0.21 / sin h), overcast sky 0.3 + 21 sin h klx: Illuminating
// Engineering Society, Recommended practice for the calculation of daylight availability, 1984.
//
// Infrared parts, in units of the sensor's answer (scene_types.h), were integrated from Planck's law over
// silicon's answer and the filters of a colour mosaic, 680 to 1100 nm, against the visible answer to the
// same lux of daylight: 2700 K 5.4, 3200 K (halogen) 3.5, 5800 K 1.2, 10000 K 0.77. Skylight has less,
// since scattering prefers blue; window glass takes a fifth; white LEDs and screens have next to nothing.
//
// What the walls give back: in a closed space of area A and mean reflectance r every surface gets, on top of
// direct light, flux / A * r / (1 - r): the integrating sphere (R. Ulbricht, 1900).
#include "room_plan.h"

#include <algorithm>

namespace
{
const float PI = static_cast<float>(M_PI);

// Colours of light: photometric weight 1 (0.2126 r + 0.7152 g + 0.0722 b), and infrared beside it.
const float SUN_HIGH[BANDS] = {1.12f, .98f, .88f, 1.05f}, SUN_LOW[BANDS] = {1.9f, .81f, .22f, 2.6f},
            SKY_CLEAR[BANDS] = {.82f, 1.01f, 1.42f, .40f}, SKY_GREY[BANDS] = {.98f, 1.0f, 1.06f, .65f},
            LED_WARM[BANDS] = {1.44f, .92f, .53f, .02f}, LED_COLD[BANDS] = {.98f, 1.0f, 1.05f, .02f},
            INCANDESCENT[BANDS] = {1.99f, .79f, .19f, 5.4f}, HALOGEN[BANDS] = {1.66f, .86f, .37f, 3.5f},
            TOWN[BANDS] = {1.8f, .83f, .27f, 1.0f};
const float GLASS = 0.75f, GLASS_INFRARED = 0.6f; // what two panes let through
const float OBSTRUCTED = 0.35f; // houses, trees, the ground and the frame take the rest of what a window sees
const float TOWN_LUX = 0.3f;    // street lamps, on the ground outside

float glass(int band)
{
    return band == BAND_INFRARED ? GLASS_INFRARED : GLASS;
}

float mix(float a, float b, float t)
{
    return a + (b - a) * t;
}

// log10 of lux on level ground, x = elevation / 90 degrees.
double seidelmann(double h)
{
    static const struct {
        double from, l[4];
    } pieces[] = {{20, {3.74, 3.97, -4.07, 1.47}},         {5, {3.05, 13.28, -45.98, 64.33}},
                  {-0.8, {2.88, 22.26, -207.64, 1034.30}}, {-5, {2.88, 21.81, -258.11, -858.36}},
                  {-12, {2.70, 12.17, -431.69, -1899.83}}, {-18, {13.84, 262.72, 1447.42, 2797.93}}};
    const double x = std::max(-18., h) / 90;
    for (const auto &piece : pieces)
        if (h >= piece.from || piece.from == -18)
            return piece.l[0] + x * (piece.l[1] + x * (piece.l[2] + x * piece.l[3]));
    return -4;
}
} // namespace

void light_sky(double hour, float cloud, sky_light *sky)
{
    const double latitude = 50 * M_PI / 180, declination = 11.5 * M_PI / 180;
    hour = isfinite(hour) ? fmod(hour, 24.) : 12;
    cloud = cloud >= 0 ? std::min(1.f, cloud) : 0;
    const double angle = (hour - 12) * M_PI / 12;
    const double sine = sin(latitude) * sin(declination) + cos(latitude) * cos(declination) * cos(angle);
    const double h = asin(std::max(-1., std::min(1., sine))) * 180 / M_PI;
    // From south, westwards (Meeus, Astronomical Algorithms, 13.5); by compass from north.
    const double west = atan2(sin(angle), cos(angle) * sin(latitude) - tan(declination) * cos(latitude));
    sky->elevation = static_cast<float>(h);
    sky->azimuth = static_cast<float>(fmod(west * 180 / M_PI + 180 + 360, 360.));
    const double total = pow(10, seidelmann(h));
    const double across = h > 0.3 ? 127500 * exp(-0.21 / sine) : 0;
    const double clear = std::max(total * 0.1, total - across * std::max(0., sine));
    const double grey = std::min(total * 0.5, sine > 0 ? 300 + 21000 * sine : total * 0.4);
    const float low = static_cast<float>(std::max(0., std::min(1., 1 - h / 25)));
    for (int band = 0; band < BANDS; band++) {
        sky->sun[band] = static_cast<float>(across) * (1 - cloud) * (1 - cloud) *
                         mix(SUN_HIGH[band], SUN_LOW[band], low * low);
        sky->sky[band] = mix(static_cast<float>(clear), static_cast<float>(grey), cloud) *
                             mix(SKY_CLEAR[band], SKY_GREY[band], cloud) +
                         TOWN_LUX * TOWN[band];
    }
}

// The screen's picture (PATTERN_SCREEN) is made by the renderer from its material's seed and the time: cuts
// every 3.7 seconds, each scene with a brightness and two colours from a hash. The light it throws goes by
// the same numbers.
static float screen_hash(uint32_t x, uint32_t y, uint32_t seed)
{
    uint32_t h = x * UINT32_C(0x9e3779b1) ^ y * UINT32_C(0x85ebca77) ^ seed * UINT32_C(0xc2b2ae3d);
    h ^= h >> 15;
    h *= UINT32_C(0x2c1b3c6d);
    h ^= h >> 13;
    return static_cast<float>(h & 0xffffff) * (1.f / (1 << 24));
}

void light_screen(double time, uint32_t seed, float level[3])
{
    seed &= 0xffffff;
    const float now = isfinite(time) ? static_cast<float>(fmod(fabs(time), 4096)) : 0;
    const float cut = floorf(now / 3.7f + screen_hash(seed, 1, 5));
    const uint32_t scene = static_cast<uint32_t>(cut) * UINT32_C(2654435761) + seed;
    const float horizon = 0.3f + 0.4f * screen_hash(2, 2, scene),
                bright = 0.25f + 1.2f * screen_hash(11, 0, scene);
    // Things drift and turn in the picture.
    const float flicker = 1 + 0.06f * sinf(now * 2.1f) + 0.03f * sinf(now * 7.3f);
    for (uint32_t i = 0; i < 3; i++) {
        const float upper = screen_hash(3, i, scene), lower = screen_hash(4, i, scene) * 0.6f;
        level[i] = bright * 1.6f * flicker * (lower * horizon + upper * (1 - horizon));
    }
}

namespace
{
// Lights of one snapshot, and the flux of each band that they bring into the room.
struct adding {
    scene_snapshot *snapshot;
    float flux[BANDS];
};

void add(adding *sum, const scene_light *light, float lumens_per_candela)
{
    float most = 0;
    for (int band = 0; band < BANDS; band++) {
        sum->flux[band] += light->strength[band] * lumens_per_candela;
        most = std::max(most, light->strength[band]);
    }
    if (most > 0)
        sum->snapshot->lights.push_back(*light);
}

void fill(scene_light *light, const float colour[BANDS], float amount)
{
    for (int band = 0; band < BANDS; band++)
        light->strength[band] = colour[band] * amount;
}

void daylight(const room *room, const room_state *state, adding *sum)
{
    const room_plan *plan = room->plan;
    const plan_opening *window = &plan->window;
    const scene_place wall = room_wall(plan->size, window->wall);
    sky_light sky;
    light_sky(state->hour, state->cloud, &sky);
    const float covered = state->curtain >= 0 ? std::min(1.f, state->curtain) : 0;
    const float through = room->materials[STUFF_CURTAIN].through;
    const float open = std::max(0.02f, 1 - covered), passing = (1 - covered) + covered * through;
    scene_light light;
    light.window_centre = scene_put(wall, {window->along, WALL_THICK / 2, window->sill + window->height / 2});
    light.window_u = wall.x * (window->width / 2 * open);
    light.window_v = {0, 0, window->height / 2};

    // The sky: the pane is the lamp, of the sky's luminance E / pi and what stands before it.
    scene_light pane = light;
    pane.kind = LIGHT_AREA;
    pane.position = light.window_centre - wall.y * (WALL_THICK / 2);
    pane.direction = wall.y * -1;
    pane.size[0] = window->width * open;
    pane.size[1] = window->height;
    pane.shadow = 3;
    for (int band = 0; band < BANDS; band++) {
        const float luminance = sky.sky[band] / PI * glass(band);
        sum->snapshot->sky[band] = luminance;
        pane.strength[band] = luminance * OBSTRUCTED * window->width * window->height * passing;
    }
    add(sum, &pane, PI);

    const float compass = (sky.azimuth - plan->compass) * PI / 180, h = sky.elevation * PI / 180;
    const scene_vec to_sun = {cosf(h) * sinf(compass), cosf(h) * cosf(compass), sinf(h)};
    const float facing = scene_dot(to_sun, wall.y);
    if (sky.elevation > 1 && facing > 0.02f && covered < 0.97f) {
        scene_light sun = light;
        sun.kind = LIGHT_SUN;
        sun.direction = to_sun * -1;
        sun.through_window = true;
        sun.size[0] = sun.size[1] = 0.01f;
        sun.shadow = 9;
        for (int band = 0; band < BANDS; band++)
            sun.strength[band] = sky.sun[band] * glass(band);
        add(sum, &sun, window->width * open * window->height * facing);
    }

    if (state->headlights >= 0 && state->headlights <= 1) {
        // A car on the street below or before the window, from left to right; its lamps point at us when it
        // is before it.
        scene_light car = light;
        const float way = state->headlights * 2 - 1;
        car.kind = LIGHT_SPOT;
        car.position = scene_put(wall, {window->along + way * 9, 9, 0.7f});
        car.direction = scene_unit(light.window_centre - car.position);
        car.half_angle = 14;
        car.through_window = true;
        car.size[0] = 1.2f;
        car.size[1] = 0.15f;
        car.shadow = 8;
        fill(&car, HALOGEN, 4500 * GLASS * (0.15f + 0.85f * (1 - way * way)));
        const float away = scene_length(light.window_centre - car.position);
        add(sum, &car, window->width * open * window->height / (away * away) * 0.6f);
    }
}

void lamps(const room *room, const room_state *state, adding *sum)
{
    int index = 0;
    for (const room_part &part : room->parts) {
        scene_light light;
        light.position = part.lit.place;
        light.direction = part.lit.ahead;
        light.size[0] = part.lit.size[0];
        light.size[1] = part.lit.size[1];
        switch (part.lit.light) {
        case LIT_CEILING_LAMP: {
            const plan_lamp *lamp = &room->plan->lamps[index];
            const scene_place place = room_lamp_place(room, index++, state->lamp_swing);
            if (!state->ceiling_lamp)
                break;
            light.position = scene_put(place, {0, 0, -lamp->drop});
            light.shadow = 6;
            // 120 lm for each square metre of floor: about 150 lux where people are.
            const float lumens =
                120 * room->plan->size.x * room->plan->size.y / static_cast<float>(room->plan->lamp_count);
            if (lamp->style == LAMP_PENDANT) {
                light.kind = LIGHT_POINT;
                fill(&light, LED_WARM, lumens / (4 * PI));
                add(sum, &light, 4 * PI);
            } else {
                light.kind = LIGHT_AREA;
                fill(&light, LED_WARM, lumens / PI);
                add(sum, &light, PI);
            }
            break;
        }
        case LIT_TABLE_LAMP:
            if (!state->table_lamp)
                break;
            light.kind = LIGHT_POINT;
            light.shadow = 5;
            fill(&light, INCANDESCENT, 550 / (4 * PI)); // a bulb of 60 W, less what the shade takes
            add(sum, &light, 4 * PI);
            break;
        case LIT_TV:
        case LIT_MONITOR: {
            if (!(part.lit.light == LIT_TV ? state->tv : state->table_lamp))
                break;
            float level[3];
            light_screen(state->time, part.on[0].seed, level);
            const float candela = (part.lit.light == LIT_TV ? 110 : 90) * light.size[0] * light.size[1];
            light.kind = LIGHT_AREA;
            light.shadow = 2;
            for (int band = 0; band < BAND_INFRARED; band++)
                light.strength[band] = candela * level[band];
            light.strength[BAND_INFRARED] = candela * (level[0] + level[1]) * 0.005f;
            add(sum, &light, PI);
            break;
        }
        }
    }
    if (state->corridor_lamp && state->door > 0) {
        // Light falls in through the opening, from the corridor's wall behind it.
        const plan_opening *door = &room->plan->door;
        const scene_place wall = room_wall(room->plan->size, door->wall);
        const float open = sinf(std::min(90.f, state->door) * PI / 180);
        scene_light light;
        light.kind = LIGHT_AREA;
        light.position = scene_put(wall, {door->along, WALL_THICK + CORRIDOR_DEEP * 0.7f, 2.1f});
        light.direction = wall.y * -1;
        light.size[0] = 1;
        light.size[1] = 0.4f;
        light.window_centre =
            scene_put(wall, {door->along + door->width / 2 * (1 - open), 0, door->height / 2});
        light.window_u = wall.x * (door->width / 2 * open);
        light.window_v = {0, 0, door->height / 2};
        light.through_window = true;
        light.shadow = 4;
        fill(&light, LED_WARM, 160);
        add(sum, &light, open * door->width * door->height / 1.5f);
    }
}

void camera_lamps(const room_state *state, adding *sum)
{
    const float pan = state->view.pan * PI / 180, tilt = state->view.tilt * PI / 180;
    scene_light light;
    light.kind = LIGHT_SPOT;
    light.position = state->view.position;
    light.direction = {cosf(tilt) * sinf(pan), cosf(tilt) * cosf(pan), sinf(tilt)};
    light.half_angle = 38;
    light.size[0] = light.size[1] = 0.02f;
    light.shadow = 0; // its shadows hide behind what throws them
    const float radians = 2 * PI * (1 - cosf(42 * PI / 180));
    if (state->infrared_lamp && state->infrared_level > 0) {
        const float infrared[BANDS] = {0, 0, 0, 1};
        // Half a watt per steradian at 850 nm, where 1 mW/m2 answers like 0.38 lux.
        fill(&light, infrared, 190 * std::min(1.f, state->infrared_level));
        add(sum, &light, radians);
    }
    if (state->white_lamp && state->white_level > 0) {
        fill(&light, LED_COLD, 120 * std::min(1.f, state->white_level)); // some 200 lm
        add(sum, &light, radians);
    }
}
} // namespace

void room_lights(const room *room, const room_state *state, scene_snapshot *snapshot)
{
    adding sum = {snapshot, {0, 0, 0, 0}};
    daylight(room, state, &sum);
    lamps(room, state, &sum);
    camera_lamps(state, &sum);
    for (int band = 0; band < BANDS; band++) {
        const float r = std::min(0.95f, room->mean[band]);
        snapshot->ambient[band] += sum.flux[band] / room->area * r / (1 - r);
    }
}

// Light across the way from a lamp at a point, per unit of strength, and where it comes from.
static float falls(const scene_light *light, scene_vec point, scene_vec *towards)
{
    if (light->kind == LIGHT_SUN) {
        *towards = light->direction * -1;
        if (!light->through_window)
            return 1;
    } else {
        *towards = scene_unit(light->position - point);
    }
    if (light->through_window) {
        const scene_vec normal = scene_cross(light->window_u, light->window_v);
        const float along = scene_dot(*towards, normal);
        if (fabsf(along) < 1e-9f)
            return 0;
        const float reach = scene_dot(light->window_centre - point, normal) / along;
        if (reach <= 0)
            return 0;
        const scene_vec hit = point + *towards * reach - light->window_centre;
        if (fabsf(scene_dot(hit, light->window_u)) > scene_dot(light->window_u, light->window_u) ||
            fabsf(scene_dot(hit, light->window_v)) > scene_dot(light->window_v, light->window_v))
            return 0;
    }
    if (light->kind == LIGHT_SUN)
        return 1;
    const float away = scene_length(light->position - point),
                cosine = scene_dot(*towards, light->direction * -1);
    const float area = light->kind == LIGHT_AREA ? light->size[0] * light->size[1] : 1e-4f;
    float fall = 1 / (away * away + area / PI); // finite within the lamp
    if (light->kind == LIGHT_AREA)
        fall *= std::max(0.f, cosine);
    if (light->kind == LIGHT_SPOT) {
        // A power of the cosine that is a half at half_angle: the pattern of LEDs (Moreno and Sun 2008).
        const float half = std::max(1.f, std::min(85.f, light->half_angle)) * PI / 180;
        fall *= powf(std::max(0.f, cosine), logf(0.5f) / logf(cosf(half)));
    }
    return fall;
}

void scene_light_at(const scene_snapshot *snapshot, scene_vec point, float *lux, float *infrared)
{
    float sum[BANDS];
    for (int band = 0; band < BANDS; band++)
        sum[band] = snapshot->ambient[band];
    for (const scene_light &light : snapshot->lights) {
        scene_vec towards;
        const float fall = falls(&light, point, &towards);
        const float upright = sqrtf(towards.x * towards.x + towards.y * towards.y);
        for (int band = 0; band < BANDS; band++)
            sum[band] += light.strength[band] * fall * upright;
    }
    *lux = 0.2126f * sum[BAND_RED] + 0.7152f * sum[BAND_GREEN] + 0.0722f * sum[BAND_BLUE];
    *infrared = sum[BAND_INFRARED];
}
