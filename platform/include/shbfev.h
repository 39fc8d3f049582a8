// Named channels on the event loop: one broadcaster, many receivers, whole messages.
//
// A channel's name is a path ("/run/md_event"), under the root. Messages keep their borders and their order;
// one is at most 16 MB. The transport reconnects beneath a receiver that stays registered: a broadcaster that
// starts later, or again, is found within 200 ms without anyone's help. A receiver may lag 64 messages or 4
// MB; past that it loses the newest, which is counted and logged once a second; it never holds up the
// broadcaster or another receiver. Peers of another user are refused unless NARO_SHBF_ALLOW_UID names them (a
// list of numbers with commas, or "any").
#ifndef SHBFEV_H
#define SHBFEV_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

struct ev_loop;

enum { SHBFEV_RCV_CLOSED = 1, SHBFEV_RCV_DATA = 2, SHBFEV_BRD_ERROR = 4 };
enum { SHBFEV_MESSAGE_MAX = 16 * 1024 * 1024, SHBFEV_LAG_MESSAGES = 64, SHBFEV_LAG_BYTES = 4 * 1024 * 1024 };

// ---- Broadcaster
// --------------------------------------------------------------------------------------------- A broadcaster
// for `path` (copied), not yet listening; null on failure. Any thread.
void *shbfev_brd_create(const char *path);
// Event 4 (error): `callback` runs on the event loop with the error number; errno is set while it runs.
// 0 or negative (another event). Before shbfev_brd_start.
int shbfev_brd_register(void *brd, int event, int (*callback)(void *context, int error), void *context);
// What receivers send upstream, on the event loop; `buffer` is valid during the call. Before
// shbfev_brd_start.
int shbfev_brd_on_message(void *brd, int (*callback)(void *context, const void *buffer, size_t length),
                          void *context);
// Listens. Negative on failure; a living broadcaster on the same path makes it fail, a dead one's path is
// taken over. Event loop only.
int shbfev_brd_start(struct ev_loop *loop, void *brd);
// Sends to every receiver connected now, without waiting for any. 0, or negative when nothing could be sent
// at all; having no receiver is not an error. Any thread, also after the event loop has ended (harmless).
int shbfev_brd_broadcast_message(void *brd, const void *buffer, size_t length);
// Receivers connected now. Any thread.
int shbfev_brd_receivers(void *brd);
// Stops listening, closes every receiver, removes the path, frees. No other thread may still use it. Event
// loop only; null is fine.
void shbfev_brd_destroy(void *brd);

// ---- Receiver
// ------------------------------------------------------------------------------------------------ A receiver
// of `path` (copied) on `loop`; null on failure. Event loop only, as are all functions below except where
// said.
void *shbfev_rcv_create(struct ev_loop *loop, const char *path);
// Event 1 (closed): once for each loss of the broadcaster, with a null buffer. Event 2 (data): `buffer` now
// belongs to the callee, who gives it back with shbf_free. 0 or negative (another event). Before
// shbfev_rcv_start.
int shbfev_rcv_register(void *rcv, int event, int (*callback)(void *context, void *buffer), void *context);
// Starts; connects now or as soon as a broadcaster is there. 0 or negative.
int shbfev_rcv_start(void *rcv);
// Sends upstream to the broadcaster; 0, or negative while there is none or it does not read. Any thread.
int shbfev_rcv_send_message(void *rcv, const void *buffer, size_t length);
// 1 while connected. Any thread.
int shbfev_rcv_connected(void *rcv);
// Disconnects and frees. Buffers already handed out stay valid until given back. Null is fine.
void shbfev_rcv_destroy(void *rcv);

#ifdef __cplusplus
}
#endif
#endif
