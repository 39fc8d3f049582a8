// Files of settings, which people edit, and the forms of values.
#include "settings_file.h"

#include <stdint.h>
#include <stdlib.h>

#include "libvardex.h"
#include "setting_formats.h"

namespace
{

void require(bool condition)
{
    if (!condition)
        abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(bytes), size);
    std::vector<settings_line> lines, again;
    std::string fault, written;
    const bool done = settings_read(text, &lines, &fault);
    require(done == fault.empty());
    for (const settings_line &line : lines) {
        require(line.layer == "mem" || line.layer == "nvram");
        require(line.value.size() <= VARDEX_VALUE_MAX && line.value.find('\0') == std::string::npos);
        require(!line.key.empty() && line.key.size() <= VARDEX_NAME_MAX);
        written += settings_write(line);
        setting_format_fault(line.key.c_str(), line.value.c_str());
    }
    // What was read is written so that it reads the same.
    require(settings_read(written, &again, &fault) || !done);
    require(!done || again.size() == lines.size());
    for (size_t n = 0; done && n < lines.size(); n++)
        require(again[n].value == lines[n].value && again[n].key == lines[n].key);
    // Any bytes as a value of any known key.
    for (const char *key : {"motion_region", "motor", "alarm_event", "people_region_detect", "fav_area_rect",
                            "people_sensitivity", "time_night", "night_mode", "wdr"})
        setting_format_fault(key, text.c_str());
    return 0;
}
