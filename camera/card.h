// The camera's SD card: what lies at "/mnt/sdcard" under the root, and what can happen to it.
//
// "/mnt/sdcard" is a link to where the card is, "/media/card"; while there is none it leads nowhere, as an
// empty slot does. A card is a folder, which lasts, or a file system of its own in memory, of a size, which
// goes with the camera: only that one can be filled or locked, and is then really full or read-only, for
// everyone. It needs mount and user namespaces, which a machine may refuse; it is seen by the camera, the
// daemon and whoever looks through /proc/<pid>/root.
//
// A slow card makes whoever opens the newest hour's file wait: the camera holds a lease on it, which the
// kernel lets an opener wait for.
#ifndef CARD_H
#define CARD_H

#include <string>

struct ev_loop;

#define CARD_PATH "/run/naro/camera_card" // a channel: commands come, the answer goes to all (docs/camera.md)
enum {
    CARD_NOTICE_MS = 1000,    // from the pulling of a card to the camera's notice of it
    CARD_SLOW_MAX_MS = 40000, // the kernel takes a lease away after 45 s
};

struct card_settings {
    const char *what; // "folder", "none", or a size: "64K", "4M"
    void (*on_change)(
        const char *); // the setting sdcard_rw is to have this value from now on; null: nobody asks
};

// Makes the card and puts it in. 0, or -1 after saying why. After the root was entered, before threads start.
int card_start(struct ev_loop *loop, const card_settings *settings);
void card_stop(void);

// "rdwr" while a card is there, as far as the camera knows; "none" else. All of these: event loop only.
const char *card_setting(void);

// Does what a command says and returns the answer, a line: the card's state, or "cannot: " and why.
//   state       nothing but the answer
//   insert      the card is in the slot
//   pull        it is gone; the camera notices a second later
//   eject       the daemon is asked to write nothing more (sd_umount), and then it is gone
//   fill, free  it is full, and has room again
//   lock, unlock  it is read-only, and writable again; nobody is told
//   slow MS, fast  opening a file takes so long
std::string card_command(const std::string &command);

// "64K" or "4M" in bytes; 0 when it is none. Pure.
unsigned long card_size(const char *text);

#endif
