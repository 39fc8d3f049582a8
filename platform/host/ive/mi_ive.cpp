// The image engine in software: what the interface promises, for the planes of ordinary memory.
//
// A handle is a claim and nothing more: the engine keeps no state between calls, so calls on one handle from
// several threads do not meet, and only creating and destroying need an atomic.
#include "mi_ive.h"

#include <atomic>
#include <libyuv.h>
#include <string.h>

#include "sad_kernels.h"

namespace
{

enum { HANDLES = 64 };

struct {
    std::atomic<bool> created[HANDLES];
} engine;

bool in_range(int handle)
{
    return handle >= 0 && handle < HANDLES;
}

bool is_created(int handle)
{
    return in_range(handle) && engine.created[handle].load(std::memory_order_acquire);
}

// Whether the record describes a picture of this type whose planes hold its rows: the plane pointers
// themselves are checked before.
bool is_picture(const mi_ive_image *image, uint32_t type)
{
    return image->type == type && image->width > 0 && image->height > 0 && image->stride[0] >= image->width;
}

// Whether the record describes a map of this type with room for so many entries. A map of no entries may be
// of width or height 0.
bool is_map(const mi_ive_image *image, uint32_t type, size_t columns, size_t rows)
{
    return image->type == type && image->stride[0] >= image->width && image->width >= columns &&
           image->height >= rows;
}

// A row of a map goes through the stack in pieces of so many entries (a multiple of the kernels' widest
// step): it makes the kernels independent of the map's alignment and lets one sum be stored, thresholded or
// both.
const size_t PIECE = 320;

} // namespace

int MI_IVE_Create(int handle)
{
    if (!in_range(handle))
        return MI_IVE_ERR_PARAM;
    return engine.created[handle].exchange(true, std::memory_order_acq_rel) ? MI_IVE_ERR_EXIST : 0;
}

int MI_IVE_Destroy(int handle)
{
    if (!in_range(handle))
        return MI_IVE_ERR_NO_HANDLE;
    return engine.created[handle].exchange(false, std::memory_order_acq_rel) ? 0 : MI_IVE_ERR_NO_HANDLE;
}

int MI_IVE_Sad(int handle, const struct mi_ive_image *a, const struct mi_ive_image *b,
               struct mi_ive_image *sad, struct mi_ive_image *thr, const struct mi_ive_sad_control *control,
               int instant)
{
    (void)instant;
    if (!is_created(handle))
        return MI_IVE_ERR_NO_HANDLE;
    if (!control || !a || !b || !a->virt_addr[0] || !b->virt_addr[0])
        return MI_IVE_ERR_NULL;
    if (control->mode > MI_IVE_SAD_16X16 || control->output > MI_IVE_SAD_ONLY_THRESHOLD)
        return MI_IVE_ERR_PARAM;
    const bool want_sad = control->output != MI_IVE_SAD_ONLY_THRESHOLD;
    const bool want_thr = control->output != MI_IVE_SAD_ONLY_MAP;
    if ((want_sad && (!sad || !sad->virt_addr[0])) || (want_thr && (!thr || !thr->virt_addr[0])))
        return MI_IVE_ERR_NULL;

    const size_t block = (size_t)4 << control->mode;
    const size_t columns = a->width / block;
    const size_t rows = a->height / block;
    if (!is_picture(a, MI_IVE_U8C1) || !is_picture(b, MI_IVE_U8C1) || a->width != b->width ||
        a->height != b->height || (want_sad && !is_map(sad, MI_IVE_U16C1, columns, rows)) ||
        (want_thr && !is_map(thr, MI_IVE_U8C1, columns, rows)))
        return MI_IVE_ERR_PARAM;

    const sad_kernels *kernels = sad_kernels_best();
    const sad_blocks blocks = kernels->blocks[control->mode];
    for (size_t row = 0; row < rows; row++) {
        const uint8_t *a_row = a->virt_addr[0] + row * block * a->stride[0];
        const uint8_t *b_row = b->virt_addr[0] + row * block * b->stride[0];
        for (size_t column = 0; column < columns; column += PIECE) {
            const size_t count = columns - column < PIECE ? columns - column : PIECE;
            uint16_t sums[PIECE];
            blocks(a_row + column * block, a->stride[0], b_row + column * block, b->stride[0], count, sums);
            if (want_sad)
                memcpy(sad->virt_addr[0] + (row * sad->stride[0] + column) * sizeof *sums, sums,
                       count * sizeof *sums);
            if (want_thr)
                kernels->threshold(sums, count, control->threshold, control->min_value, control->max_value,
                                   thr->virt_addr[0] + row * thr->stride[0] + column);
        }
    }
    return 0;
}

int MI_IVE_Csc(int handle, const struct mi_ive_image *yuv, struct mi_ive_image *rgb,
               const struct mi_ive_csc_control *control, int instant)
{
    (void)instant;
    if (!is_created(handle))
        return MI_IVE_ERR_NO_HANDLE;
    if (!control || !yuv || !rgb || !yuv->virt_addr[0] || !yuv->virt_addr[1] || !rgb->virt_addr[0])
        return MI_IVE_ERR_NULL;
    if (control->mode != 0 || !is_picture(yuv, MI_IVE_YUV420SP) || yuv->stride[1] < yuv->width ||
        yuv->width % 2 != 0 || yuv->height % 2 != 0 || !is_picture(rgb, MI_IVE_U8C3_PACKED) ||
        rgb->width != yuv->width || rgb->height != yuv->height)
        return MI_IVE_ERR_PARAM;
    // "RAW" is the library's word for R, G, B in memory; its default matrix is BT.601 video range. What it
    // would refuse was refused above.
    libyuv::NV12ToRAW(yuv->virt_addr[0], yuv->stride[0], yuv->virt_addr[1], yuv->stride[1], rgb->virt_addr[0],
                      3 * rgb->stride[0], yuv->width, yuv->height);
    return 0;
}
