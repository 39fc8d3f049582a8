// The client: checks what it is handed, keeps handles, and pumps.
//
// What a client polls is an epoll descriptor, so that what lies behind it can be replaced: the mailbox, which
// others knock at, and a counter for what the client has still to hand over.
#include "libvardex.h"

#include <algorithm>
#include <errno.h>
#include <inttypes.h>
#include <new>
#include <stdio.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "naro_util.h"
#include "vardex_changes.h"
#include "vardex_guard.h"
#include "vardex_handle.h"

namespace
{

enum { CONFIRM_MS = 3000, REPAIR_MS = 1000 };
const char default_group[] = "default";

bool is_name(const char *text)
{
    return text && text[0] != '\0' && strnlen(text, VARDEX_NAME_MAX + 1) <= VARDEX_NAME_MAX;
}

// The arguments that name a setting: the layer, or -1 after saying in which call what is wrong.
int check(const char *call, const char *layer, const char **group, const char *key)
{
    if (!*group)
        *group = default_group;
    const int number = vardex_layer_named(layer);
    if (number < 0)
        log_err("[vardex] %s: there is no layer \"%.128s\"\n", call, layer ? layer : "(null)");
    else if (!is_name(*group))
        log_err("[vardex] %s: a group has 1 to %d bytes\n", call, VARDEX_NAME_MAX);
    else if (!is_name(key))
        log_err("[vardex] %s: a key has 1 to %d bytes\n", call, VARDEX_NAME_MAX);
    else
        return number;
    return -1;
}

// The value that `value` points to, as text; null after saying what is wrong. `room` holds a number.
const char *as_text(int code, const void *value, const char *key, char room[24])
{
    int32_t number;
    uint64_t large;
    if (!value) {
        log_err("[vardex] set \"%s\": no value\n", key);
        return nullptr;
    }
    switch (code) {
    case VARDEX_TEXT:
        if (strnlen(static_cast<const char *>(value), VARDEX_VALUE_MAX + 1) <= VARDEX_VALUE_MAX)
            return static_cast<const char *>(value);
        log_err("[vardex] set \"%s\": a value has at most %d bytes\n", key, VARDEX_VALUE_MAX);
        return nullptr;
    case VARDEX_INT32:
        memcpy(&number, value, sizeof number);
        snprintf(room, 24, "%" PRId32, number);
        return room;
    case VARDEX_UINT64:
        memcpy(&large, value, sizeof large);
        snprintf(room, 24, "%" PRIu64, large);
        return room;
    default:
        log_err("[vardex] set \"%s\": there is no type %d of values\n", key, code);
        return nullptr;
    }
}

bool watch(int poll_fd, int fd)
{
    epoll_event event = {};
    event.events = EPOLLIN;
    return fd >= 0 && epoll_ctl(poll_fd, EPOLL_CTL_ADD, fd, &event) == 0;
}

void destroy(vardex_handle *handle)
{
    if (handle->pid == getpid()) {
        for (int layer = 0; layer < VARDEX_LAYERS; layer++)
            vardex_handle_withdraw(handle, layer);
        if (handle->mailbox_fd >= 0)
            vardex_mailbox_destroy(handle->mailbox_fd, handle->mailbox);
        vardex_store_release();
    } else if (handle->mailbox_fd >= 0) {
        close(handle->mailbox_fd); // the rest is the parent's
    }
    if (handle->more_fd >= 0)
        close(handle->more_fd);
    if (handle->poll_fd >= 0)
        close(handle->poll_fd);
    pthread_mutex_destroy(&handle->lock);
    delete handle;
}

void wake_self(vardex_handle *handle)
{
    const uint64_t one = 1;
    const ssize_t written = write(handle->more_fd, &one, sizeof one);
    (void)written; // full is as good as awake
}

// Takes the right to pump; false when another has it, or the handle is of no more use.
bool begin_pump(vardex_handle *handle)
{
    const vardex_locked locked(&handle->lock);
    if (handle->pumping || handle->closed || handle->pid != getpid())
        return false;
    handle->pumping = true;
    return true;
}

void end_pump(vardex_handle *handle)
{
    pthread_mutex_lock(&handle->lock);
    handle->pumping = false;
    const bool closed = handle->closed;
    pthread_mutex_unlock(&handle->lock);
    if (closed)
        destroy(handle);
}

// Registrations that a set is to be told to, by their numbers.
std::vector<uint64_t> addressees(vardex_handle *handle, const vardex_news &news)
{
    std::vector<uint64_t> ids;
    const vardex_locked locked(&handle->lock);
    for (const vardex_registration &registration : handle->registrations)
        if (registration.confirmed && registration.layer == news.layer && registration.since < news.seq &&
            registration.group == news.group && registration.key == news.response.key)
            ids.push_back(registration.id);
    handle->readers[news.layer].seen = news.seq;
    return ids;
}

// A callback of a registration; null when that has ended meanwhile, or never had one.
libvardex_callback callback_of(vardex_handle *handle, uint64_t id, bool timeout)
{
    const vardex_locked locked(&handle->lock);
    if (handle->closed)
        return nullptr;
    for (const vardex_registration &registration : handle->registrations)
        if (registration.id == id)
            return timeout ? registration.timeout_cb : registration.change_cb;
    return nullptr;
}

void tell(vardex_handle *handle, std::vector<vardex_news> *all)
{
    for (vardex_news &news : *all)
        for (const uint64_t id : addressees(handle, news))
            if (const libvardex_callback change_cb = callback_of(handle, id, false))
                change_cb(&news.response, handle);
}

// Those whose time is up: they are told of it once.
std::vector<uint64_t> take_overdue(vardex_handle *handle)
{
    std::vector<uint64_t> ids;
    const uint64_t now = naro_clock_monotonic_ms();
    for (vardex_registration &registration : handle->registrations) {
        if (registration.confirmed || registration.timed_out || now - registration.asked_ms < CONFIRM_MS)
            continue;
        registration.timed_out = true;
        ids.push_back(registration.id);
    }
    return ids;
}

} // namespace

