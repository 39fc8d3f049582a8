// Texts of the motor's mailbox, which every process of the machine may write.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "motor_mailbox.h"
#include "motor_request.h"

namespace
{

void require(bool condition)
{
    if (!condition)
        abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    // As much room as the mailbox has and no byte more, so that a sanitizer sees what reads on.
    char *text = static_cast<char *>(malloc(MOTOR_MAILBOX_TEXT_BYTES));
    memset(text, 0, MOTOR_MAILBOX_TEXT_BYTES);
    std::copy_n(bytes, std::min<size_t>(size, MOTOR_MAILBOX_TEXT_BYTES), text);
    motor_request request;
    const bool good = motor_request_parse(text, MOTOR_MAILBOX_TEXT_BYTES, &request);
    if (good) {
        require(abs(request.h) <= MOTOR_REQUEST_DEGREES_MAX && abs(request.v) <= MOTOR_REQUEST_DEGREES_MAX);
        // Written anew it means the same.
        char again[64];
        motor_request second;
        snprintf(again, sizeof again, "[%d,%d,%lld]", request.h, request.v,
                 static_cast<long long>(request.sequence));
        require(motor_request_parse(again, sizeof again, &second));
        require(second.h == request.h && second.v == request.v && second.sequence == request.sequence);
    }
    free(text);
    return 0;
}
