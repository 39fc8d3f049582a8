// The detector behind a small interface: an embedded model, a picture in, boxes out.
#ifndef NN_NETWORK_H
#define NN_NETWORK_H

#include <stdint.h>

struct NetworkConfig {
    uint32_t input_height;    // requested, before the area fit; pixels
    uint32_t input_width;     // pixels
    float score_threshold;    // least objectness x class probability
    float iou_threshold;
    uint32_t thread_count;    // 0 leaves the library's default
    int32_t max_detection;    // size of the result buffer and cap on boxes
};

struct BBox {
    int16_t x1, y1, x2, y2;  // pixels of the picture given to Forward_Network
    int16_t class_index;
    float score;
};
static_assert(sizeof(BBox) == 16, "result layout");

struct NetworkHandle;

int Init_Network(NetworkHandle **handle, NetworkConfig *config);
int Release_Network(NetworkHandle **handle);
int Change_Model(NetworkHandle *handle, int network_index);
int Set_Area_Constraint(NetworkHandle *handle, int min_area, int max_area);
int Forward_Network(NetworkHandle *handle, const uint8_t *pixels, int height, int width, int channels);
int Forward_Network_Stride(NetworkHandle *handle, const uint8_t *pixels, int height, int width, int channels,
                           int stride);
int GetBBox(NetworkHandle *handle, int image_height, int image_width);
// The boxes of the last GetBBox; owned by the handle, valid until the next GetBBox or release.
const BBox *Get_Boxes(const NetworkHandle *handle);

#endif
