// What a callback is handed.
#ifndef VARDEX_RESPONSE_H
#define VARDEX_RESPONSE_H

#include <string>

struct vardex_response {
    std::string key;
    std::string value;
};

#endif
