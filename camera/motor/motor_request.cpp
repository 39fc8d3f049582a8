// The parser of rotate requests. Anybody on the machine may write the mailbox, so nothing about its bytes is taken for
// granted.
#include "motor_request.h"

#include <string.h>

namespace
{

const int64_t SEQUENCE_MAX = 999999999999999; // more digits than any text of the mailbox has room for

// A number from -most to most at *at, which then stands behind it.
bool number(const char **at, int64_t most, int64_t *value)
{
    const bool negative = **at == '-';
    *at += negative;
    if (**at < '0' || **at > '9')
        return false;
    *value = 0;
    for (; **at >= '0' && **at <= '9'; (*at)++) {
        *value = *value * 10 + (**at - '0');
        if (*value > most)
            return false;
    }
    if (negative)
        *value = -*value;
    return true;
}

bool sign(const char **at, char wanted)
{
    return *(*at)++ == wanted;
}

} // namespace

bool motor_request_parse(const char *text, size_t size, motor_request *request)
{
    int64_t h, v, sequence;
    if (!memchr(text, '\0', size))
        return false;
    if (!sign(&text, '[') || !number(&text, MOTOR_REQUEST_DEGREES_MAX, &h) || !sign(&text, ',') ||
        !number(&text, MOTOR_REQUEST_DEGREES_MAX, &v) || !sign(&text, ',') ||
        !number(&text, SEQUENCE_MAX, &sequence) || !sign(&text, ']') || *text)
        return false;
    *request = {static_cast<int>(h), static_cast<int>(v), sequence};
    return true;
}
