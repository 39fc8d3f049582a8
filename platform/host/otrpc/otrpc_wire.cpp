// Requests and answers as texts.
#include "otrpc_wire.h"

#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static const char unknown_method[] = "unknown method\n";
static const char malformed_request[] = "malformed request\n";
static const char result_word[] = "result ";

static bool is_name_character(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

int otrpc_read_request(const void *packet, size_t length, char method[OTRPC_METHOD_MAX + 1])
{
    const char *text = static_cast<const char *>(packet);
    if (length > 0 && (text[length - 1] == '\n' || text[length - 1] == '\0'))
        length--;
    if (length < 1 || length > OTRPC_METHOD_MAX)
        return -1;
    for (size_t i = 0; i < length; i++)
        if (!is_name_character(text[i]))
            return -1;
    memcpy(method, text, length);
    method[length] = '\0';
    return 0;
}

size_t otrpc_write_answer(otrpc_outcome outcome, int result, char text[OTRPC_ANSWER_MAX])
{
    int length;
    if (outcome == OTRPC_RESULT)
        length = snprintf(text, OTRPC_ANSWER_MAX, "%s%d\n", result_word, result);
    else
        length = snprintf(text, OTRPC_ANSWER_MAX, "%s",
                          outcome == OTRPC_UNKNOWN_METHOD ? unknown_method : malformed_request);
    return static_cast<size_t>(length);
}

int otrpc_read_answer(const void *packet, size_t length, otrpc_outcome *outcome, int *result)
{
    char text[OTRPC_ANSWER_MAX];
    if (length < 1 || length >= sizeof text || memchr(packet, 0, length))
        return -1;
    memcpy(text, packet, length);
    text[length] = '\0';
    *result = 0;
    if (strcmp(text, unknown_method) == 0) {
        *outcome = OTRPC_UNKNOWN_METHOD;
        return 0;
    }
    if (strcmp(text, malformed_request) == 0) {
        *outcome = OTRPC_MALFORMED;
        return 0;
    }
    const char *number = text + sizeof result_word - 1;
    if (strncmp(text, result_word, sizeof result_word - 1) != 0 ||
        !(*number == '-' || (*number >= '0' && *number <= '9')))
        return -1;
    char *end;
    errno = 0;
    const long long value = strtoll(number, &end, 10);
    if (end == number || strcmp(end, "\n") != 0 || errno != 0 || value < INT_MIN || value > INT_MAX)
        return -1;
    *outcome = OTRPC_RESULT;
    *result = static_cast<int>(value);
    return 0;
}
