// See the header; nothing here keeps state.
#include "mid_hchd_region.h"

#include <algorithm>

#include "naro_util.h"

namespace
{
bool row_moved(const uint8_t *map, int stride, int row)
{
    const uint8_t *p = map + row * stride;
    return std::any_of(p, p + MAP_WIDTH, [](uint8_t v) { return v != 0; });
}

bool column_moved(const uint8_t *map, int stride, int column)
{
    for (int row = 0; row < MAP_HEIGHT; row++)
        if (map[row * stride + column])
            return true;
    return false;
}

// First even, last odd: chroma has one sample for two pixels.
pixel_rect evened(const pixel_rect &rect)
{
    pixel_rect r = rect;
    r.x1 += r.x1 & 1;
    r.y1 += r.y1 & 1;
    r.x2 -= (r.x2 & 1) == 0;
    r.y2 -= (r.y2 & 1) == 0;
    return r;
}

int in_pixels(int units, int size)
{
    return static_cast<int>(static_cast<int64_t>(size) * units / 10000);
}
} // namespace

block_rect region_of_map(const uint8_t *map, int stride)
{
    int top = 0, bottom = MAP_HEIGHT, left = 0, right = MAP_WIDTH;
    while (top < MAP_HEIGHT && !row_moved(map, stride, top))
        top++;
    if (top == MAP_HEIGHT)
        return {0, 0, 0, 0};
    while (!row_moved(map, stride, bottom - 1))
        bottom--;
    while (!column_moved(map, stride, left))
        left++;
    while (!column_moved(map, stride, right - 1))
        right--;
    return {left, right, top, bottom};
}

bool region_any(const block_rect &blocks)
{
    return blocks.left || blocks.right || blocks.top || blocks.bottom;
}

pixel_rect region_grown(const block_rect &blocks)
{
    const int left = blocks.left > 0 ? blocks.left - 1 : blocks.left;
    const int right = blocks.right < MAP_WIDTH ? blocks.right + 1 : blocks.right;
    const int top = blocks.top > 0 ? blocks.top - 1 : blocks.top;
    const int bottom = blocks.bottom < MAP_HEIGHT ? blocks.bottom + 1 : blocks.bottom;
    return {DETECTION_BLOCK * left, DETECTION_BLOCK * top, DETECTION_BLOCK * right - 1,
            DETECTION_BLOCK * bottom - 1};
}

bool region_is_whole_frame(const pixel_rect &rect)
{
    return rect.x1 == 0 && rect.y1 == 0 && rect.x2 == ANALYSIS_WIDTH - 1 && rect.y2 == ANALYSIS_HEIGHT - 1;
}

pixel_rect region_to_search(const pixel_rect &rect, const pixel_rect &region)
{
    const bool inside =
        region.x1 <= rect.x1 && region.y1 <= rect.y1 && region.x2 >= rect.x2 && region.y2 >= rect.y2;
    return inside ? rect : region;
}

void region_widen(int *first, int *last, int size)
{
    const int a = *first, b = *last;
    const int length = b - a + 1;
    const int pad = (naro_round(length, 32) - length) / 2;
    if (a < pad && b + pad > size) {
        *first = 0;
        *last = size - 1;
    } else if (a < pad) {
        *first = 0;
        *last = b + 2 * pad - a;
    } else if (b + pad < size) {
        *first = a - pad;
        *last = b + pad;
    } else {
        *first = a - 2 * pad + (size - 1 - b);
        *last = size - 1;
    }
}

pixel_rect region_crop(const pixel_rect &rect)
{
    pixel_rect crop = evened(rect);
    region_widen(&crop.x1, &crop.x2, ANALYSIS_WIDTH);
    region_widen(&crop.y1, &crop.y2, ANALYSIS_HEIGHT);
    return crop;
}

pixel_rect region_from_units(int x1, int x2, int y1, int y2)
{
    return {in_pixels(x1, ANALYSIS_WIDTH), in_pixels(y1, ANALYSIS_HEIGHT), in_pixels(x2, ANALYSIS_WIDTH),
            in_pixels(y2, ANALYSIS_HEIGHT)};
}

pixel_rect region_in_frame(const pixel_rect &rect)
{
    return {std::max(rect.x1, 0), std::max(rect.y1, 0), std::min(rect.x2, ANALYSIS_WIDTH - 1),
            std::min(rect.y2, ANALYSIS_HEIGHT - 1)};
}

bool region_holds_pair(const pixel_rect &rect)
{
    const pixel_rect r = evened(rect);
    return r.x1 < r.x2 && r.y1 < r.y2;
}
