// Where in a JSON text its values stand, since the JSON library does not tell: for errors that name a line.
#ifndef JSON_LINES_H
#define JSON_LINES_H

#include <map>
#include <string>

// Path of a value ("" the whole, "/actors/2/steps/0/to") -> its line, from 1.
typedef std::map<std::string, int> json_lines;

// Indexes a text that the JSON library has accepted in its strict mode. An object that has a member twice is
// an error, which JSON leaves open and people never mean: false, with `error` and `line`. Any thread.
bool json_lines_read(const std::string &text, json_lines *lines, std::string *error, int *line);
// The line of a path; of the nearest value around it when it is not there itself.
int json_lines_find(const json_lines &lines, std::string path);

#endif
