// What the settings act on: every call that a setting makes into another module, and every word it sets
// there, in one table. Tests put their own in its place.
//
// Null: nothing stands behind that entry, as in a daemon that was built without a module or a test that looks at
// others. The setting is then parsed and logged as ever and does nothing more.
#ifndef KV_ACTIONS_H
#define KV_ACTIONS_H

#include <stdint.h>

#include <atomic>

struct kv_action_table {
    // detection
    int (*sensitivity_set)(int level);        // how different a block must be: 0 to 2
    int (*people_sensitivity_set)(int level); // how sure of a person: 1 to 5
    int (*people_region_set)(int x1, int x2, int y1, int y2);
    int (*fav_area_update)(int x1, int y1, int x2, int y2, const char *roi_name, const char *event_type);
    // light and picture
    int (*ircut_init)(void);
    int (*ircut_mode_switch)(int mode);
    int (*ircut_mode_config)(int mode);
    int (*fullcolor_mode_config)(int on);
    int (*wdr_mode_switch)(int mode);
    int (*wdr_mode_config)(int mode);
    int (*white_led_alarm)(int flag, const int *three_words);
    std::atomic<int> *hdr_flag;
    // tracking and the motor
    int (*track_mode_config)(int on);
    int (*track_mode_get)(void); // 1 while it is on
    int (*motor_mailbox_init)(void);
    int (*motor_mailbox_fini)(void);
    std::atomic<int> *motor_position_v;
    // records: what is written, and whether the card can be written to
    std::atomic<uint8_t> *sdcard_writable;
    std::atomic<uint8_t> *face_detect;
    std::atomic<uint8_t> *human_detect;
    std::atomic<uint8_t> *baby_cry_detect;
};
extern const kv_action_table kv_actions;

// Calls `action` where there is one. The pump thread.
template <typename... Parameters, typename... Arguments>
void kv_act(int (*action)(Parameters...), Arguments... arguments)
{
    if (action)
        action(arguments...);
}

// Sets the word where there is one: one word of its own, which its reader looks at now and then.
template <typename Word, typename Value> void kv_put(std::atomic<Word> *word, Value value)
{
    if (word)
        word->store(static_cast<Word>(value), std::memory_order_relaxed);
}

#endif
