// A client's registrations, and its place in each layer's row of sets. With the handle's lock held, all of
// these.
#ifndef VARDEX_HANDLE_H
#define VARDEX_HANDLE_H

#include <pthread.h>
#include <stdint.h>
#include <string>
#include <vector>

#include "libvardex.h"
#include "vardex_mailbox.h"
#include "vardex_response.h"
#include "vardex_store.h"

struct vardex_registration {
    uint64_t id;
    int layer;
    std::string group;
    std::string key;
    libvardex_callback change_cb;
    libvardex_callback timeout_cb;
    bool confirmed;    // the store knows it
    int64_t since;     // sets with higher numbers are told; of a confirmed one
    bool timed_out;    // the timeout callback has had its turn
    uint64_t asked_ms; // when it was made
};

// Where a handle stands in one layer.
struct vardex_reader {
    bool published;   // the store knows the mailbox, as far as we know
    int64_t identity; // of the store in which `seen` counts; valid if `placed`
    bool placed;
    int64_t seen;  // everything up to here has been handed over
    int64_t acked; // and the store knows so up to here
    bool crowded;  // a line has been logged that values are left out
};

struct vardex_handle {
    pthread_mutex_t lock; // protects what follows, but for the constants
    int poll_fd;          // constant: what the client polls; holds the next two
    int more_fd;          // constant: readable while there is more to hand over
    pid_t pid;            // constant: whose it is
    int mailbox_fd;
    char mailbox[VARDEX_MAILBOX_NAME];
    uint64_t last_id;
    std::vector<vardex_registration> registrations;
    vardex_reader readers[VARDEX_LAYERS];
    uint64_t repaired_ms; // when the last look at the handle's own health was
    bool pumping;
    bool closed; // while pumping: to be destroyed after it
};

// A set that is to be told.
struct vardex_news {
    int layer;
    int64_t seq;
    int64_t stamp;
    std::string group;
    vardex_response response;
};

// Tells the store of `layer` who listens to what, and confirms what it has not known yet. False in trouble.
bool vardex_handle_publish(vardex_handle *handle, int layer, unsigned wait_ms);
// Takes everything set so far as told.
void vardex_handle_forget(vardex_handle *handle, int layer);
// Takes the mailbox out of the store.
void vardex_handle_withdraw(vardex_handle *handle, int layer);
// Whether anything is to be told of `layer`.
bool vardex_handle_waits(vardex_handle *handle, int layer);
// What is to be told next, of both layers, in the order of the sets; *more: the look is to be taken again.
std::vector<vardex_news> vardex_handle_news(vardex_handle *handle, bool *more);
// Lets the store know how far the handle is, now and then.
void vardex_handle_acknowledge(vardex_handle *handle);
// Sees to it that the mailbox is found, and that the store knows all registrations.
void vardex_handle_repair(vardex_handle *handle);
// Whether somebody is registered in `layer`.
bool vardex_handle_listens(const vardex_handle *handle, int layer);

#endif
