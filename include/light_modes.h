// The light modes that a user chooses from, and the two running modes of the image signal processor.
#ifndef LIGHT_MODES_H
#define LIGHT_MODES_H

// The value of the "night_mode" setting. What each one does at night:
enum ircut_light_mode {
    NARO_IRCUT_MODE_AUTO = 0,            // as 3; kept for settings of old. ircut_mode_switch makes it 5
    NARO_IRCUT_MODE_DAY = 1,             // nothing: fixed day
    NARO_IRCUT_MODE_NIGHT = 2,           // fixed night, infrared from the dimmable light
    NARO_IRCUT_MODE_AUTO_NIGHT_DAY = 3,  // infrared light, grey picture
    NARO_IRCUT_MODE_AUTO_FULL_COLOR = 4, // white light, picture in colour
    NARO_IRCUT_MODE_AUTO_SMART = 5,      // infrared light, but white light and colour while a person is there
    NARO_IRCUT_MODE_LIGHTS_OFF = 6,      // no light, no decision
};

// What naro_isp_daynight_mode_set and _get carry.
enum naro_isp_running_mode {
    NARO_ISP_RUNNING_MODE_DAY = 0,   // colour
    NARO_ISP_RUNNING_MODE_NIGHT = 1, // grey, for infrared light
};

// On the md channel, with the terminating zero byte.
#define EVENT_DAY_TO_NIGHT "DayToNight"
#define EVENT_NIGHT_TO_DAY "NightToDay"
enum { EVENT_DAY_NIGHT_LENGTH = 11 };

#endif
