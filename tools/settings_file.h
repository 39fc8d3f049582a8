// The file of exported settings: a line for each, five words with tabs between,
//
//   nvram	default	night_mode	text	5
//
// layer, group, key, type (text, int32, uint64), value. A tab, a line's end, a backslash, other control
// characters and bytes that are not ASCII stand as \t, \n, \\ and \x and two digits, so that any value
// survives any editor. Empty lines and lines that begin with '#' are skipped.
#ifndef SETTINGS_FILE_H
#define SETTINGS_FILE_H

#include <stddef.h>
#include <string>
#include <vector>

struct settings_line {
    std::string layer, group, key;
    int code; // libvardex.h
    std::string value;
};

// `text` in the file's letters.
std::string settings_escape(const std::string &text);
// One line, with its end.
std::string settings_write(const settings_line &line);
// A whole file: false when a line is no such line (its number and what is wrong in *fault).
bool settings_read(const std::string &text, std::vector<settings_line> *lines, std::string *fault);

#endif
