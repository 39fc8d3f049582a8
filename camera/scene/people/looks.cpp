// What people look like: skins, hairs and cloths with their reflectances in four bands, the built-in variants, and
// random ones. Reflectances are linear. In near infrared most dyes are clear: a cloth is bright there whatever its
// colour is by day, unless its black is carbon; skin is bright and even, melanin hardly absorbs; hair is brighter than
// by day.
#include <string.h>

#include <iterator>

#include "body.h"

namespace
{
struct colour {
    float band[BANDS];
};

const colour skins[] = {{{.60f, .43f, .34f, .62f}},   {{.52f, .35f, .26f, .60f}},
                        {{.43f, .27f, .18f, .58f}},   {{.31f, .18f, .115f, .55f}},
                        {{.19f, .105f, .065f, .50f}}, {{.105f, .060f, .040f, .44f}}};
enum hair_colour { BLACK_HAIR, DARK_BROWN, BROWN, AUBURN, BLOND, FAIR, GREY_HAIR, WHITE_HAIR };
const colour hairs[] = {{{.022f, .019f, .018f, 0.060f}}, {{.045f, .028f, .020f, 0.085f}},
                        {{.095f, .055f, .033f, 0.130f}}, {{.17f, .070f, .035f, 0.180f}},
                        {{.30f, .20f, .105f, 0.300f}},   {{.44f, .33f, .20f, 0.400f}},
                        {{.22f, .215f, .21f, 0.220f}},   {{.55f, .54f, .52f, 0.500f}}};
enum cloth {
    WHITE,
    CREAM,
    LIGHT_GREY,
    GREY,
    CHARCOAL,
    BLACK,  // dyed: bright in infrared
    CARBON, // stays black there
    NAVY,
    DENIM,
    PALE_DENIM,
    ROYAL,
    SKY,
    TEAL,
    GREEN,
    OLIVE,
    KHAKI,
    BEIGE,
    BROWN_CLOTH,
    RED,
    WINE,
    ORANGE,
    YELLOW,
    PINK,
    PURPLE,
    CLOTHS
};
const colour cloths[CLOTHS] = {
    {{.76f, .76f, .74f, 0.80f}},    {{.68f, .62f, .50f, 0.72f}},    {{.44f, .44f, .45f, 0.48f}},
    {{.21f, .21f, .22f, 0.30f}},    {{.075f, .077f, .083f, 0.16f}}, {{.028f, .028f, .031f, 0.34f}},
    {{.024f, .024f, .026f, 0.04f}}, {{.032f, .042f, .095f, 0.24f}}, {{.060f, .095f, .190f, 0.32f}},
    {{.24f, .33f, .46f, 0.50f}},    {{.055f, .11f, .42f, 0.55f}},   {{.30f, .48f, .66f, 0.66f}},
    {{.035f, .21f, .23f, 0.40f}},   {{.065f, .25f, .095f, 0.52f}},  {{.125f, .135f, .060f, 0.24f}},
    {{.29f, .24f, .15f, 0.40f}},    {{.50f, .42f, .31f, 0.58f}},    {{.135f, .080f, .048f, 0.20f}},
    {{.48f, .045f, .050f, 0.64f}},  {{.17f, .025f, .045f, 0.50f}},  {{.60f, .20f, .045f, 0.70f}},
    {{.66f, .50f, .075f, 0.74f}},   {{.66f, .34f, .42f, 0.72f}},    {{.20f, .085f, .30f, 0.46f}}};

void set(float *bands, const colour &c)
{
    memcpy(bands, c.band, sizeof c.band);
}

scene_material plain(const colour &c)
{
    scene_material m;
    set(m.first, c);
    set(m.second, c);
    return m;
}

// Cloth is never one flat colour: threads and wear make it lighter and darker by a few parts in a hundred.
scene_material woven(cloth first, uint32_t seed)
{
    scene_material m = plain(cloths[first]);
    for (float &band : m.second)
        band *= .80f;
    m.pattern = PATTERN_WEAVE;
    m.size = 0.012f;
    m.seed = seed;
    return m;
}

scene_material patterned(cloth first, cloth second, scene_pattern pattern, float size, uint32_t seed)
{
    scene_material m = woven(first, seed);
    if (pattern != PATTERN_WEAVE && pattern != PATTERN_PLAIN) {
        // Printed and woven patterns are softer than the bolts of cloth that the colours stand for.
        for (int b = 0; b < BANDS; b++)
            m.second[b] = m.first[b] + (cloths[second].band[b] - m.first[b]) * .5f;
        m.pattern = pattern;
        m.size = size;
    }
    return m;
}

scene_material hair_of(hair_colour c, uint32_t seed)
{
    scene_material m = plain(hairs[c]);
    for (float &band : m.second)
        band *= 1.5f;
    m.pattern = PATTERN_NOISE;
    m.size = .035f;
    m.gloss = .25f;
    m.seed = seed;
    return m;
}

scene_material skin_of(int tone)
{
    scene_material m = plain(skins[tone]);
    m.gloss = .12f;
    return m;
}

struct variant {
    float height, build, shoulders, curves, hair_length;
    person_clothes clothes;
    float sleeves, hem, width;
    bool glasses, cap, beard;
    int skin;
    hair_colour hair;
    cloth top, top_second;
    scene_pattern top_pattern;
    float top_size;
    cloth bottom, shoes, accent;
};
const scene_pattern NONE = PATTERN_WEAVE, LINES = PATTERN_STRIPES_V, CHECK = PATTERN_CHECKS,
                    PLAID = PATTERN_PLAID, DOTS = PATTERN_DOTS;
const person_clothes TROUSERS = CLOTHES_TROUSERS, SHORTS = CLOTHES_SHORTS, SKIRT = CLOTHES_SKIRT,
                     DRESS = CLOTHES_DRESS, COAT = CLOTHES_COAT, HOOD = CLOTHES_HOOD;
const bool no = false, yes = true;
// clang-format off
const variant variants[] = {
    // height build shoulders curves hair, clothes, sleeves hem width, glasses cap beard, skin hair,
    // top with its second colour, pattern and its size, bottom, shoes, accent
    {1.78f, .40f, .70f, .0f, .22f, TROUSERS, 1, .8f, .35f, no, no, no, 1, DARK_BROWN, SKY, WHITE, NONE, .1f, DENIM, WHITE, BROWN_CLOTH},
    {1.66f, .32f, .30f, .75f, .95f, TROUSERS, .5f, .5f, .15f, no, no, no, 0, BLOND, RED, WHITE, NONE, .1f, NAVY, BEIGE, BLACK},
    {1.84f, .55f, .90f, .0f, .12f, TROUSERS, .45f, .9f, .45f, no, no, yes, 2, BLACK_HAIR, CHARCOAL, WHITE, NONE, .1f, KHAKI, BROWN_CLOTH, BLACK},
    {1.70f, .25f, .45f, .6f, .60f, SKIRT, 1, .0f, .20f, yes, no, no, 0, AUBURN, TEAL, WHITE, LINES, .05f, WINE, BLACK, BLACK},
    {1.90f, .30f, .75f, .0f, .25f, COAT, 1, .7f, .30f, no, no, no, 1, BROWN, CHARCOAL, GREY, NONE, .1f, NAVY, BLACK, WHITE},
    {1.62f, .65f, .50f, .7f, .35f, DRESS, .5f, .5f, .45f, no, no, no, 3, BLACK_HAIR, ROYAL, WHITE, DOTS, .06f, NAVY, WINE, BLACK},
    {1.75f, .45f, .65f, .0f, .15f, HOOD, 1, .9f, .55f, no, no, no, 4, BLACK_HAIR, GREY, CHARCOAL, NONE, .1f, BLACK, WHITE, GREY},
    {1.20f, .35f, .45f, .1f, .30f, TROUSERS, .5f, .8f, .40f, no, no, no, 0, BROWN, YELLOW, ROYAL, LINES, .07f, DENIM, RED, BLACK},
    {1.73f, .95f, .75f, .1f, .18f, TROUSERS, 1, .9f, .40f, yes, no, no, 1, GREY_HAIR, WINE, NAVY, PLAID, .11f, CHARCOAL, BLACK, BROWN_CLOTH},
    {1.68f, .40f, .35f, .8f, .85f, TROUSERS, 1, .9f, .50f, no, no, no, 2, DARK_BROWN, CREAM, BEIGE, NONE, .1f, DENIM, WHITE, BROWN_CLOTH},
    {1.80f, .35f, .80f, .0f, .0f, SHORTS, .45f, .8f, .40f, no, no, yes, 1, BROWN, GREEN, WHITE, NONE, .1f, NAVY, WHITE, BLACK},
    {1.58f, .50f, .30f, .6f, .25f, COAT, 1, .5f, .30f, no, no, no, 1, GREY_HAIR, KHAKI, BEIGE, NONE, .1f, BLACK, BROWN_CLOTH, WINE},
    {1.86f, .60f, .85f, .0f, .0f, TROUSERS, 1, .0f, .25f, no, no, no, 5, BLACK_HAIR, WHITE, SKY, NONE, .1f, CHARCOAL, BLACK, BLACK},
    {1.72f, .20f, .40f, .5f, 1.0f, TROUSERS, 0, .4f, .10f, no, no, no, 4, BLACK_HAIR, ORANGE, WHITE, NONE, .1f, DENIM, BEIGE, WHITE},
    {1.76f, .42f, .60f, .0f, .30f, TROUSERS, .5f, .9f, .50f, no, yes, no, 2, DARK_BROWN, NAVY, WHITE, LINES, .09f, OLIVE, WHITE, RED},
    {1.32f, .25f, .40f, .2f, .90f, DRESS, .5f, .5f, .40f, no, no, no, 1, BROWN, WINE, PINK, CHECK, .07f, PINK, WHITE, WHITE},
    {1.82f, .75f, .95f, .0f, .10f, TROUSERS, .5f, .7f, .25f, no, no, yes, 3, BLACK_HAIR, BLACK, WHITE, NONE, .1f, DENIM, BROWN_CLOTH, BLACK},
    {1.64f, .30f, .35f, .6f, .45f, SKIRT, 1, .6f, .60f, no, no, no, 0, DARK_BROWN, TEAL, CREAM, NONE, .1f, CHARCOAL, BLACK, BLACK},
    {1.74f, .38f, .60f, .1f, .28f, TROUSERS, 1, .8f, .40f, yes, no, no, 1, BROWN, GREEN, NAVY, PLAID, .14f, BEIGE, BROWN_CLOTH, BLACK},
    {1.69f, .55f, .55f, .3f, .20f, HOOD, 1, .8f, .60f, no, yes, no, 3, BLACK_HAIR, PURPLE, WHITE, NONE, .1f, GREY, WHITE, CARBON},
    {1.55f, .70f, .40f, .7f, .22f, TROUSERS, 1, .9f, .50f, yes, no, no, 2, GREY_HAIR, PURPLE, PINK, DOTS, .05f, BLACK, BLACK, BLACK},
    {1.88f, .22f, .65f, .0f, .55f, TROUSERS, 1, .7f, .35f, no, no, yes, 0, AUBURN, OLIVE, BLACK, CHECK, .12f, BLACK, BROWN_CLOTH, BLACK},
    {1.71f, .45f, .55f, .4f, .70f, COAT, 1, 1, .25f, no, no, no, 5, BLACK_HAIR, RED, WINE, NONE, .1f, CHARCOAL, BLACK, CREAM},
    {1.05f, .40f, .45f, .0f, .18f, SHORTS, .45f, .8f, .50f, no, no, no, 3, DARK_BROWN, RED, WHITE, LINES, .06f, NAVY, ROYAL, BLACK},
};
// clang-format on
static_assert(std::size(variants) == PERSON_VARIANTS, "one row for each");

void set_infrared(scene_material *m, float to)
{
    const float by = to / m->first[BAND_INFRARED];
    m->first[BAND_INFRARED] *= by;
    m->second[BAND_INFRARED] *= by;
}

// How bright a dye is in infrared hangs on its makers' choice of pigment more than on its colour: of garments that
// would look the same there, one has some carbon black in it, as about every second one has.
void tell_apart(person_look *l)
{
    const float skin = l->skin.first[BAND_INFRARED], top = l->top.first[BAND_INFRARED];
    if (fabsf(top - skin) < .16f)
        set_infrared(&l->top, skin * .50f);
    const float worn = l->top.first[BAND_INFRARED], bottom = l->bottom.first[BAND_INFRARED];
    if (fabsf(bottom - worn) < .14f)
        set_infrared(&l->bottom, worn > .25f ? worn * .45f : worn + .25f);
    if (fabsf(l->shoes.first[BAND_INFRARED] - l->bottom.first[BAND_INFRARED]) < .1f)
        set_infrared(&l->shoes, .05f); // rubber and leather are full of carbon
}

person_look look_of(const variant &v, uint32_t seed)
{
    person_look l = {};
    l.height = v.height;
    l.build = v.build;
    l.shoulders = v.shoulders;
    l.curves = v.curves;
    l.hair_length = v.hair_length;
    l.clothes = v.clothes;
    l.sleeves = v.sleeves;
    l.hem = v.hem;
    l.width = v.width;
    l.glasses = v.glasses;
    l.cap = v.cap;
    l.beard = v.beard;
    l.skin = skin_of(v.skin);
    l.hair = hair_of(v.hair, seed + 1);
    l.top = patterned(v.top, v.top_second, v.top_pattern, v.top_size, seed + 2);
    l.bottom = woven(v.bottom, seed + 3);
    l.shoes = plain(cloths[v.shoes]);
    l.shoes.gloss = .2f;
    l.accent = woven(v.accent, seed + 4);
    tell_apart(&l);
    return l;
}

cloth any_cloth(scene_random *random)
{
    return static_cast<cloth>(scene_next(random) % CLOTHS);
}
} // namespace

