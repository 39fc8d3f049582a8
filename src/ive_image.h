// Pictures for the image engine: allocated on the heap, described the way the engine wants them.
#ifndef IVE_IMAGE_H
#define IVE_IMAGE_H

#include <stdint.h>

#include "mi_ive.h"

// Makes `image` a picture of `type` (the engine's type numbers; 4, 5 and 16 or more are refused) with planes of
// height x stride elements each, by the size that the type has. Each plane's pointer stands in virt_addr and, widened,
// in phys_addr; the stride stands in every plane's field. Overwrites whatever was in *image. Free with
// ModuleTest_FreeImage. 0, MI_IVE_ERR_PARAM ("Format is not support!!" on standard output; the descriptor then
// holds type, width and height but no plane) or MI_IVE_ERR_NO_MEMORY (the descriptor is then zero and nothing is
// allocated). Any thread.
int ModuleTest_AllocateImage(mi_ive_image *image, uint32_t type, uint16_t stride, uint16_t width,
                             uint16_t height);

// Frees the planes that the type owns and zeroes the descriptor; 0 or MI_IVE_ERR_PARAM ("Format is not support!!"
// on standard output; the descriptor stays). A zeroed descriptor is fine. Any thread.
int ModuleTest_FreeImage(mi_ive_image *image);

#endif
