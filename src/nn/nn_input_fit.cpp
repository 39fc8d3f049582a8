// The fit of a network's input to its area budget: the bound on what a pass costs.
#include "nn/nn_input_fit.h"

#include <algorithm>
#include <math.h>

nn_input_size nn_input_fit(uint32_t height, uint32_t width, int min_area, int max_area, int alignment_shift)
{
    // A request of nothing has no aspect to keep: it counts as one pixel.
    const double asked_height = std::max<uint32_t>(height, 1);
    const double asked_width = std::max<uint32_t>(width, 1);
    const double area = asked_height * asked_width;
    double scale = 1;
    if (min_area >= 1 && area < min_area)
        scale = sqrt(min_area / area);
    // Second on purpose: where a constraint contradicts itself, the upper bound, which is what costs, wins.
    if (max_area >= 1 && area > max_area)
        scale = sqrt(max_area / area);

    const int64_t step = INT64_C(1) << alignment_shift;
    auto fit = [&](double asked) {
        int64_t side = static_cast<int64_t>(scale * asked); // at most 2^32 x 2^16
        if (scale < 1)
            side -= side % step;
        side = (side + step - 1) / step * step;
        return static_cast<int>(std::clamp(side, step, INT64_C(32767) / step * step));
    };
    return {fit(asked_height), fit(asked_width)};
}
