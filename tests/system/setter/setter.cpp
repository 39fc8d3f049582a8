// The settings store in the hands of a system test: sets what it is told on its standard input, a line each, and
// answers each line with "stored" or "refused":
//   text LAYER KEY HEX             the text whose bytes are HEX ("-": none)
//   int LAYER KEY NUMBER           a number of 32 bits
//   uint64 LAYER KEY NUMBER        a number of 64 bits without sign
// Unlike naro-config it sets any bytes and every type, and stays, so that many sets a second are possible.
#include <inttypes.h>
#include <iostream>
#include <sstream>
#include <stdio.h>
#include <string>

#include "libvardex.h"

namespace
{

std::string bytes_of(const std::string &hex)
{
    std::string bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    return bytes;
}

bool obey(void *h, const std::string &line)
{
    std::istringstream words(line);
    std::string type, layer, key, value;
    words >> type >> layer >> key >> value;
    const auto set = [&](int code, const void *what) {
        return libvardex_set_value(h, layer.c_str(), nullptr, key.c_str(), code, what, 0, 0, 0, 0) == 1;
    };
    if (type == "text")
        return set(VARDEX_TEXT, bytes_of(value).c_str());
    if (type == "int") {
        const int32_t number = std::stoi(value);
        return set(VARDEX_INT32, &number);
    }
    if (type == "uint64") {
        const uint64_t number = std::stoull(value);
        return set(VARDEX_UINT64, &number);
    }
    fprintf(stderr, "setter: what is \"%s\"?\n", type.c_str());
    return false;
}

} // namespace

int main()
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    void *h = libvardex_config_open(0);
    if (!h)
        return 1;
    puts("ready");
    for (std::string line; std::getline(std::cin, line);)
        puts(obey(h, line) ? "stored" : "refused");
    libvardex_close(h);
    return 0;
}
