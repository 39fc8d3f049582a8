// The configuration client: a camera's settings, read, written and followed.
//
// A setting is a text under a layer, a group and a key. Layers: "mem" (lost at reboot) and "nvram" (lasts). A
// null group means "default". Whoever has registered for a key is told of every set of it, by whatever
// process, in the order of the sets; also when it set the value itself, and also when the value did not
// change.
//
// A handle may be used by any thread at any time, with two rules: callbacks run on the thread that pumps
// (calls libvardex_xhandle_response and libvardex_timeout_process; when two pump, the second one's call
// returns at once), and nobody may still be using a handle that is closed. No call is a cancellation point,
// not even by what a callback does. No lock is held while a callback runs: it may call everything here,
// pumping (which does nothing then) and closing its own handle included. Not after a fork: a child that has
// inherited an open client is refused, with a log line; it opens its own after exec.
//
// Text is any bytes but 0. Bounds: layer, group and key at most 127 bytes and not empty, a value at most
// 65,535 bytes; a layer holds about 16 MB in all.
//
// Host: the layers are the files "/run/naro/vardex-mem.db" and "/mnt/nvram/naro/vardex.db" under the root;
// docs/ settings.md tells how they are kept. There is no server process. Trouble with a file (locked, full,
// read-only, corrupt, gone) makes calls on that layer fail with a log line, the same line at most once in ten
// seconds; nothing is ever written over that is not ours, and each call tries again.
#ifndef LIBVARDEX_H
#define LIBVARDEX_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { VARDEX_NAME_MAX = 127, VARDEX_VALUE_MAX = 65535 };
// What a value is handed over as: a text ending in 0, an int32_t, a uint64_t.
enum { VARDEX_TEXT = 1, VARDEX_INT32 = 2, VARDEX_UINT64 = 5 };

// A client; null on failure (logged). `zero` is 0.
void *libvardex_config_open(int zero);
// Ends every registration and frees; null is fine. From a callback it is done when the pumping call ends.
void libvardex_close(void *h);
// Forgets notifications left over from before. Called once, before registering.
void libvardex_handle_other(void *h);

// What a registration is told by. `response` is the library's and valid during the call (null for a timeout);
// `context` is the handle. The result is ignored.
typedef int (*libvardex_callback)(void *response, void *context);

// Follows a key from now on; registering delivers nothing. 1 = done, and *id (never 0) names the registration
// to libvardex_unregister_notification; 0 = refused (a bad argument; logged) and *id is left alone.
// Registering for one key twice delivers twice. A registration that the store cannot take now is done too: it
// is tried again while the handle is pumped, and its timeout callback (null is fine) tells, once, when that
// takes longer than 3 s. The last two arguments are 0.
uint8_t libvardex_register_notification(void *h, const char *layer, const char *group, const char *key,
                                        uint64_t *id, libvardex_callback change_cb,
                                        libvardex_callback timeout_cb, int zero_1, int zero_2);
// Ends a registration: 1 only if layer, group, key and id all are those of one. After that no callback of it
// begins; one that is running on another thread may still run. The last four arguments are 0.
uint8_t libvardex_unregister_notification(void *h, const char *layer, const char *group, const char *key,
                                          uint64_t id, int zero_1, int zero_2, int zero_3, int zero_4);

// A descriptor to poll for reading (POLLIN): the same for the handle's life, level triggered, not to be read.
// -1 for a null handle.
int libvardex_client_fd(void *h);
// Tells registrations what was set, oldest first; some tens of them in a call, and the descriptor stays
// readable while there are more. When more than 1,024 wait, older values of a key that was set again since
// are left out (those of "alarm_event" never are), with one log line. 1, also for trouble that heals by
// itself; 0 only when the handle is of no more use.
uint8_t libvardex_xhandle_response(void *h);
// To be called about once a second while there is nothing to pump: fires the timeout callbacks of
// registrations that are not confirmed within 3 s, tries those again, repairs what others have removed, and
// makes the descriptor readable where a wake-up has got lost (a writer that was killed between storing and
// telling).
void libvardex_timeout_process(void *h);

// Sets. `value` points to what `code` says, at any alignment. 1 = stored, and everyone registered will be
// told (nvram: it also survives a power cut from now on); 0 = not stored (logged). Waits at most 200 ms for a
// busy store, and beyond that only for the disk.
uint8_t libvardex_set_value(void *h, const char *layer, const char *group, const char *key, int code,
                            const void *value, int zero_1, int zero_2, int zero_3, int zero_4);
// The value, as text (numbers in decimal), malloc'd and the caller's to free; null when there is none or it
// cannot be read (logged). `zero` is 0. Needs no handle, but is quicker while the process has one open.
char *libvardex_config_get(int zero, const char *layer, const char *group, const char *key);

// ---- What a callback was told -----------------------------------------------------------------------------
// All of these take null, and may be called any number of times for one response.
typedef struct xpair {
    char *key;
    char *value;
} xpair;
typedef struct xdata xdata;

// The key and value of a response, the caller's to give back with xpair_basefree; *status (null is fine)
// becomes 0. For a null response: null, and *status -1. The pair or a member may be null on other platforms.
xpair *xresponse_parse(void *response, int *status);
void xpair_basefree(xpair *pair);

// The value alone, as the reply to a get has it; give back with xdata_free. Null for a null response.
xdata *xcontrol_get_response(void *response);
// Its text, malloc'd and the caller's to free; null when there is none.
char *xdata_value_as_char(xdata *data);
void xdata_free(xdata *data);

#ifdef __cplusplus
}
#endif
#endif