person_look person_variant(int index)
{
    const int i = ((index % PERSON_VARIANTS) + PERSON_VARIANTS) % PERSON_VARIANTS;
    return look_of(variants[i], static_cast<uint32_t>(i) * 101 + 7);
}

person_look person_random(scene_random *random)
{
    variant v = {};
    const bool curved = scene_chance(random, .5f), child = scene_chance(random, .12f);
    v.height = child ? scene_uniform(random, 1.0f, 1.5f)
                     : scene_uniform(random, curved ? 1.53f : 1.63f, curved ? 1.80f : 1.95f);
    v.build = scene_uniform(random, .1f, .6f) + (scene_chance(random, .25f) ? .35f : 0);
    v.shoulders = curved ? scene_uniform(random, .2f, .6f) : scene_uniform(random, .5f, 1);
    v.curves = curved && !child ? scene_uniform(random, .4f, .9f) : scene_uniform(random, 0, .2f);
    v.hair_length = curved                       ? scene_uniform(random, .2f, 1)
                    : scene_chance(random, .12f) ? 0
                                                 : scene_uniform(random, .08f, .35f);
    const person_clothes for_all[] = {CLOTHES_TROUSERS, CLOTHES_TROUSERS, CLOTHES_TROUSERS, CLOTHES_TROUSERS,
                                      CLOTHES_SHORTS,   CLOTHES_COAT,     CLOTHES_HOOD};
    v.clothes = curved && scene_chance(random, .3f) ? (scene_chance(random, .5f) ? SKIRT : DRESS)
                                                    : for_all[scene_next(random) % std::size(for_all)];
    const float sleeves[] = {1, 1, .5f, .45f, 0};
    v.sleeves = sleeves[scene_next(random) % (curved ? 5 : 4)];
    v.hem = scene_uniform(random, 0, 1);
    v.width = scene_uniform(random, .1f, .6f);
    v.glasses = scene_chance(random, .25f);
    v.cap = scene_chance(random, .12f);
    v.beard = !curved && !child && scene_chance(random, .3f);
    v.skin = static_cast<int>(scene_next(random) % std::size(skins));
    v.hair = child ? static_cast<hair_colour>(scene_next(random) % 6)
                   : static_cast<hair_colour>(scene_next(random) % std::size(hairs));
    v.top = any_cloth(random);
    v.top_second = any_cloth(random);
    const scene_pattern patterns[] = {PATTERN_STRIPES_V, PATTERN_CHECKS, PATTERN_PLAID, PATTERN_DOTS,
                                      PATTERN_STRIPES_U};
    v.top_pattern = scene_chance(random, .4f) ? patterns[scene_next(random) % std::size(patterns)] : NONE;
    v.top_size = scene_uniform(random, .04f, .14f);
    const cloth bottoms[] = {DENIM, DENIM, NAVY,       BLACK,       CHARCOAL, GREY,
                             KHAKI, BEIGE, PALE_DENIM, BROWN_CLOTH, CARBON,   OLIVE};
    v.bottom = bottoms[scene_next(random) % std::size(bottoms)];
    const cloth shoes[] = {BLACK, WHITE, BROWN_CLOTH, WHITE, GREY, NAVY, RED, CARBON};
    v.shoes = shoes[scene_next(random) % std::size(shoes)];
    v.accent = any_cloth(random);
    return look_of(v, static_cast<uint32_t>(scene_next(random) >> 32));
}

