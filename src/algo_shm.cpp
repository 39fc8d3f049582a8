// The way of a text to the motor.
//
// Threads: producers append to the list; "motor_rotate" takes texts from its head and puts them into the
// mailbox. It is ended by cancellation, which it accepts only while it waits (for a text, for the motor, for
// the mailbox's lock): no text is ever left half written, and the mailbox's lock is never left held.
//
// The list's lock lives as long as the process, because producers come at any time; the semaphore lives from
// start to stop, and producers reach it only under the list's lock while `running` says that it is there.
#include "algo_shm_internal.h"

#include <atomic>
#include <pthread.h>
#include <semaphore.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/shm.h>
#include <unistd.h>

#include "naro_util.h"

namespace
{

enum {
    MOTOR_WAIT_MS = 10, // while the motor's process has not cleared the last text
    MOTOR_PATIENCE = 4, // a wait that finds more waits behind it than these is the last: the sixth
    // The mailbox's lock is held for microseconds. Who holds it for a tenth of a second is dead.
    LOCK_WAIT_MS = 1,
    LOCK_WAITS = 100,
    MAX_QUEUED = 1024, // no producer comes near: the tracker sends seven a second, the thread takes ten
};

pthread_mutex_t life_lock = PTHREAD_MUTEX_INITIALIZER; // one start or stop at a time, its join included
pthread_mutex_t list_lock = PTHREAD_MUTEX_INITIALIZER; // guards what is said below

struct {
    std::atomic<bool> running; // written under list_lock; the writer looks at it without
    bool said_stopped;         // list_lock: the first text that was dropped for want of a writer has said so
    motor_event_node *list;    // list_lock: head of the texts that wait
    int queued;                // list_lock: how many they are
    sem_t list_sem;            // posted once for each of them; from start to stop
    pthread_t task;            // life_lock

    // The writer's; while there is none, those of the thread that holds life_lock.
    motor_mailbox *shared_memory;
    motor_event_node *in_hand; // the text on its way into the mailbox
    int retry_count;           // waits for the motor. Deliberately not reset by a text that got through, nor
                               // by a stop: waits for earlier texts shorten the patience for later ones
    unsigned lost;             // texts since the mailbox's lock is not to be had
} shm;

// A daemon that cannot reach the motor is to be started anew by whoever watches over it. _exit, because other
// threads are alive: exit would take down beneath them what they use. Standard output is line buffered, so no
// line is lost.
[[noreturn]] void end_the_daemon(const char *message)
{
    perror(message);
    _exit(1);
}

// ---- The writer -------------------------------------------------------------------------------------------

// This and the next are the only places where the writer accepts its cancellation.
void wait_ms(unsigned ms)
{
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    naro_clock_sleep_ms(ms);
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
}

void wait_for_texts()
{
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    sem_wait(&shm.list_sem); // interrupted or not: whoever comes back looks at the list
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
}

bool next_in_hand()
{
    pthread_mutex_lock(&list_lock);
    shm.in_hand = motor_event_list_take(&shm.list);
    if (shm.in_hand)
        shm.queued--;
    pthread_mutex_unlock(&list_lock);
    return shm.in_hand;
}

void lock_is_lost()
{
    if (shm.lost++ == 0)
        log_err("[%s] the motor's mailbox stays locked: its holder died, or the lock is damaged; texts are "
                "lost until the motor's process makes it anew\n",
                __func__);
}

void lock_is_there()
{
    if (shm.lost > 0)
        log_info("[%s] the motor's mailbox is open again; %u texts were lost\n", __func__, shm.lost);
    shm.lost = 0;
}

// Ends with the text in the mailbox or given up.
void hand_over(const char *text)
{
    int lock_waits = 0;
    for (;;) {
        const motor_mailbox_result result = motor_mailbox_put(shm.shared_memory, text);
        if (result == MOTOR_MAILBOX_LOCKED) {
            if (lock_waits == LOCK_WAITS) {
                lock_is_lost();
                return;
            }
            lock_waits++;
            wait_ms(LOCK_WAIT_MS);
            continue;
        }
        lock_is_there();
        if (result == MOTOR_MAILBOX_DONE)
            return;
        lock_waits = 0;
        // After the mailbox is unlocked, so that a reader of our output who is slow does not keep the motor
        // waiting. No line end: deliberately so, and therefore flushed.
        fputs("Wait for other process's reading", stdout);
        fflush(stdout);
        wait_ms(MOTOR_WAIT_MS);
        if (shm.retry_count > MOTOR_PATIENCE) {
            log_err("motor is already running drop this frame after retry 5 times\n");
            shm.retry_count = 0;
            return;
        }
        shm.retry_count++;
    }
}

void *motor_rotate_task_thread(void *)
{
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    log_info("create motor_rotate_task_thread\n");
    if (prctl(PR_SET_NAME, "motor_rotate") != 0)
        log_warning("prctl setname failed\n");
    const int segment = motor_mailbox_get();
    if (segment < 0)
        end_the_daemon("fail to shmget");
    shm.shared_memory = motor_mailbox_map(segment);
    if (!shm.shared_memory)
        end_the_daemon("Failed to shmat");
    while (shm.running) {
        wait_for_texts();
        while (shm.running && next_in_hand()) {
            hand_over(shm.in_hand->text);
            free(shm.in_hand);
            shm.in_hand = nullptr;
        }
    }
    return nullptr;
}

} // namespace

