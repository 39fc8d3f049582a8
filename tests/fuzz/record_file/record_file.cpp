// A file of motion records from a card that may hold anything, and what is printed of it.
#include "record_file.h"

#include <stdlib.h>
#include <string.h>

static void must(bool holds)
{
    if (!holds)
        abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const record_file file = record_file_read(data, size);
    const size_t start = file.header ? sizeof(motion_record_header) : 0;
    must(start + file.records.size() * sizeof(motion_record_event) <= size);
    for (size_t i = 0; i < file.records.size(); i++) {
        const motion_record_event &record = file.records[i];
        must(memcmp(data + start + i * sizeof record, &record, sizeof record) == 0);
        for (const record_form form : {RECORD_TABLE, RECORD_CSV, RECORD_JSON}) {
            const std::string line = record_line(form, record, "a", i % 2);
            must(line.size() > 20 && line.find('\n') == line.size() - 1);
        }
        record_belongs("2021031408", record.time);
    }
    // What is whole is not remarked on, and what was left out is.
    must(!file.remarks.empty() || (size - start) % sizeof(motion_record_event) == 0);
    const std::string text(reinterpret_cast<const char *>(data), size);
    int64_t time;
    uint32_t type;
    record_time_of(text, true, &time);
    record_time_of(text, false, &time);
    if (record_type_of(text, &type)) {
        uint32_t again;
        must(record_type_of(record_type_name(type), &again) && again == type);
    }
    record_belongs(text, 0);
    return 0;
}
