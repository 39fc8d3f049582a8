// GPIO lines through the kernel's files under "/sys/class/gpio". Lines are numbers.
//
// Each call opens and closes its files and keeps nothing: any thread, no lock. All return 0, or -1 with a
// log_err line, unless said otherwise. Whatever a file held before is replaced.
#ifndef GPIO_H
#define GPIO_H

// What GPIO_get_direct needs at most, terminator included.
enum { GPIO_DIRECTION_SIZE = 11 };

// Asks the kernel for the line, or gives it back. A line that is there already (a killed process leaves its
// lines behind) is as good as one that was just made: 0. The number is written with its terminator and zeros
// up to five bytes; what does not fit into four digits is refused.
int GPIO_request(int n);
int GPIO_cancel(int n);
// `direction` is "out" or "in"; four bytes are written, zeros behind the text.
int GPIO_set_direct(int n, const char *direction);
// Up to ten bytes of the direction into `buffer` of GPIO_DIRECTION_SIZE bytes, terminated, the line end left
// in. Untouched on -1.
int GPIO_get_direct(int n, char *buffer);
// Writes `value` in decimal.
int GPIO_set_value(int n, int value);
// The number that the line's file holds (0 where it holds none), or -1.
int GPIO_get_value(int n);

// One access to a line that nobody holds: request, direction, access, cancel. Read returns the value or -1.
// Write leaves the line requested when the value cannot be written (-1).
int GPIO_Read(int n);
int GPIO_Write(int n, int value);

#endif
