// What a callback can learn from its response: copies, which are its own.
#include "vardex_response.h"

#include <stdlib.h>
#include <string.h>

#include "libvardex.h"

struct xdata {
    char *text;
};

xpair *xresponse_parse(void *response, int *status)
{
    const vardex_response *told = static_cast<const vardex_response *>(response);
    xpair *pair = told ? static_cast<xpair *>(calloc(1, sizeof *pair)) : nullptr;
    if (status)
        *status = pair ? 0 : -1;
    if (!pair)
        return nullptr;
    pair->key = strdup(told->key.c_str());
    pair->value = strdup(told->value.c_str());
    return pair;
}

void xpair_basefree(xpair *pair)
{
    if (!pair)
        return;
    free(pair->key);
    free(pair->value);
    free(pair);
}

xdata *xcontrol_get_response(void *response)
{
    const vardex_response *told = static_cast<const vardex_response *>(response);
    xdata *data = told ? static_cast<xdata *>(calloc(1, sizeof *data)) : nullptr;
    if (data)
        data->text = strdup(told->value.c_str());
    return data;
}

char *xdata_value_as_char(xdata *data)
{
    return data && data->text ? strdup(data->text) : nullptr;
}

void xdata_free(xdata *data)
{
    if (data)
        free(data->text);
    free(data);
}
