// The image engine: block differences of two pictures and colour conversion.
//
// Strides count elements (pixels of the plane), not bytes: a U16C1 row of stride 40 is 80 bytes, a packed U8C3
// row of stride w is 3w bytes; both planes of YUV420SP have their stride in bytes. The engine reads and writes
// only inside the planes as width, height and stride describe them, and refuses what does not fit.
#ifndef MI_IVE_H
#define MI_IVE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum mi_ive_image_type {
    MI_IVE_U8C1 = 0,       // 8 bits, one plane
    MI_IVE_YUV420SP = 2,   // NV12: luma plane, then interleaved U, V at half size in both directions
    MI_IVE_U16C1 = 9,      // 16 bits unsigned, one plane
    MI_IVE_U8C3_PACKED = 10,
    MI_IVE_U8C3_PLANAR = 11,
};

struct mi_ive_image {
    uint32_t type;             // enum mi_ive_image_type
    uint64_t phys_addr[3];     // physical address of each plane; here the pointer's value, widened
    uint8_t *virt_addr[3];     // plane pointers
    uint16_t stride[3];        // elements
    uint16_t width;            // pixels
    uint16_t height;           // pixels
};

enum mi_ive_sad_mode { MI_IVE_SAD_4X4 = 0, MI_IVE_SAD_8X8 = 1, MI_IVE_SAD_16X16 = 2 };
enum mi_ive_sad_output { MI_IVE_SAD_BOTH = 0, MI_IVE_SAD_ONLY_MAP = 1, MI_IVE_SAD_ONLY_THRESHOLD = 2 };

struct mi_ive_sad_control {
    uint32_t mode;       // enum mi_ive_sad_mode
    uint32_t output;     // enum mi_ive_sad_output
    uint16_t threshold;  // compared with a block's sum of absolute differences
    uint8_t min_value;   // written to the threshold map where the sum is below the threshold
    uint8_t max_value;   // written where it is at or above it
};

struct mi_ive_csc_control {
    uint32_t mode;  // 0: BT.601 video range to R, G, B in memory order
};

// Results of every function: 0 or one of these (the number's bit pattern, so that "0x%X" prints it).
#define MI_IVE_ERR_PARAM ((int)0xA0002003u)      // bad parameter or format
#define MI_IVE_ERR_EXIST ((int)0xA0002004u)      // the handle exists
#define MI_IVE_ERR_NO_HANDLE ((int)0xA0002005u)  // no such handle
#define MI_IVE_ERR_NULL ((int)0xA0002006u)       // null pointer
#define MI_IVE_ERR_NO_MEMORY ((int)0xA000200Cu)

// Handles are the numbers 0 to 63. Creating one twice or destroying what is not there is an error. Any thread.
int MI_IVE_Create(int handle);
int MI_IVE_Destroy(int handle);

// For each whole block of `a` and `b` (U8C1, same width and height), the sum of absolute differences into `sad`
// (U16C1) and the thresholded byte into `thr` (U8C1), both of (width / block) x (height / block) entries; a
// partial block at the right or bottom edge gives no entry. A map that the control's output leaves out may be
// null and is not touched. A 16x16 sum of at most 65280 fits 16 bits. `instant` is accepted and ignored: the
// result is complete on return. Any thread; the planes belong to the caller.
int MI_IVE_Sad(int handle, const struct mi_ive_image *a, const struct mi_ive_image *b, struct mi_ive_image *sad,
               struct mi_ive_image *thr, const struct mi_ive_sad_control *control, int instant);

// Converts `yuv` (YUV420SP) to `rgb` (U8C3 packed) of the same, even, width and height. Any thread.
int MI_IVE_Csc(int handle, const struct mi_ive_image *yuv, struct mi_ive_image *rgb,
               const struct mi_ive_csc_control *control, int instant);

#ifdef __cplusplus
}
#endif
#endif
