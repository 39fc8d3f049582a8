// The client of the settings store.
//
// Threads: "kv_client_task" pumps the library's descriptor; changes are delivered and callbacks run on it,
// one at a time. It is ended by cancellation, which it accepts only while it waits: no callback, and no
// command to the media server that a callback sends, is ever cut in two. Callbacks may write values and so
// take `lock`; therefore nobody joins the thread with `lock` held.
#include "kv_client.h"

#include <inttypes.h>
#include <poll.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "libvardex.h"
#include "naro_util.h"

namespace
{

enum {
    POLL_MS = 1000,
    DYING_MS = 1000, // from a failure of the pump to the end of the process
};

// Guards all of `client`, but for what is said there.
pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t written = PTHREAD_COND_INITIALIZER; // `writers` has become 0

struct {
    void *handle; // the library's; null while closed. The pump thread, which lives shorter, reads it freely
    bool inited;  // open, subscribed, the thread runs
    bool exiting; // kv_client_exit is at work
    unsigned writers;         // calls of libvardex_set_value under way; they are made without `lock`
    pthread_t task;           // valid while inited
    uint64_t id[KV_SETTINGS]; // of the subscriptions, by setting number
    const char *group;        // null, the default group: nothing sets it
} client;

// How the settings are given up at the end: the order, the layers and the tags of the lines about a failure,
// all as they have always been. "people_sensitivity" is asked for in another layer than it was subscribed in,
// which the library refuses: kept, closing takes it.
const struct {
    kv_setting_number setting;
    const char *layer;
    const char *tag;
} exit_order[KV_SETTINGS] = {
    {KV_BABY_CRY_DETECT, KV_LAYER_MEM, "power_mode"},
    {KV_FACE_DETECT, KV_LAYER_MEM, "power_mode"},
    {KV_HUMAN_DETECT, KV_LAYER_MEM, "power_mode"},
    {KV_SDCARD_RW, KV_LAYER_MEM, "power_mode"},
    {KV_POWER, KV_LAYER_NVRAM, "power_mode"},
    {KV_TRACK_SWITCH, KV_LAYER_MEM, "track_mode"},
    {KV_WDR, KV_LAYER_NVRAM, "wdr_mode"},
    {KV_HDR_SWITCH, KV_LAYER_NVRAM, "hdr_mode"},
    {KV_FULL_COLOR, KV_LAYER_NVRAM, "fullcolor"},
    {KV_NIGHT_MODE, KV_LAYER_NVRAM, "night_mode"},
    {KV_MOTION_REGION, KV_LAYER_NVRAM, "motion_region"},
    {KV_MOTOR, KV_LAYER_NVRAM, "motion_region"},
    {KV_PEOPLE_SENSITIVITY, KV_LAYER_NVRAM, "people_sensitivity"},
    {KV_ALARM_EVENT, KV_LAYER_MEM, "alarm_event_notice"},
    {KV_PEOPLE_REGION_DETECT, KV_LAYER_MEM, "key_people_region"},
    {KV_FAV_AREA_RECT, KV_LAYER_MEM, "key_people_region"},
};

// ---- The pump ---------------------------------------------------------------------------------------------

// Without its settings the daemon is of no use, and a new one may find the store well again: whoever watches
// over it starts it anew. _exit, because other threads are alive: nothing may be taken down beneath them.
[[noreturn]] void end_the_daemon()
{
    naro_clock_sleep_ms(DYING_MS);
    _exit(0);
}

// poll, and the only place where the thread accepts its cancellation.
int wait_readable(pollfd *wait)
{
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    const int result = poll(wait, 1, POLL_MS);
    // A descriptor in trouble is "ready" at once and forever, without being readable: wait as long as for a
    // silent one.
    if (result > 0 && !(wait->revents & POLLIN))
        naro_clock_sleep_ms(POLL_MS);
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    return result;
}

void *kv_client_task(void *)
{
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    prctl(PR_SET_NAME, "kv_client_task");
    void *handle = client.handle; // written before the thread was made, and again after it was joined
    pollfd wait = {libvardex_client_fd(handle), POLLIN, 0};
    for (;;) {
        const int ready = wait_readable(&wait);
        if (ready < 0) { // no signal handler of ours returns, so it was not interrupted: it is broken
            log_err("[%s] poll fail\n", __func__);
            end_the_daemon();
        }
        if (ready == 0) {
            libvardex_timeout_process(handle);
        } else if ((wait.revents & POLLIN) && libvardex_xhandle_response(handle) != 1) {
            log_err("[%s] xhandle fail\n", __func__);
            end_the_daemon();
        }
    }
}

// ---- Subscriptions ----------------------------------------------------------------------------------------

// 1 when done; otherwise another value, as the library says it.
uint8_t subscribe(void *handle, int number)
{
    const kv_setting *setting = &kv_settings[number];
    return libvardex_register_notification(handle, setting->layer, client.group, setting->key,
                                           &client.id[number], setting->change_cb, setting->timeout_cb, 0, 0);
}

uint8_t unsubscribe(void *handle, int number, const char *layer)
{
    return libvardex_unregister_notification(handle, layer, client.group, kv_settings[number].key,
                                             client.id[number], 0, 0, 0, 0);
}

// Gives up what was subscribed before the setting number `failed` (KV_SETTINGS: before the thread), the last
// first. Deliberately incomplete: what is left goes when the library closes, right afterwards.
void undo(void *handle, int failed)
{
    // From here on the two that came last among these are given up after all the others, and in their own
    // order.
    const bool late = failed >= KV_FAV_AREA_RECT;
    for (int number = failed - 1; number >= 0; number--) {
        if (number == KV_HDR_SWITCH || number == KV_PEOPLE_SENSITIVITY)
            continue;
        if (number == KV_WDR && failed == KV_HDR_SWITCH)
            continue;
        if (number >= KV_ALARM_EVENT && late)
            continue;
        unsubscribe(handle, number, kv_settings[number].layer);
    }
    if (late) {
        unsubscribe(handle, KV_ALARM_EVENT, kv_settings[KV_ALARM_EVENT].layer);
        unsubscribe(handle, KV_PEOPLE_REGION_DETECT, kv_settings[KV_PEOPLE_REGION_DETECT].layer);
    }
}

} // namespace

