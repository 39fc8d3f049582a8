// The daemon's client of the settings store: follows sixteen settings, applies what was stored, writes values
// back.
//
// The client knows the keys, the order in which they are followed and given up, and the thread that waits for
// changes. What a change means is not its business: that stands behind the two tables below, which the
// callbacks' module (kv_settings) defines and the client reads. So the client calls nobody above itself.
//
// The library's own words: a layer is "mem" (lost at reboot) or "nvram" (kept); a group is always the default
// one.
#ifndef KV_CLIENT_H
#define KV_CLIENT_H

#define KV_LAYER_MEM "mem"
#define KV_LAYER_NVRAM "nvram"

// The settings that the daemon follows, in the order in which it subscribes to them.
enum kv_setting_number {
    KV_MOTION_REGION,
    KV_NIGHT_MODE,
    KV_FULL_COLOR,
    KV_WDR,
    KV_HDR_SWITCH,
    KV_TRACK_SWITCH,
    KV_POWER,
    KV_SDCARD_RW,
    KV_FACE_DETECT,
    KV_BABY_CRY_DETECT,
    KV_HUMAN_DETECT,
    KV_MOTOR,
    KV_PEOPLE_SENSITIVITY,
    KV_ALARM_EVENT,
    KV_PEOPLE_REGION_DETECT,
    KV_FAV_AREA_RECT,
    KV_SETTINGS
};

struct kv_setting {
    const char *key;
    const char *layer;
    int (*change_cb)(void *response, void *context);  // the value was set; on the pump thread
    int (*timeout_cb)(void *response, void *context); // the subscription was not confirmed in time; the same
    const char *tag;                                  // what the line about a failed subscription calls it
};

// What kv_sys_param_init reads, in this order.
enum { KV_STORED_SETTINGS = 5 };
struct kv_stored_setting {
    const char *key;
    const char *layer;
    int (*sync_cb)(
        char *value); // takes the value (malloc'd; null: there is none) and frees it; null: nobody wants it
};

// Defined by the module of the callbacks; `kv_settings[n]` is the setting number n.
extern const kv_setting kv_settings[KV_SETTINGS];
extern const kv_stored_setting kv_stored_settings[KV_STORED_SETTINGS];

// Opens the store, subscribes to every setting and starts the pump thread. 0, also when that has been done
// before (a line on the error stream says so); -1 after saying why, everything undone as kv_sys_callback_init
// undoes it. Not together with another init or exit.
int kv_client_init(void);

// Ends the pump thread, then unsubscribes and closes. What fails is logged, and the rest is done all the
// same. Always 0. Waits for a callback that is under way, and for writers inside kv_client_set_kv. Never on
// the pump thread, and not while holding a lock that a callback takes.
int kv_client_exit(void);

// Writes a value. `type` says what `value` points to: 1, 64 bits without sign; 2, 32 bits; anything else, a
// text. 0 when it is stored; -1 with a line when it is not (before init "kv not init\r\n" on the error
// stream). Waits for a busy store, at most 200 ms. Any thread, callbacks included, at any time.
int kv_client_set_kv(const char *layer, int type, const char *key, const void *value);

// Publishes the motor's state: the text goes to "track" in the mem layer. Result and threads as
// kv_client_set_kv.
int kv_motor_drv(const char *value);

const char *kv_get_mem_layer(void);
const char *kv_get_nvram_layer(void);

// Reads what is stored and hands each value to its sync handler. A handler gets null where there is nothing,
// and then applies its default. Always 0. The handle is not needed for reading and may be null. On the pump
// thread.
int kv_sys_param_init(void *handle);

// Subscribes to every setting of `handle` and starts the pump thread: 0. When one step fails, a line says
// which, the subscriptions made so far are given up, and it is -1. Giving up is deliberately incomplete: see
// undo. Lock held (the client's own; kv_client_init calls it).
int kv_sys_callback_init(void *handle);

#endif
