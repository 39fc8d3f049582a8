// The reader of the motor's view.
#include "motor_head.h"

#include <errno.h>
#include <pthread.h>
#include <string.h>

#include "desk.h"
#include "motor_view.h"
#include "naro_util.h"

namespace
{

struct {
    motor_view_file *view;                             // before threads start
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER; // protects the rest
    motor_view_record last; // what was read last: holds while a writer that died is not replaced
} head;

} // namespace

int motor_head_start(void)
{
    head.last = {};
    head.view = motor_view_open(true);
    if (head.view)
        return 0;
    desk_say("%s%s: %s", naro_root(), MOTOR_VIEW_PATH, strerror(errno));
    return -1;
}

void motor_head_stop(void)
{
    motor_view_close(head.view);
    head.view = nullptr;
}

bool motor_head_record(motor_view_record *record)
{
    return head.view && motor_view_read(head.view, record);
}

bool motor_head_at(double before_s, float *pan, float *tilt)
{
    if (!head.view)
        return false;
    pthread_mutex_lock(&head.mutex);
    (void)motor_view_read(head.view, &head.last);
    const motor_view_record now = head.last;
    pthread_mutex_unlock(&head.mutex);
    if (now.moves == 0)
        return false;
    *pan = static_cast<float>(now.place.axis[MOTOR_PAN].head - now.speed[MOTOR_PAN] * before_s);
    *tilt = static_cast<float>(-(now.place.axis[MOTOR_TILT].head - now.speed[MOTOR_TILT] * before_s));
    return true;
}
