// The models that are linked into the program, each as a record of everything that running it takes.
#ifndef NN_MODEL_H
#define NN_MODEL_H

#include <stddef.h>
#include <stdint.h>

enum nn_model_kind {
    NN_CLASSIFIER = 0,
    NN_DETECTOR_GRID_ANCHORS = 2,   // each output has anchors of its own, in cells of its grid (YOLOv2 style)
    NN_DETECTOR_MASKED_ANCHORS = 3, // outputs pick theirs from one list, in input pixels (YOLOv3 style)
    NN_FEATURE_EXTRACTOR = 10,
};

enum { NN_MAX_OUTPUTS = 3, NN_MODELS = 1 };

struct nn_model {
    int index;
    const unsigned char *structure; // ncnn's binary form, 4-byte aligned; null once loaded
    size_t structure_size;          // bytes
    const unsigned char *weights;   // the network may go on referring to them; null here once loaded
    size_t weights_size;            // bytes
    int input_color;                // 3: R, G, B; 1: gray
    int kind;                       // enum nn_model_kind
    int classes;
    int outputs;             // 1 to NN_MAX_OUTPUTS
    const int *output_blobs; // blob index of each output, in the order of extraction
    const float *anchors;    // (width, height) pairs
    const int *anchors_per_output;
    const int *anchor_masks;       // anchor numbers, those of output 0 first; masked anchors only
    const float *means;            // one for each channel, or null
    const float *norms;            // factor of each channel after the mean, or null
    int alignment_shift;           // input sides are multiples of 1 << alignment_shift
    int min_area, max_area;        // input area in pixels, 0: no constraint
    uint32_t activation_bytes;     // memory that activating takes
    uint32_t run_bytes;            // memory that a pass takes for each 16384 input pixels
    int input_height, input_width; // of the last pass, after the fit; pixels
};

// Fills every field for the model `index`: 0, or -1 with *model untouched where there is no such model. The
// areas start without constraint. Pointers refer to constant tables. Any thread.
int nn_model_fill(nn_model *model, int index);

#endif
