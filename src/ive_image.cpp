// One table says how many planes a type has and how large each is; allocation and release both walk it.
#include "ive_image.h"

#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>

namespace
{
struct image_type {
    uint8_t planes;        // 0: the type is not supported
    uint8_t half_units[3]; // bytes of each plane, in halves of height x stride
};

// By type number. 2 is YUV420SP, whose second plane is half as large; 6, 8 and 9 take two bytes an element, 10 is
// packed colour of three, 12 and 13 take four, 14 and 15 eight.
const image_type types[16] = {
    {1, {2}},       // 0
    {1, {2}},       // 1
    {2, {2, 1}},    // 2
    {2, {2, 2}},    // 3
    {0, {}},        // 4
    {0, {}},        // 5
    {1, {4}},       // 6
    {2, {2, 2}},    // 7
    {1, {4}},       // 8
    {1, {4}},       // 9
    {1, {6}},       // 10
    {3, {2, 2, 2}}, // 11
    {1, {8}},       // 12
    {1, {8}},       // 13
    {1, {16}},      // 14
    {1, {16}},      // 15
};

const image_type *type_of(uint32_t type)
{
    if (type >= sizeof(types) / sizeof(types[0]) || types[type].planes == 0) {
        puts("Format is not support!!");
        return nullptr;
    }
    return &types[type];
}
} // namespace

int ModuleTest_AllocateImage(mi_ive_image *image, uint32_t type, uint16_t stride, uint16_t width,
                             uint16_t height)
{
    *image = {};
    image->type = type;
    image->width = width;
    image->height = height;
    const image_type *t = type_of(type);
    if (!t)
        return MI_IVE_ERR_PARAM;
    // 65535 x 65535 x 8 does not fit the 32 bits of a size on the product.
    const uint64_t elements = static_cast<uint64_t>(height) * stride;
    for (int i = 0; i < t->planes; i++) {
        const uint64_t bytes = elements * t->half_units[i] / 2;
        void *plane = bytes <= SIZE_MAX ? malloc(static_cast<size_t>(bytes)) : nullptr;
        if (!plane) {
            for (int k = 0; k < i; k++)
                free(image->virt_addr[k]);
            *image = {};
            return MI_IVE_ERR_NO_MEMORY;
        }
        image->virt_addr[i] = static_cast<uint8_t *>(plane);
        image->phys_addr[i] = reinterpret_cast<uintptr_t>(plane);
        image->stride[i] = stride;
    }
    return 0;
}

int ModuleTest_FreeImage(mi_ive_image *image)
{
    const image_type *t = type_of(image->type);
    if (!t)
        return MI_IVE_ERR_PARAM;
    for (int i = 0; i < t->planes; i++)
        free(image->virt_addr[i]);
    *image = {};
    return 0;
}
