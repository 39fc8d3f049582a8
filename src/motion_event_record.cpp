// Motion records: the gate, the throttles, the queue and its writer. The files are
// motion_event_record_file's.
//
// Threads: whoever detects something puts events into the queue; the thread "motion_record" takes them out,
// one at a time, and deals with the card while it holds no lock. A card that hangs therefore holds up that
// thread alone; the queue fills meanwhile, to its bound.
#include "motion_event_record.h"

#include <errno.h>
#include <new>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>

#include "motion_event_record_file.h"
#include "naro_util.h"

motion_record_words motion_record_settings = {{0}, {1}, {1}, {0}, {0}};
motion_record_context *motion_record; // guarded by `lock`

namespace
{

// 40 bytes where a pointer has 32 bits.
struct queue_node {
    queue_node *prev;
    queue_node *next;
    motion_record_event event;
};

// Guards `motion_record` and everything of `state` but what is said there; held for links and words only.
// Never destroyed: detectors outlive the module.
pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;

struct {
    queue_node *head;       // the oldest event; its prev is the newest. Null: none
    int waiting;            // how many there are
    unsigned lost;          // refused because MOTION_RECORD_QUEUE_MAX waited; since the queue was last empty
    int64_t last_time_s[2]; // of the last accepted event of MOTION_RECORD_OBJECT and MOTION_RECORD_PEOPLE
    pthread_t writer;       // of init and finish
    sem_t ready;            // counts events, roughly: the writer looks at the queue itself
    bool ready_made;        // of init: `ready` is made once and stays
} state;

// ---- The queue --------------------------------------------------------------------------------------------

// All with `lock` held.

void append(queue_node *node)
{
    queue_node *head = state.head;
    if (head) {
        node->prev = head->prev;
        node->next = head;
        head->prev->next = node;
        head->prev = node;
    } else {
        node->prev = node->next = node;
        state.head = node;
    }
    state.waiting++;
}

void detach_head()
{
    queue_node *head = state.head;
    if (head->next == head) {
        state.head = nullptr;
    } else {
        head->prev->next = head->next;
        head->next->prev = head->prev;
        state.head = head->next;
    }
    state.waiting--;
}

// Whether an event of a throttled type comes too soon after the last one; else it counts as that now. An
// event that is older than the last one comes too soon, deliberately: after the clock was set back nothing
// moves until it has caught up.
bool too_soon(uint32_t type, int32_t time)
{
    if (type != MOTION_RECORD_OBJECT && type != MOTION_RECORD_PEOPLE)
        return false;
    int64_t *last = &state.last_time_s[type];
    if (time - *last < MOTION_RECORD_THROTTLE_S)
        return true;
    *last = time;
    return false;
}

enum verdict { QUEUED, REFUSED, NO_MEMORY, FULL };

verdict put(const motion_record_event &event)
{
    if (!motion_record || too_soon(event.type, static_cast<int32_t>(event.time)))
        return REFUSED;
    if (state.waiting >= MOTION_RECORD_QUEUE_MAX)
        return state.lost++ == 0 ? FULL : REFUSED;
    queue_node *node = static_cast<queue_node *>(naro_malloc(sizeof *node, alignof(queue_node)));
    if (!node)
        return NO_MEMORY;
    *node = {nullptr, nullptr, event};
    append(node);
    return QUEUED;
}

// ---- The writer -------------------------------------------------------------------------------------------

// As assert would say it, but in every build: the text is known to those who read crash logs.
[[noreturn]] void assertion_failed(const char *text, int line, const char *function)
{
    fprintf(stderr, "%s: src/motion_event_record:%d: %s: Assertion `%s' failed.\n",
            program_invocation_short_name, line, function, text);
    abort();
}

// The oldest event, which is the caller's to free; null when there is none.
queue_node *take(const char *function)
{
    unsigned lost = 0;
    pthread_mutex_lock(&lock);
    queue_node *node = state.head;
    if (node) {
        if (!node->prev)
            assertion_failed("(l)->prev != ((void *)0)", __LINE__, function);
        detach_head();
    } else {
        lost = state.lost;
        state.lost = 0;
    }
    pthread_mutex_unlock(&lock);
    if (lost > 0)
        log_err("[%s] %u events were lost while the card was slow\n", function, lost);
    return node;
}

// A new card, or one that was formatted, may have no folder yet.
void write_to_card(const motion_record_event &event, bool *folder_checked)
{
    if (!motion_record_settings.sdcard_writable.load(std::memory_order_relaxed)) {
        *folder_checked = false;
        return;
    }
    if (!*folder_checked)
        motion_record_check_folder();
    *folder_checked = true;
    motion_record_event_write(event);
}

void *motion_record_thread(void *argument)
{
    motion_record_context *self = static_cast<motion_record_context *>(argument);
    prctl(PR_SET_NAME, "motion_record");
    // A file that reaches a limit of its size is an error of the write, and not the end of the daemon.
    sigset_t limit;
    sigemptyset(&limit);
    sigaddset(&limit, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &limit, nullptr);

    bool folder_checked = false;
    // At least once: events may be queued, and the module at its end, before this thread has run at all.
    do {
        sem_wait(&state.ready); // woken for nothing it finds nothing
        while (queue_node *node = take(__func__)) {
            write_to_card(node->event, &folder_checked);
            naro_free(node);
        }
    } while (self->running);
    return nullptr;
}

} // namespace

