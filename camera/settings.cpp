// Which settings are put into the store, and when.
#include "settings.h"

#include <algorithm>
#include <ev.h>
#include <stdint.h>
#include <string.h>
#include <sys/types.h>

#include "desk.h"
#include "libvardex.h"
#include "naro_util.h"
#include "setting_keys.h"
#include "vardex_admin.h"

namespace
{

const double LOOK_S = 0.02;              // how often the daemon is looked for in its first second
const double LOOK_LATER_S = 1.;          // and after that
const double TRY_AGAIN_S = 0.5;          // a store that refused
const char LAST_KEY[] = "fav_area_rect"; // the daemon follows everything when it follows this

enum stage {
    NOBODY,    // no client has come since the last daemon was served
    STARTING,  // one has; it does not follow its settings yet
    FOLLOWING, // it does: values are set
};

struct {
    struct ev_loop *loop;
    settings_wanted wanted;
    void *store;
    ev_timer look;
    stage at;
    pid_t served;      // the daemon that was served last; 0: none yet
    pid_t pid;         // FOLLOWING: whom
    size_t next;       // FOLLOWING: the value to set next; the number of values: power
    uint64_t since_ms; // monotonic: of this stage
    bool told;         // on_ready was called for this start
    bool trouble_told; // that the store refuses
} desk;

void ready(void)
{
    if (desk.told)
        return;
    desk.told = true;
    if (desk.wanted.on_ready)
        desk.wanted.on_ready();
}

void look_after(double seconds)
{
    ev_timer_stop(desk.loop, &desk.look);
    ev_timer_set(&desk.look, seconds, 0.);
    ev_timer_start(desk.loop, &desk.look);
}

void enter(stage at)
{
    desk.at = at;
    desk.since_ms = naro_clock_monotonic_ms();
}

uint64_t waited_ms(void)
{
    return naro_clock_monotonic_ms() - desk.since_ms;
}

bool set(const std::string &key, const std::string &value)
{
    return libvardex_set_value(desk.store, setting_layer(key.c_str()), nullptr, key.c_str(), VARDEX_TEXT,
                               value.c_str(), 0, 0, 0, 0) == 1;
}

// A process under the daemon's name that follows its settings, rather one that was not served yet; 0: none.
pid_t find_daemon(void)
{
    pid_t found = 0;
    vardex_subscribers(
        setting_layer(LAST_KEY), nullptr, LAST_KEY,
        [](void *context, const char *, const char *, pid_t pid, const char *program) {
            pid_t *daemon = static_cast<pid_t *>(context);
            if (strcmp(program, desk.wanted.program) == 0 && (*daemon == 0 || pid != desk.served))
                *daemon = pid;
            return 0;
        },
        &found);
    return found;
}

void look_for_daemon(void)
{
    const pid_t pid = find_daemon();
    if (pid != 0 && pid == desk.served) { // the same one has connected again
        enter(NOBODY);
        ready();
        return;
    }
    if (pid != 0) {
        enter(FOLLOWING);
        desk.pid = pid;
        desk.next = 0;
        desk.trouble_told = false;
        look_after(0.);
        return;
    }
    const bool late = waited_ms() >= SETTINGS_PATIENCE_MS;
    if (late)
        ready();
    look_after(late ? LOOK_LATER_S : LOOK_S);
}

void set_the_rest(void)
{
    const auto &values = desk.wanted.values;
    for (; desk.next <= values.size(); desk.next++) {
        const bool power = desk.next == values.size();
        if (power ? set("power", "on") : set(values[desk.next].first, values[desk.next].second))
            continue;
        if (waited_ms() >= SETTINGS_STORE_PATIENCE_MS && !desk.trouble_told) {
            desk_say("the settings store does not take \"%s\"; going on without",
                     power ? "power" : values[desk.next].first.c_str());
            desk.trouble_told = true;
            ready();
        }
        look_after(TRY_AGAIN_S);
        return;
    }
    desk.served = desk.pid;
    enter(NOBODY);
    ready();
}

void on_look(struct ev_loop *, ev_timer *, int)
{
    if (desk.at == STARTING)
        look_for_daemon();
    else if (desk.at == FOLLOWING)
        set_the_rest();
}

} // namespace

int settings_start(struct ev_loop *loop, const settings_wanted *wanted)
{
    for (const auto &[key, value] : wanted->values) {
        if (!setting_layer(key.c_str())) {
            desk_say("\"%s\" is no setting of a camera", key.c_str());
            return -1;
        }
    }
    desk.loop = loop;
    desk.wanted = *wanted;
    desk.at = NOBODY;
    desk.served = 0;
    ev_init(&desk.look, on_look);
    vardex_empty_mem();
    desk.store = libvardex_config_open(0);
    if (!desk.store)
        desk_say("no settings: the store cannot be used");
    else
        for (const auto &[key, value] : wanted->values)
            set(key, value);
    return 0;
}

void settings_stop(void)
{
    if (desk.loop)
        ev_timer_stop(desk.loop, &desk.look);
    libvardex_close(desk.store);
    desk.store = nullptr;
    desk.loop = nullptr;
    desk.wanted.values.clear();
    desk.wanted.values.shrink_to_fit();
}

void settings_put(const char *key, const char *value)
{
    auto &values = desk.wanted.values;
    const auto wanted =
        std::find_if(values.begin(), values.end(), [key](const auto &pair) { return pair.first == key; });
    if (wanted != values.end())
        wanted->second = value;
    else
        values.emplace_back(key, value);
    if (desk.store)
        set(key, value);
}

void settings_on_client(void)
{
    if (!desk.loop)
        return;
    desk.told = false;
    if (!desk.store) {
        ready();
        return;
    }
    enter(STARTING);
    look_after(0.);
}
