// Aligned memory, copies, rounding.
#include "naro_util.h"

#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

void *naro_malloc(size_t size, size_t alignment)
{
    if (alignment == 0 || (alignment & (alignment - 1)) != 0) {
        errno = EINVAL;
        return nullptr;
    }
    if (alignment < sizeof(void *))
        alignment = sizeof(void *); // the least that posix_memalign takes
    void *memory = nullptr;
    // Null means failure and nothing else, so an empty area is one byte.
    const int error = posix_memalign(&memory, alignment, size ? size : 1);
    if (error != 0) {
        errno = error;
        return nullptr;
    }
    return memory;
}

void naro_free(void *memory)
{
    free(memory);
}

void naro_copy(void *dst, const void *src, size_t length)
{
    if (length > 0) // null pointers are allowed with a length of 0, which memcpy does not promise
        memcpy(dst, src, length);
}

int naro_round(int value, int multiple)
{
    if (multiple <= 0)
        return value;
    const int over =
        value % multiple; // negative for a negative value: then the multiple above is value - over
    if (over == 0)
        return value;
    const int64_t rounded = static_cast<int64_t>(value) - over + (over > 0 ? multiple : 0);
    return rounded > INT_MAX ? INT_MAX : static_cast<int>(rounded);
}
