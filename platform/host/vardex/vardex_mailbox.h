// Mailboxes: what a handle is woken by. A socket under "/run/naro/vardex", of which a message says no more
// than "look into the store"; when nobody is behind it any more, the kernel says so to whoever sends.
#ifndef VARDEX_MAILBOX_H
#define VARDEX_MAILBOX_H

#include <stddef.h>

enum { VARDEX_MAILBOX_NAME = 64 };

// A new mailbox: its descriptor, and its name for others; -1 with errno. Readable when somebody has knocked.
int vardex_mailbox_create(char name[VARDEX_MAILBOX_NAME]);
// Whether somebody owns `name` and can be found there; without waking him. True also when that cannot be
// told. Any thread.
bool vardex_mailbox_is_found(const char *name);
// Takes what was sent to it.
void vardex_mailbox_drain(int fd);
void vardex_mailbox_destroy(int fd, const char *name);

// Wakes who owns `name`. False when nobody does any more: then what is left of it is removed. Any thread.
bool vardex_mailbox_knock(const char *name);

#endif
