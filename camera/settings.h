// The settings that the camera puts into the store: those that it was asked for, and "power", which goes on
// after every start of the daemon.
//
// At the camera's start, which is a boot, the mem layer is emptied and the settings asked for are stored.
// When the daemon has started and follows its settings they are set once more, in their order, so that each
// acts as a change does; "power" = "on" is the last. Then the daemon is ready: the settings have been
// acknowledged, and frames may go.
//
// Who subscribes to the last key that the daemon subscribes to, under the daemon's name, is the daemon. One
// that follows no settings (another build, a stand-in of a test) is waited for SETTINGS_PATIENCE_MS and then
// taken as ready; should it follow them later, it is served then. A store that refuses makes nobody wait
// longer than SETTINGS_STORE_PATIENCE_MS; it is tried again until it takes everything.
#ifndef SETTINGS_H
#define SETTINGS_H

#include <string>
#include <utility>
#include <vector>

struct ev_loop;

enum {
    SETTINGS_PATIENCE_MS = 1000,       // from a client of the command socket to its subscriptions
    SETTINGS_STORE_PATIENCE_MS = 3000, // from its subscriptions to the last acknowledged set
};

struct settings_wanted {
    std::vector<std::pair<std::string, std::string>>
        values;             // key and value, in the order in which they are set
    const char *program;    // the daemon's name, as the store lists it
    void (*on_ready)(void); // see settings_on_client; null: nobody asks
};

// Empties the mem layer and stores the values. 0, or -1 after saying why: a key that is no setting of a
// camera. Trouble with the store is told and is no failure. Before the daemon is started; event loop only, as
// are all of these.
int settings_start(struct ev_loop *loop, const settings_wanted *wanted);
void settings_stop(void);
// The camera itself has something to say: stored at once, and again at each start of the daemon, in the place
// of the first value that was wanted of this key, else after the others.
void settings_put(const char *key, const char *value);
// Somebody has connected to the command socket: the daemon has started, perhaps. Answered by one on_ready, at
// once where it is a daemon that has had its settings (it lost its connection), and by one in all if several
// come before that.
void settings_on_client(void);

#endif
