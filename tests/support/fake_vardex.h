// The configuration library in the hands of a test, in the place of the real one (no PLATFORM vardex): every
// call is written down, any can be made to fail, and responses are what the test makes them. Include in one
// source of a test.
//
//   fake_vardex().fail_register = "wdr";                 // that registration is refused
//   kv_client_init();
//   EXPECT_EQ(fake_vardex().calls(), ...);               // "open 0", "register nvram wdr", ...
//   FakeResponse response("wdr", "on");
//   notify_cb_wdr_mode(&response, handle);
//
// A registration is known by its key and id, as the contract says: giving one up with another layer, group or
// id is refused. Calls may come from any thread; set the hooks before threads start.
//
// With -Wl,--wrap=free among its link options and NARO_FAKE_VARDEX_WRAPS_FREE defined, a test also sees which
// texts were handed out (fake_text) and not freed: fake_vardex().live_texts.
#ifndef NARO_TESTS_FAKE_VARDEX_H
#define NARO_TESTS_FAKE_VARDEX_H

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <vector>

#include "libvardex.h"

struct FakeVardex {
    struct Registration {
        std::string layer;
        bool default_group;
        uint64_t id;
        libvardex_callback change_cb, timeout_cb;
    };
    struct Set {
        std::string layer, key;
        bool default_group;
        int code;
        std::string value; // as text; numbers in decimal, integers without sign where the code says so
    };

    // What to do
    bool open_fails = false;
    std::string fail_register;    // this key is refused,
    uint8_t refusal = 0;          // with this result
    bool fail_unregister = false; // all of them are
    uint8_t set_result = 1;
    int fd = -1;                                      // what libvardex_client_fd gives
    std::map<std::string, std::string> stored;        // "nvram default wdr": "on"
    std::function<uint8_t()> on_response;             // inside libvardex_xhandle_response
    std::function<void()> on_client_fd;               // inside libvardex_client_fd
    std::function<void()> on_timeout;                 // inside libvardex_timeout_process
    std::function<void()> on_set;                     // inside libvardex_set_value
    std::function<void(const std::string &)> on_call; // inside each call, with what is written down of it

    // What was done
    std::map<std::string, Registration> registered; // by key
    std::vector<Set> sets;
    int setting = 0;                  // calls of libvardex_set_value under way
    bool closed_under_writer = false; // the handle was closed while there was one
    int live_pairs = 0, live_data = 0;
    std::set<const void *> live_texts;

    int dummy_handle = 0;
    void *handle() { return &dummy_handle; }
    bool open = false;

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> journal;

    void note(const std::string &call)
    {
        if (on_call)
            on_call(call);
        std::lock_guard<std::mutex> guard(mutex);
        journal.push_back(call);
        changed.notify_all();
    }
    std::vector<std::string> calls()
    {
        std::lock_guard<std::mutex> guard(mutex);
        return journal;
    }
    // The calls that begin with `word`.
    std::vector<std::string> calls(const std::string &word)
    {
        std::vector<std::string> result;
        for (const std::string &call : calls())
            if (call.compare(0, word.size(), word) == 0)
                result.push_back(call);
        return result;
    }
    void forget()
    {
        std::lock_guard<std::mutex> guard(mutex);
        journal.clear();
    }
    // Waits until `call` was made; false when that does not come within 10 s.
    bool wait_for(const std::string &call, size_t times = 1)
    {
        std::unique_lock<std::mutex> guard(mutex);
        return changed.wait_for(guard, std::chrono::seconds(10), [&] {
            return static_cast<size_t>(std::count(journal.begin(), journal.end(), call)) >= times;
        });
    }
};

inline FakeVardex &fake_vardex()
{
    static FakeVardex *fake = new FakeVardex; // kept for the process's life
    return *fake;
}

// A copy of a text, for its receiver to free.
inline char *fake_text(const char *text)
{
    char *copy = strdup(text);
    std::lock_guard<std::mutex> guard(fake_vardex().mutex);
    fake_vardex().live_texts.insert(copy);
    return copy;
}

// What a callback is given. A null text is a member that is null.
struct FakeResponse {
    FakeResponse(const char *k, const char *v) : has_pair(true)
    {
        if (k)
            key = k;
        if (v)
            value = v;
    }
    explicit FakeResponse(int failed_status) : status(failed_status) {}
    int status = 0;
    bool has_pair = false;
    bool has_data = true; // for the replies to a get
    std::optional<std::string> key, value;
};

struct xdata {
    FakeResponse *response;
};

inline std::string fake_group(const char *group)
{
    return group ? std::string(" in ") + group : "";
}

