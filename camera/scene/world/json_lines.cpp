// A walk over a JSON text that is known to be well-formed: it only counts lines and keeps the path.
#include "json_lines.h"

namespace
{

enum { DEPTH_MAX = 64 }; // deeper than the JSON library itself goes

struct walker {
    const std::string &text;
    size_t at;
    int line;
    json_lines *lines;
    std::string *error;
    int *error_line;
};

void skip_blanks(walker *w)
{
    while (w->at < w->text.size()) {
        const char c = w->text[w->at];
        if (c != ' ' && c != '\t' && c != '\r' && c != '\n')
            return;
        w->line += c == '\n';
        w->at++;
    }
}

bool take(walker *w, char c)
{
    skip_blanks(w);
    if (w->at >= w->text.size() || w->text[w->at] != c)
        return false;
    w->at++;
    return true;
}

// The raw characters between the quotes; escapes stay as they are, since member names of scenes have none.
bool take_text(walker *w, std::string *result)
{
    if (!take(w, '"'))
        return false;
    const size_t begin = w->at;
    while (w->at < w->text.size() && w->text[w->at] != '"') {
        w->line += w->text[w->at] == '\n';
        w->at += w->text[w->at] == '\\' ? 2 : 1;
    }
    if (w->at >= w->text.size())
        return false;
    *result = w->text.substr(begin, w->at - begin);
    w->at++;
    return true;
}

// What stands where nothing well-formed would: the index ends there, and errors name the line of what is
// around.
bool walk(walker *w, const std::string &path, int depth);

bool walk_object(walker *w, const std::string &path, int depth)
{
    if (take(w, '}'))
        return true;
    do {
        std::string name;
        skip_blanks(w);
        const int line = w->line;
        if (!take_text(w, &name))
            return false;
        const std::string inner = path + "/" + name;
        if (w->lines->count(inner)) {
            *w->error = "\"" + name + "\" is there twice; expected once";
            *w->error_line = line;
            return false;
        }
        if (!take(w, ':') || !walk(w, inner, depth + 1))
            return false;
    } while (take(w, ','));
    return take(w, '}');
}

bool walk_list(walker *w, const std::string &path, int depth)
{
    if (take(w, ']'))
        return true;
    int index = 0;
    do {
        if (!walk(w, path + "/" + std::to_string(index++), depth + 1))
            return false;
    } while (take(w, ','));
    return take(w, ']');
}

bool walk(walker *w, const std::string &path, int depth)
{
    skip_blanks(w);
    if (depth > DEPTH_MAX || w->at >= w->text.size())
        return false;
    (*w->lines)[path] = w->line;
    if (w->text[w->at] == '{') {
        w->at++;
        return walk_object(w, path, depth);
    }
    if (w->text[w->at] == '[') {
        w->at++;
        return walk_list(w, path, depth);
    }
    std::string ignored;
    if (w->text[w->at] == '"')
        return take_text(w, &ignored);
    const size_t end = w->text.find_first_of(",]} \t\r\n", w->at);
    w->at = end == std::string::npos ? w->text.size() : end;
    return true;
}

} // namespace

bool json_lines_read(const std::string &text, json_lines *lines, std::string *error, int *line)
{
    lines->clear();
    error->clear();
    *line = 1;
    walker w = {text, 0, 1, lines, error, line};
    walk(&w, "", 0);
    return error->empty();
}

int json_lines_find(const json_lines &lines, std::string path)
{
    for (;;) {
        const auto found = lines.find(path);
        if (found != lines.end())
            return found->second;
        const size_t slash = path.rfind('/');
        if (slash == std::string::npos)
            return 1;
        path.resize(slash);
    }
}
