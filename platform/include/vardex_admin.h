// What tools and a desk camera ask of the settings store beyond what the daemon uses. Host only: a camera's
// own configuration library has nothing of the kind, and the daemon does not call it. Any thread. No handle
// is needed, but calls are quicker while the process has one open.
#ifndef VARDEX_ADMIN_H
#define VARDEX_ADMIN_H

#include <stdint.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

// One setting; the texts are valid during the call. `code` is as it was set with (libvardex.h). A result
// other than 0 ends the listing. The callback may not call the library.
typedef int (*vardex_setting_callback)(void *context, const char *group, const char *key, int code,
                                       const char *value);
// Every setting of a layer, by group and key. 0, or -1 when the layer cannot be read (logged). A store that
// is not there yet is empty. A layer that is damaged gives what can still be read of it, then -1.
int vardex_list(const char *layer, vardex_setting_callback each, void *context);

// One registration of a process that lives. A result other than 0 ends the listing.
typedef int (*vardex_subscriber_callback)(void *context, const char *group, const char *key, pid_t pid,
                                          const char *program);
// Who is registered in a layer; by group, key and process. A null `key` means all of them; a null `group`
// "default", or with a null key all of them. 0, or -1 when the layer cannot be read (logged).
int vardex_subscribers(const char *layer, const char *group, const char *key, vardex_subscriber_callback each,
                       void *context);

// Empties the "mem" layer, as a boot does. Who is registered stays so, and is told of what is set from now
// on. 0, or -1 (logged).
int vardex_empty_mem(void);

#ifdef __cplusplus
}
#endif
#endif
