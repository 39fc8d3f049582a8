// The PWM channels of the board, through "/sys/class/pwm/pwmchip0".
#include "ircut_pwm.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "naro_util.h"
#include "sysfs.h"

static const char EXPORT_PATH[] = "/sys/class/pwm/pwmchip0/export";
static const char UNEXPORT_PATH[] = "/sys/class/pwm/pwmchip0/unexport";
static const char INFRARED_CHANNEL[] = "4";
static const char SPARE_CHANNEL[] = "6";
enum { PATH_SIZE = 128, DUTY_MAX_PERCENT = 100 };

static void channel_path(char (&path)[PATH_SIZE], const char *channel, const char *file)
{
    snprintf(path, sizeof path, "/sys/class/pwm/pwmchip0/pwm%s/%s", channel, file);
}

// Opens, writes and closes one file.
static int write_file(const char *path, int flags, const char *text, const char *caller)
{
    const int fd = naro_open(path, flags, 0);
    if (fd < 0) {
        log_err("[%s] open %s fail\n", caller, path);
        return -1;
    }
    const int result = sysfs_replace_logged(fd, text, strlen(text), caller, path);
    close(fd);
    return result;
}

static int channel_prepare(const char *channel, const char *period, const char *caller)
{
    char path[PATH_SIZE];
    channel_path(path, channel, "period");
    if (write_file(path, O_RDWR, period, caller) != 0)
        return -1;
    channel_path(path, channel, "enable");
    return write_file(path, O_RDWR, "0", caller);
}

int _mstar_pwm_drv_init(void)
{
    const int fd = naro_open(EXPORT_PATH, O_WRONLY, 0);
    if (fd < 0) {
        log_err("[%s] open %s fail\n", __func__, EXPORT_PATH);
        return -1;
    }
    const int exported = sysfs_export(fd, INFRARED_CHANNEL, __func__, EXPORT_PATH) == 0
                             ? sysfs_export(fd, SPARE_CHANNEL, __func__, EXPORT_PATH)
                             : -1;
    close(fd);
    if (exported != 0)
        return -1;
    if (channel_prepare(INFRARED_CHANNEL, "120000", __func__) != 0)
        return -1;
    return channel_prepare(SPARE_CHANNEL, "2000", __func__);
}

int _mstar_pwm_drv_exit(void)
{
    char path[PATH_SIZE];
    channel_path(path, INFRARED_CHANNEL, "enable");
    if (write_file(path, O_RDWR, "0", __func__) != 0)
        return -1;
    return write_file(UNEXPORT_PATH, O_WRONLY, INFRARED_CHANNEL, __func__);
}

// Switches the channel on or off where it is in the other state.
static int enable_follow(int fd, bool wanted, const char *caller, const char *path)
{
    char now = '\0';
    if (naro_read(fd, &now, 1) < 0) {
        log_err("[%s] read %s fail: %m\n", caller, path);
        return -1;
    }
    if (!wanted && now != '0') {
        if (sysfs_replace_logged(fd, "0", 1, caller, path) != 0)
            return -1;
        log_info("[%s]disable pwm\n", caller);
    } else if (wanted && now == '0') {
        if (sysfs_replace_logged(fd, "1", 1, caller, path) != 0)
            return -1;
        log_info("[%s]enable pwm\n", caller);
    }
    return 0;
}

int _mstar_pwm_duty(const char *text)
{
    fprintf(stderr, "[%s] pwm duty=%s\n", __func__, text);
    const long duty = strtol(text, nullptr, 10);
    if (duty < 0 || duty > DUTY_MAX_PERCENT) {
        log_err("[%s] illegal duty[%s]\n", __func__, text);
        return -1;
    }

    char path[PATH_SIZE];
    channel_path(path, INFRARED_CHANNEL, "duty_cycle");
    int fd = naro_open(path, O_WRONLY, 0);
    if (fd < 0) {
        log_err("open %s fail\n", path);
        return -1;
    }
    int result = sysfs_replace_logged(fd, text, strlen(text), __func__, path);
    close(fd);
    if (result != 0)
        return -1;

    channel_path(path, INFRARED_CHANNEL, "enable");
    fd = naro_open(path, O_RDWR, 0);
    if (fd < 0) {
        log_err("open %s fail\n", path);
        return -1;
    }
    result = enable_follow(fd, duty != 0, __func__, path);
    close(fd);
    return result;
}
