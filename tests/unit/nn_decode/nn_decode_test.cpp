// Decoding: the arithmetic from grids to boxes, rule by rule, on grids that are written by hand.
#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <math.h>
#include <set>
#include <vector>

#include "failures_to_stderr.h"
#include "heap_watch.h"
#include "log_capture.h"
#include "nn/nn_decode.h"

namespace
{

using testing::ElementsAre;

const float nothing = -100; // a raw objectness that no threshold is below

// A grid that owns its values; channels lie apart by more than their cells, as the library's do.
struct Grid {
    int width, height, anchors, classes;
    size_t stride;
    std::vector<float> values;

    Grid(int w, int h, int anchor_count, int class_count)
        : width(w), height(h), anchors(anchor_count), classes(class_count),
          stride(static_cast<size_t>(w * h + 3)),
          values(stride * static_cast<size_t>(anchor_count * (5 + class_count)), nothing)
    {
        // What lies between two channels is nobody's: it would be found at once.
        for (size_t i = 0; i < values.size(); i += stride)
            std::fill_n(values.begin() + static_cast<ptrdiff_t>(i + stride - 3), 3, 100.f);
    }
    float &at(int anchor, int channel, int row, int column)
    {
        return values[static_cast<size_t>(anchor * (5 + classes) + channel) * stride +
                      static_cast<size_t>(row * width + column)];
    }
    void put(int anchor, int row, int column, std::vector<float> channels)
    {
        for (size_t i = 0; i < channels.size(); ++i)
            at(anchor, static_cast<int>(i), row, column) = channels[i];
    }
    nn_grid view() const { return {values.data(), width, height, anchors * (5 + classes), stride}; }
};

const int three_each[] = {3, 3, 3};
const int coarse_first[] = {6, 7, 8, 3, 4, 5, 0, 1, 2};
const float nine_pairs[] = {10, 13, 16, 30, 33, 23, 30, 61, 62, 45, 59, 119, 116, 90, 156, 198, 373, 326};

// The person model's shape at an input of 192 wide and 128 high.
nn_model masked_model(int classes = 1)
{
    nn_model model = {};
    model.kind = NN_DETECTOR_MASKED_ANCHORS;
    model.classes = classes;
    model.outputs = 3;
    model.anchors = nine_pairs;
    model.anchors_per_output = three_each;
    model.anchor_masks = coarse_first;
    model.input_height = 128;
    model.input_width = 192;
    return model;
}

struct Scene {
    nn_model model;
    std::vector<Grid> grids;

