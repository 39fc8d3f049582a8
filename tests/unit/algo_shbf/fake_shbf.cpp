#include "fake_shbf.h"

#include <stdlib.h>

#include "shbf.h"
#include "shbfev.h"

FakeShbf fake_shbf;

FakeBroadcaster *FakeShbf::broadcaster(const std::string &path)
{
    for (auto it = broadcasters.rbegin(); it != broadcasters.rend(); ++it)
        if ((*it)->path == path)
            return it->get();
    return nullptr;
}

FakeReceiver *FakeShbf::receiver(const std::string &path)
{
    for (auto it = receivers.rbegin(); it != receivers.rend(); ++it)
        if ((*it)->path == path)
            return it->get();
    return nullptr;
}

const void *FakeShbf::deliver(FakeReceiver *receiver, const std::string &message)
{
    // Exactly as large as the message, so that the address sanitizer sees a read past its end.
    void *buffer = malloc(message.size() ? message.size() : 1);
    message.copy(static_cast<char *>(buffer), message.size());
    buffers[buffer] = message.size();
    receiver->on_data(receiver->data_context, buffer);
    return buffer;
}

static int start_result(const std::string &path)
{
    const auto found = fake_shbf.start_results.find(path);
    return found == fake_shbf.start_results.end() ? 0 : found->second;
}

int shbf_rcv_global_init(void)
{
    fake_shbf.calls.push_back("shbf_rcv_global_init");
    return 0;
}

int shbf_rcv_global_exit(void)
{
    fake_shbf.calls.push_back("shbf_rcv_global_exit");
    if (fake_shbf.on_global_exit)
        fake_shbf.on_global_exit();
    return 0;
}

void shbf_free(void *buffer)
{
    fake_shbf.freed.push_back(buffer);
    if (fake_shbf.buffers.erase(buffer))
        free(buffer);
}

size_t shbf_size(const void *buffer)
{
    return fake_shbf.buffers.at(buffer);
}

void *shbfev_brd_create(const char *path)
{
    fake_shbf.calls.push_back(std::string("brd_create ") + path);
    if (fake_shbf.refused.count(path))
        return nullptr;
    fake_shbf.broadcasters.push_back(std::make_unique<FakeBroadcaster>());
    fake_shbf.broadcasters.back()->path = path;
    return fake_shbf.broadcasters.back().get();
}

int shbfev_brd_register(void *brd, int event, int (*callback)(void *context, int error), void *context)
{
    FakeBroadcaster *self = static_cast<FakeBroadcaster *>(brd);
    fake_shbf.calls.push_back("brd_register " + self->path + " " + std::to_string(event));
    self->on_error = callback;
    self->context = context;
    return 0;
}

int shbfev_brd_start(struct ev_loop *loop, void *brd)
{
    FakeBroadcaster *self = static_cast<FakeBroadcaster *>(brd);
    fake_shbf.calls.push_back("brd_start " + self->path);
    self->loop = loop;
    return start_result(self->path);
}

int shbfev_brd_broadcast_message(void *brd, const void *buffer, size_t length)
{
    FakeBroadcaster *self = static_cast<FakeBroadcaster *>(brd);
    self->sent.emplace_back(static_cast<const char *>(buffer), length);
    return self->result;
}

void shbfev_brd_destroy(void *brd)
{
    FakeBroadcaster *self = static_cast<FakeBroadcaster *>(brd);
    fake_shbf.calls.push_back("brd_destroy " + self->path);
    self->destroyed = true;
}

void *shbfev_rcv_create(struct ev_loop *loop, const char *path)
{
    fake_shbf.calls.push_back(std::string("rcv_create ") + path);
    if (fake_shbf.refused.count(path))
        return nullptr;
    fake_shbf.receivers.push_back(std::make_unique<FakeReceiver>());
    fake_shbf.receivers.back()->path = path;
    fake_shbf.receivers.back()->loop = loop;
    return fake_shbf.receivers.back().get();
}

int shbfev_rcv_register(void *rcv, int event, int (*callback)(void *context, void *buffer), void *context)
{
    FakeReceiver *self = static_cast<FakeReceiver *>(rcv);
    fake_shbf.calls.push_back("rcv_register " + self->path + " " + std::to_string(event));
    (event == 1 ? self->on_closed : self->on_data) = callback;
    (event == 1 ? self->closed_context : self->data_context) = context;
    return 0;
}

int shbfev_rcv_start(void *rcv)
{
    FakeReceiver *self = static_cast<FakeReceiver *>(rcv);
    fake_shbf.calls.push_back("rcv_start " + self->path);
    self->started = true;
    return start_result(self->path);
}

int shbfev_rcv_send_message(void *rcv, const void *buffer, size_t length)
{
    static_cast<FakeReceiver *>(rcv)->sent.emplace_back(static_cast<const char *>(buffer), length);
    return -1; // nobody is there: callers must not mind
}

void shbfev_rcv_destroy(void *rcv)
{
    FakeReceiver *self = static_cast<FakeReceiver *>(rcv);
    fake_shbf.calls.push_back(self ? "rcv_destroy " + self->path : "rcv_destroy null");
    if (self)
        self->destroyed = true;
}
