// The SD card of a desk camera.
#include "card.h"

#include <errno.h>
#include <ev.h>
#include <fcntl.h>
#include <filesystem>
#include <sched.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "desk.h"
#include "naro_util.h"
#include "otrpc.h"
#include "shbfev.h"

namespace
{

const char HERE[] = "../media/card", NOWHERE[] = "../media/no-card"; // what the link says
const char RECORDS[] = "/media/card/ZEDRA_RECORD_MOTION";
const char FILLER[] = "/media/card/filler";
const double LOOK_S = 0.05; // how often the lease is looked after while the card is slow
const int EJECT_MS = 1000;  // how long a daemon may take to answer

struct {
    struct ev_loop *loop;
    card_settings settings;
    void *channel;
    bool own_file_system; // a size was given
    bool in, full, locked;
    bool noticed; // what the camera has said of `in`
    int slow_ms;
    int lease;              // -1: none held
    std::string lease_file; // on what
    ev_timer notice, look, wait;
    ev_signal opened;
} card;

std::string rooted(const char *path)
{
    return std::string(naro_root()) + path;
}

std::string cannot(const char *what)
{
    return std::string("cannot: ") + what;
}

std::string cannot_for(int error)
{
    return cannot(strerror(error));
}

// ---- The slot --------------------------------------------------------------------------------------------

// Whatever was there, from one moment to the next.
int link_to(const char *where)
{
    const std::string next = rooted("/mnt/sdcard.next");
    unlink(next.c_str());
    return symlink(where, next.c_str()) == 0 && rename(next.c_str(), rooted("/mnt/sdcard").c_str()) == 0 ? 0
                                                                                                         : -1;
}

void tell(bool in)
{
    ev_timer_stop(card.loop, &card.notice);
    card.noticed = in;
    if (card.settings.on_change)
        card.settings.on_change(card_setting());
}

void on_notice(struct ev_loop *, ev_timer *, int)
{
    tell(card.in);
}

// Told in any case: the daemon may have been asked to write nothing more.
std::string insert()
{
    if (link_to(HERE) != 0)
        return cannot_for(errno);
    card.in = true;
    tell(true);
    return "";
}

std::string pull()
{
    if (link_to(NOWHERE) != 0)
        return cannot_for(errno);
    card.in = false;
    ev_timer_stop(card.loop, &card.notice);
    ev_timer_set(&card.notice, CARD_NOTICE_MS / 1000., 0.);
    ev_timer_start(card.loop, &card.notice);
    return "";
}

std::string eject()
{
    int result;
    const int error = otrpc_call("sd_umount", EJECT_MS, &result);
    // A daemon that is not there writes nothing.
    if (error != 0 && error != -ENOENT && error != -ECONNREFUSED)
        return cannot(strerror(-error));
    const std::string answer = pull();
    if (answer.empty())
        tell(false); // it was the camera's own doing
    return answer;
}

// ---- A file system of its own ----------------------------------------------------------------------------

bool write_text(const char *path, const std::string &text)
{
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    const bool done = fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (fd >= 0)
        close(fd);
    return done;
}

// Mounts that only this process and its children see.
int own_mounts()
{
    const std::string uid = std::to_string(geteuid()), gid = std::to_string(getegid());
    if (unshare(CLONE_NEWNS) != 0) {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
            return -1;
        write_text("/proc/self/setgroups", "deny");
        if (!write_text("/proc/self/uid_map", uid + " " + uid + " 1") ||
            !write_text("/proc/self/gid_map", gid + " " + gid + " 1"))
            return -1;
    }
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
}

int mount_card(unsigned long bytes)
{
    const std::string options = "mode=0755,size=" + std::to_string(bytes);
    return own_mounts() == 0 && mount("card", rooted("/media/card").c_str(), "tmpfs", MS_NOSUID | MS_NODEV,
                                      options.c_str()) == 0
               ? 0
               : -1;
}

std::string fill()
{
    const int fd = open(rooted(FILLER).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd < 0)
        return cannot_for(errno);
    static const char block[4096] = {};
    ssize_t done;
    while ((done = write(fd, block, sizeof block)) > 0)
        ;
    const int error = done < 0 ? errno : ENOSPC;
    close(fd);
    if (error != ENOSPC)
        return cannot_for(error);
    card.full = true;
    return "";
}

std::string make_room()
{
    if (unlink(rooted(FILLER).c_str()) != 0 && errno != ENOENT)
        return cannot_for(errno);
    card.full = false;
    return "";
}

std::string lock(bool on)
{
    const unsigned long flags = MS_REMOUNT | MS_NOSUID | MS_NODEV | (on ? MS_RDONLY : 0);
    if (mount("card", rooted("/media/card").c_str(), "tmpfs", flags, nullptr) != 0)
        return cannot_for(errno);
    card.locked = on;
    return "";
}

// ---- A slow card -----------------------------------------------------------------------------------------

// The file of the newest hour; "" when there is none.
std::string newest_file()
{
    std::error_code error;
    std::string newest;
    for (std::filesystem::directory_iterator entry(rooted(RECORDS), error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string file = entry->path() / "motion_record_msg";
        if (file > newest && access(file.c_str(), F_OK) == 0)
            newest = file;
    }
    return newest;
}

void let_go()
{
    if (card.lease >= 0)
        close(card.lease);
    card.lease = -1;
}

void on_look(struct ev_loop *, ev_timer *, int)
{
    if (ev_is_active(&card.wait))
        return; // somebody waits for it
    const std::string file = newest_file();
    if (card.lease >= 0 && file == card.lease_file)
        return;
    let_go();
    if (file.empty())
        return;
    // Without waiting, and without a lease while somebody has the file open: the next look tries again.
    card.lease = open(file.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK);
    card.lease_file = file;
    if (card.lease >= 0 && fcntl(card.lease, F_SETLEASE, F_WRLCK) != 0)
        let_go();
}

void on_opened(struct ev_loop *, ev_signal *, int)
{
    if (card.lease < 0 || ev_is_active(&card.wait))
        return;
    ev_timer_set(&card.wait, card.slow_ms / 1000., 0.);
    ev_timer_start(card.loop, &card.wait);
}

void on_waited(struct ev_loop *, ev_timer *, int)
{
    let_go();
}

std::string slow(int ms)
{
    card.slow_ms = ms;
    ev_timer_stop(card.loop, &card.look);
    ev_timer_stop(card.loop, &card.wait);
    let_go();
    if (ms > 0) {
        ev_timer_set(&card.look, 0., LOOK_S);
        ev_timer_start(card.loop, &card.look);
    }
    return "";
}

// ---- Commands --------------------------------------------------------------------------------------------

std::string state()
{
    std::string text = card.in ? "in" : "out";
    if (card.own_file_system)
        text += ", of its own size";
    if (card.full)
        text += ", full";
    if (card.locked)
        text += ", locked";
    if (card.slow_ms > 0)
        text += ", slow: " + std::to_string(card.slow_ms) + " ms";
    return text + "; sdcard_rw " + card_setting();
}

std::string slow_command(const std::string &milliseconds)
{
    char *end;
    errno = 0;
    const long ms = strtol(milliseconds.c_str(), &end, 10);
    if (end == milliseconds.c_str() || *end || errno != 0 || ms < 1 || ms > CARD_SLOW_MAX_MS)
        return cannot("slow wants milliseconds, 1 to 40000");
    return slow(static_cast<int>(ms));
}

std::string obey(const std::string &command)
{
    const bool needs_size = command == "fill" || command == "lock";
    if (needs_size && !card.own_file_system)
        return cannot("that takes a card of its own size: naro_camera --card 64K");
    if (card.settings.what == std::string("none") && command != "state")
        return cannot("the camera was started without a card");
    if (command == "state")
        return "";
    if (command == "insert")
        return insert();
    if (command == "pull")
        return pull();
    if (command == "eject")
        return eject();
    if (command == "fill")
        return fill();
    if (command == "free")
        return make_room();
    if (command == "lock")
        return lock(true);
    if (command == "unlock")
        return card.locked ? lock(false) : "";
    if (command.compare(0, 5, "slow ") == 0)
        return slow_command(command.substr(5));
    if (command == "fast")
        return slow(0);
    return cannot("no such command");
}

int on_message(void *, const void *bytes, size_t length)
{
    const char *text = static_cast<const char *>(bytes);
    if (length > 0 && text[length - 1] == '\0')
        length--;
    const std::string answer =
        length <= 100 ? card_command(std::string(text, length)) : cannot("no such command");
    shbfev_brd_broadcast_message(card.channel, answer.c_str(), answer.size() + 1);
    return 0;
}

// ---- Start -----------------------------------------------------------------------------------------------

int make_place()
{
    if (dir_make_parent("/media/card/x", 0755) != 0 || dir_make_parent("/mnt/x", 0755) != 0)
        return -1;
    // A folder that somebody has put there is the card.
    const std::string slot = rooted("/mnt/sdcard");
    struct stat status;
    if (lstat(slot.c_str(), &status) == 0 && !S_ISLNK(status.st_mode))
        return rename(slot.c_str(), rooted("/media/card").c_str());
    return 0;
}

void listen_for_commands()
{
    card.channel = shbfev_brd_create(CARD_PATH);
    if (card.channel && shbfev_brd_on_message(card.channel, on_message, nullptr) == 0 &&
        shbfev_brd_start(card.loop, card.channel) >= 0)
        return;
    desk_say("%s cannot be opened; naro-card will not work", CARD_PATH);
    shbfev_brd_destroy(card.channel);
    card.channel = nullptr;
}

} // namespace

unsigned long card_size(const char *text)
{
    char *end;
    errno = 0;
    const unsigned long number = strtoul(text, &end, 10);
    if (end == text || text[0] < '0' || text[0] > '9' || errno != 0 || number < 1 || number > 1024 * 1024)
        return 0;
    if (strcmp(end, "K") == 0)
        return number * 1024;
    return strcmp(end, "M") == 0 && number <= 1024 ? number * 1024 * 1024 : 0;
}

const char *card_setting(void)
{
    return card.noticed ? "rdwr" : "none";
}

std::string card_command(const std::string &command)
{
    const std::string trouble = obey(command);
    return trouble.empty() ? state() : trouble;
}

int card_start(struct ev_loop *loop, const card_settings *settings)
{
    const std::string what = settings->what;
    const unsigned long bytes = card_size(settings->what);
    card.loop = loop;
    card.settings = *settings;
    card.own_file_system = bytes > 0;
    card.in = card.noticed = what != "none";
    card.full = card.locked = false;
    card.slow_ms = 0;
    card.lease = -1;
    ev_init(&card.notice, on_notice);
    ev_init(&card.look, on_look);
    ev_init(&card.wait, on_waited);
    ev_signal_init(&card.opened, on_opened, SIGIO);
    if (bytes == 0 && what != "none" && what != "folder") {
        desk_say("--card wants folder, none or a size such as 64K or 4M, not \"%s\"", settings->what);
        return -1;
    }
    if (make_place() != 0 || link_to(card.in ? HERE : NOWHERE) != 0) {
        desk_say("no SD card at %s/mnt/sdcard: %s", naro_root(), strerror(errno));
        return -1;
    }
    if (bytes > 0 && mount_card(bytes) != 0) {
        desk_say("--card %s: this machine does not let us have a file system of our own (%s)", settings->what,
                 strerror(errno));
        return -1;
    }
    ev_signal_start(loop, &card.opened);
    ev_unref(loop); // none of these keeps the camera running
    listen_for_commands();
    return 0;
}

void card_stop(void)
{
    if (!card.loop)
        return;
    slow(0);
    ev_timer_stop(card.loop, &card.notice);
    if (ev_is_active(&card.opened)) {
        ev_ref(card.loop);
        ev_signal_stop(card.loop, &card.opened);
    }
    shbfev_brd_destroy(card.channel);
    card.channel = nullptr;
    card.loop = nullptr;
}
