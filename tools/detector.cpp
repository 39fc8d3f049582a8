// Image engine and network behind two calls.
#include "detector.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <vector>

#include "mi_ive.h"
#include "naro_util.h"

namespace
{

enum { IVE_HANDLE = 0, MIN_AREA = 16384, MAX_AREA = 28224 };

struct {
    NetworkConfig *config;
    NetworkHandle *network;
    std::vector<uint8_t> pixels;
    int width, height;
} state;

} // namespace

int detector_start(NetworkConfig *config)
{
    state.config = config;
    return MI_IVE_Create(IVE_HANDLE) == 0 && Init_Network(&state.network, config) == 0 &&
                   Set_Area_Constraint(state.network, MIN_AREA, MAX_AREA) == 0
               ? 0
               : -1;
}

int detector_look(const uint8_t *luma, int luma_stride, const uint8_t *chroma, int chroma_stride, int width,
                  int height, std::string *why)
{
    mi_ive_image yuv = {};
    yuv.type = MI_IVE_YUV420SP;
    yuv.virt_addr[0] = const_cast<uint8_t *>(luma); // only read
    yuv.virt_addr[1] = const_cast<uint8_t *>(chroma);
    yuv.stride[0] = static_cast<uint16_t>(luma_stride);
    yuv.stride[1] = static_cast<uint16_t>(chroma_stride);
    yuv.width = static_cast<uint16_t>(width);
    yuv.height = static_cast<uint16_t>(height);

    state.width = width;
    state.height = height;
    state.pixels.resize(static_cast<size_t>(width) * static_cast<size_t>(height) * 3);
    mi_ive_image rgb = {};
    rgb.type = MI_IVE_U8C3_PACKED;
    rgb.virt_addr[0] = state.pixels.data();
    rgb.stride[0] = rgb.width = static_cast<uint16_t>(width);
    rgb.height = static_cast<uint16_t>(height);

    const mi_ive_csc_control control = {0};
    const int error = MI_IVE_Csc(IVE_HANDLE, &yuv, &rgb, &control, 1);
    if (error != 0) {
        char text[60];
        snprintf(text, sizeof text, "the image engine answers 0x%x", static_cast<unsigned>(error));
        *why = text;
        return -1;
    }
    state.config->input_height = static_cast<uint32_t>(naro_round(height, 32));
    state.config->input_width = static_cast<uint32_t>(naro_round(width, 32));
    if (Forward_Network(state.network, state.pixels.data(), height, width, 3) != 0) {
        *why = "the detector failed";
        return -1;
    }
    return GetBBox(state.network, height, width);
}

const BBox *detector_boxes(void)
{
    return Get_Boxes(state.network);
}

bool detector_save(const char *picture, const char *outputs, std::string *why)
{
    FILE *file = fopen(picture, "wb");
    bool written = file && fprintf(file, "P6\n%d %d\n255\n", state.width, state.height) > 0 &&
                   fwrite(state.pixels.data(), 1, state.pixels.size(), file) == state.pixels.size();
    if (file)
        written = fclose(file) == 0 && written;
    if (!written) {
        *why = std::string(picture) + ": " + strerror(errno);
        return false;
    }
    if (Save_Output_To_File(state.network, outputs) != 0) {
        *why = std::string(outputs) + ": cannot be written";
        return false;
    }
    return true;
}

void detector_stop(void)
{
    if (state.network)
        Release_Network(&state.network);
    MI_IVE_Destroy(IVE_HANDLE);
    state.pixels = {};
}
