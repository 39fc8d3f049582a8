// The table of materials. Visible reflectances are linear (not display values) and of the size that paint
// charts and daylight measurements of interiors give: white paint 0.7 to 0.8, oak 0.3, dark fabric 0.04. Near
// infrared follows what the materials do there: cellulose, wool, wood and leaves turn bright because most
// dyes and chlorophyll take only visible light (leaves reflect about half from 750 nm on); carbon black,
// glass and water stay dark; metals and white paint (titanium dioxide) change little.
#include "stuff.h"

namespace
{
struct stuff_row {
    stuff what;
    scene_pattern pattern;
    float size, gloss, through;
    float first[BANDS], second[BANDS];
};

// Rows of one stuff stand together: its variants.
const stuff_row table[] = {
    {STUFF_WALL, PATTERN_NOISE, 0.6f, 0, 0, {.72f, .70f, .64f, .76f}, {.70f, .68f, .61f, .75f}},
    {STUFF_WALL, PATTERN_NOISE, 0.6f, 0, 0, {.66f, .66f, .64f, .72f}, {.64f, .64f, .62f, .71f}},
    {STUFF_WALL, PATTERN_NOISE, 0.6f, 0, 0, {.64f, .58f, .46f, .72f}, {.62f, .56f, .44f, .71f}},
    {STUFF_WALL, PATTERN_NOISE, 0.6f, 0, 0, {.55f, .61f, .60f, .70f}, {.53f, .59f, .58f, .69f}},
    {STUFF_WALL_OTHER, PATTERN_NOISE, 0.5f, 0, 0, {.34f, .38f, .36f, .62f}, {.32f, .36f, .34f, .61f}},
    {STUFF_WALL_OTHER, PATTERN_STRIPES_U, 0.24f, 0, 0, {.62f, .58f, .50f, .72f}, {.52f, .48f, .40f, .70f}},
    {STUFF_WALL_OTHER, PATTERN_NOISE, 0.5f, 0, 0, {.24f, .33f, .40f, .60f}, {.22f, .31f, .38f, .59f}},
    {STUFF_WALL_OTHER, PATTERN_NOISE, 0.5f, 0, 0, {.56f, .44f, .34f, .68f}, {.54f, .42f, .32f, .67f}},
    {STUFF_CEILING, PATTERN_PLAIN, 1, 0, 0, {.80f, .80f, .78f, .82f}, {.80f, .80f, .78f, .82f}},
    {STUFF_SKIRTING, PATTERN_PLAIN, 1, .2f, 0, {.70f, .69f, .66f, .75f}, {.70f, .69f, .66f, .75f}},
    {STUFF_OAK_FLOOR, PATTERN_WOOD, 0.12f, .35f, 0, {.38f, .25f, .13f, .56f}, {.30f, .19f, .09f, .50f}},
    {STUFF_OAK_FLOOR, PATTERN_WOOD, 0.18f, .25f, 0, {.44f, .34f, .22f, .60f}, {.37f, .28f, .17f, .55f}},
    {STUFF_DARK_FLOOR, PATTERN_WOOD, 0.12f, .35f, 0, {.16f, .09f, .05f, .40f}, {.11f, .065f, .035f, .34f}},
    {STUFF_TILES, PATTERN_CHECKS, 0.66f, .45f, 0, {.46f, .44f, .41f, .50f}, {.41f, .39f, .36f, .46f}},
    {STUFF_TILES, PATTERN_CHECKS, 0.60f, .45f, 0, {.58f, .57f, .54f, .60f}, {.26f, .26f, .27f, .34f}},
    {STUFF_CARPET, PATTERN_NOISE, 0.05f, 0, 0, {.20f, .20f, .22f, .42f}, {.16f, .16f, .18f, .38f}},
    {STUFF_CARPET, PATTERN_NOISE, 0.05f, 0, 0, {.30f, .26f, .20f, .50f}, {.25f, .21f, .16f, .46f}},
    {STUFF_DOOR, PATTERN_PLAIN, 1, .25f, 0, {.66f, .65f, .61f, .72f}, {.66f, .65f, .61f, .72f}},
    {STUFF_DOOR, PATTERN_WOOD, 1.2f, .25f, 0, {.33f, .20f, .10f, .52f}, {.28f, .17f, .08f, .48f}},
    {STUFF_WHITE_LACQUER, PATTERN_PLAIN, 1, .35f, 0, {.72f, .72f, .70f, .76f}, {.72f, .72f, .70f, .76f}},
    {STUFF_METAL, PATTERN_PLAIN, 1, .6f, 0, {.42f, .42f, .42f, .46f}, {.42f, .42f, .42f, .46f}},
    {STUFF_DARK_METAL, PATTERN_PLAIN, 1, .4f, 0, {.07f, .07f, .07f, .12f}, {.07f, .07f, .07f, .12f}},
    {STUFF_CHROME, PATTERN_PLAIN, 1, .9f, 0, {.55f, .56f, .57f, .60f}, {.55f, .56f, .57f, .60f}},
    {STUFF_GLASS_DARK, PATTERN_PLAIN, 1, .9f, 0, {.012f, .012f, .014f, .02f}, {.012f, .012f, .014f, .02f}},
    {STUFF_BLACK_PLASTIC, PATTERN_PLAIN, 1, .3f, 0, {.03f, .03f, .03f, .05f}, {.03f, .03f, .03f, .05f}},
    {STUFF_GREY_PLASTIC, PATTERN_PLAIN, 1, .3f, 0, {.25f, .25f, .26f, .34f}, {.25f, .25f, .26f, .34f}},
    {STUFF_WHITE_PLASTIC, PATTERN_PLAIN, 1, .4f, 0, {.68f, .68f, .67f, .74f}, {.68f, .68f, .67f, .74f}},
    {STUFF_LIGHT_WOOD, PATTERN_WOOD, 1.0f, .25f, 0, {.50f, .39f, .25f, .66f}, {.45f, .34f, .21f, .62f}},
    {STUFF_LIGHT_WOOD, PATTERN_PLAIN, 0.5f, .25f, 0, {.68f, .67f, .64f, .73f}, {.68f, .67f, .64f, .73f}},
    {STUFF_WOOD, PATTERN_WOOD, 1.0f, .25f, 0, {.30f, .18f, .09f, .52f}, {.25f, .145f, .07f, .47f}},
    {STUFF_WOOD, PATTERN_WOOD, 1.0f, .25f, 0, {.38f, .26f, .15f, .58f}, {.33f, .22f, .12f, .53f}},
    {STUFF_DARK_WOOD, PATTERN_WOOD, 1.0f, .3f, 0, {.10f, .058f, .035f, .34f}, {.075f, .043f, .027f, .30f}},
    {STUFF_SOFA, PATTERN_WEAVE, 0.02f, 0, 0, {.09f, .10f, .12f, .42f}, {.075f, .085f, .10f, .39f}},
    {STUFF_SOFA, PATTERN_WEAVE, 0.02f, 0, 0, {.33f, .30f, .25f, .56f}, {.29f, .26f, .215f, .53f}},
    {STUFF_SOFA, PATTERN_WEAVE, 0.02f, 0, 0, {.06f, .10f, .17f, .45f}, {.05f, .085f, .145f, .42f}},
    {STUFF_SOFA, PATTERN_PLAIN, 0.02f, .25f, 0, {.16f, .075f, .04f, .40f}, {.16f, .075f, .04f, .40f}},
    {STUFF_SOFA, PATTERN_WEAVE, 0.02f, 0, 0, {.12f, .15f, .09f, .46f}, {.10f, .13f, .08f, .43f}},
    {STUFF_CUSHION, PATTERN_STRIPES_U, 0.08f, 0, 0, {.62f, .58f, .50f, .70f}, {.45f, .16f, .10f, .60f}},
    {STUFF_CUSHION, PATTERN_PLAIN, 0.08f, 0, 0, {.55f, .36f, .06f, .66f}, {.55f, .36f, .06f, .66f}},
    {STUFF_CUSHION, PATTERN_DOTS, 0.07f, 0, 0, {.10f, .22f, .26f, .55f}, {.60f, .60f, .55f, .70f}},
    {STUFF_CUSHION, PATTERN_CHECKS, 0.10f, 0, 0, {.62f, .60f, .56f, .70f}, {.22f, .22f, .24f, .52f}},
    {STUFF_THROW, PATTERN_PLAID, 0.16f, 0, 0, {.45f, .12f, .08f, .62f}, {.12f, .12f, .16f, .50f}},
    {STUFF_THROW, PATTERN_WEAVE, 0.05f, 0, 0, {.60f, .56f, .48f, .70f}, {.50f, .46f, .38f, .66f}},
    {STUFF_CHAIR_CLOTH, PATTERN_WEAVE, 0.02f, 0, 0, {.05f, .05f, .06f, .34f}, {.04f, .04f, .05f, .31f}},
    {STUFF_CHAIR_CLOTH, PATTERN_WEAVE, 0.02f, 0, 0, {.08f, .13f, .22f, .44f}, {.07f, .115f, .19f, .41f}},
    {STUFF_RUG, PATTERN_PLAID, 0.55f, 0, 0, {.42f, .37f, .29f, .58f}, {.24f, .14f, .11f, .52f}},
    {STUFF_RUG, PATTERN_STRIPES_V, 0.40f, 0, 0, {.52f, .50f, .45f, .64f}, {.22f, .24f, .28f, .50f}},
    {STUFF_RUG, PATTERN_NOISE, 0.08f, 0, 0, {.50f, .46f, .40f, .64f}, {.42f, .38f, .33f, .60f}},
    {STUFF_RUG, PATTERN_DOTS, 0.35f, 0, 0, {.16f, .22f, .34f, .52f}, {.58f, .56f, .48f, .66f}},
    {STUFF_BEDDING, PATTERN_PLAIN, 0.1f, 0, 0, {.62f, .62f, .60f, .72f}, {.62f, .62f, .60f, .72f}},
    {STUFF_BEDDING, PATTERN_STRIPES_V, 0.24f, 0, 0, {.60f, .60f, .58f, .70f}, {.24f, .34f, .46f, .62f}},
    {STUFF_BEDDING, PATTERN_PLAID, 0.30f, 0, 0, {.36f, .38f, .44f, .62f}, {.16f, .17f, .24f, .52f}},
    {STUFF_BEDDING, PATTERN_DOTS, 0.16f, 0, 0, {.20f, .30f, .28f, .60f}, {.58f, .58f, .52f, .70f}},
    {STUFF_SHEET, PATTERN_PLAIN, 0.1f, 0, 0, {.68f, .68f, .66f, .74f}, {.68f, .68f, .66f, .74f}},
    {STUFF_PILLOW, PATTERN_PLAIN, 0.1f, 0, 0, {.70f, .70f, .68f, .76f}, {.70f, .70f, .68f, .76f}},
    {STUFF_PILLOW, PATTERN_STRIPES_U, 0.1f, 0, 0, {.64f, .64f, .62f, .72f}, {.40f, .48f, .56f, .68f}},
    {STUFF_CURTAIN, PATTERN_WEAVE, 0.03f, 0, .30f, {.60f, .57f, .50f, .70f}, {.54f, .51f, .45f, .67f}},
    {STUFF_CURTAIN, PATTERN_STRIPES_U, 0.24f, 0, .22f, {.52f, .54f, .52f, .68f}, {.28f, .34f, .36f, .60f}},
    {STUFF_CURTAIN, PATTERN_PLAIN, 0.1f, 0, .12f, {.34f, .16f, .10f, .58f}, {.34f, .16f, .10f, .58f}},
    {STUFF_CURTAIN, PATTERN_PLAIN, 0.1f, 0, .12f, {.14f, .20f, .26f, .56f}, {.14f, .20f, .26f, .56f}},
    {STUFF_SHADE, PATTERN_PLAIN, 0.1f, 0, .5f, {.66f, .62f, .52f, .72f}, {.66f, .62f, .52f, .72f}},
    {STUFF_LEAF, PATTERN_NOISE, 0.08f, .1f, .2f, {.045f, .11f, .025f, .55f}, {.06f, .15f, .035f, .58f}},
    {STUFF_LEAF, PATTERN_NOISE, 0.08f, .1f, .2f, {.03f, .075f, .025f, .50f}, {.05f, .11f, .04f, .54f}},
    {STUFF_POT, PATTERN_PLAIN, 0.1f, .1f, 0, {.40f, .17f, .09f, .52f}, {.40f, .17f, .09f, .52f}},
    {STUFF_POT, PATTERN_PLAIN, 0.1f, .4f, 0, {.62f, .62f, .60f, .68f}, {.62f, .62f, .60f, .68f}},
    {STUFF_SOIL, PATTERN_NOISE, 0.03f, 0, 0, {.06f, .045f, .03f, .15f}, {.04f, .03f, .02f, .10f}},
    {STUFF_PAPER, PATTERN_PLAIN, 0.1f, 0, 0, {.74f, .74f, .72f, .78f}, {.74f, .74f, .72f, .78f}},
    {STUFF_BOOK_A, PATTERN_PLAIN, 0.1f, .15f, 0, {.36f, .06f, .05f, .60f}, {.36f, .06f, .05f, .60f}},
    {STUFF_BOOK_A, PATTERN_PLAIN, 0.1f, .15f, 0, {.50f, .24f, .05f, .64f}, {.50f, .24f, .05f, .64f}},
    {STUFF_BOOK_B, PATTERN_PLAIN, 0.1f, .15f, 0, {.05f, .11f, .24f, .52f}, {.05f, .11f, .24f, .52f}},
    {STUFF_BOOK_B, PATTERN_PLAIN, 0.1f, .15f, 0, {.06f, .18f, .20f, .50f}, {.06f, .18f, .20f, .50f}},
    {STUFF_BOOK_C, PATTERN_PLAIN, 0.1f, .15f, 0, {.62f, .60f, .52f, .70f}, {.62f, .60f, .52f, .70f}},
    {STUFF_BOOK_D, PATTERN_PLAIN, 0.1f, .15f, 0, {.07f, .16f, .08f, .48f}, {.07f, .16f, .08f, .48f}},
    {STUFF_BOOK_D, PATTERN_PLAIN, 0.1f, .15f, 0, {.54f, .44f, .08f, .66f}, {.54f, .44f, .08f, .66f}},
    {STUFF_BOOK_E, PATTERN_PLAIN, 0.1f, .15f, 0, {.035f, .035f, .04f, .10f}, {.035f, .035f, .04f, .10f}},
    {STUFF_CARDBOARD, PATTERN_NOISE, 0.3f, 0, 0, {.42f, .30f, .18f, .62f}, {.40f, .28f, .165f, .60f}},
    {STUFF_PICTURE_A, PATTERN_PICTURE, 1, .3f, 0, {.60f, .56f, .48f, .68f}, {.12f, .22f, .34f, .50f}},
    {STUFF_PICTURE_A, PATTERN_PICTURE, 1, .3f, 0, {.52f, .58f, .62f, .66f}, {.16f, .24f, .12f, .54f}},
    {STUFF_PICTURE_B, PATTERN_PICTURE, 1, .3f, 0, {.66f, .62f, .54f, .70f}, {.42f, .16f, .08f, .58f}},
    {STUFF_PICTURE_B, PATTERN_PICTURE, 1, .3f, 0, {.16f, .16f, .20f, .40f}, {.58f, .52f, .40f, .66f}},
    {STUFF_PICTURE_C, PATTERN_PICTURE, 1, .3f, 0, {.60f, .60f, .60f, .66f}, {.08f, .08f, .09f, .20f}},
    {STUFF_PICTURE_C, PATTERN_PICTURE, 1, .3f, 0, {.50f, .40f, .26f, .62f}, {.10f, .18f, .20f, .48f}},
    {STUFF_POSTER, PATTERN_PERSON, 1, .2f, 0, {.58f, .62f, .64f, .66f}, {.14f, .10f, .16f, .44f}},
    {STUFF_WORKTOP, PATTERN_NOISE, 0.02f, .4f, 0, {.16f, .16f, .16f, .26f}, {.10f, .10f, .10f, .18f}},
    {STUFF_WORKTOP, PATTERN_WOOD, 1.0f, .3f, 0, {.40f, .27f, .15f, .58f}, {.34f, .22f, .12f, .53f}},
    {STUFF_CABINET, PATTERN_PLAIN, 1, .35f, 0, {.70f, .69f, .66f, .75f}, {.70f, .69f, .66f, .75f}},
    {STUFF_CABINET, PATTERN_PLAIN, 1, .25f, 0, {.25f, .31f, .29f, .56f}, {.25f, .31f, .29f, .56f}},
    {STUFF_CABINET, PATTERN_WOOD, 1.0f, .25f, 0, {.40f, .27f, .15f, .58f}, {.34f, .22f, .12f, .53f}},
    {STUFF_WALL_TILES, PATTERN_CHECKS, 0.2f, .6f, 0, {.68f, .68f, .66f, .70f}, {.62f, .63f, .62f, .66f}},
    {STUFF_CERAMIC, PATTERN_PLAIN, 1, .6f, 0, {.70f, .70f, .69f, .74f}, {.70f, .70f, .69f, .74f}},
    {STUFF_TOY_RED, PATTERN_PLAIN, 1, .3f, 0, {.46f, .05f, .04f, .58f}, {.46f, .05f, .04f, .58f}},
    {STUFF_TOY_YELLOW, PATTERN_PLAIN, 1, .3f, 0, {.64f, .46f, .05f, .68f}, {.64f, .46f, .05f, .68f}},
    {STUFF_TOY_BLUE, PATTERN_PLAIN, 1, .3f, 0, {.05f, .16f, .44f, .54f}, {.05f, .16f, .44f, .54f}},
    {STUFF_TOY_GREEN, PATTERN_PLAIN, 1, .3f, 0, {.10f, .36f, .10f, .56f}, {.10f, .36f, .10f, .56f}},
    {STUFF_PLUSH, PATTERN_NOISE, 0.03f, 0, 0, {.36f, .22f, .11f, .58f}, {.30f, .18f, .09f, .53f}},
    {STUFF_COAT, PATTERN_PLAIN, 0.1f, 0, 0, {.035f, .04f, .06f, .40f}, {.035f, .04f, .06f, .40f}},
    {STUFF_COAT, PATTERN_PLAIN, 0.1f, 0, 0, {.26f, .18f, .10f, .54f}, {.26f, .18f, .10f, .54f}},
    {STUFF_COAT, PATTERN_PLAIN, 0.1f, 0, 0, {.22f, .04f, .05f, .50f}, {.22f, .04f, .05f, .50f}},
    {STUFF_SCARF, PATTERN_STRIPES_V, 0.1f, 0, 0, {.50f, .10f, .08f, .62f}, {.60f, .56f, .46f, .70f}},
    {STUFF_WICKER, PATTERN_WEAVE, 0.05f, 0, 0, {.36f, .25f, .14f, .56f}, {.22f, .14f, .075f, .44f}},
    {STUFF_MIRROR, PATTERN_PLAIN, 1, .95f, 0, {.34f, .35f, .36f, .36f}, {.34f, .35f, .36f, .36f}},
    {STUFF_SCREEN_ON, PATTERN_SCREEN, 1, .5f, 0, {.02f, .02f, .02f, .02f}, {.02f, .02f, .02f, .02f}},
    {STUFF_GLOW, PATTERN_PLAIN, 1, 0, 0, {.70f, .68f, .60f, .74f}, {.70f, .68f, .60f, .74f}},
};
const int rows = static_cast<int>(sizeof table / sizeof table[0]);
} // namespace

int stuff_variants(stuff what)
{
    int count = 0;
    for (int i = 0; i < rows; i++)
        count += table[i].what == what;
    return count;
}

scene_material stuff_material(stuff what, uint32_t seed)
{
    scene_random random = {seed * UINT64_C(0x9e3779b1) + static_cast<uint64_t>(what) * UINT64_C(0x85ebca6b)};
    scene_material material;
    const int variants = stuff_variants(what);
    if (variants == 0)
        return material;
    int wanted = static_cast<int>(scene_next(&random) % static_cast<uint64_t>(variants));
    for (int i = 0; i < rows; i++) {
        if (table[i].what != what || wanted-- > 0)
            continue;
        for (int band = 0; band < BANDS; band++) {
            material.first[band] = table[i].first[band];
            material.second[band] = table[i].second[band];
        }
        material.pattern = table[i].pattern;
        material.size = table[i].size;
        material.gloss = table[i].gloss;
        material.through = table[i].through;
        material.seed = static_cast<uint32_t>(scene_next(&random));
        break;
    }
    return material;
}
