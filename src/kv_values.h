// What the texts of the settings mean, as functions of the text alone.
//
// Texts come from other processes and may hold anything. Numbers are read as the C library's atoi reads them
// on a camera, where a long has 32 bits: space is skipped, reading ends at the first character that does not
// belong to the number, no number at all is 0, and what does not fit becomes INT_MAX or INT_MIN. It is the
// same here on any machine. Any thread; no pointer may be null.
#ifndef KV_VALUES_H
#define KV_VALUES_H

int kv_value_int(const char *text);

// The first character as a decimal digit; -1 where it is none. What follows does not matter.
int kv_value_digit(const char *text);

// On or off, by the whole text or by its beginning.
enum kv_switch { KV_OFF, KV_ON, KV_NEITHER };
kv_switch kv_value_switch(const char *text);
kv_switch kv_value_switch_prefix(const char *text);

// The detection level (0 least sensitive, 2 most) of a "motion_region" number, either as a level 1 to 3 or in
// percent:
//   1, 20, 40 -> 0      2, 60 -> 1      3, 80, 100 -> 2      others -> -1, no change
int kv_value_sensitivity(int number);

// "people_sensitivity" is one of these.
enum { KV_PEOPLE_LEVEL_MIN = 1, KV_PEOPLE_LEVEL_MAX = 5 };

// A stored "motion_region": exactly 65 characters, 32 digits at the places 1, 3, ... 63 with anything around
// them, by custom "[1,1,...,1]". Each digit '0' to '3' gives an entry -1 to 2; the first other character ends
// the list. How many entries there are, or -1 when the text has another length.
enum { KV_MOTION_CELLS = 32, KV_MOTION_LENGTH = 65 };
int kv_value_motion_list(const char *text, int list[KV_MOTION_CELLS]);

// Numbers between fixed characters: each '#' of `pattern` is a number, every other character stands for
// itself. Ends at the first thing that does not fit; the rest of `numbers` is 0 (`count` of them). How many
// numbers were read.
int kv_value_numbers(const char *text, const char *pattern, int *numbers, int count);

// Up to three numbers, separated by one or more '-' (so none is negative); those that are not there are 0.
// The text is cut up on the way.
enum { KV_ALARM_NUMBERS = 3 };
void kv_value_alarm(char *text, int numbers[KV_ALARM_NUMBERS]);

#endif
