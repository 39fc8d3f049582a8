// From a detector's output grids to boxes: pure arithmetic over plain arrays.
//
// A grid has, for each of its anchors, 5 + classes channels in the order tx, ty, tw, th, objectness, class
// scores. A candidate is a cell and anchor whose score reaches the threshold. Order everywhere: output,
// anchor, row, column. Any thread.
#ifndef NN_DECODE_H
#define NN_DECODE_H

#include <stddef.h>

#include "nn/network.h"
#include "nn/nn_model.h"

struct nn_grid {
    const float *values; // channel by channel, rows of `width` without gap
    int width, height;   // cells
    int channels;
    size_t channel_stride; // floats from one channel to the next
};

float nn_sigmoid(float x);

// The raw objectness whose sigmoid is `score`: -ln((1 - score) / (score + 1e-16)). Comparing with it costs no
// exponential. 0.5 gives 0; 1 gives infinity; NaN, which nothing reaches, outside 0 to 1.
float nn_logit(float score);

// How many cells and anchors have a raw objectness of at least `logit`, over all grids of the model.
int nn_count_candidates(const nn_model *model, const nn_grid *grids, float logit);

// Writes the candidates that reach `score_threshold` (at most nn_count_candidates of its logit) in pixels of
// a picture of the given size, and returns how many. `class_scratch` has room for model->classes floats. Uses
// the model's tables and its fitted input size.
int nn_collect_candidates(const nn_model *model, const nn_grid *grids, float score_threshold,
                          int image_height, int image_width, float *class_scratch, BBox *candidates);

// Intersection over union; sides are x2 - x1 and y2 - y1.
float nn_iou(const BBox *a, const BBox *b);

// Class-wise suppression: leaves out each box that another of its class (left out itself or not) beats with a
// strictly higher score and an IoU above the threshold; equals leave each other alone. Writes the survivors
// in their order to `survivors` (room for `count`) and returns how many.
int nn_suppress(const BBox *candidates, int count, float iou_threshold, BBox *survivors);

// Brings the `keep` best scores to the front, in no particular order; returns how many boxes there are now.
int nn_keep_best(BBox *boxes, int count, int keep);

// Pulls left and top edges below 0 to 0, right and bottom edges past the picture to its last pixel.
void nn_clamp_boxes(BBox *boxes, int count, int image_height, int image_width);

// All of the above: at most `max_boxes` (1 or more) boxes to `boxes`, returns how many. 0 with a line on
// standard output where memory is short; allocates nothing where no raw objectness reaches the threshold.
int nn_decode(const nn_model *model, const nn_grid *grids, float score_threshold, float iou_threshold,
              int image_height, int image_width, BBox *boxes, int max_boxes);

#endif