std::vector<scene_material> body_materials(const person_look &look)
{
    std::vector<scene_material> m(BODY_MATERIALS);
    m[BODY_SKIN] = look.skin;
    m[BODY_HAIR] = look.hair;
    m[BODY_TOP] = look.top;
    m[BODY_BOTTOM] = look.bottom;
    m[BODY_SHOES] = look.shoes;
    m[BODY_ACCENT] = look.accent;
    m[BODY_SOLES] = plain({{.45f, .45f, .43f, .5f}});
    if (look.shoes.first[BAND_GREEN] < .2f) // dark shoes, dark soles
        m[BODY_SOLES] = plain({{.05f, .045f, .04f, .06f}});
    m[BODY_SHADE] = look.skin;
    m[BODY_LIPS] = look.skin;
    for (int b = 0; b < BANDS; b++) {
        m[BODY_SHADE].first[b] = m[BODY_SHADE].second[b] =
            look.skin.first[b] * (b == BAND_INFRARED ? .75f : .62f);
        m[BODY_LIPS].first[b] = m[BODY_LIPS].second[b] = look.skin.first[b] * (b == BAND_RED        ? .80f
                                                                               : b == BAND_INFRARED ? .9f
                                                                                                    : .50f);
    }
    m[BODY_EYES] = plain({{.06f, .05f, .045f, .10f}});
    m[BODY_EYES].gloss = .6f;
    m[BODY_FRAMES] = plain({{.03f, .03f, .03f, .06f}});
    m[BODY_FRAMES].gloss = .5f;
    m[BODY_PARCEL] = plain({{.40f, .28f, .165f, .56f}}); // cardboard
    const float label[BANDS] = {.46f, .33f, .20f, .60f};
    memcpy(m[BODY_PARCEL].second, label, sizeof label);
    m[BODY_PARCEL].pattern = PATTERN_NOISE;
    m[BODY_PARCEL].size = .15f;
    return m;
}
