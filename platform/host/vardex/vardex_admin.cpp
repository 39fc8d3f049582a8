// What tools see of the store.
#include "vardex_admin.h"

#include <sqlite3.h>
#include <string>

#include "libvardex.h"
#include "naro_util.h"
#include "vardex_changes.h"
#include "vardex_guard.h"
#include "vardex_mailbox.h"
#include "vardex_store.h"

namespace
{

int layer_of(const char *call, const char *name)
{
    const int layer = vardex_layer_named(name);
    if (layer < 0)
        log_err("[vardex] %s: there is no layer \"%.128s\"\n", call, name ? name : "(null)");
    return layer;
}

std::string text_of(sqlite3_stmt *statement, int column)
{
    const void *bytes = sqlite3_column_blob(statement, column);
    return bytes ? std::string(static_cast<const char *>(bytes),
                               static_cast<size_t>(sqlite3_column_bytes(statement, column)))
                 : std::string();
}

// Reads rows of `statement` until `row` wants no more: 0, or -1 in trouble.
template <typename Bind, typename Row>
int each_row(int layer, enum vardex_statement number, Bind bind, Row row)
{
    if (!vardex_store_hold())
        return -1;
    int result = 0;
    const enum vardex_begun begun = vardex_store_begin(layer, VARDEX_READ, "list", nullptr, VARDEX_WAIT_MS);
    if (begun == VARDEX_TROUBLE)
        result = -1;
    if (begun == VARDEX_BEGUN) {
        sqlite3_stmt *statement = vardex_store_statement(layer, number);
        bind(statement);
        while (vardex_store_step(layer, statement) == 1 && row(statement)) {
        }
        result = vardex_store_end(layer, true) ? 0 : -1;
    }
    vardex_store_release();
    return result;
}

} // namespace

int vardex_list(const char *layer, vardex_setting_callback each, void *context)
{
    const vardex_no_cancel guard;
    const int number = layer_of("list", layer);
    if (number < 0)
        return -1;
    return each_row(
        number, VARDEX_VALUE_LIST, [](sqlite3_stmt *) {},
        [&](sqlite3_stmt *statement) {
            const std::string group = text_of(statement, 0), key = text_of(statement, 1),
                              text = text_of(statement, 3);
            return each(context, group.c_str(), key.c_str(), sqlite3_column_int(statement, 2),
                        text.c_str()) == 0;
        });
}

int vardex_subscribers(const char *layer, const char *group, const char *key, vardex_subscriber_callback each,
                       void *context)
{
    const vardex_no_cancel guard;
    const int number = layer_of("subscribers", layer);
    if (number < 0)
        return -1;
    if (key && !group)
        group = "default";
    return each_row(
        number, VARDEX_SUBSCRIPTION_LIST,
        [&](sqlite3_stmt *statement) {
            vardex_bind_text(statement, 1, group);
            vardex_bind_text(statement, 2, key);
        },
        [&](sqlite3_stmt *statement) {
            // Who was killed is still in the list until somebody calls on him: we do.
            if (!vardex_mailbox_is_found(text_of(statement, 4).c_str()))
                return true;
            return each(context, text_of(statement, 0).c_str(), text_of(statement, 1).c_str(),
                        static_cast<pid_t>(sqlite3_column_int(statement, 2)),
                        text_of(statement, 3).c_str()) == 0;
        });
}

int vardex_empty_mem(void)
{
    const vardex_no_cancel guard;
    if (!vardex_store_hold())
        return -1;
    bool done =
        vardex_store_begin(VARDEX_MEM, VARDEX_WRITE, "empty it", nullptr, VARDEX_WAIT_MS) == VARDEX_BEGUN;
    if (done) {
        for (const enum vardex_statement number :
             {VARDEX_VALUE_EMPTY, VARDEX_MAILBOX_RESET, VARDEX_IDENTITY_RENEW})
            vardex_store_run(VARDEX_MEM, vardex_store_statement(VARDEX_MEM, number));
        done = vardex_store_end(VARDEX_MEM, true);
    }
    vardex_store_release();
    return done ? 0 : -1;
}
