// Scaling and colour conversion with libswscale; turning by quarters, which it does not do, by hand.
#include "picture.h"

#include <algorithm>
#include <math.h>
#include <stddef.h>
#include <vector>

extern "C" {
#include <libavutil/display.h>
#include <libavutil/frame.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include "desk.h"

namespace
{

// Area averaging shrinks the way a sensor's binning does; accurate rounding and no shortcuts that depend on
// the processor: the same picture on every machine.
enum { SCALER_FLAGS = SWS_AREA | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_BITEXACT };

// What a conversion depends on; a scaler is made anew when it changes.
struct conversion {
    int from_width, from_height;
    AVPixelFormat from;
    int coefficients; // SWS_CS_*
    bool full_range;
    int to_width, to_height;
    AVPixelFormat to;
};

struct scaler {
    SwsContext *context;
    conversion made_for;
};

struct {
    scaler analysis;
    scaler view;
    std::vector<uint8_t> turned; // room for a picture before it is turned
} state;

// The formats whose names still say that they use the full range, and what they are otherwise.
AVPixelFormat without_range(AVPixelFormat format, bool *full_range)
{
    switch (format) {
    case AV_PIX_FMT_YUVJ420P:
        *full_range = true;
        return AV_PIX_FMT_YUV420P;
    case AV_PIX_FMT_YUVJ422P:
        *full_range = true;
        return AV_PIX_FMT_YUV422P;
    case AV_PIX_FMT_YUVJ444P:
        *full_range = true;
        return AV_PIX_FMT_YUV444P;
    case AV_PIX_FMT_YUVJ440P:
        *full_range = true;
        return AV_PIX_FMT_YUV440P;
    case AV_PIX_FMT_YUVJ411P:
        *full_range = true;
        return AV_PIX_FMT_YUV411P;
    default:
        return format;
    }
}

// Where the source does not say, what players assume: BT.709 from 720 lines on, BT.601 below.
int coefficients_of(const AVFrame *frame)
{
    switch (frame->colorspace) {
    case AVCOL_SPC_BT709:
        return SWS_CS_ITU709;
    case AVCOL_SPC_FCC:
        return SWS_CS_FCC;
    case AVCOL_SPC_BT470BG:
    case AVCOL_SPC_SMPTE170M:
        return SWS_CS_ITU601;
    case AVCOL_SPC_SMPTE240M:
        return SWS_CS_SMPTE240M;
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_BT2020_CL:
        return SWS_CS_BT2020;
    default:
        return frame->height >= 720 ? SWS_CS_ITU709 : SWS_CS_ITU601;
    }
}

conversion conversion_of(const AVFrame *frame, int to_width, int to_height, AVPixelFormat to)
{
    conversion wanted = {};
    wanted.from_width = frame->width;
    wanted.from_height = frame->height;
    wanted.full_range = frame->color_range == AVCOL_RANGE_JPEG;
    wanted.from = without_range(static_cast<AVPixelFormat>(frame->format), &wanted.full_range);
    wanted.coefficients = coefficients_of(frame);
    wanted.to_width = to_width;
    wanted.to_height = to_height;
    wanted.to = to;
    return wanted;
}

bool same(const conversion &a, const conversion &b)
{
    return a.from_width == b.from_width && a.from_height == b.from_height && a.from == b.from &&
           a.coefficients == b.coefficients && a.full_range == b.full_range && a.to_width == b.to_width &&
           a.to_height == b.to_height && a.to == b.to;
}

SwsContext *open_scaler(const conversion &wanted)
{
    SwsContext *context = sws_alloc_context();
    if (!context)
        return nullptr;
    // The ranges must be known when it is opened: pictures of equal size would be copied otherwise.
    const struct {
        const char *name;
        int value;
    } settings[] = {
        {"srcw", wanted.from_width},
        {"srch", wanted.from_height},
        {"src_format", wanted.from},
        {"dstw", wanted.to_width},
        {"dsth", wanted.to_height},
        {"dst_format", wanted.to},
        {"dst_range", 0},
        {"src_range", wanted.full_range},
        {"sws_flags", SCALER_FLAGS},
    };
    for (const auto &setting : settings)
        av_opt_set_int(context, setting.name, setting.value, 0);
    if (sws_init_context(context, nullptr, nullptr) < 0) {
        sws_freeContext(context);
        return nullptr;
    }
    return context;
}

int prepare(scaler *scaler, const conversion &wanted)
{
    if (scaler->context && same(scaler->made_for, wanted))
        return 0;
    sws_freeContext(scaler->context);
    scaler->context = open_scaler(wanted);
    if (!scaler->context) {
        const char *name = av_get_pix_fmt_name(wanted.from);
        desk_say("a picture of %dx%d in format %s cannot be converted", wanted.from_width, wanted.from_height,
                 name ? name : "unknown");
        return -1;
    }
    scaler->made_for = wanted;
    const int one = 1 << 16; // contrast and saturation as they are
    // Refused for pictures that have no such coefficients (grey, RGB); those need none.
    sws_setColorspaceDetails(scaler->context, sws_getCoefficients(wanted.coefficients), wanted.full_range,
                             sws_getCoefficients(SWS_CS_ITU601), 0, 0, one, one);
    return 0;
}

int convert(scaler *scaler, const AVFrame *frame, int width, int height, AVPixelFormat format,
            uint8_t *const planes[4], const int strides[4])
{
    if (frame->width <= 0 || frame->height <= 0 || !frame->data[0]) {
        desk_say("an empty picture");
        return -1;
    }
    const conversion wanted = conversion_of(frame, width, height, format);
    if (wanted.from == AV_PIX_FMT_NV12 && format == AV_PIX_FMT_NV12 && wanted.from_width == width &&
        wanted.from_height == height && !wanted.full_range) {
        // Where nothing is to be done the scaler copies the luma only, and leaves the colours as they were.
        for (int plane = 0; plane < 2; plane++)
            av_image_copy_plane(planes[plane], strides[plane], frame->data[plane], frame->linesize[plane],
                                width, plane ? height / 2 : height);
        return 0;
    }
    if (prepare(scaler, wanted) != 0)
        return -1;
    if (sws_scale(scaler->context, frame->data, frame->linesize, 0, frame->height, planes, strides) !=
        height) {
        desk_say("a picture of %dx%d could not be converted", frame->width, frame->height);
        return -1;
    }
    return 0;
}

// How many quarter turns clockwise make the picture upright, as the source says.
int quarters_of(const AVFrame *frame)
{
    const AVFrameSideData *matrix = av_frame_get_side_data(frame, AV_FRAME_DATA_DISPLAYMATRIX);
    if (!matrix || static_cast<size_t>(matrix->size) < 9 * sizeof(int32_t))
        return 0;
    const double angle = av_display_rotation_get(reinterpret_cast<const int32_t *>(matrix->data));
    if (isnan(angle))
        return 0;
    // The angle is counter-clockwise.
    return static_cast<int>(lround(-angle / 90)) & 3;
}

// Turns `from` (width x height elements) clockwise into `to`, `to_stride` elements a row.
template <typename Element>
void turn(const Element *from, int width, int height, int quarters, Element *to, int to_stride)
{
    for (int y = 0; y < height; y++) {
        for (int x = 0; x < width; x++) {
            const int to_x = quarters == 1 ? height - 1 - y : quarters == 2 ? width - 1 - x : y;
            const int to_y = quarters == 1 ? x : quarters == 2 ? height - 1 - y : width - 1 - x;
            to[static_cast<ptrdiff_t>(to_y) * to_stride + to_x] = from[static_cast<ptrdiff_t>(y) * width + x];
        }
    }
}

} // namespace

int picture_to_analysis(const AVFrame *frame, uint8_t *out)
{
    const int quarters = quarters_of(frame);
    if (quarters == 0) {
        uint8_t *const planes[4] = {out, out + ANALYSIS_CHROMA_OFFSET, nullptr, nullptr};
        const int strides[4] = {ANALYSIS_WIDTH, ANALYSIS_WIDTH, 0, 0};
        return convert(&state.analysis, frame, ANALYSIS_WIDTH, ANALYSIS_HEIGHT, AV_PIX_FMT_NV12, planes,
                       strides);
    }
    const int width = quarters == 2 ? ANALYSIS_WIDTH : ANALYSIS_HEIGHT;
    const int height = quarters == 2 ? ANALYSIS_HEIGHT : ANALYSIS_WIDTH;
    state.turned.resize(ANALYSIS_FRAME_BYTES);
    uint8_t *before = state.turned.data();
    uint8_t *const planes[4] = {before, before + ANALYSIS_CHROMA_OFFSET, nullptr, nullptr};
    const int strides[4] = {width, width, 0, 0};
    if (convert(&state.analysis, frame, width, height, AV_PIX_FMT_NV12, planes, strides) != 0)
        return -1;
    turn(before, width, height, quarters, out, ANALYSIS_WIDTH);
    // A chroma pair is one element.
    turn(reinterpret_cast<const uint16_t *>(before + ANALYSIS_CHROMA_OFFSET), width / 2, height / 2, quarters,
         reinterpret_cast<uint16_t *>(out + ANALYSIS_CHROMA_OFFSET), ANALYSIS_WIDTH / 2);
    return 0;
}

int picture_to_view(const AVFrame *frame, int width, int height, uint32_t *out)
{
    const int quarters = quarters_of(frame);
    if (quarters == 0) {
        uint8_t *const planes[4] = {reinterpret_cast<uint8_t *>(out), nullptr, nullptr, nullptr};
        const int strides[4] = {4 * width, 0, 0, 0};
        return convert(&state.view, frame, width, height, AV_PIX_FMT_RGB32, planes, strides);
    }
    const int from_width = quarters == 2 ? width : height;
    const int from_height = quarters == 2 ? height : width;
    state.turned.resize(static_cast<size_t>(width) * static_cast<size_t>(height) * 4);
    uint8_t *const planes[4] = {state.turned.data(), nullptr, nullptr, nullptr};
    const int strides[4] = {4 * from_width, 0, 0, 0};
    if (convert(&state.view, frame, from_width, from_height, AV_PIX_FMT_RGB32, planes, strides) != 0)
        return -1;
    turn(reinterpret_cast<const uint32_t *>(state.turned.data()), from_width, from_height, quarters, out,
         width);
    return 0;
}

void picture_exit(void)
{
    for (scaler *scaler : {&state.analysis, &state.view}) {
        sws_freeContext(scaler->context);
        scaler->context = nullptr;
    }
    state.turned = {};
}
