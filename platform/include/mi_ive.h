// The image engine: block differences of two pictures and colour conversion.
//
// Strides count elements (pixels of the plane), not bytes: a U16C1 row of stride 40 is 80 bytes, a packed
// U8C3 row of stride w is 3w bytes; both planes of YUV420SP have their stride in bytes. The engine reads and
// writes only inside the planes as width, height and stride describe them, and refuses what does not fit.
#ifndef MI_IVE_H
#define MI_IVE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum mi_ive_image_type {
    MI_IVE_U8C1 = 0,     // 8 bits, one plane
    MI_IVE_YUV420SP = 2, // NV12: luma plane, then interleaved U, V at half size in both directions
    MI_IVE_U16C1 = 9,    // 16 bits unsigned, one plane
    MI_IVE_U8C3_PACKED = 10,
    MI_IVE_U8C3_PLANAR = 11,
};

struct mi_ive_image {
    uint32_t type;         // enum mi_ive_image_type
    uint64_t phys_addr[3]; // physical address of each plane; here the pointer's value, widened
    uint8_t *virt_addr[3]; // plane pointers
    uint16_t stride[3];    // elements
    uint16_t width;        // pixels
    uint16_t height;       // pixels
};

enum mi_ive_sad_mode { MI_IVE_SAD_4X4 = 0, MI_IVE_SAD_8X8 = 1, MI_IVE_SAD_16X16 = 2 };
enum mi_ive_sad_output { MI_IVE_SAD_BOTH = 0, MI_IVE_SAD_ONLY_MAP = 1, MI_IVE_SAD_ONLY_THRESHOLD = 2 };

struct mi_ive_sad_control {
    uint32_t mode;      // enum mi_ive_sad_mode
    uint32_t output;    // enum mi_ive_sad_output
    uint16_t threshold; // compared with a block's sum of absolute differences
    uint8_t min_value;  // written to the threshold map where the sum is below the threshold
    uint8_t max_value;  // written where it is at or above it
};

struct mi_ive_csc_control {
    uint32_t mode; // 0: BT.601 video range to R, G, B in memory order
};

// Results of every function: 0 or one of these (the number's bit pattern, so that "0x%X" prints it).
#define MI_IVE_ERR_PARAM ((int)0xA0002003u)     // bad parameter or format
#define MI_IVE_ERR_EXIST ((int)0xA0002004u)     // the handle exists
#define MI_IVE_ERR_NO_HANDLE ((int)0xA0002005u) // no such handle
#define MI_IVE_ERR_NULL ((int)0xA0002006u)      // null pointer
#define MI_IVE_ERR_NO_MEMORY ((int)0xA000200Cu)

// Handles are the numbers 0 to 63. MI_IVE_Create refuses another number (PARAM) and one that exists (EXIST);
// MI_IVE_Destroy and all others refuse what was not created (NO_HANDLE). A handle may serve several threads
// at once. Any thread.
int MI_IVE_Create(int handle);
int MI_IVE_Destroy(int handle);

// For each whole block of `a` and `b` (U8C1), the sum of absolute differences into `sad` (U16C1, the
// machine's byte order, any address) and the thresholded byte into `thr` (U8C1). Entry (column, row) of a map
// is the block in that place; a partial block at the right or bottom edge gives no entry, so a picture
// smaller than a block gives none and is no error. A map that the control's output leaves out may be null and
// is not looked at.
//
// Refused, with nothing written, in this order:
//   NO_HANDLE  the handle
//   NULL       no `a`, `b` or `control`, or no plane in `a` or `b`
//   PARAM      a mode or output that does not exist
//   NULL       a map that is asked for is missing, or has no plane
//   PARAM      another type; width or height of a picture 0; `a` and `b` not of one size; a stride below
//              the width; a map narrower than width / block or lower than height / block (a larger one is
//              fine: entries beyond the picture's are left as they are)
// Physical addresses are not looked at. `instant` is accepted and ignored: the result is complete on return.
// Planes belong to the caller; maps must not overlap the pictures or each other. Any thread.
int MI_IVE_Sad(int handle, const struct mi_ive_image *a, const struct mi_ive_image *b,
               struct mi_ive_image *sad, struct mi_ive_image *thr, const struct mi_ive_sad_control *control,
               int instant);

// Converts `yuv` (YUV420SP) to `rgb` (U8C3 packed) of the same width and height: BT.601 with luma 16 to 235
// and chroma 16 to 240, each chroma pair for its 2x2 pixels, values clamped to 0 to 255 and within 2 of the
// formula (blue within 3 where U is outside its range). A crop is a picture whose plane pointers point into a
// larger one.
//
// Refused, with nothing written, in this order:
//   NO_HANDLE  the handle
//   NULL       no `yuv`, `rgb` or `control`, or no plane (both of `yuv` are wanted)
//   PARAM      a mode other than 0; another type; width or height 0, odd, or not the same in both; a
//              stride (both of `yuv`) below the width
// Physical addresses and `instant` as above. The planes must not overlap. Any thread.
int MI_IVE_Csc(int handle, const struct mi_ive_image *yuv, struct mi_ive_image *rgb,
               const struct mi_ive_csc_control *control, int instant);

#ifdef __cplusplus
}
#endif
#endif
