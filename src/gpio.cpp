// GPIO lines through the kernel's files.
#include "gpio.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "naro_util.h"
#include "sysfs.h"

enum {
    PATH_SIZE = 50,
    NUMBER_SIZE = 5,         // bytes of a number's text as it is written into "export", its padding included
    DIRECTION_WRITE_SIZE = 4 // "out" with its terminator
};

// Writes the number of a line into `path`. `gone` is logged where there is no such file, `busy` whether the
// kernel's "busy" is an answer that is as good as done.
static int write_number(int n, const char *path, const char *gone, bool busy_is_fine, const char *caller)
{
    char number[NUMBER_SIZE] = {};
    const int length = snprintf(number, sizeof number, "%d", n);
    if (length >= NUMBER_SIZE) {
        log_err("[%s] there is no line %d\n", caller, n);
        return -1;
    }
    const int fd = naro_open(path, O_WRONLY, 0);
    if (fd < 0) {
        log_err("%s", gone);
        return -1;
    }
    if (busy_is_fine)
        log_debug("open success!\r\n");
    int result = sysfs_replace(fd, number, sizeof number);
    if (result != 0 && busy_is_fine && errno == EBUSY)
        result = 0;
    else if (result != 0)
        log_err("[%s] write %s fail: %m\n", caller, path);
    close(fd);
    return result;
}

int GPIO_request(int n)
{
    if (write_number(n, "/sys/class/gpio/export", "fail to device!\n", true, __func__) != 0)
        return -1;
    log_debug("gpio_request success,num = %d\n", n);
    return 0;
}

int GPIO_cancel(int n)
{
    return write_number(n, "/sys/class/gpio/unexport", "has no this gpio!\n", false, __func__);
}

int GPIO_set_direct(int n, const char *direction)
{
    char path[PATH_SIZE];
    snprintf(path, sizeof path, "/sys/class/gpio/gpio%d/direction", n);
    const int fd = naro_open(path, O_WRONLY, 0);
    if (fd < 0) {
        log_err("fail to device!\n");
        return -1;
    }
    char text[DIRECTION_WRITE_SIZE] = {}; // "in" is shorter than what is written
    naro_copy(text, direction, strnlen(direction, sizeof text));
    const int result = sysfs_replace_logged(fd, text, sizeof text, __func__, path);
    if (result == 0)
        log_debug("set gpio_direction is %s\n", direction);
    close(fd);
    return result;
}

int GPIO_get_direct(int n, char *buffer)
{
    char path[PATH_SIZE];
    snprintf(path, sizeof path, "/sys/class/gpio/gpio%d/direction", n);
    const int fd = naro_open(path, O_RDONLY, 0);
    if (fd < 0) {
        log_err("fail to device!\n");
        return -1;
    }
    char text[GPIO_DIRECTION_SIZE] = {};
    const ssize_t got = naro_read(fd, text, sizeof text - 1);
    if (got < 0)
        log_err("[%s] read %s fail: %m\n", __func__, path);
    close(fd);
    if (got < 0)
        return -1;
    naro_copy(buffer, text, sizeof text);
    log_debug("get gpio_direction is %s\n", buffer);
    return 0;
}

int GPIO_set_value(int n, int value)
{
    char path[PATH_SIZE];
    char text[NUMBER_SIZE];
    snprintf(path, sizeof path, "/sys/class/gpio/gpio%d/value", n);
    const int length = snprintf(text, sizeof text, "%d", value);
    if (length >= NUMBER_SIZE) {
        log_err("[%s] there is no value %d\n", __func__, value);
        return -1;
    }
    FILE *file = naro_fopen(path, "wb");
    if (!file) {
        log_err("fail to open value device!\n");
        return -1;
    }
    fputs(text, file);
    // The bytes leave here, so this is where the kernel's refusal shows.
    if (fclose(file) != 0) {
        log_err("[%s] write %s fail: %m\n", __func__, path);
        return -1;
    }
    return 0;
}

int GPIO_get_value(int n)
{
    char path[PATH_SIZE];
    snprintf(path, sizeof path, "/sys/class/gpio/gpio%d/value", n);
    FILE *file = naro_fopen(path, "rb");
    if (!file) {
        log_err("GPIO_get_value: fail to open!\n");
        return -1;
    }
    char text[12] = {};
    fseek(file, 0, SEEK_END);
    const long size = ftell(file);
    rewind(file);
    // The kernel calls its files a page long, whatever they hold.
    const size_t room = sizeof text - 1;
    const size_t wanted = size < 0 ? 0 : static_cast<size_t>(size) < room ? static_cast<size_t>(size) : room;
    const size_t got = fread(text, 1, wanted, file);
    const bool failed = got < wanted && ferror(file);
    fclose(file);
    if (failed || size < 0) {
        log_err("[%s] read %s fail\n", __func__, path);
        return -1;
    }
    const long long value = strtoll(text, nullptr, 10);
    return value > INT_MAX ? INT_MAX : value < INT_MIN ? INT_MIN : static_cast<int>(value);
}

int GPIO_Read(int n)
{
    GPIO_request(n);
    GPIO_set_direct(n, "in");
    const int value = GPIO_get_value(n);
    GPIO_cancel(n);
    return value;
}

int GPIO_Write(int n, int value)
{
    GPIO_request(n);
    GPIO_set_direct(n, "out");
    if (GPIO_set_value(n, value) != 0) {
        log_err("fail to write!\n");
        return -1;
    }
    GPIO_cancel(n);
    return 0;
}
