// The settings that a camera knows by name, and the layer that each lives in.
#ifndef SETTING_KEYS_H
#define SETTING_KEYS_H

#include <stddef.h>

struct setting_key {
    const char *key;
    const char *layer; // "mem": lost at reboot; "nvram": lasts
};

// By name.
enum { SETTING_KEYS = 18 };
extern const setting_key setting_keys[SETTING_KEYS];

// The layer of a key; null for one that nobody knows. Any thread.
const char *setting_layer(const char *key);

#endif