// ---- The list ---------------------------------------------------------------------------------------------

void motor_event_list_append(motor_event_node **list, motor_event_node *node)
{
    node->next = nullptr;
    if (!*list) {
        node->prev = node;
        *list = node;
        return;
    }
    node->prev = (*list)->prev;
    node->prev->next = node;
    (*list)->prev = node;
}

motor_event_node *motor_event_list_take(motor_event_node **list)
{
    motor_event_node *head = *list;
    if (!head)
        return nullptr;
    if (!head->prev) {
        // By the name that this has always had.
        fprintf(stderr, "src/algo_shbf: %s: Assertion `head->prev' failed.\n", __func__);
        abort();
    }
    *list = head->next;
    if (*list)
        (*list)->prev = head->prev;
    return head;
}

static void drop_all_texts(void)
{
    while (motor_event_node *node = motor_event_list_take(&shm.list))
        free(node);
    shm.queued = 0;
    free(shm.in_hand); // of a writer that was cancelled while it waited
    shm.in_hand = nullptr;
}

// ---- Start and stop ---------------------------------------------------------------------------------------

static int init_locked(void)
{
    if (shm.running) {
        log_err("motor_rotate_task_thread already running\n");
        return -1;
    }
    shm.lost = 0;

    pthread_mutex_lock(&list_lock);
    sem_init(&shm.list_sem, 0, 0);
    shm.running = true; // first: the writer ends where it is not
    const int error = pthread_create(&shm.task, nullptr, motor_rotate_task_thread, nullptr);
    if (error != 0) {
        shm.running = false;
        sem_destroy(&shm.list_sem);
    } else {
        shm.said_stopped = false;
    }
    pthread_mutex_unlock(&list_lock);

    if (error != 0)
        log_err("create motion_track_task_thread fail ret = %d\n", error);
    return error > 0 ? -error : error;
}

int algo_shm_init(void)
{
    pthread_mutex_lock(&life_lock);
    const int result = init_locked();
    pthread_mutex_unlock(&life_lock);
    return result;
}

// Whether there is a writer to stop. From here on producers leave the list and its semaphore alone.
static bool stop_begins(void)
{
    pthread_mutex_lock(&list_lock);
    const bool begins = shm.running;
    shm.running = false;
    pthread_mutex_unlock(&list_lock);
    return begins;
}

static int fini_locked(void)
{
    log_info("algo_shm_fini\n");
    if (!stop_begins()) {
        log_err("motor_rotate_task_thread has not running\n");
        return -1;
    }
    // The results are deliberately looked at for negative ones only, which these calls never give.
    if (pthread_cancel(shm.task) < 0)
        log_err("pthread_cancel motion_track_task_thread\r\n");
    if (pthread_join(shm.task, nullptr) < 0)
        log_err("pthread_join motion_track_task_thread\r\n");

    pthread_mutex_lock(&list_lock);
    drop_all_texts();
    sem_destroy(&shm.list_sem);
    pthread_mutex_unlock(&list_lock);

    if (shmdt(shm.shared_memory) != 0)
        end_the_daemon("Failed to shmdt");
    shm.shared_memory = nullptr;
    log_info("shmdt success\n");
    return 0;
}

int algo_shm_fini(void)
{
    pthread_mutex_lock(&life_lock);
    const int result = fini_locked();
    pthread_mutex_unlock(&life_lock);
    return result;
}

// ---- Texts ------------------------------------------------------------------------------------------------

// Appends where there is a writer and room; otherwise the node stays the caller's.
static bool queue_node(motor_event_node *node, bool *stopped, bool *say_stopped)
{
    pthread_mutex_lock(&list_lock);
    *stopped = !shm.running;
    *say_stopped = *stopped && !shm.said_stopped;
    if (*stopped)
        shm.said_stopped = true;
    const bool queued = !*stopped && shm.queued < MAX_QUEUED;
    if (queued) {
        motor_event_list_append(&shm.list, node);
        shm.queued++;
        sem_post(&shm.list_sem);
    }
    pthread_mutex_unlock(&list_lock);
    return queued;
}

int algo_shm_write_wrap(const char *text)
{
    if (!text || strnlen(text, MOTOR_MAILBOX_TEXT_BYTES) == MOTOR_MAILBOX_TEXT_BYTES) {
        log_err("[%s] refused, the motor's mailbox takes 31 characters: %.31s...\n", __func__,
                text ? text : "(no text)");
        return -1;
    }
    motor_event_node *node = static_cast<motor_event_node *>(calloc(1, sizeof(motor_event_node)));
    if (!node) {
        log_err("[%s] no memory for %s\n", __func__, text);
        return -1;
    }
    memcpy(node->text, text, strlen(text) + 1);

    bool stopped, say_stopped;
    if (queue_node(node, &stopped, &say_stopped))
        return 0;
    free(node);
    if (stopped) {
        if (say_stopped)
            log_err("[%s] the way to the motor is not open; texts are dropped until it is\n", __func__);
        return 0;
    }
    log_err("[%s] refused, %d texts wait for the motor: %s\n", __func__, MAX_QUEUED, text);
    return -1;
}
