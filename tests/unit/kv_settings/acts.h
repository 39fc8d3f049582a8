// What settings act on, in the test's hands: kv_actions with functions that write down what they were given.
// Include in one source of a test.
#ifndef ACTS_H
#define ACTS_H

#include <functional>
#include <string>
#include <vector>

#include "kv_actions.h"

inline struct {
    std::vector<std::string> calls;
    std::function<void()> on_call; // called first in those with one number
    int track_mode = 0;            // of tracking, as it was set last
    std::atomic<int> hdr_flag{-7}, motor_position_v{-7};
    std::atomic<uint8_t> sdcard_writable{7}, face_detect{7}, human_detect{7}, baby_cry_detect{7};
} acts;

namespace acts_detail
{

template <const char *const &name> int with_number(int number)
{
    if (acts.on_call)
        acts.on_call();
    acts.calls.push_back(name + (" " + std::to_string(number)));
    return -5; // which nobody looks at
}
template <const char *const &name> int alone()
{
    acts.calls.push_back(name);
    return -5;
}

#define ACT_NAME(name) inline const char *const name##_name = #name
ACT_NAME(sensitivity_set);
ACT_NAME(people_sensitivity_set);
ACT_NAME(ircut_init);
ACT_NAME(ircut_mode_switch);
ACT_NAME(ircut_mode_config);
ACT_NAME(fullcolor_mode_config);
ACT_NAME(wdr_mode_switch);
ACT_NAME(wdr_mode_config);
ACT_NAME(track_mode_config);
ACT_NAME(motor_mailbox_init);
ACT_NAME(motor_mailbox_fini);
#undef ACT_NAME

inline int track_mode_config(int mode)
{
    acts.track_mode = mode;
    return with_number<track_mode_config_name>(mode);
}
inline int track_mode_get()
{
    return acts.track_mode;
}
inline int people_region_set(int x1, int x2, int y1, int y2)
{
    acts.calls.push_back("people_region_set " + std::to_string(x1) + " " + std::to_string(x2) + " " +
                         std::to_string(y1) + " " + std::to_string(y2));
    return -5;
}
inline int fav_area_update(int x1, int y1, int x2, int y2, const char *roi_name, const char *event_type)
{
    acts.calls.push_back("fav_area_update " + std::to_string(x1) + " " + std::to_string(y1) + " " +
                         std::to_string(x2) + " " + std::to_string(y2) + " " + roi_name + "|" + event_type);
    return -5;
}
inline int white_led_alarm(int flag, const int *words)
{
    acts.calls.push_back("white_led_alarm " + std::to_string(flag) + ": " + std::to_string(words[0]) + " " +
                         std::to_string(words[1]) + " " + std::to_string(words[2]));
    return -5;
}

} // namespace acts_detail

const kv_action_table kv_actions = {
    acts_detail::with_number<acts_detail::sensitivity_set_name>,
    acts_detail::with_number<acts_detail::people_sensitivity_set_name>,
    acts_detail::people_region_set,
    acts_detail::fav_area_update,
    acts_detail::alone<acts_detail::ircut_init_name>,
    acts_detail::with_number<acts_detail::ircut_mode_switch_name>,
    acts_detail::with_number<acts_detail::ircut_mode_config_name>,
    acts_detail::with_number<acts_detail::fullcolor_mode_config_name>,
    acts_detail::with_number<acts_detail::wdr_mode_switch_name>,
    acts_detail::with_number<acts_detail::wdr_mode_config_name>,
    acts_detail::white_led_alarm,
    &acts.hdr_flag,
    acts_detail::track_mode_config,
    acts_detail::track_mode_get,
    acts_detail::alone<acts_detail::motor_mailbox_init_name>,
    acts_detail::alone<acts_detail::motor_mailbox_fini_name>,
    &acts.motor_position_v,
    &acts.sdcard_writable,
    &acts.face_detect,
    &acts.human_detect,
    &acts.baby_cry_detect,
};

#endif
