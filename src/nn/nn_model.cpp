// The table of embedded models. There is one: the person detector.
#include "nn/nn_model.h"

#include "nn/model_blob.h"

namespace
{

// Where the three grids leave the network: 32, 16 and 8 pixels to a cell.
const int person_output_blobs[] = {142, 154, 164};

// Widths and heights in input pixels, by rising area; the coarse grid takes the large ones.
const float person_anchors[] = {10, 13, 16, 30, 33, 23, 30, 61, 62, 45, 59, 119, 116, 90, 156, 198, 373, 326};
const int person_anchors_per_output[] = {3, 3, 3};
const int person_anchor_masks[] = {6, 7, 8, 3, 4, 5, 0, 1, 2};

const float person_norms[] = {1 / 255.f, 1 / 255.f, 1 / 255.f};

} // namespace

int nn_model_fill(nn_model *model, int index)
{
    if (index != 0)
        return -1;
    *model = {};
    model->index = index;
    model->structure = person_model_structure;
    model->structure_size = static_cast<size_t>(person_model_structure_end - person_model_structure);
    model->weights = person_model_weights;
    model->weights_size = static_cast<size_t>(person_model_weights_end - person_model_weights);
    model->input_color = 3;
    model->kind = NN_DETECTOR_MASKED_ANCHORS;
    model->classes = 1;
    model->outputs = 3;
    model->output_blobs = person_output_blobs;
    model->anchors = person_anchors;
    model->anchors_per_output = person_anchors_per_output;
    model->anchor_masks = person_anchor_masks;
    model->norms = person_norms;
    model->alignment_shift = 5;
    model->activation_bytes = 560000;
    model->run_bytes = 810000;
    return 0;
}