extern "C" {

void *libvardex_config_open(int zero)
{
    FakeVardex &fake = fake_vardex();
    fake.note("open " + std::to_string(zero));
    if (fake.open_fails)
        return nullptr;
    fake.open = true;
    return fake.handle();
}

void libvardex_close(void *h)
{
    FakeVardex &fake = fake_vardex();
    {
        std::lock_guard<std::mutex> guard(fake.mutex);
        fake.open = false;
        fake.closed_under_writer = fake.closed_under_writer || fake.setting > 0;
    }
    fake.note(h == fake.handle() ? "close" : "close another");
}

void libvardex_handle_other(void *h)
{
    fake_vardex().note(h == fake_vardex().handle() ? "handle_other" : "handle_other of another");
}

uint8_t libvardex_register_notification(void *h, const char *layer, const char *group, const char *key,
                                        uint64_t *id, libvardex_callback change_cb,
                                        libvardex_callback timeout_cb, int zero_1, int zero_2)
{
    FakeVardex &fake = fake_vardex();
    const bool right = h == fake.handle() && zero_1 == 0 && zero_2 == 0;
    fake.note(std::string(right ? "register " : "wrong register ") + layer + fake_group(group) + " " + key);
    if (fake.fail_register == key)
        return fake.refusal;
    *id = 1000 + fake.registered.size();
    fake.registered[key] = {layer, group == nullptr, *id, change_cb, timeout_cb};
    return 1;
}

uint8_t libvardex_unregister_notification(void *h, const char *layer, const char *group, const char *key,
                                          uint64_t id, int zero_1, int zero_2, int zero_3, int zero_4)
{
    FakeVardex &fake = fake_vardex();
    const auto found = fake.registered.find(key);
    bool right = h == fake.handle() && zero_1 == 0 && zero_2 == 0 && zero_3 == 0 && zero_4 == 0;
    right = right && found != fake.registered.end() && found->second.id == id;
    fake.note(std::string(right ? "unregister " : "wrong unregister ") + layer + fake_group(group) + " " +
              key);
    if (fake.fail_unregister || !right || found->second.layer != layer)
        return 0;
    fake.registered.erase(found);
    return 1;
}

int libvardex_client_fd(void *h)
{
    fake_vardex().note(h == fake_vardex().handle() ? "client_fd" : "client_fd of another");
    if (fake_vardex().on_client_fd)
        fake_vardex().on_client_fd();
    return fake_vardex().fd;
}

uint8_t libvardex_xhandle_response(void *h)
{
    fake_vardex().note(h == fake_vardex().handle() ? "xhandle_response" : "xhandle_response of another");
    return fake_vardex().on_response ? fake_vardex().on_response() : 1;
}

void libvardex_timeout_process(void *h)
{
    fake_vardex().note(h == fake_vardex().handle() ? "timeout_process" : "timeout_process of another");
    if (fake_vardex().on_timeout)
        fake_vardex().on_timeout();
}

uint8_t libvardex_set_value(void *h, const char *layer, const char *group, const char *key, int code,
                            const void *value, int zero_1, int zero_2, int zero_3, int zero_4)
{
    FakeVardex &fake = fake_vardex();
    const bool right = h == fake.handle() && zero_1 == 0 && zero_2 == 0 && zero_3 == 0 && zero_4 == 0;
    int32_t word;
    uint64_t wide;
    std::string text;
    if (code == VARDEX_INT32) {
        memcpy(&word, value, sizeof word);
        text = std::to_string(word);
    } else if (code == VARDEX_UINT64) {
        memcpy(&wide, value, sizeof wide);
        text = std::to_string(wide);
    } else {
        text = static_cast<const char *>(value);
    }
    {
        std::lock_guard<std::mutex> guard(fake.mutex);
        fake.setting++;
        fake.sets.push_back({layer, key, group == nullptr, code, text});
    }
    fake.note(std::string(right ? "set " : "wrong set ") + layer + " " + key);
    if (fake.on_set)
        fake.on_set();
    {
        std::lock_guard<std::mutex> guard(fake.mutex);
        fake.setting--;
    }
    return fake.set_result;
}

char *libvardex_config_get(int zero, const char *layer, const char *group, const char *key)
{
    FakeVardex &fake = fake_vardex();
    const std::string name = std::string(layer) + " " + (group ? group : "(null)") + " " + key;
    fake.note((zero == 0 ? "get " : "wrong get ") + name);
    const auto found = fake.stored.find(name);
    return found == fake.stored.end() ? nullptr : fake_text(found->second.c_str());
}

xpair *xresponse_parse(void *response, int *status)
{
    const FakeResponse *from = static_cast<FakeResponse *>(response);
    *status = from->status;
    if (!from->has_pair)
        return nullptr;
    xpair *pair = static_cast<xpair *>(malloc(sizeof *pair));
    pair->key = from->key ? strdup(from->key->c_str()) : nullptr;
    pair->value = from->value ? strdup(from->value->c_str()) : nullptr;
    fake_vardex().live_pairs++;
    return pair;
}

void xpair_basefree(xpair *pair)
{
    if (!pair)
        return;
    free(pair->key);
    free(pair->value);
    free(pair);
    fake_vardex().live_pairs--;
}

xdata *xcontrol_get_response(void *response)
{
    FakeResponse *from = static_cast<FakeResponse *>(response);
    if (!from->has_data)
        return nullptr;
    fake_vardex().live_data++;
    return new xdata{from};
}

char *xdata_value_as_char(xdata *data)
{
    return data && data->response->value ? fake_text(data->response->value->c_str()) : nullptr;
}

void xdata_free(xdata *data)
{
    if (data)
        fake_vardex().live_data--;
    delete data;
}

#ifdef NARO_FAKE_VARDEX_WRAPS_FREE
void __real_free(void *memory);
void __wrap_free(void *memory)
{
    {
        std::lock_guard<std::mutex> guard(fake_vardex().mutex);
        fake_vardex().live_texts.erase(memory);
    }
    __real_free(memory);
}
#endif

} // extern "C"

#endif
