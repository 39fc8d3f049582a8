// From one activity to the next: by way of what a body must do in between. Everything here is in the room's
// coordinates.
#include "moves.h"

#include <algorithm>

namespace
{
bool sits(person_activity a)
{
    return a == PERSON_SIT || a == PERSON_DESK;
}

bool upright(person_activity a)
{
    return !sits(a) && a != PERSON_LIE && a != PERSON_FALLEN;
}

posture placed(const posture &p, scene_vec position, float heading)
{
    return posture_moved(p, -heading, position);
}

posture doing(const figure &f, person_activity activity, const person_moment &at, scene_vec position,
              float heading)
{
    const bool goes = activity == PERSON_WALK || activity == PERSON_RUN || activity == PERSON_CARRY;
    return placed(goes ? moves_gait(f, activity, at)
                       : moves_still(f, activity, at, -clamped(position.z, 0, 1)),
                  position, heading);
}

struct change {
    posture key[3];
    float when[3];
    int keys;
};

posture between(const change &c, float t)
{
    int i = 0;
    while (i + 2 < c.keys && t > c.when[i + 1])
        i++;
    const float part = clamped((t - c.when[i]) / (c.when[i + 1] - c.when[i]), 0, 1);
    return posture_mix(c.key[i], c.key[i + 1], part * part * (3 - 2 * part));
}

// Sits on the edge of what is lain on, at the side where the feet are; on the floor with the back to where the head
// comes.
posture on_the_edge(const figure &f, const person_moment &at, scene_vec bed, float heading, scene_vec from)
{
    if (bed.z < 0.25f)
        return placed(moves_still(f, PERSON_SIT, at, 0), bed, heading + 180);
    const scene_place place = scene_standing(bed, heading);
    const float side = scene_dot(from - bed, place.x) < 0 ? -1.f : 1.f;
    return placed(moves_still(f, PERSON_SIT, at, -bed.z), bed + place.x * (side * .32f), heading + 90 * side);
}

// Leans the trunk forwards where it bends: in the hips.
void lean(posture *p, float degrees)
{
    p->hips = p->hips * turn_x(-degrees * .7f);
    p->waist = p->waist * turn_x(-degrees * .3f);
}
} // namespace

posture moves_posture(const figure &f, const person_moment &at)
{
    const posture after = doing(f, at.activity, at, at.position, at.heading);
    const float t = at.blend;
    if (t >= 1)
        return after;
    const posture before = doing(f, at.before, at, at.before_position, at.before_heading);
    if (at.activity == PERSON_FALLEN && at.before != PERSON_LIE) {
        // The knees give way, then the body tips over, faster and faster.
        posture buckled = doing(f, PERSON_CROUCH, at, at.position, at.heading);
        buckled.pelvis.z += .16f * f.scale;
        lean(&buckled, 22);
        return between({{before, buckled, after}, {0, .45f, 1}, 3}, powf(t, 1.7f));
    }
    if (at.before == PERSON_FALLEN && upright(at.activity))
        return between(
            {{before, doing(f, PERSON_CROUCH, at, at.position, at.heading), after}, {0, .6f, 1}, 3}, t);
    if (at.activity == PERSON_LIE && upright(at.before))
        return between({{before, on_the_edge(f, at, at.position, at.heading, at.before_position), after},
                        {0, .45f, 1},
                        3},
                       t);
    if (at.before == PERSON_LIE && upright(at.activity))
        return between(
            {{before, on_the_edge(f, at, at.before_position, at.before_heading, at.position), after},
             {0, .55f, 1},
             3},
            t);
    // Who sits along what they lie on turns to its edge first; who sits on the edge already only lifts the legs.
    const bool along = fabsf(cosf(radians(at.heading - at.before_heading))) > .7f;
    if (at.activity == PERSON_LIE && sits(at.before) && along)
        return between(
            {{before, on_the_edge(f, at, at.position, at.heading, at.position), after}, {0, .4f, 1}, 3}, t);
    if (at.before == PERSON_LIE && sits(at.activity) && along)
        return between(
            {{before, on_the_edge(f, at, at.before_position, at.before_heading, at.before_position), after},
             {0, .6f, 1},
             3},
            t);
    posture p = posture_mix(before, after, smooth(0, 1, t));
    if (sits(at.activity) != sits(at.before)) {
        // The trunk leans forward while the weight goes over the feet, most when the seat is near.
        const float seated = sits(at.activity) ? t : 1 - t;
        lean(&p, 34 * sinf(static_cast<float>(M_PI) * clamped(seated, 0, 1)));
    }
    return p;
}
