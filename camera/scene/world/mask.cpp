// A triangle is three planes through the lens and its corners: a direction is inside where all three products
// are positive, and 1/z is linear in the direction (homogeneous rasterisation: M. Olano, T. Greer, Triangle
// scan conversion using 2D homogeneous coordinates, 1997). So the lens's distortion costs nothing: each pixel
// has its direction in a table.
#include "mask.h"

#include <algorithm>

#include "world.h"

namespace
{

const double NEAR = 0.03; // metres: nothing nearer is drawn
const double GRID = 8192; // corners lie on multiples of 1/8192 m, so that last digits of a sine do not matter
const float STRAIGHT_ON = 1.2f; // seen radius from which the canvas goes on without the lens's curve

typedef mask_point point3;

double on_grid(float v)
{
    return floor(static_cast<double>(v) * GRID + 0.5) / GRID;
}

point3 to_camera(const scene_lens &lens, scene_vec world)
{
    const double x = on_grid(world.x) - static_cast<double>(lens.position.x),
                 y = on_grid(world.y) - static_cast<double>(lens.position.y),
                 z = on_grid(world.z) - static_cast<double>(lens.position.z);
    const auto dot = [&](scene_vec a) {
        return static_cast<double>(a.x) * x + static_cast<double>(a.y) * y + static_cast<double>(a.z) * z;
    };
    return {dot(lens.right), dot(lens.up), dot(lens.ahead)};
}

point3 cross(point3 a, point3 b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
double dot(point3 a, point3 b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

// Where the lens's curve ends and the canvas goes on along its tangent: ideal radius, and the seen radius's
// growth with the ideal one there.
struct straight {
    float radius, slope;
};
straight straight_of(const scene_lens &lens)
{
    const float k = lens.distortion, radius = scene_undistort(lens, {STRAIGHT_ON, 0}).x;
    return {radius, (1 + 3 * k * radius * radius) / (1 + k)};
}

// The ideal direction of a seen point, also far outside the picture, where the lens's formula folds.
scene_point canvas_ideal(const scene_lens &lens, const straight &end, scene_point seen)
{
    const float radius = sqrtf(seen.x * seen.x + seen.y * seen.y);
    if (radius <= STRAIGHT_ON)
        return scene_undistort(lens, seen);
    const float wanted = end.radius + (radius - STRAIGHT_ON) / end.slope;
    return {seen.x * (wanted / radius), seen.y * (wanted / radius)};
}

// Canvas pixels that a seen rectangle can touch.
struct pixel_box {
    int left, top, right, bottom; // right and bottom exclusive
};

// Canvas coordinates of a direction: the inverse of canvas_ideal.
void to_canvas(const mask_canvas *canvas, const scene_lens &lens, double x, double y, double *column,
               double *row)
{
    const double h = static_cast<double>(lens.half_width), k = static_cast<double>(lens.distortion);
    const double ix = x / h, iy = y / h, square = ix * ix + iy * iy;
    const double edge = static_cast<double>(canvas->straight_radius);
    double scale = (1 + k * square) / (1 + k);
    if (square > edge * edge) {
        const double r = sqrt(square);
        scale =
            (static_cast<double>(STRAIGHT_ON) + (r - edge) * static_cast<double>(canvas->straight_slope)) / r;
    }
    const double half = canvas->width * 0.5;
    *column = canvas->left + half + ix * scale * half;
    *row = canvas->top + canvas->height * 0.5 - iy * scale * half;
}

// The box around a triangle's corners, widened by how far its edges can bow between them: a chord of length c
// at radius r leaves its straight line by about 3 k r c^2 / 8.
bool box_of(const mask_canvas *canvas, const scene_lens &lens, const point3 *corners, pixel_box *box)
{
    double low_x = 1e30, low_y = 1e30, high_x = -1e30, high_y = -1e30, radius = 0;
    for (int i = 0; i < 3; i++) {
        double column, row;
        to_canvas(canvas, lens, corners[i].x / corners[i].z, corners[i].y / corners[i].z, &column, &row);
        low_x = std::min(low_x, column);
        high_x = std::max(high_x, column);
        low_y = std::min(low_y, row);
        high_y = std::max(high_y, row);
    }
    const double half = canvas->width * 0.5;
    radius = std::min(3.0, std::max({fabs(low_x - canvas->left - half), fabs(high_x - canvas->left - half),
                                     fabs(low_y - canvas->top - half), fabs(high_y - canvas->top - half)}) /
                               half);
    const double chord = std::max(high_x - low_x, high_y - low_y) / half;
    const double bow =
        std::min(4.0, fabs(static_cast<double>(lens.distortion)) * radius * chord * chord) * half;
    const auto pixel = [](double v, int most) {
        return static_cast<int>(std::min(std::max(v, 0.0), static_cast<double>(most)));
    };
    box->left = pixel(floor(low_x - bow), canvas->columns);
    box->right = pixel(ceil(high_x + bow) + 1, canvas->columns);
    box->top = pixel(floor(low_y - bow), canvas->rows);
    box->bottom = pixel(ceil(high_y + bow) + 1, canvas->rows);
    return box->left < box->right && box->top < box->bottom;
}

void draw_triangle(mask_canvas *canvas, const scene_lens &lens, const point3 *corners, bool two_sided,
                   uint32_t actor, uint64_t *count)
{
    const point3 normal =
        cross({corners[1].x - corners[0].x, corners[1].y - corners[0].y, corners[1].z - corners[0].z},
              {corners[2].x - corners[0].x, corners[2].y - corners[0].y, corners[2].z - corners[0].z});
    // Counter-clockwise as seen from outside; camera coordinates are left-handed (x right, y up, z ahead),
    // which turns the sign round.
    const double facing = dot(normal, corners[0]);
    if (facing == 0 || (facing < 0 && !two_sided))
        return;
    pixel_box box;
    if (!box_of(canvas, lens, corners, &box))
        return;
    const double side = facing > 0 ? 1 : -1;
    point3 edges[3];
    for (int i = 0; i < 3; i++) {
        const point3 e = cross(corners[i], corners[(i + 1) % 3]);
        edges[i] = {e.x * side, e.y * side, e.z * side};
    }
    const point3 depth = {normal.x / facing, normal.y / facing, normal.z / facing};
    if (!count) { // nobody asks what is outside the picture
        box.left = std::max(box.left, canvas->left);
        box.right = std::min(box.right, canvas->left + canvas->width);
        box.top = std::max(box.top, canvas->top);
        box.bottom = std::min(box.bottom, canvas->top + canvas->height);
    }
    for (int row = box.top; row < box.bottom; row++) {
        const bool row_inside = row >= canvas->top && row < canvas->top + canvas->height;
        for (int column = box.left; column < box.right; column++) {
            const size_t at =
                static_cast<size_t>(row) * static_cast<size_t>(canvas->columns) + static_cast<size_t>(column);
            const double x = static_cast<double>(canvas->x[at]), y = static_cast<double>(canvas->y[at]);
            if (edges[0].x * x + edges[0].y * y + edges[0].z < 0 ||
                edges[1].x * x + edges[1].y * y + edges[1].z < 0 ||
                edges[2].x * x + edges[2].y * y + edges[2].z < 0)
                continue;
            if (count && canvas->covers[at] != canvas->stamp) {
                canvas->covers[at] = canvas->stamp;
                ++*count;
            }
            const int picture_column = column - canvas->left;
            if (!row_inside || picture_column < 0 || picture_column >= canvas->width)
                continue;
            const size_t in = static_cast<size_t>(row - canvas->top) * static_cast<size_t>(canvas->width) +
                              static_cast<size_t>(picture_column);
            const float near = static_cast<float>(depth.x * x + depth.y * y + depth.z);
            if (near > canvas->depth[in]) {
                canvas->depth[in] = near;
                canvas->actor[in] = actor;
            }
        }
    }
}

// Cut at the plane NEAR before the lens: up to two triangles.
void draw_clipped(mask_canvas *canvas, const scene_lens &lens, const point3 *corners, bool two_sided,
                  uint32_t actor, uint64_t *count)
{
    point3 kept[4];
    int many = 0;
    for (int i = 0; i < 3; i++) {
        const point3 &a = corners[i], &b = corners[(i + 1) % 3];
        if (a.z >= NEAR)
            kept[many++] = a;
        if ((a.z >= NEAR) != (b.z >= NEAR)) {
            const double t = (NEAR - a.z) / (b.z - a.z);
            kept[many++] = {a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t, NEAR};
        }
    }
    for (int i = 2; i < many; i++) {
        const point3 fan[3] = {kept[0], kept[i - 1], kept[i]};
        draw_triangle(canvas, lens, fan, two_sided, actor, count);
    }
}

} // namespace

void mask_prepare(mask_canvas *canvas, const scene_lens &lens, bool around)
{
    const int width = static_cast<int>(lens.width), height = static_cast<int>(lens.height);
    const int columns = around ? width * 3 : width, rows = around ? height * 3 : height;
    if (canvas->width == width && canvas->height == height && canvas->columns == columns &&
        canvas->distortion == lens.distortion && canvas->half_width == lens.half_width)
        return;
    canvas->width = width;
    canvas->height = height;
    canvas->columns = columns;
    canvas->rows = rows;
    canvas->left = around ? width : 0;
    canvas->top = around ? height : 0;
    canvas->distortion = lens.distortion;
    canvas->half_width = lens.half_width;
    const straight end = straight_of(lens);
    canvas->straight_radius = end.radius;
    canvas->straight_slope = end.slope;
    const size_t all = static_cast<size_t>(columns) * static_cast<size_t>(rows);
    canvas->x.resize(all);
    canvas->y.resize(all);
    canvas->covers.assign(all, 0);
    canvas->stamp = 0;
    for (int row = 0; row < rows; row++)
        for (int column = 0; column < columns; column++) {
            const scene_point pixel = {static_cast<float>(column - canvas->left) + 0.5f,
                                       static_cast<float>(row - canvas->top) + 0.5f};
            const scene_point ideal = canvas_ideal(lens, end, scene_from_pixel(lens, pixel));
            const size_t at =
                static_cast<size_t>(row) * static_cast<size_t>(columns) + static_cast<size_t>(column);
            canvas->x[at] = ideal.x * lens.half_width;
            canvas->y[at] = ideal.y * lens.half_width;
        }
    mask_clear(canvas);
}

void mask_clear(mask_canvas *canvas)
{
    const size_t inside = static_cast<size_t>(canvas->width) * static_cast<size_t>(canvas->height);
    canvas->depth.assign(inside, 0);
    canvas->actor.assign(inside, 0);
}

void mask_count_new(mask_canvas *canvas)
{
    if (++canvas->stamp == 0) { // after four thousand million actors: old stamps would fit again
        std::fill(canvas->covers.begin(), canvas->covers.end(), 0);
        canvas->stamp = 1;
    }
}

void mask_draw(mask_canvas *canvas, const scene_lens &lens, const scene_object &object, uint64_t *count)
{
    const std::vector<scene_vertex> &vertices = object.mesh->vertices;
    const std::vector<uint32_t> &indices = object.mesh->indices;
    std::vector<point3> &turned = canvas->turned;
    turned.clear();
    for (const scene_vertex &vertex : vertices)
        turned.push_back(to_camera(lens, scene_put(object.place, vertex.position)));
    for (size_t i = 0; i + 2 < indices.size(); i += 3) {
        if (indices[i] >= turned.size() || indices[i + 1] >= turned.size() || indices[i + 2] >= turned.size())
            continue;
        const point3 corners[3] = {turned[indices[i]], turned[indices[i + 1]], turned[indices[i + 2]]};
        const int before = (corners[0].z >= NEAR) + (corners[1].z >= NEAR) + (corners[2].z >= NEAR);
        if (before == 3)
            draw_triangle(canvas, lens, corners, object.two_sided, object.actor, count);
        else if (before > 0)
            draw_clipped(canvas, lens, corners, object.two_sided, object.actor, count);
    }
}

void world_mask(const scene_snapshot *snapshot, int width, int height, std::vector<uint32_t> *actors)
{
    const scene_lens lens = scene_lens_of(&snapshot->view, width, height);
    mask_canvas canvas;
    mask_prepare(&canvas, lens, false);
    for (const scene_object &object : snapshot->objects)
        mask_draw(&canvas, lens, object, nullptr);
    actors->swap(canvas.actor);
}