    explicit Scene(int classes = 1) : model(masked_model(classes))
    {
        grids = {Grid(6, 4, 3, classes), Grid(12, 8, 3, classes), Grid(24, 16, 3, classes)};
    }
    std::vector<nn_grid> views() const
    {
        std::vector<nn_grid> result;
        for (const Grid &grid : grids)
            result.push_back(grid.view());
        return result;
    }
    std::vector<BBox> collect(float threshold, int image_height = 128, int image_width = 192)
    {
        const std::vector<nn_grid> all = views();
        std::vector<BBox> boxes(
            static_cast<size_t>(nn_count_candidates(&model, all.data(), nn_logit(threshold))));
        std::vector<float> scratch(static_cast<size_t>(model.classes));
        const int count = nn_collect_candidates(&model, all.data(), threshold, image_height, image_width,
                                                scratch.data(), boxes.data());
        boxes.resize(static_cast<size_t>(count));
        return boxes;
    }
    std::vector<BBox> decode(float threshold = 0.5f, float iou = 0.5f, int max_boxes = 5,
                             int image_height = 128, int image_width = 192)
    {
        std::vector<BBox> boxes(static_cast<size_t>(max_boxes));
        const std::vector<nn_grid> all = views();
        boxes.resize(static_cast<size_t>(nn_decode(&model, all.data(), threshold, iou, image_height,
                                                   image_width, boxes.data(), max_boxes)));
        return boxes;
    }
};

std::vector<int> corners(const BBox &box)
{
    return {box.x1, box.y1, box.x2, box.y2};
}

BBox make_box(int x1, int y1, int x2, int y2, float score = 0.5f, int class_index = 0)
{
    BBox box = {};
    box.x1 = static_cast<int16_t>(x1);
    box.y1 = static_cast<int16_t>(y1);
    box.x2 = static_cast<int16_t>(x2);
    box.y2 = static_cast<int16_t>(y2);
    box.class_index = static_cast<int16_t>(class_index);
    box.score = score;
    return box;
}

// ---- The two functions of one number
// ---------------------------------------------------------------------------

TEST(Sigmoid, IsOneHalfAtZeroAndEndsAtZeroAndOne)
{
    EXPECT_EQ(nn_sigmoid(0), 0.5f);
    EXPECT_FLOAT_EQ(nn_sigmoid(1), 0.73105858f);
    EXPECT_FLOAT_EQ(nn_sigmoid(-2), 0.11920292f);
    EXPECT_EQ(nn_sigmoid(1000), 1);
    EXPECT_EQ(nn_sigmoid(-1000), 0);
}

TEST(Logit, IsTheThresholdsRawObjectness)
{
    EXPECT_EQ(nn_logit(0.5f), 0);
    EXPECT_NEAR(nn_logit(0.7f), 0.847298f, 1e-5f);
    EXPECT_NEAR(nn_logit(0.3f), -0.847298f, 1e-5f);
    EXPECT_NEAR(nn_logit(0), -36.84136f, 1e-3f); // ln of 1e-16: not infinite
    EXPECT_EQ(nn_logit(1), std::numeric_limits<float>::infinity());
    EXPECT_TRUE(isnan(nn_logit(1.5f)));
}

// ---- Counting
// --------------------------------------------------------------------------------------------------

TEST(Count, TakesEveryOutputAnchorAndCellThatReachesTheLogit)
{
    Scene scene;
    scene.grids[0].at(0, 4, 0, 0) = 0;
    scene.grids[0].at(2, 4, 3, 5) = 2;
    scene.grids[1].at(1, 4, 7, 11) = 0;
    scene.grids[2].at(2, 4, 15, 23) = 0;
    scene.grids[2].at(0, 4, 0, 0) = -1e-6f;
    scene.grids[1].at(0, 4, 0, 0) = NAN;
    scene.grids[1].at(0, 3, 0, 0) = 50; // other channels do not count
    scene.grids[1].at(0, 5, 0, 0) = 50;
    EXPECT_EQ(nn_count_candidates(&scene.model, scene.views().data(), 0), 4);
    EXPECT_EQ(nn_count_candidates(&scene.model, scene.views().data(), 1), 1);
    EXPECT_EQ(nn_count_candidates(&scene.model, scene.views().data(), -1e-6f), 5);
    EXPECT_EQ(nn_count_candidates(&scene.model, scene.views().data(), NAN), 0);
}

// ---- Boxes
// -----------------------------------------------------------------------------------------------------

TEST(Collect, MaskedAnchorsAreInInputPixels)
{
    Scene scene;
    // Row 1, column 2 of the coarse grid of 4 rows and 6 columns, its second anchor: number 7, 156 x 198.
    scene.grids[0].put(1, 1, 2, {0, 0, logf(0.5f), logf(0.25f), 2});
    const std::vector<BBox> boxes = scene.collect(0.5f);
    ASSERT_EQ(boxes.size(), 1u);
    // Centre 2.5 / 6 x 192 = 80, 1.5 / 4 x 128 = 48; 78 x 49.5.
    EXPECT_THAT(corners(boxes[0]), ElementsAre(41, 23, 119, 73));
    EXPECT_EQ(boxes[0].class_index, 0);
    EXPECT_FLOAT_EQ(boxes[0].score, 0.88079708f);
}

TEST(Collect, TheCentreMovesWithinItsCell)
{
    Scene scene;
    scene.grids[2].put(2, 8, 12, {1, -2, 0, 0, 2}); // number 2: 33 x 23
    const std::vector<BBox> boxes = scene.collect(0.5f);
    ASSERT_EQ(boxes.size(), 1u);
    // Centre (12 + 0.7311) x 8 = 101.85, (8 + 0.1192) x 8 = 64.95.
    EXPECT_THAT(corners(boxes[0]), ElementsAre(85, 53, 118, 76));
}

TEST(Collect, PositionsScaleToThePicture)
{
    Scene scene;
    scene.grids[0].put(1, 1, 2, {0, 0, logf(0.5f), logf(0.25f), 2});
    const std::vector<BBox> boxes = scene.collect(0.5f, 250, 100);
    ASSERT_EQ(boxes.size(), 1u);
    // Centre 41.67, 93.75; 40.63 x 96.68.
    EXPECT_THAT(corners(boxes[0]), ElementsAre(21, 45, 62, 142));
}

TEST(Collect, EachOutputAndAnchorUsesItsOwnPair)
{
    for (int output = 0; output < 3; ++output)
        for (int anchor = 0; anchor < 3; ++anchor) {
            Scene scene;
            Grid &grid = scene.grids[static_cast<size_t>(output)];
            grid.put(anchor, 1, 1, {0, 0, 0, 0, 5});
            const std::vector<BBox> boxes = scene.collect(0.5f, 1280, 1920);
            ASSERT_EQ(boxes.size(), 1u);
            const float *pair = nine_pairs + 2 * coarse_first[3 * output + anchor];
            EXPECT_NEAR(boxes[0].x2 - boxes[0].x1, pair[0] * 10, 1) << output << "," << anchor;
            EXPECT_NEAR(boxes[0].y2 - boxes[0].y1, pair[1] * 10, 1) << output << "," << anchor;
        }
}

TEST(Collect, GridAnchorsAreInCellsAndFollowEachOther)
{
    // Two outputs with two and one pairs of their own; masks are not looked at.
    const float pairs[] = {1, 2, 3, 1, 2, 2};
    const int per_output[] = {2, 1};
    nn_model model = {};
    model.kind = NN_DETECTOR_GRID_ANCHORS;
    model.classes = 1;
    model.outputs = 2;
    model.anchors = pairs;
    model.anchors_per_output = per_output;
    model.input_height = 1; // not used either
    model.input_width = 1;
    Grid first(10, 5, 2, 1), second(20, 10, 1, 1);
    first.put(0, 2, 4, {0, 0, 0, 0, 1});
    first.put(1, 2, 4, {0, 0, 0, 0, 2});
    second.put(0, 4, 8, {0, 0, logf(2), 0, 3});
    const nn_grid grids[] = {first.view(), second.view()};
    BBox boxes[3];
    float scratch[1];
    ASSERT_EQ(nn_count_candidates(&model, grids, 0), 3);
    ASSERT_EQ(nn_collect_candidates(&model, grids, 0.5f, 100, 200, scratch, boxes), 3);
    // Cells of 20 x 20 pixels: centre 90, 50; 20 x 40 and 60 x 20.
    EXPECT_THAT(corners(boxes[0]), ElementsAre(80, 30, 100, 70));
    EXPECT_THAT(corners(boxes[1]), ElementsAre(60, 40, 120, 60));
    // Cells of 10 x 10: centre 85, 45; 40 x 20.
    EXPECT_THAT(corners(boxes[2]), ElementsAre(65, 35, 105, 55));
}

TEST(Collect, RoundsHalvesUpAndCutsTowardsZero)
{
    // One cell over the picture, centre in its middle, a box as large as the picture: edges at 0 and 1.
    const float pair[] = {1, 1};
    const int one[] = {1};
    nn_model model = {};
    model.kind = NN_DETECTOR_GRID_ANCHORS;
    model.classes = 1;
    model.outputs = 1;
    model.anchors = pair;
    model.anchors_per_output = one;
    Grid grid(1, 1, 1, 1);
    const auto edges = [&](float tw, float image_width) {
        grid.put(0, 0, 0, {0, 0, tw, 0, 5});
        const nn_grid view = grid.view();
        BBox box;
        float scratch;
        EXPECT_EQ(
            nn_collect_candidates(&model, &view, 0.5f, 10, static_cast<int>(image_width), &scratch, &box), 1);
        return std::vector<int>{box.x1, box.x2};
    };
    EXPECT_THAT(edges(0, 10), ElementsAre(0, 10));
    // 1.5 times as wide: -2.5 and 12.5; -2.5 + 0.5 is -2.
    EXPECT_THAT(edges(logf(1.5f), 10), ElementsAre(-2, 13));
    // 1.22 times: -1.1 and 11.1; -0.6 is cut to 0 and not rounded to -1.
    EXPECT_THAT(edges(logf(1.22f), 10), ElementsAre(0, 11));
    // 0.88 times: 0.6 and 9.4.
    EXPECT_THAT(edges(logf(0.88f), 10), ElementsAre(1, 9));
}

TEST(Collect, GoesByOutputAnchorRowColumn)
{
    Scene scene;
    // Scores tell them apart; written backwards.
    scene.grids[2].at(0, 4, 0, 0) = 6;
    scene.grids[1].at(2, 4, 0, 0) = 5;
    scene.grids[1].at(1, 4, 3, 1) = 4;
    scene.grids[1].at(1, 4, 2, 9) = 3;
    scene.grids[1].at(1, 4, 2, 4) = 2;
    scene.grids[0].at(2, 4, 3, 5) = 1;
    std::vector<float> scores;
    for (const BBox &box : scene.collect(0.5f))
        scores.push_back(box.score);
    EXPECT_THAT(scores, ElementsAre(nn_sigmoid(1), nn_sigmoid(2), nn_sigmoid(3), nn_sigmoid(4), nn_sigmoid(5),
                                    nn_sigmoid(6)));
}

TEST(Collect, TheScoreMustReachTheThresholdToo)
{
    Scene scene;
    scene.grids[0].put(0, 0, 0, {0, 0, 0, 0, 0}); // raw 0, score exactly 0.5
    EXPECT_EQ(scene.collect(0.5f).size(), 1u);
    EXPECT_EQ(scene.collect(0.50001f).size(), 0u);
    EXPECT_EQ(scene.collect(1).size(), 0u);

    Scene two(2);
    two.grids[0].put(0, 0, 0, {0, 0, 0, 0, 2, 0, -1}); // 0.88 x 0.5
    EXPECT_EQ(nn_count_candidates(&two.model, two.views().data(), nn_logit(0.45f)), 1);
    EXPECT_EQ(two.collect(0.45f).size(), 0u);
    EXPECT_EQ(two.collect(0.44f).size(), 1u);
}

TEST(Collect, OneClassIsCertainWhateverItsChannelSays)
{
    Scene scene;
    scene.grids[0].put(0, 0, 0, {0, 0, 0, 0, 1, -50});
    const std::vector<BBox> boxes = scene.collect(0.5f);
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_EQ(boxes[0].score, nn_sigmoid(1));
}

TEST(Collect, MaskedAnchorsTakeTheSigmoidOfEachClass)
{
    Scene scene(3);
    scene.grids[1].put(1, 2, 3, {0, 0, 0, 0, 3, 0.5f, 2, -1});
    const std::vector<BBox> boxes = scene.collect(0.5f);
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_EQ(boxes[0].class_index, 1);
    EXPECT_FLOAT_EQ(boxes[0].score, nn_sigmoid(3) * nn_sigmoid(2));
}

TEST(Collect, GridAnchorsTakeTheSoftmaxOverTheClasses)
{
    Scene scene(3);
    scene.model.kind = NN_DETECTOR_GRID_ANCHORS;
    scene.grids[1].put(1, 2, 3, {0, 0, 0, 0, 3, 0.5f, -1, 2});
    const std::vector<BBox> boxes = scene.collect(0.5f);
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_EQ(boxes[0].class_index, 2);
    EXPECT_FLOAT_EQ(boxes[0].score, nn_sigmoid(3) * expf(2) / (expf(0.5f) + expf(-1) + expf(2)));
}

TEST(Collect, ASoftmaxWhoseFirstClassIsTheBest)
{
    Scene scene(3);
    scene.model.kind = NN_DETECTOR_GRID_ANCHORS;
    scene.grids[1].put(1, 2, 3, {0, 0, 0, 0, 3, 2, 1, 0.5f});
    const std::vector<BBox> boxes = scene.collect(0.5f);
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_EQ(boxes[0].class_index, 0);
    EXPECT_FLOAT_EQ(boxes[0].score, nn_sigmoid(3) * expf(2) / (expf(2) + expf(1) + expf(0.5f)));
}

TEST(Collect, ASoftmaxOfLargeScoresDoesNotOverflow)
{
    Scene scene(2);
    scene.model.kind = NN_DETECTOR_GRID_ANCHORS;
    scene.grids[1].put(1, 2, 3, {0, 0, 0, 0, 3, 500, 501});
    const std::vector<BBox> boxes = scene.collect(0.5f);
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_EQ(boxes[0].class_index, 1);
    EXPECT_FLOAT_EQ(boxes[0].score, nn_sigmoid(3) * nn_sigmoid(1));
}

TEST(Collect, EqualClassesGoToTheFirst)
{
    for (int kind : {NN_DETECTOR_MASKED_ANCHORS, NN_DETECTOR_GRID_ANCHORS}) {
        Scene scene(3);
        scene.model.kind = kind;
        scene.grids[0].put(0, 0, 0, {0, 0, 0, 0, 3, 0.5f, 4, 4});
        const std::vector<BBox> boxes = scene.collect(0.3f);
        ASSERT_EQ(boxes.size(), 1u);
        EXPECT_EQ(boxes[0].class_index, 1);
    }
}

TEST(Collect, TwoClassesAreAlreadyWeighed)
{
    Scene scene(2);
    scene.grids[0].put(0, 0, 0, {0, 0, 0, 0, 3, -3, -2});
    const std::vector<BBox> boxes = scene.collect(0.1f);
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_EQ(boxes[0].class_index, 1);
    EXPECT_FLOAT_EQ(boxes[0].score, nn_sigmoid(3) * nn_sigmoid(-2));
}

// A network gone wrong may answer anything; no conversion may be undefined.
TEST(Collect, ValuesBeyond16BitsBecomeTheNearestAndNanBecomesZero)
{
    const float infinity = std::numeric_limits<float>::infinity();
    Scene scene;
    scene.grids[0].put(0, 1, 2, {0, 0, 1000, 20, 2});
    std::vector<BBox> boxes = scene.collect(0.5f);
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_THAT(corners(boxes[0]), ElementsAre(-32768, -32768, 32767, 32767));
    for (float bad : {infinity, 1e38f}) {
        scene.grids[0].put(0, 1, 2, {0, 0, bad, bad, 2});
        EXPECT_THAT(corners(scene.collect(0.5f)[0]), ElementsAre(-32768, -32768, 32767, 32767));
    }
    scene.grids[0].put(0, 1, 2, {NAN, 0, 0, NAN, 2});
    EXPECT_THAT(corners(scene.collect(0.5f)[0]), ElementsAre(0, 0, 0, 0));
    scene.grids[0].put(0, 1, 2, {infinity, -infinity, -infinity, -1000, 2});
    EXPECT_THAT(corners(scene.collect(0.5f)[0]), ElementsAre(96, 32, 96, 32));
    scene.grids[0].put(0, 1, 2, {0, 0, 0, 0, infinity});
    EXPECT_EQ(scene.collect(0.5f)[0].score, 1);
}

TEST(Collect, TheNearestIsExactAtBothEnds)
{
    Scene scene;
    // Centre 0.4166 of the width; the anchor's share of it 116 / 192, so the half width in pictures is e^tw x
    // 0.302.
    const auto left_right = [&](float half_pictures) {
        scene.grids[0].put(0, 1, 2, {0, 0, logf(half_pictures * 2 * 192 / 116), 0, 2});
        const BBox box = scene.collect(0.5f, 128, 192)[0];
        return std::vector<int>{box.x1, box.x2};
    };
    EXPECT_THAT(left_right((32700 - 80) / 192.f),
                testing::Each(testing::AllOf(testing::Gt(-32768), testing::Lt(32767))));
    EXPECT_THAT(left_right((33000 - 80) / 192.f), ElementsAre(-32768 + (32768 - 32840 < 0 ? 0 : 72), 32767));
}

// ---- Suppression
// -----------------------------------------------------------------------------------------------

TEST(Iou, SidesAreDifferencesWithoutOne)
{
    const BBox a = make_box(0, 0, 10, 10);
    const BBox b = make_box(5, 0, 15, 10);
    EXPECT_FLOAT_EQ(nn_iou(&a, &b), 50.f / 150);
    EXPECT_FLOAT_EQ(nn_iou(&b, &a), 50.f / 150);
    const BBox c = make_box(2, 5, 8, 25); // 6 x 20, of which 6 x 5 lie in a
    EXPECT_FLOAT_EQ(nn_iou(&a, &c), 30.f / (100 + 120 - 30));
    EXPECT_EQ(nn_iou(&a, &a), 1);
}

TEST(Iou, ApartIsZeroAlsoWhereBothSidesAreNegative)
{
    const BBox a = make_box(0, 0, 10, 10);
    const BBox beside = make_box(10, 0, 20, 10);
    const BBox below = make_box(0, 12, 10, 20);
    const BBox diagonal = make_box(12, 12, 20, 20);
    EXPECT_EQ(nn_iou(&a, &beside), 0);
    EXPECT_EQ(nn_iou(&a, &below), 0);
    EXPECT_EQ(nn_iou(&a, &diagonal), 0);
}

TEST(Iou, TheLargestBoxesDoNotOverflow)
{
    const BBox a = make_box(-32768, -32768, 32767, 32767);
    EXPECT_EQ(nn_iou(&a, &a), 1);
}

std::vector<float> survivors(const std::vector<BBox> &boxes, float threshold)
{
    std::vector<BBox> kept(boxes.size());
    kept.resize(static_cast<size_t>(
        nn_suppress(boxes.data(), static_cast<int>(boxes.size()), threshold, kept.data())));
    std::vector<float> scores;
    for (const BBox &box : kept)
        scores.push_back(box.score);
    return scores;
}

TEST(Suppress, TheStrictlyBetterOneWinsInEitherOrder)
{
    const BBox better = make_box(0, 0, 10, 10, 0.9f), worse = make_box(1, 0, 11, 10, 0.8f);
    EXPECT_THAT(survivors({better, worse}, 0.5f), ElementsAre(0.9f));
    EXPECT_THAT(survivors({worse, better}, 0.5f), ElementsAre(0.9f));
}

TEST(Suppress, EqualScoresLeaveEachOtherAlone)
{
    const BBox a = make_box(0, 0, 10, 10, 0.8f), b = make_box(0, 0, 10, 10, 0.8f);
    EXPECT_THAT(survivors({a, b}, 0.5f), ElementsAre(0.8f, 0.8f));
}

TEST(Suppress, OnlyWithinAClass)
{
    EXPECT_THAT(survivors({make_box(0, 0, 10, 10, 0.9f, 0), make_box(0, 0, 10, 10, 0.8f, 1)}, 0.5f),
                ElementsAre(0.9f, 0.8f));
}

TEST(Suppress, TheOverlapMustBeAboveTheThreshold)
{
    // 50 of 100: exactly one half.
    const BBox whole = make_box(0, 0, 10, 10, 0.9f), half = make_box(0, 0, 10, 5, 0.8f);
    EXPECT_THAT(survivors({whole, half}, 0.5f), ElementsAre(0.9f, 0.8f));
    EXPECT_THAT(survivors({whole, half}, 0.499f), ElementsAre(0.9f));
}

TEST(Suppress, OneThatIsLeftOutStillBeatsOthers)
{
    // a over b over c, while a and c hardly meet: c goes all the same.
    const BBox a = make_box(0, 0, 10, 10, 0.9f), b = make_box(3, 0, 13, 10, 0.8f),
               c = make_box(6, 0, 16, 10, 0.7f);
    EXPECT_THAT(survivors({a, b, c}, 0.5f), ElementsAre(0.9f));
    EXPECT_THAT(survivors({c, a}, 0.5f), ElementsAre(0.7f, 0.9f));
}

TEST(Suppress, SurvivorsKeepTheirOrder)
{
    EXPECT_THAT(
        survivors({make_box(0, 0, 9, 9, 0.6f), make_box(20, 0, 29, 9, 0.9f), make_box(20, 0, 29, 9, 0.85f),
                   make_box(40, 0, 49, 9, 0.7f), make_box(60, 0, 69, 9, 0.5f)},
                  0.5f),
        ElementsAre(0.6f, 0.9f, 0.7f, 0.5f));
}

TEST(Suppress, BoxesWithoutAreaStandAlone)
{
    EXPECT_THAT(survivors({make_box(5, 5, 5, 5, 0.9f), make_box(5, 5, 5, 5, 0.8f)}, 0),
                ElementsAre(0.9f, 0.8f));
}

// ---- Cap and clamp
// ---------------------------------------------------------------------------------------------

TEST(KeepBest, BringsTheBestToTheFront)
{
    std::vector<BBox> boxes;
    for (float score : {0.55f, 0.95f, 0.6f, 0.9f, 0.7f, 0.85f, 0.8f})
        boxes.push_back(make_box(0, 0, 1, 1, score));
    EXPECT_EQ(nn_keep_best(boxes.data(), 7, 5), 5);
    std::multiset<float> best;
    for (int i = 0; i < 5; ++i)
        best.insert(boxes[static_cast<size_t>(i)].score);
    EXPECT_EQ(best, (std::multiset<float>{0.95f, 0.9f, 0.85f, 0.8f, 0.7f}));
}

TEST(KeepBest, LeavesAloneWhatFits)
{
    std::vector<BBox> boxes;
    for (float score : {0.5f, 0.7f, 0.6f})
        boxes.push_back(make_box(0, 0, 1, 1, score));
    for (int keep : {3, 4}) {
        EXPECT_EQ(nn_keep_best(boxes.data(), 3, keep), 3);
        EXPECT_EQ(boxes[0].score, 0.5f);
        EXPECT_EQ(boxes[1].score, 0.7f);
        EXPECT_EQ(boxes[2].score, 0.6f);
    }
}

TEST(KeepBest, EveryCountOfEveryShuffle)
{
    std::vector<float> scores = {0.1f, 0.2f, 0.3f, 0.3f, 0.4f, 0.5f};
    do {
        for (int keep = 1; keep < 6; ++keep) {
            std::vector<BBox> boxes;
            for (float score : scores)
                boxes.push_back(make_box(0, 0, 1, 1, score));
            ASSERT_EQ(nn_keep_best(boxes.data(), 6, keep), keep);
            std::multiset<float> best;
            for (int i = 0; i < keep; ++i)
                best.insert(boxes[static_cast<size_t>(i)].score);
            const std::vector<float> sorted = {0.5f, 0.4f, 0.3f, 0.3f, 0.2f, 0.1f};
            ASSERT_EQ(best, std::multiset<float>(sorted.begin(), sorted.begin() + keep));
        }
    } while (std::next_permutation(scores.begin(), scores.end()));
}

TEST(Clamp, EachEdgeAndNoOther)
{
    BBox boxes[] = {make_box(-1, -1, 192, 128), make_box(0, 0, 191, 127), make_box(-300, 5, 20, 500),
                    make_box(5, -300, 500, 20), make_box(-1, -1, 192, 128)};
    nn_clamp_boxes(boxes, 4, 128, 192);
    EXPECT_THAT(corners(boxes[0]), ElementsAre(0, 0, 191, 127));
    EXPECT_THAT(corners(boxes[1]), ElementsAre(0, 0, 191, 127));
    EXPECT_THAT(corners(boxes[2]), ElementsAre(0, 5, 20, 127));
    EXPECT_THAT(corners(boxes[3]), ElementsAre(5, 0, 191, 20));
    EXPECT_THAT(corners(boxes[4]), ElementsAre(-1, -1, 192, 128)); // beyond the count
}

// ---- All together
// ----------------------------------------------------------------------------------------------

TEST(Decode, OverlapsCapAndClampInOneGo)
{
    Scene scene;
    for (int i = 0; i < 7; ++i) // seven far apart, of the smallest anchor
        scene.grids[2].put(0, 2 + 2 * i, 3 * i + 2, {0, 0, 0, 0, 1 + 0.1f * static_cast<float>(i)});
    scene.grids[2].put(0, 14, 21,
                       {0, 0, 0, 0, 1}); // beside the best and far worse: suppressed? 8 pixels off: no
    std::vector<BBox> boxes = scene.decode();
    ASSERT_EQ(boxes.size(), 5u);
    std::multiset<float> scores;
    for (const BBox &box : boxes)
        scores.insert(box.score);
    EXPECT_EQ(scores, (std::multiset<float>{nn_sigmoid(1.2f), nn_sigmoid(1.3f), nn_sigmoid(1.4f),
                                            nn_sigmoid(1.5f), nn_sigmoid(1.6f)}));
}

TEST(Decode, SuppressesBeforeItClamps)
{
    Scene scene;
    // -170 to 202 and 101 to 250 on a picture of 192: they share 0.24, and would share 0.47 after the clamp.
    scene.grids[0].put(2, 1, 0, {0, 0, 0, 0, 3});
    scene.grids[0].put(2, 1, 5, {0, 0, logf(0.4f), 0, 2});
    EXPECT_EQ(scene.decode(0.5f, 0.4f).size(), 2u);
    EXPECT_EQ(scene.decode(0.5f, 0.2f).size(), 1u);
}

TEST(Decode, ClampsToThePictureThatWasGiven)
{
    Scene scene;
    scene.grids[0].put(2, 1, 2, {0, 0, 0, 0, 2});
    const std::vector<BBox> boxes = scene.decode(0.5f, 0.5f, 5, 64, 100);
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_THAT(corners(boxes[0]), ElementsAre(0, 0, 99, 63));
}

TEST(Decode, TwoOfEqualScoreComeBothBack)
{
    Scene scene;
    scene.grids[0].put(1, 1, 2, {0, 0, 0, 0, 2});
    scene.grids[0].put(1, 1, 3, {0, 0, 0, 0, 2});
    EXPECT_EQ(scene.decode().size(), 2u);
    scene.grids[0].put(1, 1, 3, {0, 0, 0, 0, 2.1f});
    EXPECT_EQ(scene.decode().size(), 1u);
}

TEST(Decode, WeighsSeveralClasses)
{
    Scene scene(9);
    scene.grids[0].put(1, 1, 2, {0, 0, 0, 0, 3, -1, -1, -1, -1, -1, -1, -1, -1, 2});
    const std::vector<BBox> boxes = scene.decode();
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_EQ(boxes[0].class_index, 8);
}

TEST(Decode, NothingAboveTheLogitTakesNoMemory)
{
    Scene scene;
    const std::vector<nn_grid> grids = scene.views();
    BBox boxes[5];
    heap_watch::fail_at(-1);
    OutputCapture out(STDOUT_FILENO);
    heap_watch::fail_from(0);
    const int before = heap_watch::calls;
    const int count = nn_decode(&scene.model, grids.data(), 0.5f, 0.5f, 128, 192, boxes, 5);
    const int after = heap_watch::calls;
    heap_watch::fail_from(SIZE_MAX);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(after, before);
    EXPECT_EQ(out.text(), "");
}

TEST(Decode, SaysWhichMemoryItMissed)
{
    Scene scene;
    scene.grids[0].put(1, 1, 2, {0, 0, 0, 0, 2});
    const std::vector<nn_grid> grids = scene.views();
    const char *lines[] = {"Error: Cannot allocate buffer in GetBBox().\n",
                           "Error: Cannot allocate buffer in GetBBox().\n",
                           "Error: cannot allocate buffer in NMS().\n", ""};
    for (int i = 0; i < 4; ++i) {
        BBox boxes[5];
        OutputCapture out(STDOUT_FILENO);
        const int64_t before = heap_watch::live_blocks;
        heap_watch::fail_at(i);
        const int count = nn_decode(&scene.model, grids.data(), 0.5f, 0.5f, 128, 192, boxes, 5);
        heap_watch::fail_at(-1);
        EXPECT_EQ(heap_watch::live_blocks, before) << i;
        EXPECT_EQ(count, i == 3 ? 1 : 0);
        EXPECT_EQ(out.text(), lines[i]);
    }
}

// The cap is the caller's room: not a byte more is written.
TEST(Decode, WritesNoMoreThanItMay)
{
    Scene scene;
    for (int i = 0; i < 7; ++i)
        scene.grids[2].put(0, 2 + 2 * i, 3 * i + 2, {0, 0, 0, 0, 1});
    const std::vector<nn_grid> grids = scene.views();
    BBox boxes[3];
    boxes[2] = make_box(1, 2, 3, 4, 5);
    EXPECT_EQ(nn_decode(&scene.model, grids.data(), 0.5f, 0.5f, 128, 192, boxes, 2), 2);
    EXPECT_EQ(boxes[2].score, 5);
}

} // namespace
