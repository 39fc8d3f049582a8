// Detection decoding: candidates, suppression, cap, clamp.
#include "nn/nn_decode.h"

#include <algorithm>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

namespace
{

enum { BOX_CHANNELS = 5, OBJECTNESS = 4 }; // tx, ty, tw, th, objectness

// The channels of one anchor in one grid.
const float *anchor_channels(const nn_model *model, const nn_grid *grid, int anchor)
{
    return grid->values +
           static_cast<size_t>(anchor) * (BOX_CHANNELS + model->classes) * grid->channel_stride;
}

// The most probable class of one cell (the first of equals) and its probability.
int best_class(const nn_model *model, const float *scores, size_t channel_stride, float *scratch,
               float *out_probability)
{
    if (model->classes < 2) {
        *out_probability = 1;
        return 0;
    }
    for (int k = 0; k < model->classes; ++k)
        scratch[k] = scores[static_cast<size_t>(k) * channel_stride];
    if (model->kind == NN_DETECTOR_MASKED_ANCHORS) {
        for (int k = 0; k < model->classes; ++k)
            scratch[k] = nn_sigmoid(scratch[k]);
    } else {
        // Softmax, shifted by the largest so that no exponential overflows.
        const float largest = *std::max_element(scratch, scratch + model->classes);
        float sum = 0;
        for (int k = 0; k < model->classes; ++k)
            sum += scratch[k] = expf(scratch[k] - largest);
        for (int k = 0; k < model->classes; ++k)
            scratch[k] /= sum;
    }
    const float *best = std::max_element(scratch, scratch + model->classes);
    *out_probability = *best;
    return static_cast<int>(best - scratch);
}

// A network may answer anything, infinities and NaN too: what does not fit 16 bits becomes the nearest that
// does, NaN becomes 0.
int16_t to_pixel(float position)
{
    const float rounded = position + 0.5f;
    if (!(rounded > INT16_MIN))
        return isnan(rounded) ? 0 : INT16_MIN;
    return rounded >= INT16_MAX ? INT16_MAX : static_cast<int16_t>(rounded);
}

} // namespace

float nn_sigmoid(float x)
{
    return 1 / (1 + expf(-x));
}

float nn_logit(float score)
{
    return -logf((1 - score) / (score + 1e-16f));
}

int nn_count_candidates(const nn_model *model, const nn_grid *grids, float logit)
{
    int count = 0;
    for (int output = 0; output < model->outputs; ++output) {
        const nn_grid *grid = &grids[output];
        const int cells = grid->width * grid->height;
        for (int anchor = 0; anchor < model->anchors_per_output[output]; ++anchor) {
            const float *objectness =
                anchor_channels(model, grid, anchor) + OBJECTNESS * grid->channel_stride;
            for (int cell = 0; cell < cells; ++cell)
                count += objectness[cell] >= logit;
        }
    }
    return count;
}

int nn_collect_candidates(const nn_model *model, const nn_grid *grids, float score_threshold,
                          int image_height, int image_width, float *class_scratch, BBox *candidates)
{
    const float logit = nn_logit(score_threshold);
    int count = 0;
    int anchors_before = 0; // of the outputs before this one
    for (int output = 0; output < model->outputs; ++output) {
        const nn_grid *grid = &grids[output];
        const size_t stride = grid->channel_stride;
        for (int anchor = 0; anchor < model->anchors_per_output[output]; ++anchor) {
            float width_scale, height_scale; // of the picture, for an exponential of 1
            if (model->kind == NN_DETECTOR_MASKED_ANCHORS) {
                const float *pair = model->anchors + 2 * model->anchor_masks[anchors_before + anchor];
                width_scale = pair[0] / static_cast<float>(model->input_width);
                height_scale = pair[1] / static_cast<float>(model->input_height);
            } else {
                const float *pair = model->anchors + 2 * (anchors_before + anchor);
                width_scale = pair[0] / static_cast<float>(grid->width);
                height_scale = pair[1] / static_cast<float>(grid->height);
            }
            const float *channels = anchor_channels(model, grid, anchor);
            for (int row = 0; row < grid->height; ++row) {
                for (int column = 0; column < grid->width; ++column) {
                    const float *cell = channels + static_cast<size_t>(row) * grid->width + column;
                    if (!(cell[OBJECTNESS * stride] >= logit))
                        continue;
                    float probability;
                    const int best =
                        best_class(model, cell + BOX_CHANNELS * stride, stride, class_scratch, &probability);
                    const float score = nn_sigmoid(cell[OBJECTNESS * stride]) * probability;
                    if (!(score >= score_threshold))
                        continue;
                    const float x = (nn_sigmoid(cell[0]) + column) / grid->width;
                    const float y = (nn_sigmoid(cell[stride]) + row) / grid->height;
                    const float width = expf(cell[2 * stride]) * width_scale;
                    const float height = expf(cell[3 * stride]) * height_scale;
                    BBox *box = &candidates[count++];
                    box->x1 = to_pixel((x - width / 2) * image_width);
                    box->y1 = to_pixel((y - height / 2) * image_height);
                    box->x2 = to_pixel((x + width / 2) * image_width);
                    box->y2 = to_pixel((y + height / 2) * image_height);
                    box->class_index = static_cast<int16_t>(best);
                    box->score = score;
                }
            }
        }
        anchors_before += model->anchors_per_output[output];
    }
    return count;
}

