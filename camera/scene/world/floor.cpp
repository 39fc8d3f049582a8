// Ways over the floor: A* over squares, pulled tight, corners rounded, then cut into equal steps. Costs are
// whole numbers and ties go to the lower square, so that every machine walks the same way.
#include "floor.h"

#include <algorithm>
#include <queue>

namespace
{

const float END_REACH = 1.2f;     // how far an end may lie from free ground
const float CORNER = 0.5f;        // metres before and after a corner that its rounding takes
const float CORNER_RADIUS = 0.8f; // share of the map's radius that a rounded corner must leave

scene_vec middle_of(int column, int row)
{
    return {(static_cast<float>(column) + 0.5f) * FLOOR_CELL, (static_cast<float>(row) + 0.5f) * FLOOR_CELL,
            0};
}

int cell_at(const floor_map &map, scene_vec at)
{
    const int column = static_cast<int>(floorf(at.x / FLOOR_CELL)),
              row = static_cast<int>(floorf(at.y / FLOOR_CELL));
    if (!(fabsf(at.x) < 1000 && fabsf(at.y) < 1000) || column < 0 || row < 0 || column >= map.columns ||
        row >= map.rows)
        return -1;
    return row * map.columns + column;
}

bool free_cell(const floor_map &map, int column, int row)
{
    return column >= 0 && row >= 0 && column < map.columns && row < map.rows &&
           map.free[static_cast<size_t>(row * map.columns + column)];
}

// Whether one can go straight.
bool in_sight(const floor_map &map, scene_vec a, scene_vec b)
{
    const float length = scene_length(b - a);
    const int steps = static_cast<int>(length / (FLOOR_CELL * 0.5f)) + 1;
    for (int i = 0; i <= steps; i++)
        if (!floor_is_free(map, a + (b - a) * (static_cast<float>(i) / static_cast<float>(steps))))
            return false;
    return true;
}

// Squares from `from` to `to`, both free.
bool search(const floor_map &map, int from, int to, std::vector<int> *cells)
{
    struct neighbour {
        int column, row, cost;
    };
    static const neighbour neighbours[] = {{-1, 0, 1000},  {1, 0, 1000},  {0, -1, 1000}, {0, 1, 1000},
                                           {-1, -1, 1414}, {1, -1, 1414}, {-1, 1, 1414}, {1, 1, 1414}};
    const size_t count = map.free.size();
    std::vector<int> cost(count, -1), before(count, -1);
    const auto rest = [&](int cell) { // never more than the way that is left
        const int dx = abs(cell % map.columns - to % map.columns),
                  dy = abs(cell / map.columns - to / map.columns);
        return 1000 * std::max(dx, dy) + 414 * std::min(dx, dy);
    };
    typedef std::pair<int, int> entry; // cost with the rest, square
    std::priority_queue<entry, std::vector<entry>, std::greater<entry>> open;
    cost[static_cast<size_t>(from)] = 0;
    open.push({rest(from), from});
    while (!open.empty()) {
        const int cell = open.top().second;
        const bool stale = open.top().first > cost[static_cast<size_t>(cell)] + rest(cell);
        open.pop();
        if (stale)
            continue;
        if (cell == to)
            break;
        for (const neighbour &n : neighbours) {
            const int column = cell % map.columns + n.column, row = cell / map.columns + n.row;
            if (!free_cell(map, column, row) || !free_cell(map, column, cell / map.columns) ||
                !free_cell(map, cell % map.columns, row))
                continue;
            const int next = row * map.columns + column;
            const int price = cost[static_cast<size_t>(cell)] + n.cost;
            if (cost[static_cast<size_t>(next)] >= 0 && cost[static_cast<size_t>(next)] <= price)
                continue;
            cost[static_cast<size_t>(next)] = price;
            before[static_cast<size_t>(next)] = cell;
            open.push({price + rest(next), next});
        }
    }
    if (cost[static_cast<size_t>(to)] < 0)
        return false;
    for (int cell = to; cell >= 0; cell = before[static_cast<size_t>(cell)])
        cells->push_back(cell);
    std::reverse(cells->begin(), cells->end());
    return true;
}

void add_line(std::vector<scene_vec> *way, scene_vec to)
{
    const scene_vec from = way->back();
    const int steps = static_cast<int>(ceilf(scene_length(to - from) / FLOOR_STEP));
    for (int i = 1; i <= steps; i++)
        way->push_back(from + (to - from) * (static_cast<float>(i) / static_cast<float>(steps)));
}

scene_vec on_curve(scene_vec a, scene_vec b, scene_vec c, float t) // quadratic Bezier
{
    return a * ((1 - t) * (1 - t)) + b * (2 * t * (1 - t)) + c * (t * t);
}

// Corners become curves as wide as the ground allows.
void round_corners(const floor_map &map, const std::vector<scene_vec> &corners, std::vector<scene_vec> *way)
{
    enum { TRIES = 4, CURVE = 24 };
    way->push_back(corners.front());
    for (size_t i = 1; i + 1 < corners.size(); i++) {
        const scene_vec b = corners[i], in = corners[i - 1] - b, out = corners[i + 1] - b;
        float cut = std::min({CORNER, scene_length(in) * 0.5f, scene_length(out) * 0.5f});
        for (int attempt = 0; attempt < TRIES; attempt++, cut *= 0.5f) {
            const scene_vec a = b + scene_unit(in) * cut, c = b + scene_unit(out) * cut;
            bool free = true;
            for (int k = 0; k <= CURVE && attempt + 1 < TRIES; k++) {
                const scene_vec p = on_curve(a, b, c, static_cast<float>(k) / CURVE);
                free = free && room_free_spot(map.owner, p.x, p.y, map.radius * CORNER_RADIUS);
            }
            if (!free)
                continue;
            add_line(way, a);
            for (int k = 1; k <= CURVE; k++)
                add_line(way, on_curve(a, b, c, static_cast<float>(k) / CURVE));
            break;
        }
    }
    add_line(way, corners.back());
}

// Points at equal distances along a way.
void even_out(std::vector<scene_vec> *way)
{
    std::vector<scene_vec> even = {way->front()};
    float done = 0;
    for (size_t i = 1; i < way->size(); i++) {
        const scene_vec a = (*way)[i - 1], b = (*way)[i];
        const float length = scene_length(b - a);
        float at = FLOOR_STEP - done;
        for (; at <= length; at += FLOOR_STEP)
            even.push_back(a + (b - a) * (at / length));
        done = length - (at - FLOOR_STEP);
    }
    if (scene_length(even.back() - way->back()) > FLOOR_STEP * 0.5f || even.size() == 1)
        even.push_back(way->back());
    else
        even.back() = way->back();
    way->swap(even);
}

} // namespace

