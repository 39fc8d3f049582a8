// The file of exported settings.
#include "settings_file.h"

#include <errno.h>
#include <limits.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "libvardex.h"

namespace
{

const struct {
    int code;
    const char *name;
} types[] = {{VARDEX_TEXT, "text"}, {VARDEX_INT32, "int32"}, {VARDEX_UINT64, "uint64"}};

int digit(char c)
{
    const char digits[] = "0123456789abcdef";
    const char *found = c ? strchr(digits, c) : nullptr;
    return found ? static_cast<int>(found - digits) : -1;
}

// Undoes settings_escape; false for a backslash with something else behind it.
bool unescape(const std::string &word, std::string *text)
{
    text->clear();
    for (size_t at = 0; at < word.size(); at++) {
        if (word[at] != '\\') {
            *text += word[at];
            continue;
        }
        const char letter = ++at < word.size() ? word[at] : '\0';
        if (letter == 't') {
            *text += '\t';
        } else if (letter == 'n') {
            *text += '\n';
        } else if (letter == '\\') {
            *text += '\\';
        } else {
            if (letter != 'x' || at + 2 >= word.size())
                return false;
            const int high = digit(word[at + 1]), low = digit(word[at + 2]);
            if (high < 0 || low < 0 || high + low == 0)
                return false;
            *text += static_cast<char>(high * 16 + low);
            at += 2;
        }
    }
    return true;
}

// Whether a number's text is one of its type.
bool is_number(int code, const std::string &text)
{
    char *end;
    errno = 0;
    if (text.empty() || !strchr("-0123456789", text[0]))
        return false;
    if (code == VARDEX_UINT64) {
        (void)strtoull(text.c_str(), &end, 10);
        return text[0] != '-' && *end == '\0' && errno == 0;
    }
    const long long number = strtoll(text.c_str(), &end, 10);
    return *end == '\0' && errno == 0 && number >= INT32_MIN && number <= INT32_MAX;
}

// What is wrong with a line; null for nothing.
const char *read_line(const std::string &text, settings_line *line)
{
    std::vector<std::string> words(1);
    for (const char c : text) {
        if (c == '\0')
            return "there is a zero byte in it";
        if (c == '\t')
            words.emplace_back();
        else
            words.back() += c;
    }
    if (words.size() != 5)
        return "a line is five words with tabs between";
    std::string *const parts[] = {&line->layer, &line->group, &line->key};
    for (size_t n = 0; n < 3; n++)
        if (!unescape(words[n], parts[n]) || parts[n]->empty() || parts[n]->size() > VARDEX_NAME_MAX)
            return "layer, group and key have 1 to 127 bytes";
    if (line->layer != "mem" && line->layer != "nvram")
        return "the layer is mem or nvram";
    line->code = 0;
    for (const auto &type : types)
        if (words[3] == type.name)
            line->code = type.code;
    if (line->code == 0)
        return "the type is text, int32 or uint64";
    if (!unescape(words[4], &line->value))
        return "behind a backslash comes t, n, x and two digits, or another one";
    if (line->value.size() > VARDEX_VALUE_MAX)
        return "the value is too long";
    if (line->code != VARDEX_TEXT && !is_number(line->code, line->value))
        return "the value is no number of that type";
    return nullptr;
}

} // namespace

std::string settings_escape(const std::string &text)
{
    std::string word;
    for (const char c : text) {
        char hex[8];
        const unsigned char byte = static_cast<unsigned char>(c);
        if (c == '\t') {
            word += "\\t";
        } else if (c == '\n') {
            word += "\\n";
        } else if (c == '\\') {
            word += "\\\\";
        } else if (byte < 0x20 || byte >= 0x7f) {
            snprintf(hex, sizeof hex, "\\x%02x", byte);
            word += hex;
        } else {
            word += c;
        }
    }
    return word;
}

std::string settings_write(const settings_line &line)
{
    const char *type = types[0].name;
    for (const auto &known : types)
        if (known.code == line.code)
            type = known.name;
    return settings_escape(line.layer) + '\t' + settings_escape(line.group) + '\t' +
           settings_escape(line.key) + '\t' + type + '\t' + settings_escape(line.value) + '\n';
}

bool settings_read(const std::string &text, std::vector<settings_line> *lines, std::string *fault)
{
    unsigned number = 0;
    for (size_t begin = 0; begin < text.size();) {
        size_t end = text.find('\n', begin);
        if (end == std::string::npos)
            end = text.size();
        const std::string words = text.substr(begin, end - begin);
        begin = end + 1;
        number++;
        if (words.empty() || words[0] == '#')
            continue;
        settings_line line;
        if (const char *wrong = read_line(words, &line)) {
            *fault = "line " + std::to_string(number) + ": " + wrong;
            return false;
        }
        lines->push_back(line);
    }
    return true;
}
