// Sets and gets, and what a set leaves behind for those who listen.
#ifndef VARDEX_CHANGES_H
#define VARDEX_CHANGES_H

#include <stddef.h>

// A busy store is waited for this long by whoever called.
enum { VARDEX_WAIT_MS = 200 };

// Stores a value and wakes those who listen. False when it is not stored (logged). Any thread.
bool vardex_change_set(int layer, const char *group, const char *key, int code, const char *text);
// The value, malloc'd; null when there is none or in trouble (logged). Any thread.
char *vardex_change_get(int layer, const char *group, const char *key);
// Removes a mailbox that nobody owns any more. Trouble is left for the next one to find.
void vardex_change_bury(int layer, const char *mailbox);

#endif