void *libvardex_config_open(int)
{
    const vardex_no_cancel guard;
    if (!vardex_store_hold())
        return nullptr;
    vardex_handle *handle = new (std::nothrow) vardex_handle();
    if (!handle) {
        vardex_store_release();
        return nullptr;
    }
    pthread_mutex_init(&handle->lock, nullptr);
    handle->pid = getpid();
    handle->poll_fd = epoll_create1(EPOLL_CLOEXEC);
    handle->more_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    handle->mailbox_fd = vardex_mailbox_create(handle->mailbox);
    if (handle->poll_fd >= 0 && watch(handle->poll_fd, handle->more_fd) &&
        watch(handle->poll_fd, handle->mailbox_fd))
        return handle;
    log_err("[vardex] no client can be opened: /run/naro/vardex: %m\n");
    destroy(handle);
    return nullptr;
}

void libvardex_close(void *h)
{
    vardex_handle *handle = static_cast<vardex_handle *>(h);
    if (!handle)
        return;
    const vardex_no_cancel guard;
    pthread_mutex_lock(&handle->lock);
    handle->closed = true;
    handle->registrations.clear();
    const bool pumping = handle->pumping;
    pthread_mutex_unlock(&handle->lock);
    if (!pumping) // else it is in a callback of ours, and end_pump does the rest
        destroy(handle);
}

void libvardex_handle_other(void *h)
{
    vardex_handle *handle = static_cast<vardex_handle *>(h);
    if (!handle)
        return;
    const vardex_no_cancel guard;
    const vardex_locked locked(&handle->lock);
    vardex_mailbox_drain(handle->mailbox_fd);
    uint64_t sink;
    (void)!read(handle->more_fd, &sink, sizeof sink);
    for (int layer = 0; layer < VARDEX_LAYERS; layer++)
        vardex_handle_forget(handle, layer);
}

uint8_t libvardex_register_notification(void *h, const char *layer, const char *group, const char *key,
                                        uint64_t *id, libvardex_callback change_cb,
                                        libvardex_callback timeout_cb, int, int)
{
    vardex_handle *handle = static_cast<vardex_handle *>(h);
    const vardex_no_cancel guard;
    const int number = check("register", layer, &group, key);
    if (number < 0)
        return 0;
    if (!handle || !id || !change_cb) {
        log_err("[vardex] register \"%s\": no %s\n", key, !handle ? "handle" : !id ? "id" : "callback");
        return 0;
    }
    const vardex_locked locked(&handle->lock);
    // One that is waiting shows that the store is in trouble: the next one does not wait for it once more.
    const bool trouble = std::any_of(handle->registrations.begin(), handle->registrations.end(),
                                     [&](const vardex_registration &registration) {
                                         return registration.layer == number && !registration.confirmed;
                                     });
    handle->registrations.push_back({++handle->last_id, number, group, key, change_cb, timeout_cb, false, 0,
                                     false, naro_clock_monotonic_ms()});
    *id = handle->last_id;
    handle->readers[number].published = !trouble && vardex_handle_publish(handle, number, VARDEX_WAIT_MS);
    return 1;
}

