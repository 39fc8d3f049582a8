// What the values of the known settings look like. A value of another form is stored all the same (the store
// is for any text, and the daemon says what it does not understand): the check is for people's slips.
#ifndef SETTING_FORMATS_H
#define SETTING_FORMATS_H

// Null when `value` is one for `key`, or nobody knows the key; else what is expected, in words.
const char *setting_format_fault(const char *key, const char *value);
// What is expected of a key, in words; null for a key that nobody knows.
const char *setting_format(const char *key);

#endif
