// Care regions: the table, and the tests of one rectangle against another.
#include "mid_hchd_fav_area.h"

#include <pthread.h>
#include <stdio.h>
#include <string.h>

#include <atomic>

#include "algo_shbf.h"
#include "naro_util.h"

namespace
{

enum { AREA_WORDS = sizeof(fav_area_algo_coor_t) / sizeof(uint32_t) };

// Held by one change of the table from begin to end, its lines included. Who only looks does not take it.
pthread_mutex_t update_lock = PTHREAD_MUTEX_INITIALIZER;

// Relaxed: nothing is published through these words, and none is promised to fit another.
struct {
    std::atomic<int> used_num; // areas, in the first places
    std::atomic<float> pro;    // how much of an area must be covered
    std::atomic<uint32_t> area[fav_area_algo_NUM][AREA_WORDS];
} fav_area_algo;

// What stands in a place; behind the table there are empty ones.
fav_area_algo_coor_t area_get(int place)
{
    uint32_t words[AREA_WORDS] = {};
    if (place < fav_area_algo_NUM)
        for (int i = 0; i < AREA_WORDS; i++)
            words[i] = fav_area_algo.area[place][i].load(std::memory_order_relaxed);
    fav_area_algo_coor_t area;
    memcpy(&area, words, sizeof area);
    return area;
}

void area_put(int place, const fav_area_algo_coor_t &area)
{
    uint32_t words[AREA_WORDS];
    memcpy(words, &area, sizeof words);
    for (int i = 0; i < AREA_WORDS; i++)
        fav_area_algo.area[place][i].store(words[i], std::memory_order_relaxed);
}

int used()
{
    return fav_area_algo.used_num.load(std::memory_order_relaxed);
}

// Into a text that is all zero.
void text_put(char (&to)[FAV_AREA_TEXT_BYTES], const char *text)
{
    memcpy(to, text, strnlen(text, sizeof to - 1));
}

bool begins_with(const char *text, const char *beginning)
{
    return strncmp(text, beginning, strlen(beginning)) == 0;
}

bool all_zero(const fav_area_algo_coor_t &area)
{
    return area.x1 == 0 && area.y1 == 0 && area.x2 == 0 && area.y2 == 0;
}

// Deletes what stands in `place`; whether another area has come into it. What stands behind the areas in
// use was left there by an earlier deletion: it is not counted, and clearing it brings nothing into its
// place.
bool delete_at(int place)
{
    area_put(place, {});
    if (place >= used())
        return false;
    fav_area_algo.used_num.store(used() - 1, std::memory_order_relaxed);
    printf(" delete this fav area  index = %d \n", place);
    if (place == fav_area_algo_NUM - 1)
        return false;
    for (int i = place; i < fav_area_algo_NUM - 1; i++)
        area_put(i, area_get(i + 1));
    return true;
}

// 1 or 2 as in the header; 0 when no area is meant.
int change_those_meant(const fav_area_algo_coor_t &given)
{
    int result = 0;
    for (int place = 0; place < fav_area_algo_NUM; place++) {
        const fav_area_algo_coor_t area = area_get(place);
        log_info("[area %d] %d %d %d  %d name=%s \n ", place, area.x1, area.y1, area.x2, area.y2, area.name);
        if (!begins_with(area.name, given.name) || !begins_with(area.event_type, given.event_type))
            continue;
        if (all_zero(given)) {
            result = 2;
            if (delete_at(place))
                place--;
            continue;
        }
        result = 1;
        fav_area_algo_coor_t moved = given;
        memcpy(moved.name, area.name, sizeof moved.name);
        area_put(place, moved);
    }
    return result;
}

int add(const fav_area_algo_coor_t &given)
{
    if (used() >= fav_area_algo_NUM) {
        printf(" used_num is more than fav_area_algo_NUM ,discard it\n");
        return -1;
    }
    if (all_zero(given)) {
        printf(" coor both 0 \n");
        return -1;
    }
    for (int place = 0; place < fav_area_algo_NUM; place++) {
        if (area_get(place).name[0] != '\0')
            continue;
        area_put(place, given);
        const int count = used() + 1;
        fav_area_algo.used_num.store(count, std::memory_order_relaxed);
        // Deliberately not the area that was added but the place behind the last one in use: mostly empty
        // texts.
        const fav_area_algo_coor_t behind = area_get(count);
        log_info("set fav_area_algo.used_num=%d,name=%s,event_type=%s\n", count, behind.name,
                 behind.event_type);
        return 0;
    }
    printf(" fav area num override \n");
    return -1;
}

int update_locked(const fav_area_algo_coor_t &given)
{
    log_info(" used_num = %d , pro = %f \n", used(),
             static_cast<double>(fav_area_algo.pro.load(std::memory_order_relaxed)));
    if (given.name[0] == '\0' || given.event_type[0] == '\0') {
        printf(" input param is invalid \n ");
        return -1;
    }
    const int result = change_those_meant(given);
    return result != 0 ? result : add(given);
}

// In 64 bits: coordinates come from outside and may be any numbers.
int64_t length(int first, int last)
{
    return static_cast<int64_t>(last) - first;
}

bool inside(const fav_area_algo_coor_t &inner, const fav_area_algo_coor_t &outer)
{
    return inner.x1 >= outer.x1 && inner.y1 >= outer.y1 && inner.x2 <= outer.x2 && inner.y2 <= outer.y2;
}

fav_area_algo_coor_t rectangle(int x1, int y1, int x2, int y2)
{
    fav_area_algo_coor_t r = {};
    r.x1 = x1;
    r.y1 = y1;
    r.x2 = x2;
    r.y2 = y2;
    return r;
}

fav_area_algo_coor_t shared_part(const fav_area_algo_coor_t &a, const fav_area_algo_coor_t &b)
{
    return rectangle(max_value(a.x1, b.x1), max_value(a.y1, b.y1), min_value(a.x2, b.x2),
                     min_value(a.y2, b.y2));
}

bool has_area(const fav_area_algo_coor_t &r)
{
    return r.x1 < r.x2 && r.y1 < r.y2;
}

// Whether `part` (which has an area) is more than `ratio` of `whole`, counted in single precision.
bool more_than(const fav_area_algo_coor_t &part, float ratio, const fav_area_algo_coor_t &whole)
{
    const float part_area =
        static_cast<float>(length(part.y1, part.y2)) * static_cast<float>(length(part.x1, part.x2));
    return part_area > ratio * static_cast<float>(length(whole.y1, whole.y2)) *
                           static_cast<float>(length(whole.x1, whole.x2));
}

} // namespace

