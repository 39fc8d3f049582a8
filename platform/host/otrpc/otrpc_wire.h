// Requests and answers as texts. Any thread.
#ifndef OTRPC_WIRE_H
#define OTRPC_WIRE_H

#include <stddef.h>

#include "otrpc.h"

enum {
    OTRPC_REQUEST_MAX = OTRPC_METHOD_MAX + 1, // bytes of a packet: a name and its end
    OTRPC_ANSWER_MAX = 64,                    // with a zero byte
};

// The method's name in the packet of a request, into `method`: 0, or -1 when it is no name.
int otrpc_read_request(const void *packet, size_t length, char method[OTRPC_METHOD_MAX + 1]);

// The text of an answer; its length.
enum otrpc_outcome { OTRPC_RESULT, OTRPC_UNKNOWN_METHOD, OTRPC_MALFORMED };
size_t otrpc_write_answer(otrpc_outcome outcome, int result, char text[OTRPC_ANSWER_MAX]);

// The packet of an answer: 0 and the result (0 where there is none), or -1 when it is no answer.
int otrpc_read_answer(const void *packet, size_t length, otrpc_outcome *outcome, int *result);

#endif
