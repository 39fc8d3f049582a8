// Either end of the motor's mailbox, and those who misuse it, each a process of its own.
// usage: mailbox_peer ROLE
//
//   daemon       the daemon's own module. On standard input "start", "stop", "text: [1,2,3]" (what follows
//                the blank is for the motor); the result of each is printed
//   motor        makes the lock, then prints each text that comes, and clears the slot at once
//   slow         the same, but clears the slot when told so: a line on standard input
//   hammer MS    for so long: the lock, one more on a counter that nothing else guards, unlocked; says how
//                often
//   library MS   the same with the C library's own mutex, blocking, where it has the mailbox's 24 bytes
//   hold         takes the lock and keeps it, until a line comes
//   scribble     writes nonsense over every byte, again and again
//   make         makes the lock
//   show         the sizes here, and the segment's words
//
// Each says "ready" when it is there. hammer and library begin when a line comes. All end with their standard
// input.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <thread>
#include <time.h>
#include <unistd.h>

#include "algo_shm.h"
#include "motor_mailbox.h"
#include "naro_util.h"

static motor_mailbox *box;

static bool next_line(char *line, size_t size)
{
    if (!fgets(line, static_cast<int>(size), stdin))
        return false;
    line[strcspn(line, "\n")] = '\0';
    return true;
}

static void ready()
{
    puts("ready");
}

// Ends the process with its standard input, while the role does something else.
static void end_with_input()
{
    std::thread([] {
        char line[64];
        while (next_line(line, sizeof line)) {
        }
        _exit(0);
    }).detach();
}

static int daemon_end()
{
    char line[256];
    ready();
    while (next_line(line, sizeof line)) {
        if (strcmp(line, "start") == 0)
            printf("start: %d\n", algo_shm_init());
        else if (strcmp(line, "stop") == 0)
            printf("stop: %d\n", algo_shm_fini());
        else if (strncmp(line, "text: ", 6) == 0)
            printf("text: %d\n", algo_shm_write_wrap(line + 6));
    }
    return 0;
}

static void clear()
{
    while (motor_mailbox_clear(box) == MOTOR_MAILBOX_LOCKED)
        naro_clock_sleep_ms(1);
}

static int motor_end(bool slow)
{
    motor_mailbox_lock_init(&box->lock);
    if (!slow)
        end_with_input();
    ready();
    for (;;) {
        char text[MOTOR_MAILBOX_TEXT_BYTES], line[64];
        if (motor_mailbox_read(box, text) != MOTOR_MAILBOX_DONE) {
            naro_clock_sleep_ms(1);
            continue;
        }
        printf("got: %s\n", text);
        if (slow && !next_line(line, sizeof line))
            return 0;
        clear();
    }
}

// ---- Who is inside ------------------------------------------------------------------------------------------

// Both words lie where the text is. Nothing but the lock guards them.
struct Guarded {
    uint32_t inside;
    uint32_t counter;
};

static int visit()
{
    Guarded now;
    memcpy(&now, box->text, sizeof now);
    if (now.inside) {
        puts("two are inside");
        return 1;
    }
    now.inside = 1;
    memcpy(box->text, &now, sizeof now);
    for (volatile int i = 0; i < 100; i = i + 1) // long enough to be met in
        __asm__ volatile("" ::: "memory");
    now.inside = 0;
    now.counter++;
    memcpy(box->text, &now, sizeof now);
    return 0;
}

static void lock_by_trying()
{
    while (motor_mailbox_lock_try(&box->lock) != 0)
        sched_yield();
}

static void unlock()
{
    motor_mailbox_lock_release(&box->lock);
}

static pthread_mutex_t *library_mutex()
{
    return reinterpret_cast<pthread_mutex_t *>(&box->lock);
}

// Aborts when the lock's words are not as the library leaves them.
static void library_lock()
{
    pthread_mutex_lock(library_mutex());
}

static void library_unlock()
{
    pthread_mutex_unlock(library_mutex());
}

static int64_t now_ms()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

static int visits(long ms, void (*take)(), void (*give)())
{
    char line[64];
    ready();
    next_line(line, sizeof line);
    const int64_t end = now_ms() + ms;
    long count = 0;
    do {
        take();
        if (visit() != 0)
            return 1;
        give();
        count++;
    } while (now_ms() < end);
    printf("done: %ld\n", count);
    return 0;
}

static int library(long ms)
{
    if (sizeof(pthread_mutex_t) != MOTOR_MAILBOX_LOCK_BYTES) {
        puts("the library's mutex is another one here");
        return 1;
    }
    return visits(ms, library_lock, library_unlock);
}

static int hold()
{
    char line[64];
    while (motor_mailbox_lock_try(&box->lock) != 0)
        naro_clock_sleep_ms(1);
    ready();
    if (next_line(line, sizeof line)) {
        motor_mailbox_lock_release(&box->lock);
        puts("released");
    }
    return 0;
}

static int scribble()
{
    end_with_input();
    ready();
    unsigned seed = 1;
    for (;;) {
        for (size_t i = 0; i < sizeof *box; i++) {
            seed = seed * 1103515245 + 12345;
            reinterpret_cast<volatile uint8_t *>(box)[i] = static_cast<uint8_t>(seed >> 16);
        }
        naro_clock_sleep_ms(1);
    }
}

static int show()
{
    printf("word %zu mutex %zu segment %zu\n", sizeof(void *), sizeof(pthread_mutex_t), sizeof *box);
    uint32_t words[sizeof *box / sizeof(uint32_t)];
    memcpy(words, box, sizeof words);
    for (uint32_t word : words)
        printf("%08x ", static_cast<unsigned>(word));
    puts("");
    return 0;
}

int main(int argc, char **argv)
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    const char *role = argc > 1 ? argv[1] : "";
    const long number = argc > 2 ? atol(argv[2]) : 0;
    if (strcmp(role, "daemon") == 0)
        return daemon_end();
    box = motor_mailbox_map(motor_mailbox_get());
    if (!box) {
        perror("the segment");
        return 1;
    }
    if (strcmp(role, "motor") == 0)
        return motor_end(false);
    if (strcmp(role, "slow") == 0)
        return motor_end(true);
    if (strcmp(role, "hammer") == 0)
        return visits(number, lock_by_trying, unlock);
    if (strcmp(role, "library") == 0)
        return library(number);
    if (strcmp(role, "hold") == 0)
        return hold();
    if (strcmp(role, "scribble") == 0)
        return scribble();
    if (strcmp(role, "show") == 0)
        return show();
    if (strcmp(role, "make") == 0) {
        motor_mailbox_lock_init(&box->lock);
        return 0;
    }
    fprintf(stderr, "usage: mailbox_peer daemon|motor|slow|hammer MS|library MS|hold|scribble|make|show\n");
    return 2;
}