float nn_iou(const BBox *a, const BBox *b)
{
    // 64 bits: a side may be 65535.
    auto area = [](const BBox *box) { return static_cast<int64_t>(box->x2 - box->x1) * (box->y2 - box->y1); };
    const int64_t width = std::max(0, std::min(a->x2, b->x2) - std::max(a->x1, b->x1));
    const int64_t height = std::max(0, std::min(a->y2, b->y2) - std::max(a->y1, b->y1));
    const int64_t intersection = width * height;
    // Two boxes without area give 0 / 0, which is above no threshold.
    return static_cast<float>(intersection) / static_cast<float>(area(a) + area(b) - intersection);
}

int nn_suppress(const BBox *candidates, int count, float iou_threshold, BBox *survivors)
{
    int kept = 0;
    for (int i = 0; i < count; ++i) {
        const BBox *box = &candidates[i];
        const bool beaten = std::any_of(candidates, candidates + count, [&](const BBox &other) {
            return other.class_index == box->class_index && other.score > box->score &&
                   nn_iou(box, &other) > iou_threshold;
        });
        if (!beaten)
            survivors[kept++] = *box;
    }
    return kept;
}

int nn_keep_best(BBox *boxes, int count, int keep)
{
    if (count <= keep)
        return count;
    std::nth_element(boxes, boxes + keep, boxes + count,
                     [](const BBox &a, const BBox &b) { return a.score > b.score; });
    return keep;
}

void nn_clamp_boxes(BBox *boxes, int count, int image_height, int image_width)
{
    for (BBox *box = boxes; box < boxes + count; ++box) {
        if (box->x1 < 0)
            box->x1 = 0;
        if (box->y1 < 0)
            box->y1 = 0;
        if (box->x2 >= image_width)
            box->x2 = static_cast<int16_t>(image_width - 1);
        if (box->y2 >= image_height)
            box->y2 = static_cast<int16_t>(image_height - 1);
    }
}

int nn_decode(const nn_model *model, const nn_grid *grids, float score_threshold, float iou_threshold,
              int image_height, int image_width, BBox *boxes, int max_boxes)
{
    const int room = nn_count_candidates(model, grids, nn_logit(score_threshold));
    if (room == 0)
        return 0;
    BBox *candidates = static_cast<BBox *>(malloc(static_cast<size_t>(room) * sizeof(BBox)));
    float *scratch = static_cast<float *>(malloc(static_cast<size_t>(model->classes) * sizeof(float)));
    if (!candidates || !scratch) {
        puts("Error: Cannot allocate buffer in GetBBox().");
        free(candidates);
        free(scratch);
        return 0;
    }
    int count =
        nn_collect_candidates(model, grids, score_threshold, image_height, image_width, scratch, candidates);
    free(scratch);
    BBox *survivors = static_cast<BBox *>(malloc(static_cast<size_t>(room) * sizeof(BBox)));
    if (!survivors) {
        puts("Error: cannot allocate buffer in NMS().");
        free(candidates);
        return 0;
    }
    count = nn_suppress(candidates, count, iou_threshold, survivors);
    free(candidates);
    count = nn_keep_best(survivors, count, max_boxes);
    std::copy(survivors, survivors + count, boxes);
    free(survivors);
    nn_clamp_boxes(boxes, count, image_height, image_width);
    return count;
}