uint8_t libvardex_unregister_notification(void *h, const char *layer, const char *group, const char *key,
                                          uint64_t id, int, int, int, int)
{
    vardex_handle *handle = static_cast<vardex_handle *>(h);
    if (!handle || !layer || !key)
        return 0;
    if (!group)
        group = default_group;
    const vardex_no_cancel guard;
    const int number = vardex_layer_named(layer);
    const vardex_locked locked(&handle->lock);
    const auto found = std::find_if(handle->registrations.begin(), handle->registrations.end(),
                                    [&](const vardex_registration &registration) {
                                        return registration.id == id && registration.layer == number &&
                                               registration.group == group && registration.key == key;
                                    });
    if (found == handle->registrations.end())
        return 0;
    handle->registrations.erase(found);
    if (handle->readers[number].published)
        handle->readers[number].published = vardex_handle_publish(handle, number, VARDEX_WAIT_MS);
    return 1;
}

int libvardex_client_fd(void *h)
{
    return h ? static_cast<vardex_handle *>(h)->poll_fd : -1;
}

uint8_t libvardex_xhandle_response(void *h)
{
    vardex_handle *handle = static_cast<vardex_handle *>(h);
    if (!handle)
        return 0;
    const vardex_no_cancel guard;
    if (!begin_pump(handle))
        return handle->pid == getpid() ? 1 : 0;
    std::vector<vardex_news> news;
    bool more = false;
    {
        const vardex_locked locked(&handle->lock);
        // First, so that a knock during the look leads to another one.
        uint64_t sink;
        (void)!read(handle->more_fd, &sink, sizeof sink);
        vardex_mailbox_drain(handle->mailbox_fd);
        if (naro_clock_monotonic_ms() - handle->repaired_ms >= REPAIR_MS)
            vardex_handle_repair(handle);
        news = vardex_handle_news(handle, &more);
    }
    tell(handle, &news);
    {
        const vardex_locked locked(&handle->lock);
        vardex_handle_acknowledge(handle);
        if (more)
            wake_self(handle);
    }
    end_pump(handle);
    return 1;
}

void libvardex_timeout_process(void *h)
{
    vardex_handle *handle = static_cast<vardex_handle *>(h);
    if (!handle)
        return;
    const vardex_no_cancel guard;
    if (!begin_pump(handle))
        return;
    std::vector<uint64_t> overdue;
    {
        const vardex_locked locked(&handle->lock);
        vardex_handle_repair(handle);
        overdue = take_overdue(handle);
        for (int layer = 0; layer < VARDEX_LAYERS; layer++)
            if (vardex_handle_listens(handle, layer) && vardex_handle_waits(handle, layer))
                wake_self(handle);
    }
    for (const uint64_t id : overdue)
        if (const libvardex_callback timeout_cb = callback_of(handle, id, true))
            timeout_cb(nullptr, handle);
    end_pump(handle);
}

uint8_t libvardex_set_value(void *h, const char *layer, const char *group, const char *key, int code,
                            const void *value, int, int, int, int)
{
    const vardex_no_cancel guard;
    char room[24];
    const int number = check("set", layer, &group, key);
    if (number < 0)
        return 0;
    const char *text = as_text(code, value, key, room);
    if (!text)
        return 0;
    if (!h) {
        log_err("[vardex] set \"%s\": no handle\n", key);
        return 0;
    }
    return vardex_change_set(number, group, key, code, text) ? 1 : 0;
}

char *libvardex_config_get(int, const char *layer, const char *group, const char *key)
{
    const vardex_no_cancel guard;
    const int number = check("get", layer, &group, key);
    if (number < 0 || !vardex_store_hold())
        return nullptr;
    char *text = vardex_change_get(number, group, key);
    vardex_store_release();
    return text;
}
