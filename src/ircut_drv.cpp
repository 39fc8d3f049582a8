// The coil of the IR-cut filter, on two GPIO lines.
#include "ircut_drv.h"

#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <unistd.h>

#include "ircut_config.h"
#include "naro_util.h"
#include "sysfs.h"

static const char EXPORT_PATH[] = "/sys/class/gpio/export";
static const char UNEXPORT_PATH[] = "/sys/class/gpio/unexport";
enum { PATH_SIZE = 128 };

static struct {
    pthread_mutex_t lock; // protects the coil: held from the first line's change to both lines low
} coil = {PTHREAD_MUTEX_INITIALIZER};

// Writes the numbers of both lines into the open file `fd` of `path`, and closes it.
static int write_numbers(int fd, const ircut_config &table, const char *caller, const char *path)
{
    const int result = sysfs_export(fd, table.ircut_gpio_a, caller, path) == 0
                           ? sysfs_export(fd, table.ircut_gpio_b, caller, path)
                           : -1;
    close(fd);
    return result;
}

static int make_output(const char *line, const char *caller)
{
    char path[PATH_SIZE];
    snprintf(path, sizeof path, "/sys/class/gpio/gpio%s/direction", line);
    const int fd = naro_open(path, O_RDWR, 0);
    if (fd < 0) {
        log_err("open %s fail\n", path);
        return -1;
    }
    const int result = sysfs_replace_logged(fd, "out", 3, caller, path);
    close(fd);
    return result;
}

int _mstar_ircut_drv_init(void)
{
    const ircut_config table = ircut_config_get();
    const int fd = naro_open(EXPORT_PATH, O_WRONLY, 0);
    if (fd < 0) {
        log_err("open /sys/class/gpio/export error !");
        return -1;
    }
    if (write_numbers(fd, table, __func__, EXPORT_PATH) != 0)
        return -1;
    if (make_output(table.ircut_gpio_a, __func__) != 0)
        return -1;
    return make_output(table.ircut_gpio_b, __func__);
}

int _mstar_ircut_drv_exit(void)
{
    const int fd = naro_open(UNEXPORT_PATH, O_WRONLY, 0);
    if (fd < 0) {
        log_err("open /sys/class/gpio/unexport fail\n");
        return -1;
    }
    return write_numbers(fd, ircut_config_get(), __func__, UNEXPORT_PATH);
}

// An open value file and its path.
struct coil_line {
    int fd;
    char path[PATH_SIZE];
};

static bool line_open(coil_line *line, const char *number)
{
    snprintf(line->path, sizeof line->path, "/sys/class/gpio/gpio%s/value", number);
    line->fd = naro_open(line->path, O_RDWR, 0);
    if (line->fd < 0)
        log_err("open %s fail\n", line->path);
    return line->fd >= 0;
}

// Line a, then line b; the second is written even when the first fails.
static int lines_set(const coil_line &a, const char *value_a, const coil_line &b, const char *value_b)
{
    const int result_a = sysfs_replace_logged(a.fd, value_a, 1, "_mstar_ircut_drv_sw", a.path);
    const int result_b = sysfs_replace_logged(b.fd, value_b, 1, "_mstar_ircut_drv_sw", b.path);
    return result_a == 0 && result_b == 0 ? 0 : -1;
}

static int pulse(const coil_line &a, const coil_line &b, int position)
{
    int driven = 0;
    if (position == IRCUT_POSITION_NIGHT) {
        driven = lines_set(a, "1", b, "0");
        naro_clock_sleep_ms(IRCUT_PULSE_MS);
    } else if (position == IRCUT_POSITION_DAY) {
        driven = lines_set(a, "0", b, "1");
        naro_clock_sleep_ms(IRCUT_PULSE_MS);
    } else {
        log_err("Not Support!!!\n");
    }
    const int released = lines_set(a, "0", b, "0");
    return driven == 0 && released == 0 ? 0 : -1;
}

int _mstar_ircut_drv_sw(int position)
{
    const ircut_config table = ircut_config_get();
    int result = -1;
    coil_line a, b;
    pthread_mutex_lock(&coil.lock);
    if (line_open(&a, table.ircut_gpio_a)) {
        if (line_open(&b, table.ircut_gpio_b)) {
            result = pulse(a, b, position);
            close(b.fd);
        }
        close(a.fd);
    }
    pthread_mutex_unlock(&coil.lock);
    return result;
}
