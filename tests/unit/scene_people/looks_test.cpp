// Bodies at rest: their size, their surfaces, what they wear, and that no two variants are alike.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "posed.h"

namespace
{
scene_mesh standing(int variant)
{
    return posed(made(person_variant(variant)), usual(PERSON_STAND));
}

TEST(Looks, ActivitiesHaveTheNamesThatSceneFilesUse)
{
    const char *const names[] = {"stand", "walk",   "run",   "sit",  "desk",
                                 "lie",   "crouch", "carry", "wave", "fallen"};
    for (int i = 0; i < PERSON_ACTIVITIES; i++)
        EXPECT_STREQ(person_activity_name(i), names[i]);
    EXPECT_EQ(person_activity_name(PERSON_ACTIVITIES), nullptr);
    EXPECT_EQ(person_activity_name(-1), nullptr);
}

TEST(Looks, EveryBodyHasTwoToFiveThousandTriangles)
{
    for (int i = 0; i < PERSON_VARIANTS; i++) {
        const size_t triangles = standing(i).indices.size() / 3;
        EXPECT_GE(triangles, 2000u) << "variant " << i;
        EXPECT_LE(triangles, 5000u) << "variant " << i;
    }
}

TEST(Looks, BodiesAreAsTallAsSaidAndStandOnTheFloor)
{
    for (int i = 0; i < PERSON_VARIANTS; i++) {
        const person_look look = person_variant(i);
        const bounds b = bounds_of(standing(i));
        EXPECT_NEAR(b.low.z, 0, 0.01f) << "variant " << i;
        EXPECT_NEAR(b.high.z, look.height, 0.06f) << "variant " << i;
    }
}

TEST(Looks, SegmentsAreOfDrillisAndContinisLengths)
{
    const figure f = figure_make(1.75f, 0.5f, 0);
    EXPECT_NEAR(f.rest[BONE_THIGH].z, 0.530f * 1.75f, 1e-4f);
    EXPECT_NEAR(f.rest[BONE_SHIN].z, 0.285f * 1.75f, 1e-4f);
    EXPECT_NEAR(f.arm, 0.186f * 1.75f, 1e-4f);
    EXPECT_NEAR(f.forearm, 0.146f * 1.75f, 1e-4f);
    EXPECT_NEAR(f.hand, 0.108f * 1.75f, 1e-4f);
    EXPECT_NEAR(f.head, 0.130f * 1.75f, 1e-4f);
    EXPECT_NEAR(f.toe - f.heel, 0.152f * 1.75f, 1e-4f);
}

TEST(Looks, ChildrenHaveLargerHeadsAndShorterLegs)
{
    const figure child = figure_make(1.05f, 0.5f, 0), adult = figure_make(1.75f, 0.5f, 0);
    EXPECT_GT(child.head / child.height, 1.3f * adult.head / adult.height);
    EXPECT_LT(child.rest[BONE_THIGH].z / child.height, adult.rest[BONE_THIGH].z / adult.height);
}

TEST(Looks, TheLeftSideMirrorsTheRight)
{
    const figure f = figure_make(1.7f, 0.8f, 0.3f);
    for (int b = BONE_PAIRED; b < BONE_PAIRED + BONES_A_SIDE; b++) {
        const scene_vec r = f.rest[figure_bone_of(FIGURE_RIGHT, b)],
                        l = f.rest[figure_bone_of(FIGURE_LEFT, b)];
        EXPECT_GT(r.x, 0) << b;
        EXPECT_FLOAT_EQ(r.x, -l.x) << b;
        EXPECT_FLOAT_EQ(r.y, l.y) << b;
        EXPECT_FLOAT_EQ(r.z, l.z) << b;
    }
}

TEST(Looks, NormalsAreOfUnitLengthAndPointOut)
{
    for (int i = 0; i < PERSON_VARIANTS; i++) {
        const scene_mesh m = standing(i);
        for (const scene_vertex &v : m.vertices)
            ASSERT_NEAR(scene_length(v.normal), 1, 1e-3f);
        size_t agree = 0, triangles = 0;
        double volume = 0;
        for (size_t t = 0; t < m.indices.size(); t += 3) {
            const scene_vertex &a = m.vertices[m.indices[t]], &b = m.vertices[m.indices[t + 1]],
                               &c = m.vertices[m.indices[t + 2]];
            const scene_vec n = scene_cross(b.position - a.position, c.position - a.position);
            volume += static_cast<double>(scene_dot(a.position, scene_cross(b.position, c.position)) / 6);
            if (scene_length(n) < 1e-8f)
                continue; // the box of empty hands
            triangles++;
            agree += scene_dot(n, a.normal + b.normal + c.normal) > 0;
        }
        EXPECT_GE(agree, triangles * 99 / 100) << "variant " << i;
        // Turned inside out it would be negative. Parts overlap, and clothes are wider than who is in them.
        const double height = static_cast<double>(person_variant(i).height);
        EXPECT_GT(volume, 0.008 * height * height * height) << "variant " << i;
        EXPECT_LT(volume, 0.050 * height * height * height) << "variant " << i;
    }
}

// Outwards at well-known places: chest, back, crown, soles, both sides.
TEST(Looks, TheExtremePointsFaceOutwards)
{
    const scene_mesh m = posed(made(person_variant(0)), usual(PERSON_STAND));
    const scene_vertex *crown = &m.vertices[0], *right = crown, *left = crown;
    for (size_t i = 0; i + BODY_BOX_VERTICES < m.vertices.size(); i++) {
        const scene_vertex &v = m.vertices[i];
        crown = v.position.z > crown->position.z ? &v : crown;
        right = v.position.x > right->position.x ? &v : right;
        left = v.position.x < left->position.x ? &v : left;
    }
    EXPECT_GT(crown->normal.z, 0.5f);
    EXPECT_GT(right->normal.x, 0.3f);
    EXPECT_LT(left->normal.x, -0.3f);
    const scene_vertex *front = nullptr, *back = nullptr;
    for (const scene_vertex &v : m.vertices)
        if (v.material == BODY_TOP && fabsf(v.position.z - 1.25f) < 0.1f && fabsf(v.position.x) < 0.08f) {
            front = !front || v.position.y > front->position.y ? &v : front;
            back = !back || v.position.y < back->position.y ? &v : back;
        }
    ASSERT_TRUE(front && back);
    EXPECT_GT(front->normal.y, 0.7f);
    EXPECT_LT(back->normal.y, -0.7f);
}

TEST(Looks, EveryTriangleIsOfOneMaterialThatThereIs)
{
    for (int i = 0; i < PERSON_VARIANTS; i++) {
        const person_owner p = made(person_variant(i));
        const scene_mesh m = posed(p, usual(PERSON_STAND));
        ASSERT_EQ(person_materials(p.get())->size(), static_cast<size_t>(BODY_MATERIALS));
        for (size_t t = 0; t < m.indices.size(); t += 3) {
            const uint32_t material = m.vertices[m.indices[t]].material;
            ASSERT_LT(material, static_cast<uint32_t>(BODY_MATERIALS));
            ASSERT_EQ(material, m.vertices[m.indices[t + 1]].material);
            ASSERT_EQ(material, m.vertices[m.indices[t + 2]].material);
        }
    }
}

TEST(Looks, ReflectancesAreBelievable)
{
    scene_random random = {5};
    for (int i = 0; i < PERSON_VARIANTS + 40; i++) {
        const person_look look = i < PERSON_VARIANTS ? person_variant(i) : person_random(&random);
        for (const scene_material *m :
             {&look.skin, &look.hair, &look.top, &look.bottom, &look.shoes, &look.accent})
            for (int b = 0; b < BANDS; b++) {
                EXPECT_GT(m->first[b], 0.01f);
                EXPECT_LT(m->first[b], 0.9f);
                EXPECT_GT(m->second[b], 0.01f);
                EXPECT_LT(m->second[b], 0.9f);
            }
        // Melanin is clear in infrared: dark skin is nearly as bright there as light skin.
        EXPECT_GT(look.skin.first[BAND_INFRARED], 0.4f);
        EXPECT_GT(look.skin.first[BAND_RED], look.skin.first[BAND_BLUE]);
    }
}

TEST(Looks, SomethingDarkByDayIsBrightInInfrared)
{
    int bright = 0, dark = 0;
    for (int i = 0; i < PERSON_VARIANTS; i++) {
        const person_look look = person_variant(i);
        for (const scene_material *m : {&look.top, &look.bottom})
            if (m->first[BAND_GREEN] < 0.1f) {
                bright += m->first[BAND_INFRARED] > 0.3f;
                dark += m->first[BAND_INFRARED] < 0.2f;
            }
    }
    EXPECT_GT(bright, 2);
    EXPECT_GT(dark, 2);
}

// Otherwise an infrared picture shows one pale figure without parts.
TEST(Looks, TopBottomAndSkinDifferInInfrared)
{
    scene_random random = {9};
    for (int i = 0; i < PERSON_VARIANTS + 60; i++) {
        const person_look look = i < PERSON_VARIANTS ? person_variant(i) : person_random(&random);
        const float skin = look.skin.first[BAND_INFRARED], top = look.top.first[BAND_INFRARED],
                    bottom = look.bottom.first[BAND_INFRARED], shoes = look.shoes.first[BAND_INFRARED];
        EXPECT_GT(fabsf(top - skin), .14f) << i;
        EXPECT_GT(fabsf(top - bottom), .10f) << i;
        EXPECT_GT(fabsf(shoes - bottom), .03f) << i;
    }
}

// What is seen at a glance: height, the colours of top, bottom, hair, skin, the kind of clothes.
TEST(Looks, NoTwoVariantsAreAlike)
{
    for (int i = 0; i < PERSON_VARIANTS; i++)
        for (int j = i + 1; j < PERSON_VARIANTS; j++) {
            const person_look a = person_variant(i), b = person_variant(j);
            float apart = 0;
            for (int band = 0; band < BAND_INFRARED; band++)
                apart += fabsf(a.top.first[band] - b.top.first[band]) +
                         fabsf(a.bottom.first[band] - b.bottom.first[band]) +
                         fabsf(a.hair.first[band] - b.hair.first[band]) +
                         fabsf(a.skin.first[band] - b.skin.first[band]);
            apart += 2 * fabsf(a.height - b.height) + (a.clothes != b.clothes ? 0.5f : 0) +
                     (a.top.pattern != b.top.pattern ? 0.3f : 0);
            EXPECT_GT(apart, 0.25f) << i << " and " << j;
        }
}

TEST(Looks, VariantsGoRound)
{
    EXPECT_FLOAT_EQ(person_variant(PERSON_VARIANTS).height, person_variant(0).height);
    EXPECT_FLOAT_EQ(person_variant(-1).height, person_variant(PERSON_VARIANTS - 1).height);
    EXPECT_FLOAT_EQ(person_variant(std::numeric_limits<int>::min()).height,
                    person_variant(std::numeric_limits<int>::min() + PERSON_VARIANTS).height);
}

TEST(Looks, RandomLooksFollowTheirSeedOnly)
{
    scene_random a = {77}, b = {77}, c = {78};
    const person_look first = person_random(&a), again = person_random(&b), other = person_random(&c);
    EXPECT_TRUE(same_bytes(posed(made(first), usual(PERSON_STAND)), posed(made(again), usual(PERSON_STAND))));
    EXPECT_FALSE(
        same_bytes(posed(made(first), usual(PERSON_STAND)), posed(made(other), usual(PERSON_STAND))));
    scene_random many = {1};
    for (int i = 0; i < 60; i++) {
        const person_look look = person_random(&many);
        EXPECT_GE(look.height, 1.0f);
        EXPECT_LE(look.height, 2.0f);
        EXPECT_LT(look.clothes, CLOTHES_KINDS);
        const size_t triangles = posed(made(look), usual(PERSON_STAND)).indices.size() / 3;
        EXPECT_GE(triangles, 2000u);
        EXPECT_LE(triangles, 5000u);
    }
}

TEST(Looks, NumbersOutsideTheirBoundsAreTakenBack)
{
    const float odd[] = {std::nanf(""), INFINITY, -INFINITY, 1e30f, -1e30f, -5, 50};
    for (const float v : odd) {
        person_look look = person_variant(2);
        look.height = look.build = look.shoulders = look.curves = look.hair_length = look.sleeves = look.hem =
            look.width = v;
        look.clothes = static_cast<int>(1e9f);
        const scene_mesh m = posed(made(look), usual(PERSON_STAND));
        EXPECT_TRUE(all_finite(m)) << v;
        const bounds b = bounds_of(m);
        EXPECT_LT(b.high.z, 2.1f) << v;
        EXPECT_GT(b.high.z, 0.95f) << v;
    }
}

TEST(Looks, ClothesReachWhereTheyShould)
{
    person_look look = person_variant(0);
    look.clothes = CLOTHES_SHORTS;
    const float shorts = bounds_of(posed(made(look), usual(PERSON_STAND)), BODY_BOTTOM).low.z;
    look.clothes = CLOTHES_TROUSERS;
    const float trousers = bounds_of(posed(made(look), usual(PERSON_STAND)), BODY_BOTTOM).low.z;
    look.clothes = CLOTHES_COAT;
    const float coat = bounds_of(posed(made(look), usual(PERSON_STAND)), BODY_TOP).low.z;
    look.clothes = CLOTHES_SKIRT;
    const float skirt = bounds_of(posed(made(look), usual(PERSON_STAND)), BODY_BOTTOM).low.z;
    EXPECT_LT(trousers, 0.10f);
    EXPECT_NEAR(shorts, 0.55f, 0.08f);
    EXPECT_NEAR(coat, 0.50f, 0.12f);
    EXPECT_NEAR(skirt, 0.50f, 0.12f);
}

TEST(Looks, HairCapBeardAndGlassesAreThereWhenSaid)
{
    person_look look = person_variant(0);
    look.hair_length = 1;
    const float to_shoulders = bounds_of(posed(made(look), usual(PERSON_STAND)), BODY_HAIR).low.z;
    look.hair_length = 0.2f;
    const float at_nape = bounds_of(posed(made(look), usual(PERSON_STAND)), BODY_HAIR).low.z;
    EXPECT_LT(to_shoulders, at_nape - 0.1f);
    EXPECT_GT(to_shoulders, 0.75f * look.height);
    look.hair_length = 0;
    const float brows = bounds_of(posed(made(look), usual(PERSON_STAND)), BODY_HAIR).high.z;
    EXPECT_LT(brows, look.height - 0.05f); // only the brows are left
    look.beard = true;
    EXPECT_LT(bounds_of(posed(made(look), usual(PERSON_STAND)), BODY_HAIR).low.z, look.height - 0.2f);
    EXPECT_LT(bounds_of(posed(made(look), usual(PERSON_STAND)), BODY_FRAMES).high.z, 0); // none
    look.glasses = true;
    EXPECT_GT(bounds_of(posed(made(look), usual(PERSON_STAND)), BODY_FRAMES).high.z, look.height - 0.15f);
    look.hem = 1;
    EXPECT_LT(bounds_of(posed(made(look), usual(PERSON_STAND)), BODY_ACCENT).high.z, 0);
    look.cap = true;
    EXPECT_GT(bounds_of(posed(made(look), usual(PERSON_STAND)), BODY_ACCENT).high.z, look.height - 0.02f);
}

TEST(Looks, WeightAndShouldersShow)
{
    person_look look = person_variant(0);
    look.width = 0;
    look.build = 0;
    const bounds thin = bounds_of(posed(made(look), usual(PERSON_STAND)), BODY_BOTTOM);
    look.build = 1;
    const bounds heavy = bounds_of(posed(made(look), usual(PERSON_STAND)), BODY_BOTTOM);
    EXPECT_GT(heavy.high.x, thin.high.x + 0.05f);
    const figure narrow = figure_make(1.75f, 0, 0), broad = figure_make(1.75f, 1, 0);
    EXPECT_GT(broad.rest[BONE_ARM].x, narrow.rest[BONE_ARM].x + 0.02f);
}
} // namespace
