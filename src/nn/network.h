// The detector behind a small interface: an embedded model, a picture in, boxes out.
//
// Init_Network, Set_Area_Constraint once; then for each picture Forward_Network and GetBBox; Release_Network.
// A handle belongs to one thread at a time; different handles are independent. Every function says its errors
// on standard output, returns -1 (0 where it returns a count) and leaves the handle fit for the next call. A
// null handle is such an error.
#ifndef NN_NETWORK_H
#define NN_NETWORK_H

#include <stdint.h>

// The caller's; the handle keeps the pointer, so the fields may be changed between calls.
struct NetworkConfig {
    uint32_t input_height; // requested, before the area fit; pixels
    uint32_t input_width;  // pixels
    float score_threshold; // least objectness x class probability
    float iou_threshold;   // a box that overlaps a better one by more than this is left out
    uint32_t thread_count; // 0 leaves the library's default
    int32_t max_detection; // cap on boxes; as it is at Init_Network it is the size of the result buffer
};

struct BBox {
    int16_t x1, y1, x2, y2; // pixels of the picture given to Forward_Network
    int16_t class_index;
    float score;
};
static_assert(sizeof(BBox) == 16, "result layout");

struct NetworkHandle;

// Creates a handle with embedded model 0 activated and stores it; 0 or -1 (then *handle is as it was). A
// handle that is already there is warned about and not released.
int Init_Network(NetworkHandle **handle, NetworkConfig *config);
// Frees everything and sets *handle to null; 0, or -1 where there is none.
int Release_Network(NetworkHandle **handle);
// Puts another embedded model in place of the present one: 0 (at once when it is the present one), or -1 with
// the present one kept. The area constraint starts anew.
int Change_Model(NetworkHandle *handle, int network_index);
// Bounds of the network's input area in pixels; 0 is no bound. 0 or -1.
int Set_Area_Constraint(NetworkHandle *handle, int min_area, int max_area);

// Runs the network on a picture of 1 (gray) or 3 (R, G, B) interleaved bytes a pixel, which is resized to the
// fitted input size; sides are 2 to 32767 pixels. The pixels are not kept. 0 or -1 (then the outputs are
// empty).
int Forward_Network(NetworkHandle *handle, const uint8_t *pixels, int height, int width, int channels);
// The same with rows `stride` pixels apart.
int Forward_Network_Stride(NetworkHandle *handle, const uint8_t *pixels, int height, int width, int channels,
                           int stride);

// Decodes the last pass of a detector into at most max_detection boxes, in no particular order, in pixels of
// a picture of the given size; returns how many. May be called again, with another threshold, say.
int GetBBox(NetworkHandle *handle, int image_height, int image_width);
// The boxes of the last GetBBox; owned by the handle, valid until the next GetBBox or release.
const BBox *Get_Boxes(const NetworkHandle *handle);

// A classifier's answer to the last pass: copies at most `room` values of its output, as the network gives
// them, and returns how many.
int Get_Prob(NetworkHandle *handle, float *probabilities, int room);
// How many values a feature extractor gave in the last pass.
int Get_Feature_Size(NetworkHandle *handle);
// Copies at most `room` of them and returns how many.
int Get_Feature(NetworkHandle *handle, float *feature, int room);
// How many classes a classifier or detector tells apart.
int Get_Num_Classes(NetworkHandle *handle);

// Writes the outputs of the last pass as text: for each output, channel and row one line of numbers with a
// blank between them. 0 or -1.
int Save_Output_To_File(NetworkHandle *handle, const char *path);
// Prints the settings that were compiled in.
void Print_Options(void);

#endif
