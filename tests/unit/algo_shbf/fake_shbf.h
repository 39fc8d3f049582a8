// Channels in the hands of a test: behind shbf.h and shbfev.h stand these instead of a transport. They write
// down what they are asked, fail on demand, and let the test deliver buffers.
#ifndef NARO_TESTS_FAKE_SHBF_H
#define NARO_TESTS_FAKE_SHBF_H

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <stdint.h>
#include <string>
#include <vector>

struct ev_loop;

struct FakeBroadcaster {
    std::string path;
    struct ev_loop *loop = nullptr; // null until started
    int (*on_error)(void *context, int error) = nullptr;
    void *context = nullptr;
    std::vector<std::string> sent; // every message, byte for byte
    int result = 0;                // of broadcasting
    bool destroyed = false;
};

struct FakeReceiver {
    std::string path;
    struct ev_loop *loop = nullptr;
    int (*on_closed)(void *context, void *buffer) = nullptr;
    void *closed_context = nullptr;
    int (*on_data)(void *context, void *buffer) = nullptr;
    void *data_context = nullptr;
    std::vector<std::string> sent; // upstream
    bool started = false;
    bool destroyed = false;
};

struct FakeShbf {
    std::vector<std::string> calls;           // every call but broadcasting and sending upstream, in order
    std::map<std::string, int> start_results; // by path; else 0
    std::set<std::string> refused;            // paths for which nothing can be created
    std::vector<std::unique_ptr<FakeBroadcaster>> broadcasters;
    std::vector<std::unique_ptr<FakeReceiver>> receivers;
    std::vector<const void *> freed;        // buffers given back, in order
    std::map<const void *, size_t> buffers; // delivered and not given back, with their sizes

    std::function<void()> on_global_exit; // called inside shbf_rcv_global_exit

    // The last one made for `path`; null when there is none.
    FakeBroadcaster *broadcaster(const std::string &path);
    FakeReceiver *receiver(const std::string &path);
    // Hands a copy of `message` to the receiver's data callback; its address (which may be given back
    // already).
    const void *deliver(FakeReceiver *receiver, const std::string &message);
};

extern FakeShbf fake_shbf;

#endif
