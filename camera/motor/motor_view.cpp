// A sequence lock over a few words: the count is odd while they are written, and whoever has read them looks whether it
// is still the same. Each word is stored with release and loaded with acquire: who sees a new word also sees the count
// that was odd before it.
#include "motor_view.h"

#include <atomic>
#include <errno.h>
#include <fcntl.h>
#include <math.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "naro_util.h"

struct motor_view_file {
    std::atomic<uint32_t> mark; // MARK once something was written
    std::atomic<uint32_t> count;
    std::atomic<uint32_t> moves;
    std::atomic<uint32_t> turning;
    std::atomic<int32_t> steps[MOTOR_AXES];
    std::atomic<int32_t> head[MOTOR_AXES];  // millionths of a degree
    std::atomic<int32_t> speed[MOTOR_AXES]; // thousandths of a degree a second
};
static_assert(sizeof(motor_view_file) == 40 && std::atomic<uint32_t>::is_always_lock_free, "shared layout");

namespace
{

const uint32_t MARK = 0x5649574d;
enum { TRIES = 100 }; // a write takes less than the time of one; only a dead writer lasts longer
const double HEAD_UNIT = 1e6, SPEED_UNIT = 1e3, DEGREES_MAX = 720;

int32_t in_units(double value, double unit)
{
    return static_cast<int32_t>(fmax(-2e9, fmin(2e9, round(value * unit))));
}

} // namespace

motor_view_file *motor_view_open(bool anew)
{
    const int file = naro_open(MOTOR_VIEW_PATH, O_RDWR | O_CREAT | O_NOFOLLOW, 0600);
    if (file < 0)
        return nullptr;
    struct stat status;
    if ((anew && ftruncate(file, 0) != 0) || fstat(file, &status) != 0 ||
        (status.st_size != sizeof(motor_view_file) && ftruncate(file, sizeof(motor_view_file)) != 0)) {
        close(file);
        return nullptr;
    }
    void *memory = mmap(nullptr, sizeof(motor_view_file), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    return memory == MAP_FAILED ? nullptr : static_cast<motor_view_file *>(memory);
}

void motor_view_close(motor_view_file *view)
{
    if (view)
        munmap(view, sizeof *view);
}

void motor_view_write(motor_view_file *view, const motor_view_record *record)
{
    // Odd, also where a writer before us died inside.
    view->count.store(view->count.load(std::memory_order_relaxed) | 1, std::memory_order_relaxed);
    view->moves.store(record->moves, std::memory_order_release);
    view->turning.store(record->turning, std::memory_order_release);
    for (int axis = 0; axis < MOTOR_AXES; axis++) {
        view->steps[axis].store(record->place.axis[axis].steps, std::memory_order_release);
        view->head[axis].store(in_units(record->place.axis[axis].head, HEAD_UNIT), std::memory_order_release);
        view->speed[axis].store(in_units(record->speed[axis], SPEED_UNIT), std::memory_order_release);
    }
    view->mark.store(MARK, std::memory_order_release);
    view->count.fetch_add(1, std::memory_order_release);
}

bool motor_view_read(const motor_view_file *view, motor_view_record *record)
{
    for (int i = 0; i < TRIES; i++) {
        const uint32_t before = view->count.load(std::memory_order_acquire);
        if (before % 2 != 0)
            continue;
        motor_view_record read = {};
        read.moves = view->moves.load(std::memory_order_acquire);
        read.turning = view->turning.load(std::memory_order_acquire) != 0;
        bool sane = view->mark.load(std::memory_order_acquire) == MARK;
        for (int axis = 0; axis < MOTOR_AXES; axis++) {
            read.place.axis[axis].steps = view->steps[axis].load(std::memory_order_acquire);
            read.place.axis[axis].head = view->head[axis].load(std::memory_order_acquire) / HEAD_UNIT;
            read.speed[axis] = view->speed[axis].load(std::memory_order_acquire) / SPEED_UNIT;
            sane = sane && fabs(read.place.axis[axis].head) <= DEGREES_MAX;
        }
        if (view->count.load(std::memory_order_relaxed) != before)
            continue;
        if (sane)
            *record = read;
        return sane;
    }
    return false;
}
