// What a network handle holds. For network.cpp and its tests; everyone else keeps to network.h.
#ifndef NN_HANDLE_H
#define NN_HANDLE_H

#include <mat.h>
#include <net.h>

#include "nn/network.h"
#include "nn/nn_model.h"

struct NetworkHandle {
    NetworkConfig *config; // the caller's; read anew in every call
    nn_model model;
    bool activated[NN_MODELS]; // each model: it was loaded once
    bool complete;             // structure and weights of the present network were both read to their end
    ncnn::Net *net;
    ncnn::Mat *outputs; // model.outputs blobs; emptied before every pass
    BBox *boxes;        // room for max_boxes; null where there was none to make
    int max_boxes;      // config->max_detection at creation
    int count;          // of the last GetBBox
};

#endif
