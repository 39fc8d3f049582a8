// Every scene of the folder: it loads, its actors stay where they can be, and its truth is what its story says.
#include "world.h"

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <string.h>

#include "track.h"
#include "world_state.h"

namespace
{

struct world_closer {
    void operator()(world *w) const { world_close(w); }
};
typedef std::unique_ptr<world, world_closer> world_owner;

// What was seen of an actor over a scene, at five pictures a second.
struct sight {
    int pictures = 0, clear = 0, moving = 0; // clear: wholly visible within 6 m
    float most = 0, least = 1, nearest = 100, farthest = 0;
    bool person = false;
};

class Scene : public testing::TestWithParam<std::string>
{
  public:
    world_owner w;
    std::map<std::string, sight> sights;
    bool lamp_changes = false, view_moves = false;
    std::map<std::string, int> stirs;

    void SetUp() override
    {
        w.reset(world_open(GetParam().c_str()));
        ASSERT_TRUE(w);
    }
    void watch()
    {
        scene_snapshot snapshot;
        truth_moment truth;
        const double step = world_seconds(w.get()) > 300 ? 1 : 0.2;
        for (uint64_t i = 0; static_cast<double>(i) * step < world_seconds(w.get()); i++) {
            world_snapshot(w.get(), static_cast<double>(i) * step, nullptr, &snapshot);
            world_truth(w.get(), &snapshot, i, &truth);
            lamp_changes = lamp_changes || truth.light_changes;
            view_moves = view_moves || truth.view_moves;
            for (const std::string &stir : truth.stirs)
                stirs[stir]++;
            for (const truth_actor &a : truth.actors) {
                sight &s = sights[a.name];
                s.person = a.kind == "person";
                s.pictures++;
                s.moving += a.moves;
                s.clear += a.visible > 0.95f && a.distance < 6;
                s.most = std::max(s.most, a.visible);
                s.least = std::min(s.least, a.visible);
                s.nearest = std::min(s.nearest, a.distance);
                s.farthest = std::max(s.farthest, a.distance);
                ASSERT_GE(a.visible, 0);
                ASSERT_LE(a.visible, 1);
                ASSERT_EQ(a.visible > 0, a.box[2] > a.box[0] && a.box[3] > a.box[1]);
            }
        }
    }
};

// On the floor nobody stands in furniture, and nobody is outside but in the doorway.
TEST_P(Scene, ActorsKeepToTheRoom)
{
    const world_plan &plan = *w->plans.front();
    for (size_t i = 0; i < plan.tracks.size(); i++) {
        const scene_actor &actor = plan.script.actors[i];
        const bool flies = !actor.is_person && (actor.kind == THING_INSECT || actor.kind == THING_SHADOW ||
                                                actor.kind == THING_COAT || actor.kind == THING_BALLOON);
        for (double t = 0; t < plan.script.seconds && !flies; t += 0.1) {
            const track_moment m = track_at(plan.tracks[i], t);
            const bool upright = m.activity == PERSON_WALK || m.activity == PERSON_RUN ||
                                 m.activity == PERSON_CARRY || m.activity == PERSON_STAND;
            if (m.here && upright && m.blend >= 1) {
                ASSERT_TRUE(room_free_spot(w->place, m.position.x, m.position.y, 0.1f))
                    << actor.name << " at " << t << " s: " << m.position.x << ", " << m.position.y;
            }
        }
    }
}

// Two people never stand in the same place.
TEST_P(Scene, NobodyWalksThroughAnother)
{
    const world_plan &plan = *w->plans.front();
    for (double t = 0; t < plan.script.seconds; t += 0.1)
        for (size_t i = 0; i < plan.tracks.size(); i++)
            for (size_t k = 0; k < i; k++) {
                const track_moment a = track_at(plan.tracks[i], t), b = track_at(plan.tracks[k], t);
                if (!plan.script.actors[i].is_person || !plan.script.actors[k].is_person || !a.here ||
                    !b.here)
                    continue;
                const float x = a.position.x - b.position.x, y = a.position.y - b.position.y;
                ASSERT_GT(sqrtf(x * x + y * y), 0.38f) << plan.script.actors[i].name << " and "
                                                       << plan.script.actors[k].name << " at " << t << " s";
            }
}

TEST_P(Scene, TheTruthIsWhatTheStorySays)
{
    watch();
    const std::vector<world_expectation> &wishes = world_expects(w.get());
    bool people_wanted = false;
    for (const world_expectation &wish : wishes)
        people_wanted = people_wanted || wish.people == WISH_WANTED;
    bool anybody = false, clear = false;
    for (const auto &s : sights) {
        anybody = anybody || s.second.person;
        clear = clear || (s.second.person && s.second.clear >= 15);
    }
    EXPECT_EQ(anybody, people_wanted) << "people are wanted exactly where there are some";
    if (people_wanted) {
        EXPECT_TRUE(clear) << "nobody is to be seen wholly within 6 m for three seconds";
    }
}

std::vector<std::string> names()
{
    return world_names();
}
std::string test_name(const testing::TestParamInfo<std::string> &scene)
{
    std::string name = scene.param;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}
INSTANTIATE_TEST_SUITE_P(All, Scene, testing::ValuesIn(names()), test_name);

TEST(Scenes, AreAtLeastThirtyAndTellTheirStories)
{
    EXPECT_GE(world_names().size(), 30u);
    for (const char *name :
         {"arrival", "person-crosses", "empty-day", "empty-night", "crowd-of-six", "sits-ten-minutes"}) {
        world_owner w(world_open(name));
        ASSERT_TRUE(w) << name;
        EXPECT_STREQ(world_name(w.get()), name);
        EXPECT_GT(strlen(world_story(w.get())), 20u);
    }
}

TEST(Scenes, TheManualListsThemAll)
{
    std::ifstream file(world_folder() + "/../docs/scenes.md");
    const std::string manual((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    for (const std::string &name : world_names()) {
        world_owner w(world_open(name.c_str()));
        ASSERT_TRUE(w) << name;
        EXPECT_NE(manual.find("| " + name + " | " + world_story(w.get()) + " |"), std::string::npos) << name;
    }
}

// What some stories hang on.
struct essential {
    const char *scene, *actor;
    int pictures, clear, moving; // at least
    float most, least;           // most: visible at some time at least; least: at some time at most
    float nearest, farthest;     // metres: comes as near, is as far
};
class Essentials : public testing::TestWithParam<essential>
{
};
TEST_P(Essentials, Hold)
{
    const essential &e = GetParam();
    world_owner w(world_open(e.scene));
    ASSERT_TRUE(w);
    scene_snapshot snapshot;
    truth_moment truth;
    sight s;
    for (uint64_t i = 0; static_cast<double>(i) * 0.2 < std::min(120., world_seconds(w.get())); i++) {
        world_snapshot(w.get(), static_cast<double>(i) * 0.2, nullptr, &snapshot);
        world_truth(w.get(), &snapshot, i, &truth);
        for (const truth_actor &a : truth.actors)
            if (a.name == e.actor) {
                s.pictures++;
                s.moving += a.moves;
                s.clear += a.visible > 0.95f && a.distance < 6;
                s.most = std::max(s.most, a.visible);
                s.least = std::min(s.least, a.visible);
                s.nearest = std::min(s.nearest, a.distance);
                s.farthest = std::max(s.farthest, a.distance);
            }
    }
    EXPECT_GE(s.pictures, e.pictures);
    EXPECT_GE(s.clear, e.clear);
    EXPECT_GE(s.moving, e.moving);
    EXPECT_GE(s.most, e.most);
    EXPECT_LE(s.least, e.least);
    EXPECT_LE(s.nearest, e.nearest);
    EXPECT_GE(s.farthest, e.farthest);
}
const essential essentials[] = {
    {"arrival", "anna", 400, 100, 200, 1, 1, 2.5f, 5},
    {"sits-ten-minutes", "frieda", 500, 300, 40, 0.95f, 1, 4, 5},
    {"far-end-of-hall", "olga", 80, 20, 60, 0.95f, 1, 3, 7.5f},
    {"comes-near", "nils", 80, 20, 60, 0.95f, 0.7f, 1.2f, 5},
    {"passes-behind-sofa", "mona", 80, 20, 60, 0.95f, 0.75f, 6, 4},
    {"fall", "jakob", 100, 20, 20, 0.95f, 1, 4, 5},
    {"child-runs", "kim", 80, 20, 60, 0.95f, 1, 4, 5},
    {"cat", "minka", 100, 20, 50, 0.95f, 1, 4, 3},
    {"dog", "rex", 100, 20, 50, 0.95f, 1, 4, 3},
    {"vacuum", "robot", 100, 20, 100, 0.9f, 1, 4, 3},
    {"ball-rolls", "ball", 80, 20, 20, 0.9f, 1, 4, 3},
    {"fan", "fan", 100, 50, 80, 0.9f, 1, 4, 2},
    {"insect", "moth", 50, 50, 50, 0.9f, 1, 0.5f, 0.1f},
    {"coat-on-hook", "coat", 100, 0, 0, 0.9f, 1, 7, 5},
};
INSTANTIATE_TEST_SUITE_P(Scenes, Essentials, testing::ValuesIn(essentials));

TEST(Scenes, SixAreToBeSeenAtOnce)
{
    world_owner w(world_open("crowd-of-six"));
    ASSERT_TRUE(w);
    scene_snapshot snapshot;
    truth_moment truth;
    size_t most = 0;
    for (double t = 0; t < 42; t += 1) {
        world_snapshot(w.get(), t, nullptr, &snapshot);
        world_truth(w.get(), &snapshot, 0, &truth);
        most = std::max(
            most, static_cast<size_t>(std::count_if(truth.actors.begin(), truth.actors.end(),
                                                    [](const truth_actor &a) { return a.visible > 0.3f; })));
    }
    EXPECT_EQ(most, 6u);
}

TEST(Scenes, LightViewAndRoomDoWhatTheirScenesSay)
{
    const struct {
        const char *scene;
        bool light, view;
        const char *stirs; // null: nothing
    } rows[] = {{"lamp-switched-empty", true, false, nullptr}, {"view-turns", false, true, nullptr},
                {"curtain-wind", false, false, "curtain"},     {"television-only", false, false, "tv"},
                {"headlights", false, false, "headlights"},    {"empty-day", false, false, nullptr},
                {"empty-night", false, false, nullptr},        {"lamp-swings", false, false, "lamp"}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.scene);
        world_owner w(world_open(row.scene));
        ASSERT_TRUE(w);
        scene_snapshot snapshot;
        truth_moment truth;
        bool light = false, view = false, stirs = false, others = false;
        for (double t = 0; t < world_seconds(w.get()); t += 0.2) {
            world_snapshot(w.get(), t, nullptr, &snapshot);
            world_truth(w.get(), &snapshot, 0, &truth);
            light = light || truth.light_changes;
            view = view || truth.view_moves;
            for (const std::string &stir : truth.stirs) {
                stirs = stirs || (row.stirs && stir == row.stirs);
                others = others || !row.stirs || stir != row.stirs;
            }
        }
        EXPECT_EQ(light, row.light);
        EXPECT_EQ(view, row.view);
        EXPECT_EQ(stirs, row.stirs != nullptr);
        EXPECT_FALSE(others);
    }
}

} // namespace
