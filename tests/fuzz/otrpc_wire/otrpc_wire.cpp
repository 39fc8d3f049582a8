// What a peer may send to the endpoint, and what an endpoint may answer: packets of any bytes.
#include "otrpc_wire.h"

#include <limits.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

static void must(bool holds)
{
    if (!holds)
        abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    char method[OTRPC_METHOD_MAX + 1];
    memset(method, '?', sizeof method);
    if (otrpc_read_request(data, size, method) == 0) {
        const size_t length = strnlen(method, sizeof method);
        must(length >= 1 && length <= OTRPC_METHOD_MAX && length <= size &&
             memcmp(method, data, length) == 0);
        must(size - length <= 1);
        char again[OTRPC_METHOD_MAX + 1];
        must(otrpc_read_request(method, length, again) == 0 && strcmp(again, method) == 0);
    }
    otrpc_outcome outcome;
    int result;
    if (otrpc_read_answer(data, size, &outcome, &result) == 0) {
        char text[OTRPC_ANSWER_MAX];
        const size_t length = otrpc_write_answer(outcome, result, text);
        otrpc_outcome outcome_again;
        int result_again;
        must(otrpc_read_answer(text, length, &outcome_again, &result_again) == 0);
        must(outcome_again == outcome && result_again == result);
    }
    return 0;
}