int kv_sys_callback_init(void *handle)
{
    libvardex_handle_other(handle);
    for (int number = 0; number < KV_SETTINGS; number++) {
        if (subscribe(handle, number) != 1) {
            log_err("[%s]send notify cmd fail[%s reg].\n", __func__, kv_settings[number].tag);
            undo(handle, number);
            return -1;
        }
    }
    if (pthread_create(&client.task, nullptr, kv_client_task, nullptr) != 0) {
        log_err("ky_task fail\r\n");
        undo(handle, KV_SETTINGS);
        return -1;
    }
    return 0;
}

// ---- Start and end ----------------------------------------------------------------------------------------

static int init_locked(void)
{
    if (client.inited) {
        fprintf(stderr, "[%s] already inited\r\n", "kv_client_init");
        return 0;
    }
    client.handle = libvardex_config_open(0);
    if (!client.handle) {
        log_err("libvardex open faild.\n");
        return -1;
    }
    if (kv_sys_callback_init(client.handle) < 0) {
        log_err("kv_sys_callback_init fail\r\n");
        libvardex_close(client.handle);
        client.handle = nullptr;
        return -1;
    }
    client.inited = true;
    return 0;
}

int kv_client_init(void)
{
    pthread_mutex_lock(&lock);
    const int result = init_locked();
    pthread_mutex_unlock(&lock);
    return result;
}

// Whether there is something to end, and nobody else is at it. The thread to end is `*task` then.
static bool exit_begins(pthread_t *task)
{
    pthread_mutex_lock(&lock);
    const bool begins = client.inited && !client.exiting;
    if (begins) {
        client.exiting = true;
        *task = client.task;
    }
    pthread_mutex_unlock(&lock);
    return begins;
}

int kv_client_exit(void)
{
    pthread_t task;
    if (!exit_begins(&task)) {
        log_info("[%s] already exit\r\n", __func__);
        return 0;
    }
    // Without the lock: a callback that is under way may be about to write a value. The results are
    // deliberately looked at for negative ones only, which these calls never give.
    if (pthread_cancel(task) < 0)
        log_err("pthread_cancel ky_client_task\r\n");
    if (pthread_join(task, nullptr) < 0)
        log_err("pthread_join ky_client_task\r\n");

    pthread_mutex_lock(&lock);
    for (const auto &step : exit_order)
        if (unsubscribe(client.handle, step.setting, step.layer) != 1)
            log_err("[%s]send notify unreg fail[%s unreg].\n", __func__, step.tag);
    client.inited = false;     // no new writers,
    while (client.writers > 0) // and the last ones out before the handle goes
        pthread_cond_wait(&written, &lock);
    libvardex_close(client.handle);
    client.handle = nullptr;
    client.exiting = false;
    pthread_mutex_unlock(&lock);
    return 0;
}

// ---- Values -----------------------------------------------------------------------------------------------

// The handle for a writer, who gives it back with writer_leaves; null when there is none.
static void *writer_enters(void)
{
    pthread_mutex_lock(&lock);
    void *handle = client.inited ? client.handle : nullptr;
    if (handle)
        client.writers++;
    pthread_mutex_unlock(&lock);
    return handle;
}

static void writer_leaves(void)
{
    pthread_mutex_lock(&lock);
    if (--client.writers == 0)
        pthread_cond_broadcast(&written);
    pthread_mutex_unlock(&lock);
}

static int code_of_type(int type)
{
    switch (type) {
    case 1:
        return VARDEX_UINT64;
    case 2:
        return VARDEX_INT32;
    default:
        return VARDEX_TEXT;
    }
}

int kv_client_set_kv(const char *layer, int type, const char *key, const void *value)
{
    void *handle = writer_enters();
    if (!handle) {
        fprintf(stderr, "kv not init\r\n");
        return -1;
    }
    const int code = code_of_type(type);
    if (code == VARDEX_UINT64) {
        uint64_t number;
        memcpy(&number, value, sizeof number); // it may lie anywhere
        printf("X_TYPE_UINT64 = %lld\n", static_cast<long long>(number));
    }
    const uint8_t done = libvardex_set_value(handle, layer, client.group, key, code, value, 0, 0, 0, 0);
    writer_leaves();
    if (done != 1) {
        log_err("[%s][%s]send set value cmd fail.\n", __func__, key);
        return -1;
    }
    log_info("[%s]set value=%s.............\r\n", __func__, key);
    return 0;
}

int kv_motor_drv(const char *value)
{
    return kv_client_set_kv(KV_LAYER_MEM, 0, "track", value);
}

const char *kv_get_mem_layer(void)
{
    return KV_LAYER_MEM;
}

const char *kv_get_nvram_layer(void)
{
    return KV_LAYER_NVRAM;
}

int kv_sys_param_init(void *)
{
    for (const kv_stored_setting &stored : kv_stored_settings) {
        char *value = libvardex_config_get(0, stored.layer, "default", stored.key);
        if (stored.sync_cb)
            stored.sync_cb(value);
        else
            free(value);
    }
    return 0;
}
