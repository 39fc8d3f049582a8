// What each setting does: the callbacks behind the client's two tables (kv_client.h), which this module
// defines.
//
//   key                   layer  value                       acts on
//   motion_region         nvram  a number; stored: a list    how different a block must be to have moved
//   night_mode            nvram  a digit 0 to 6              light mode (light_modes.h)
//   full_color            nvram  on... off...                the colour flag of the light controllers
//   wdr                   nvram  on off                      wide dynamic range
//   hdr_switch            nvram  on off                      pauses the colour-transform watcher
//   track_switch          mem    on off                      motion tracking and the motor's mailbox; only a
//                                                            change acts
//   power                 nvram  on off                      on: applies what is stored, starts day and night
//   sdcard_rw             mem    rdwr... anything            records may be written
//   face_detect           mem    on... off...                what is recorded (deliberately never cleared)
//   baby_cry_detect       mem    on... off...                the same
//   human_detect          mem    on... off...                the same
//   motor                 nvram  [h,v]                       the view's tilt, for a log line
//   people_sensitivity    mem    1 to 5                      how sure the detector must be of a person
//   alarm_event           mem    a-b-c                       alarm light: unused, 1 = flashing, seconds
//   people_region_detect  mem    x1-y1-x2-y2                 where people are looked for, in 1/10000
//   fav_area_rect         mem    JSON array of regions       care regions
//
// What they call is in kv_actions.cpp.
//
// A value that is not understood is told in one error line and changes nothing, but for those whose every
// text is a number (motor, alarm_event, people_region_detect: what is no number is 0) and sdcard_rw, to which
// every text has a meaning. Values are logged as they came, whatever they hold.
//
// Four kinds of functions, all of which return 0:
//   notify_cb_...          a change: (the library's response, the client's handle). On the pump thread.
//   notify_timeout_cb_...  a subscription was not confirmed in time: a line on the error stream, no more. On
//                          the pump thread.
//   sync_cb_...            a value that was stored when the power came on, taken and freed; null when there
//                          is none: the default is applied, which an error line says. On the pump thread.
//   config_cb_...          the reply to a get. Nobody asks in this way today. Like the sync handlers, but the
//                          stored motion_region is only logged, and night_mode 0 stays 0, its default too.
// No locks are held. What they call may take its time (a pulse of the filter's coil, the media server's
// answers).
#ifndef KV_SETTINGS_H
#define KV_SETTINGS_H

int notify_cb_motion_region(void *response, void *context);
int notify_cb_night_mode(void *response, void *context);
int notify_cb_fullcolor(void *response, void *context);
int notify_cb_wdr_mode(void *response, void *context);
int notify_cb_hdr_mode(void *response, void *context);
int notify_cb_track_mode(void *response, void *context);
// "on", and also a response without a value, ends the process with status 0 when what is stored cannot be
// read.
int notify_cb_power_mode(void *response, void *context);
int notify_cb_sdcard_rw(void *response, void *context);
int notify_cb_AI_detect(void *response, void *context); // three keys
int notify_cb_motor(void *response, void *context);
int notify_cb_people_sensitivity(void *response, void *context);
int notify_cb_alarm_event(void *response, void *context);
int notify_cb_people_region_detect(void *response, void *context);
int notify_cb_fav_area(void *response, void *context);

// Some serve several settings: wdr_mode also hdr_switch, motor also people_sensitivity, alarm_event also
// people_region_detect.
int notify_timeout_cb_motion_region(void *response, void *context);
int notify_timeout_cb_night_mode(void *response, void *context);
int notify_timeout_cb_fullcolor(void *response, void *context);
int notify_timeout_cb_wdr_mode(void *response, void *context);
int notify_timeout_cb_track_mode(void *response, void *context);
int notify_timeout_cb_power_mode(void *response, void *context);
int notify_timeout_cb_sdcard_rw(void *response, void *context);
int notify_timeout_cb_AI_detect(void *response, void *context);
int notify_timeout_cb_motor(void *response, void *context);
int notify_timeout_cb_alarm_event(void *response, void *context);
int notify_timeout_cb_fav_area(void *response, void *context); // its line is an error line of the log

int sync_cb_motion_region(char *value);
int sync_cb_wdr_mode(char *value);
int sync_cb_night_mode(char *value); // 0 becomes 5
int sync_cb_fullcolor(char *value);
int sync_cb_track_mode(char *value); // deliberately not in the table: tracking follows changes only

int config_cb_motion_region(void *response, void *context);
int config_cb_wdr_mode(void *response, void *context);
int config_cb_night_mode(void *response, void *context);
int config_cb_fullcolor(void *response, void *context);

#endif