int max_value(int a, int b)
{
    return a > b ? a : b;
}

int min_value(int a, int b)
{
    return a < b ? a : b;
}

void mid_hchd_fav_area_algo_init(void)
{
    pthread_mutex_lock(&update_lock);
    fav_area_algo.used_num.store(0, std::memory_order_relaxed);
    fav_area_algo.pro.store(0.1f, std::memory_order_relaxed);
    for (int place = 0; place < fav_area_algo_NUM; place++)
        area_put(place, {});
    pthread_mutex_unlock(&update_lock);
}

int mid_hchd_fav_area_algo_update(int x1, int y1, int x2, int y2, const char *name, const char *event_type)
{
    fav_area_algo_coor_t given = rectangle(x1, y1, x2, y2);
    text_put(given.name, name ? name : "");
    text_put(given.event_type, event_type ? event_type : "");
    pthread_mutex_lock(&update_lock);
    const int result = update_locked(given);
    pthread_mutex_unlock(&update_lock);
    return result;
}

int rect_angle_over_lap(const fav_area_algo_coor_t *a, const fav_area_algo_coor_t *b)
{
    const float pro = fav_area_algo.pro.load(std::memory_order_relaxed);
    const fav_area_algo_coor_t both = shared_part(*a, *b);
    if (pro == 0)
        return has_area(both);
    if (inside(*a, *b) || inside(*b, *a))
        return 1;
    return has_area(both) && more_than(both, pro, *b);
}

void mid_hchd_fav_area_algo_detect(int x1, int y1, int x2, int y2, const char *event_type)
{
    if (!event_type)
        return;
    const fav_area_algo_coor_t box = rectangle(x1, y1, x2, y2);
    for (int place = 0; place < used(); place++) {
        const fav_area_algo_coor_t area = area_get(place);
        log_info(" event_type = %s ,%s  \n ", event_type, area.event_type);
        if (!begins_with(area.event_type, event_type))
            continue;
        if (rect_angle_over_lap(&area, &box)) {
            log_info("test>>>human in area,brd name=%s", area.name);
            shbf_event_broadcast(EVENT_CHANNEL_MD, area.name, static_cast<int>(strlen(area.name)) + 1);
        } else {
            log_info("test>>>human not in area,need ignore");
        }
    }
}

int comp_region(int x1, int y1, int x2, int y2, int other_x1, int other_y1, int other_x2, int other_y2,
                float ratio)
{
    const fav_area_algo_coor_t other = rectangle(other_x1, other_y1, other_x2, other_y2);
    const fav_area_algo_coor_t both = shared_part(rectangle(x1, y1, x2, y2), other);
    if (!has_area(both)) {
        log_info("area cir err");
        return 0;
    }
    // The area of the largest rectangles does not fit: the line then shows the largest number there is.
    const double area =
        static_cast<double>(length(both.x1, both.x2)) * static_cast<double>(length(both.y1, both.y2));
    log_info("[x1,y1][y1,y2]=[%d,%d][%d,%d],area=%d", both.x1, both.y1, both.x2, both.y2,
             area < INT32_MAX ? static_cast<int>(area) : INT32_MAX);
    return more_than(both, ratio, other);
}