// ---- Start and end ----------------------------------------------------------------------------------------

int motion_record_init(void)
{
    if (motion_record) {
        log_info("[%s] already inited\n", __func__);
        return 0;
    }
    void *memory = naro_malloc(sizeof(motion_record_context), alignof(motion_record_context));
    if (!memory) {
        log_err("[%s] no memory\n", __func__);
        return -1;
    }
    motion_record_context *context = new (memory) motion_record_context{{1}, 0};
    if (!state.ready_made)
        sem_init(&state.ready, 0, 0);
    state.ready_made = true;
    state.last_time_s[MOTION_RECORD_OBJECT] = state.last_time_s[MOTION_RECORD_PEOPLE] = 0;
    if (pthread_create(&state.writer, nullptr, motion_record_thread, context) != 0) {
        log_err("[%s] the writer thread could not be created\n", __func__);
        naro_free(context);
        return -1;
    }
    pthread_mutex_lock(&lock);
    motion_record = context;
    pthread_mutex_unlock(&lock);
    otrpc_start(); // without it records are written all the same
    return 0;
}

int motion_record_finish(void)
{
    motion_record_context *context = motion_record; // only init and finish change it
    if (!context) {
        log_info("[%s] already exit\n", __func__);
        return 0;
    }
    otrpc_stop();
    pthread_mutex_lock(&lock);
    motion_record = nullptr; // no new events,
    pthread_mutex_unlock(&lock);
    context->running = 0; // and the last ones are written
    sem_post(&state.ready);
    pthread_join(state.writer, nullptr);
    naro_free(context);
    return 0;
}

// ---- Events -----------------------------------------------------------------------------------------------

int motion_record_event_write_wrap(uint32_t type, uint64_t value, int32_t time, uint16_t f1, uint16_t f2,
                                   uint16_t f3, uint16_t f4)
{
    if (!motion_record_settings.sdcard_writable.load(std::memory_order_relaxed))
        return -1;
    if (naro_clock_wall_s() < MOTION_RECORD_CLOCK_SET_S) {
        log_err("motion_record_event_write_wrap time is not correct \n");
        return -1;
    }
    if (type == MOTION_RECORD_SOUND &&
        !motion_record_settings.baby_cry_detect.load(std::memory_order_relaxed))
        return -1;
    pthread_mutex_lock(&lock);
    const verdict said = put({time, type, 0, value, {f1, f2, f3, f4}});
    pthread_mutex_unlock(&lock);
    switch (said) {
    case QUEUED:
        sem_post(&state.ready);
        return 0;
    case NO_MEMORY:
        log_err("[%s] no memory, an event is lost\n", __func__);
        return -1;
    case FULL:
        log_err("[%s] the card is slow and %d events wait: new ones are lost\n", __func__,
                MOTION_RECORD_QUEUE_MAX);
        return -1;
    default:
        return -1;
    }
}

int rpc_sdcard_format_umount_pre(void *, void *, void *)
{
    log_info("rpc_sdcard_format_umount_pre \n");
    motion_record_settings.sdcard_writable.store(0, std::memory_order_relaxed);
    return 0;
}

extern "C" const otrpc_row otrpc_table[] = {
    {"sd_format", rpc_sdcard_format_umount_pre, {nullptr, nullptr}},
    {"sd_umount", rpc_sdcard_format_umount_pre, {nullptr, nullptr}},
    {nullptr, nullptr, {nullptr, nullptr}},
};

int motion_record_track_mode_get(void)
{
    return motion_record_settings.track_mode.load(std::memory_order_relaxed);
}

void motion_record_track_mode_set(int mode)
{
    motion_record_settings.track_mode.store(static_cast<uint8_t>(mode), std::memory_order_relaxed);
}
