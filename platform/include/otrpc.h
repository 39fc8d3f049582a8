// Remote procedure calls: how other processes of the camera call into this one.
//
// A program exports a table under the name `otrpc_table` in its dynamic symbols. The platform looks it up by
// that name in the running program and calls handlers as requests come. Handlers run on a thread of the
// platform's, one at a time; what their three arguments are is not settled, and the host hands over nulls.
//
// Host: an endpoint is a socket of packets (SOCK_SEQPACKET) at OTRPC_PATH under the root, for processes of
// the same user. A request is a packet with a method's name, and nothing else: 1 to OTRPC_METHOD_MAX of the
// characters A-Z a-z 0-9 _, which may be followed by one line end or one zero byte. The answer is a packet
// with a line:
//   "result N\n"            the handler was called and has returned N
//   "unknown method\n"      the table has no such row
//   "malformed request\n"   the packet is no name
// A connection may carry many requests; one answer follows each. A program links the host library and nothing
// else is needed: the library's link options put `otrpc_table` into its dynamic symbols.
#ifndef OTRPC_H
#define OTRPC_H

#ifdef __cplusplus
extern "C" {
#endif

#define OTRPC_PATH "/run/naro/otrpc"
enum { OTRPC_METHOD_MAX = 63 };

// The table ends with a row of nulls.
struct otrpc_row {
    const char *method;
    int (*handler)(void *, void *, void *);
    void *zero[2]; // null
};

// Opens the endpoint and starts its thread. 0, also when it is open; -1 with a line when it cannot be
// (another living program has it, no folder, no thread) or when the program has no table. What a program left
// that was killed is taken over. Where a camera's own service finds the table without being asked this does
// nothing. Not together with another start or stop.
int otrpc_start(void);
// Closes the endpoint and waits for its thread: when it returns no handler runs any more. Nothing to do where
// it is not open. Not in a handler. Not together with another start or stop.
void otrpc_stop(void);

// Calls `method` of whichever program has the endpoint, and waits for the answer, at most `timeout_ms`. 0 and
// what the handler has returned in *result; or a negative errno: -ECONNREFUSED or -ENOENT (nobody is there),
// -ENOSYS (unknown method), -EINVAL (no method's name), -ETIMEDOUT, -EPROTO (no answer that can be
// understood), or another. Any thread.
int otrpc_call(const char *method, int timeout_ms, int *result);

#ifdef __cplusplus
}
#endif
#endif