floor_map floor_make(const room *room, float radius)
{
    const scene_vec size = room_size(room);
    floor_map map;
    map.owner = room;
    map.radius = radius;
    map.columns = static_cast<int>(size.x / FLOOR_CELL);
    map.rows = static_cast<int>(size.y / FLOOR_CELL);
    for (int row = 0; row < map.rows; row++)
        for (int column = 0; column < map.columns; column++) {
            const scene_vec at = middle_of(column, row);
            map.free.push_back(room_free_spot(room, at.x, at.y, radius) ? 1 : 0);
        }
    return map;
}

bool floor_is_free(const floor_map &map, scene_vec at)
{
    const int cell = cell_at(map, at);
    return cell >= 0 && map.free[static_cast<size_t>(cell)];
}

bool floor_nearest(const floor_map &map, scene_vec at, float reach, scene_vec *result)
{
    float best = reach * reach;
    bool found = false;
    for (int row = 0; row < map.rows; row++)
        for (int column = 0; column < map.columns; column++) {
            const scene_vec p = middle_of(column, row);
            const float dx = p.x - at.x, dy = p.y - at.y, square = dx * dx + dy * dy;
            if (free_cell(map, column, row) && square < best) {
                best = square;
                *result = p;
                found = true;
            }
        }
    return found;
}

bool floor_way(const floor_map &map, scene_vec from, scene_vec to, std::vector<scene_vec> *way)
{
    scene_vec first = {from.x, from.y, 0}, last = {to.x, to.y, 0}, begin = first, end = last;
    way->clear();
    if (!floor_is_free(map, begin) && !floor_nearest(map, begin, END_REACH, &begin))
        return false;
    if (!floor_is_free(map, end) && !floor_nearest(map, end, END_REACH, &end))
        return false;
    std::vector<int> cells;
    if (!search(map, cell_at(map, begin), cell_at(map, end), &cells))
        return false;
    std::vector<scene_vec> corners = {first};
    if (scene_length(begin - first) > 0)
        corners.push_back(begin);
    // Pulled tight: from each corner to the farthest square in sight.
    for (size_t at = 0; at + 1 < cells.size();) {
        size_t next = cells.size() - 1;
        while (next > at + 1) {
            const scene_vec target = next + 1 == cells.size()
                                         ? end
                                         : middle_of(cells[next] % map.columns, cells[next] / map.columns);
            if (in_sight(map, corners.back(), target))
                break;
            next--;
        }
        corners.push_back(
            next + 1 == cells.size() ? end : middle_of(cells[next] % map.columns, cells[next] / map.columns));
        at = next;
    }
    if (cells.size() == 1 && scene_length(end - corners.back()) > 0)
        corners.push_back(end);
    if (scene_length(last - end) > 0)
        corners.push_back(last);
    if (corners.size() == 1)
        corners.push_back(last);
    round_corners(map, corners, way);
    even_out(way);
    return true;
}

void floor_line(scene_vec from, scene_vec to, std::vector<scene_vec> *way)
{
    way->assign(1, {from.x, from.y, 0});
    add_line(way, {to.x, to.y, 0});
    even_out(way);
}

void floor_join(std::vector<scene_vec> *way, const std::vector<scene_vec> &next)
{
    way->insert(way->end(), next.begin(), next.end());
    even_out(way);
}
