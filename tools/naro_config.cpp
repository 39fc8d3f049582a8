// naro-config: the camera's settings, read, written and followed by hand.
#include <errno.h>
#include <getopt.h>
#include <poll.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/signalfd.h>
#include <time.h>
#include <unistd.h>
#include <vector>

#include "desk.h"
#include "libvardex.h"
#include "naro_util.h"
#include "setting_formats.h"
#include "setting_keys.h"
#include "settings_file.h"
#include "vardex_admin.h"

namespace
{

const char help[] = "usage: naro-config [options] COMMAND\n"
                    "\n"
                    "The camera's settings. A running daemon follows them at once.\n"
                    "\n"
                    "  get KEY            prints the value; exit status 1 when there is none\n"
                    "  set KEY VALUE      stores it; warns where a known key's value looks odd\n"
                    "  list               all settings\n"
                    "  watch [KEY ...]    prints every set from now on, until Ctrl-C; without keys: of all "
                    "keys that are known or\n"
                    "                     stored\n"
                    "  subscribers [KEY]  which processes follow a key, or any\n"
                    "  export [FILE]      writes all settings, to standard output without FILE\n"
                    "  import FILE        sets what a file of export holds (\"-\": standard input); a file "
                    "with a wrong line changes\n"
                    "                     nothing\n"
                    "  keys               the known keys, their layers and what their values look like\n"
                    "\n"
                    "  --layer mem|nvram  mem is lost when the machine starts again, nvram lasts. A known "
                    "key knows its layer; for\n"
                    "                     others it must be given. list, watch, subscribers, export, import: "
                    "only this layer\n"
                    "  --group NAME       the keys' group (default: \"default\")\n"
                    "  --type TYPE        of a value to set: text (the default), int32 or uint64\n"
                    "  --help             this text\n"
                    "\n"
                    "NARO_ROOT says where the camera lives; without it the place is found by the same rule "
                    "as naro_camera finds\n"
                    "it. Exit status: 0, 1 when something could not be done, 2 for a wrong command.\n";

enum { FINE = 0, FAILED = 1, WRONG = 2 };
const char *const layers[] = {"mem", "nvram"};

struct {
    const char *layer; // null: all, or the key's own
    const char *group = "default";
    const char *type = "text";
} options;

bool is_asked(const char *layer)
{
    return !options.layer || strcmp(options.layer, layer) == 0;
}

// The layer for `key`; null after saying why there is none.
const char *layer_of(const char *key)
{
    const char *own = setting_layer(key);
    if (options.layer && own && strcmp(options.layer, own) != 0)
        desk_say("warning: %s is followed in layer %s, not in %s", key, own, options.layer);
    if (options.layer)
        return options.layer;
    if (!own)
        desk_say("\"%s\" is none of the known keys: say --layer mem or --layer nvram", key);
    return own;
}

int get(int, char **words)
{
    const char *layer = layer_of(words[0]);
    if (!layer)
        return WRONG;
    char *value = libvardex_config_get(0, layer, options.group, words[0]);
    if (value)
        puts(value);
    free(value);
    return value ? FINE : FAILED;
}

bool set_text(void *h, const settings_line &line)
{
    int32_t small;
    uint64_t large;
    const void *value = line.value.c_str();
    if (line.code == VARDEX_INT32) {
        small = static_cast<int32_t>(strtol(line.value.c_str(), nullptr, 10));
        value = &small;
    } else if (line.code == VARDEX_UINT64) {
        large = strtoull(line.value.c_str(), nullptr, 10);
        value = &large;
    }
    return libvardex_set_value(h, line.layer.c_str(), line.group.c_str(), line.key.c_str(), line.code, value,
                               0, 0, 0, 0) == 1;
}

int set_all(const std::vector<settings_line> &lines)
{
    void *h = libvardex_config_open(0);
    if (!h)
        return FAILED;
    int result = FINE;
    for (const settings_line &line : lines)
        if (!set_text(h, line))
            result = FAILED;
    libvardex_close(h);
    return result;
}

int set(int, char **words)
{
    const char *layer = layer_of(words[0]);
    if (!layer)
        return WRONG;
    // By way of a line of a file, so that a number is looked at in one place.
    std::vector<settings_line> lines;
    std::string fault;
    const std::string line = std::string(layer) + '\t' + settings_escape(options.group) + '\t' +
                             settings_escape(words[0]) + '\t' + options.type + '\t' +
                             settings_escape(words[1]) + '\n';
    if (!settings_read(line, &lines, &fault) || lines.empty()) {
        desk_say("cannot be set: %s", fault.empty() ? "no key" : fault.c_str() + sizeof "line 1: " - 1);
        return WRONG;
    }
    if (const char *expected = setting_format_fault(words[0], words[1]))
        desk_say("warning: %s is expected to be %s", words[0], expected);
    return set_all(lines);
}

int print_setting(void *context, const char *group, const char *key, int, const char *value)
{
    const char *layer = static_cast<const char *>(context);
    const bool plain = strcmp(group, "default") == 0;
    printf("%-5s  %-20s  %s\n", layer, (plain ? std::string(key) : std::string(group) + "/" + key).c_str(),
           settings_escape(value).c_str());
    return 0;
}

int list(int, char **)
{
    int result = FINE;
    for (const char *layer : layers)
        if (is_asked(layer) && vardex_list(layer, print_setting, const_cast<char *>(layer)) != 0)
            result = FAILED;
    return result;
}

struct named {
    std::string group, key;
};

// What is followed in one layer.
struct follower {
    const char *layer;
    void *h;
    std::vector<named> keys;
};

int collect_name(void *context, const char *group, const char *key, int, const char *)
{
    static_cast<std::vector<named> *>(context)->push_back({group, key});
    return 0;
}

follower followers[2] = {{"mem", nullptr, {}}, {"nvram", nullptr, {}}};

int print_change(void *response, void *h)
{
    int status;
    xpair *pair = xresponse_parse(response, &status);
    if (status != 0 || !pair)
        return 0;
    timespec now;
    struct tm local;
    clock_gettime(CLOCK_REALTIME, &now);
    localtime_r(&now.tv_sec, &local);
    printf("%02d:%02d:%02d.%03ld  %-5s  %-20s  %s\n", local.tm_hour, local.tm_min, local.tm_sec,
           now.tv_nsec / 1000000, h == followers[0].h ? followers[0].layer : followers[1].layer,
           pair->key ? pair->key : "", settings_escape(pair->value ? pair->value : "").c_str());
    fflush(stdout);
    xpair_basefree(pair);
    return 0;
}

int complain_late(void *, void *)
{
    desk_say("warning: the store does not answer; trying on");
    return 0;
}

bool follow(follower *one)
{
    if (one->keys.empty())
        return true;
    one->h = libvardex_config_open(0);
    if (!one->h)
        return false;
    libvardex_handle_other(one->h);
    for (const named &name : one->keys) {
        uint64_t id;
        if (libvardex_register_notification(one->h, one->layer, name.group.c_str(), name.key.c_str(), &id,
                                            print_change, complain_late, 0, 0) != 1)
            return false;
    }
    return true;
}

// Pumps until a signal ends it.
int watch_on(void)
{
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    sigprocmask(SIG_BLOCK, &ends, nullptr);
    pollfd entries[3] = {{signalfd(-1, &ends, SFD_CLOEXEC), POLLIN, 0},
                         {libvardex_client_fd(followers[0].h), POLLIN, 0},
                         {libvardex_client_fd(followers[1].h), POLLIN, 0}};
    int result = FINE;
    while (result == FINE) {
        const int ready = poll(entries, 3, 1000);
        if (ready < 0)
            result = FAILED;
        if (entries[0].revents)
            break;
        for (int n = 0; n < 2 && result == FINE; n++) {
            if (ready == 0)
                libvardex_timeout_process(followers[n].h);
            else if ((entries[n + 1].revents & POLLIN) && libvardex_xhandle_response(followers[n].h) != 1)
                result = FAILED;
        }
    }
    close(entries[0].fd);
    return result;
}

int watch(int count, char **words)
{
    for (int n = 0; n < count; n++) {
        const char *layer = layer_of(words[n]);
        if (!layer)
            return WRONG;
        followers[strcmp(layer, "nvram") == 0].keys.push_back({options.group, words[n]});
    }
    for (follower &one : followers) {
        if (count > 0 || !is_asked(one.layer))
            continue;
        for (const setting_key &known : setting_keys)
            if (strcmp(known.layer, one.layer) == 0)
                one.keys.push_back({options.group, known.key});
        std::vector<named> stored;
        vardex_list(one.layer, collect_name, &stored);
        for (const named &name : stored) {
            const char *own = setting_layer(name.key.c_str());
            if (name.group != options.group || !own || strcmp(own, one.layer) != 0)
                one.keys.push_back(name);
        }
    }
    const int result = follow(&followers[0]) && follow(&followers[1]) ? watch_on() : FAILED;
    for (follower &one : followers)
        libvardex_close(one.h);
    return result;
}

int print_subscriber(void *context, const char *group, const char *key, pid_t pid, const char *program)
{
    const bool plain = strcmp(group, "default") == 0;
    printf("%-5s  %-20s  %s (process %ld)\n", static_cast<const char *>(context),
           (plain ? std::string(key) : std::string(group) + "/" + key).c_str(), program,
           static_cast<long>(pid));
    return 0;
}

int subscribers(int count, char **words)
{
    int result = FINE;
    for (const char *layer : layers)
        if (is_asked(layer) && vardex_subscribers(layer, options.group, count > 0 ? words[0] : nullptr,
                                                  print_subscriber, const_cast<char *>(layer)) != 0)
            result = FAILED;
    return result;
}

struct output {
    FILE *file;
    const char *layer;
};

int write_setting(void *context, const char *group, const char *key, int code, const char *value)
{
    const output *out = static_cast<const output *>(context);
    fputs(settings_write({out->layer, group, key, code, value}).c_str(), out->file);
    return 0;
}

int export_all(int count, char **words)
{
    FILE *file = count > 0 ? fopen(words[0], "we") : stdout;
    if (!file) {
        desk_say("%s: %s", words[0], strerror(errno));
        return FAILED;
    }
    int result = FINE;
    fputs("# layer, group, key, type, value\n", file);
    for (const char *layer : layers) {
        output out = {file, layer};
        if (is_asked(layer) && vardex_list(layer, write_setting, &out) != 0)
            result = FAILED;
    }
    const bool failed = fflush(file) != 0 || ferror(file);
    if ((count > 0 && fclose(file) != 0) || failed) {
        desk_say("%s: %s", count > 0 ? words[0] : "standard output", strerror(errno));
        return FAILED;
    }
    return result;
}

int import(int, char **words)
{
    enum { FILE_MAX = 64 * 1024 * 1024 };
    FILE *file = strcmp(words[0], "-") == 0 ? stdin : fopen(words[0], "re");
    std::string text, fault;
    char block[4096];
    size_t got;
    while (file && text.size() < FILE_MAX && (got = fread(block, 1, sizeof block, file)) > 0)
        text.append(block, got);
    if (!file || ferror(file) || text.size() >= FILE_MAX) {
        desk_say("%s: %s", words[0], file && !ferror(file) ? "too large" : strerror(errno));
        if (file && file != stdin)
            fclose(file);
        return FAILED;
    }
    if (file != stdin)
        fclose(file);
    std::vector<settings_line> lines, wanted;
    if (!settings_read(text, &lines, &fault)) {
        desk_say("%s: %s; nothing was changed", words[0], fault.c_str());
        return FAILED;
    }
    for (const settings_line &line : lines) {
        if (!is_asked(line.layer.c_str()))
            continue;
        wanted.push_back(line);
        if (const char *expected = setting_format_fault(line.key.c_str(), line.value.c_str()))
            desk_say("warning: %s is expected to be %s", line.key.c_str(), expected);
    }
    return set_all(wanted);
}

int keys(int, char **)
{
    for (const setting_key &known : setting_keys)
        if (is_asked(known.layer))
            printf("%-5s  %-20s  %s\n", known.layer, known.key,
                   setting_format(known.key) ? setting_format(known.key) : "");
    return FINE;
}

const struct {
    const char *name;
    int (*run)(int count, char **words);
    int least, most; // words behind it; -1 = any number
    bool makes;      // the camera's folder may be made for it
} commands[] = {
    {"get", get, 1, 1, false},
    {"set", set, 2, 2, true},
    {"list", list, 0, 0, false},
    {"watch", watch, 0, -1, true},
    {"subscribers", subscribers, 0, 1, false},
    {"export", export_all, 0, 1, false},
    {"import", import, 1, 1, true},
    {"keys", keys, 0, 0, false},
};

enum { LONG_LAYER = 256, LONG_GROUP, LONG_TYPE };
const option long_options[] = {
    {"layer", required_argument, nullptr, LONG_LAYER},
    {"group", required_argument, nullptr, LONG_GROUP},
    {"type", required_argument, nullptr, LONG_TYPE},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

// Reads the options: -1 to go on, or the exit status.
int read_options(int argc, char **argv)
{
    int choice;
    // "+": what follows the command is the command's, "-5" too.
    while ((choice = getopt_long(argc, argv, "+h", long_options, nullptr)) != -1) {
        switch (choice) {
        case LONG_LAYER:
            if (strcmp(optarg, "mem") != 0 && strcmp(optarg, "nvram") != 0) {
                desk_say("--layer wants mem or nvram, not \"%s\"", optarg);
                return WRONG;
            }
            options.layer = optarg;
            break;
        case LONG_GROUP:
            options.group = optarg;
            break;
        case LONG_TYPE:
            options.type = optarg;
            break;
        case 'h':
            fputs(help, stdout);
            return FINE;
        default:
            fputs("naro-config --help tells the options\n", stderr);
            return WRONG;
        }
    }
    return -1;
}

// Options may stand behind the command, too: they are moved before it, up to a word "--". The value of set is
// none.
std::vector<char *> in_order(int argc, char **argv)
{
    std::vector<char *> first(argv, argv + 1), rest;
    for (int n = 1; n < argc; n++) {
        char *word = argv[n];
        const bool last_of_set = rest.size() == 2 && strcmp(rest[0], "set") == 0;
        if (strcmp(word, "--") == 0) {
            rest.insert(rest.end(), argv + n + 1, argv + argc);
            break;
        }
        if (strncmp(word, "--", 2) != 0 || last_of_set) {
            rest.push_back(word);
            continue;
        }
        first.push_back(word);
        const bool wants_word =
            strcmp(word, "--layer") == 0 || strcmp(word, "--group") == 0 || strcmp(word, "--type") == 0;
        if (wants_word && n + 1 < argc)
            first.push_back(argv[++n]);
    }
    static char end[] = "--";
    first.push_back(end);
    first.insert(first.end(), rest.begin(), rest.end());
    first.push_back(nullptr);
    return first;
}

} // namespace

int main(int argc, char **argv)
{
    desk_set_program("naro-config");
    std::vector<char *> words = in_order(argc, argv);
    const int count = static_cast<int>(words.size()) - 1;
    const int chosen = read_options(count, words.data());
    if (chosen >= 0)
        return chosen;
    const char *name = optind < count ? words[static_cast<size_t>(optind)] : "";
    const int behind = count - optind - 1;
    for (const auto &command : commands) {
        if (strcmp(command.name, name) != 0)
            continue;
        if (behind < command.least || (command.most >= 0 && behind > command.most))
            break;
        if (command.run != keys && desk_enter_root(command.makes) != 0)
            return FAILED;
        const int result = command.run(behind, words.data() + optind + 1);
        return fflush(stdout) == 0 ? result : static_cast<int>(FAILED);
    }
    fputs("naro-config --help tells the commands\n", stderr);
    return WRONG;
}
