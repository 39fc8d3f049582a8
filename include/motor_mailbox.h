// The motor's mailbox: one text at a time from the daemon to the process that drives the pan-tilt motor, in a
// System V shared memory segment. The segment's layout, its lock, and what each side does under it.
//
//   daemon                                      motor process
//   motor_mailbox_get, motor_mailbox_map        motor_mailbox_get, motor_mailbox_map
//                                               motor_mailbox_lock_init, once, before anything else
//   motor_mailbox_put: text, full = 1
//                                               motor_mailbox_read: a copy of the text; the slot stays full
//                                               ... moves; at the end of the move
//                                               motor_mailbox_clear: full = 0
//
// The two need not be built for the same word size: the segment has 60 bytes everywhere, and its lock is the
// one of a 32-bit C library. Where the C library's mutex has these 24 bytes it is used itself; where it is
// larger, `motor_mailbox_word_lock` has the same words at the same places and follows the same protocol, so
// that the two kinds exclude and wake each other. Of the mutex the protocol needs: a lock word that is 0
// (free), 1 (taken) or 2 (taken, and somebody sleeps on it), taken by compare and exchange from 0, given back
// by exchange to 0 and, if it was 2, a futex wake that reaches other processes; and an owner that is 0
// whenever the lock is free, because the C library aborts a process that finds it otherwise.
//
// Nobody here ever sleeps on the lock. It is held for one look and one copy; who does not get it at once
// tries again a little later, and gives up when that lasts: then the holder has died. A new motor process
// makes the lock anew, and all goes on. So a peer that dies, or writes nonsense, blocks nobody.
//
// A segment that nobody has initialised is all zero, which is a free lock and an empty slot.
//
// Every function may be called by any thread of either process, and none waits.
#ifndef MOTOR_MAILBOX_H
#define MOTOR_MAILBOX_H

#include <errno.h>
#include <limits.h>
#include <linux/futex.h>
#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/syscall.h>
#include <type_traits>
#include <unistd.h>

enum {
    MOTOR_MAILBOX_KEY = 4386,
    MOTOR_MAILBOX_MODE = 0666,
    MOTOR_MAILBOX_FULL = 1,        // any other value of `full`: the slot is free
    MOTOR_MAILBOX_TEXT_BYTES = 32, // with the terminating zero
    MOTOR_MAILBOX_LOCK_BYTES = 24,
};

// What a 32-bit C library's mutex consists of.
struct motor_mailbox_word_lock {
    uint32_t word;  // 0 free, 1 taken, 2 taken and somebody sleeps on it
    uint32_t count; // of recursive mutexes; here 0
    uint32_t owner; // thread number of the holder, 0 while free
    uint32_t kind;  // MOTOR_MAILBOX_LOCK_SHARED, or 0 where nobody has initialised it
    uint32_t users; // 1 while it is held
    uint32_t list;  // of robust mutexes; here 0
};
enum : uint32_t { MOTOR_MAILBOX_LOCK_SHARED = 128 };

typedef std::conditional_t<sizeof(pthread_mutex_t) == MOTOR_MAILBOX_LOCK_BYTES, pthread_mutex_t,
                           motor_mailbox_word_lock>
    motor_mailbox_lock;

struct motor_mailbox {
    int32_t full; // MOTOR_MAILBOX_FULL: `text` waits for the motor process
    motor_mailbox_lock lock;
    char text[MOTOR_MAILBOX_TEXT_BYTES]; // terminated, unless a peer wrote nonsense
};
static_assert(sizeof(motor_mailbox_word_lock) == MOTOR_MAILBOX_LOCK_BYTES, "shared layout");
static_assert(offsetof(motor_mailbox_word_lock, word) == 0 && offsetof(motor_mailbox_word_lock, owner) == 8 &&
                  offsetof(motor_mailbox_word_lock, kind) == 12,
              "shared layout");
static_assert(sizeof(motor_mailbox) == 60, "shared layout");
static_assert(offsetof(motor_mailbox, full) == 0 && offsetof(motor_mailbox, lock) == 4 &&
                  offsetof(motor_mailbox, text) == 28,
              "shared layout");

// ---- The segment ----------------------------------------------------------------------------------------

// The number of the segment, which is made, all zero, where there is none; -1 with errno.
inline int motor_mailbox_get(void)
{
    return shmget(MOTOR_MAILBOX_KEY, sizeof(motor_mailbox), IPC_CREAT | MOTOR_MAILBOX_MODE);
}

// The segment in this process's memory, to be given back with shmdt; null with errno.
inline motor_mailbox *motor_mailbox_map(int segment)
{
    void *memory = shmat(segment, nullptr, 0);
    return memory == reinterpret_cast<void *>(-1) ? nullptr : static_cast<motor_mailbox *>(memory);
}

// ---- The lock -------------------------------------------------------------------------------------------

// Whether a mutex of this kind is taken by the protocol above. The others (robust ones and those that lend
// priority) keep other things in the lock word and pointers in the rest: in memory that anybody may write
// they are nothing to be touched.
inline bool motor_mailbox_lock_is_plain(uint32_t kind)
{
    const uint32_t recursive_error_checking_adaptive = 3;
    return (kind & 127) <= recursive_error_checking_adaptive;
}

// Makes the lock new and free, whoever held it. The motor process, when it starts. A daemon that is inside
// the lock at that moment does no harm: it stores `full` last and looks at it first, as the motor process
// does with the text, so no text is ever read half written.
inline void motor_mailbox_lock_init(motor_mailbox_word_lock *lock)
{
    uint32_t *const zeros[] = {&lock->count, &lock->owner, &lock->users, &lock->list};
    for (uint32_t *word : zeros)
        __atomic_store_n(word, 0, __ATOMIC_RELAXED);
    __atomic_store_n(&lock->kind, MOTOR_MAILBOX_LOCK_SHARED, __ATOMIC_RELAXED);
    __atomic_store_n(&lock->word, 0, __ATOMIC_RELEASE);
    syscall(SYS_futex, &lock->word, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}
inline void motor_mailbox_lock_init(pthread_mutex_t *lock)
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutex_init(lock, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

// 0 with the lock held; otherwise EBUSY (somebody holds it) or EINVAL (it is no lock).
inline int motor_mailbox_lock_try(motor_mailbox_word_lock *lock)
{
    if (!motor_mailbox_lock_is_plain(__atomic_load_n(&lock->kind, __ATOMIC_RELAXED)))
        return EINVAL;
    uint32_t expected = 0;
    if (!__atomic_compare_exchange_n(&lock->word, &expected, 1, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED))
        return EBUSY;
    __atomic_store_n(&lock->owner, static_cast<uint32_t>(syscall(SYS_gettid)), __ATOMIC_RELAXED);
    __atomic_store_n(&lock->users, 1, __ATOMIC_RELAXED);
    return 0;
}
inline int motor_mailbox_lock_try(pthread_mutex_t *lock)
{
#ifdef __GLIBC__ // others keep the kind elsewhere
    uint32_t kind;
    memcpy(&kind, reinterpret_cast<const char *>(lock) + offsetof(motor_mailbox_word_lock, kind),
           sizeof kind);
    if (!motor_mailbox_lock_is_plain(kind))
        return EINVAL;
#endif
    return pthread_mutex_trylock(lock);
}

inline void motor_mailbox_lock_release(motor_mailbox_word_lock *lock)
{
    __atomic_store_n(&lock->users, 0, __ATOMIC_RELAXED);
    __atomic_store_n(&lock->owner, 0, __ATOMIC_RELAXED);
    if (__atomic_exchange_n(&lock->word, 0, __ATOMIC_RELEASE) > 1)
        syscall(SYS_futex, &lock->word, FUTEX_WAKE, 1, nullptr, nullptr, 0);
}
inline void motor_mailbox_lock_release(pthread_mutex_t *lock)
{
    pthread_mutex_unlock(lock);
}

// ---- One text at a time ---------------------------------------------------------------------------------

enum motor_mailbox_result {
    MOTOR_MAILBOX_DONE,
    MOTOR_MAILBOX_NOT_NOW, // put: the slot is full; read: it is empty
    MOTOR_MAILBOX_LOCKED,  // the lock is not to be had at this moment; nothing was done
};

// The daemon: `text`, of at most 31 characters, into the slot.
inline motor_mailbox_result motor_mailbox_put(motor_mailbox *mailbox, const char *text)
{
    if (motor_mailbox_lock_try(&mailbox->lock) != 0)
        return MOTOR_MAILBOX_LOCKED;
    const bool is_free = __atomic_load_n(&mailbox->full, __ATOMIC_ACQUIRE) != MOTOR_MAILBOX_FULL;
    if (is_free) {
        memcpy(mailbox->text, text, strlen(text) + 1);
        __atomic_store_n(&mailbox->full, MOTOR_MAILBOX_FULL, __ATOMIC_RELEASE);
    }
    motor_mailbox_lock_release(&mailbox->lock);
    return is_free ? MOTOR_MAILBOX_DONE : MOTOR_MAILBOX_NOT_NOW;
}

// The motor process: a copy of the text that waits, always terminated. The slot stays full.
inline motor_mailbox_result motor_mailbox_read(motor_mailbox *mailbox, char text[MOTOR_MAILBOX_TEXT_BYTES])
{
    if (motor_mailbox_lock_try(&mailbox->lock) != 0)
        return MOTOR_MAILBOX_LOCKED;
    const bool waits = __atomic_load_n(&mailbox->full, __ATOMIC_ACQUIRE) == MOTOR_MAILBOX_FULL;
    if (waits) {
        memcpy(text, mailbox->text, MOTOR_MAILBOX_TEXT_BYTES);
        text[MOTOR_MAILBOX_TEXT_BYTES - 1] = '\0';
    }
    motor_mailbox_lock_release(&mailbox->lock);
    return waits ? MOTOR_MAILBOX_DONE : MOTOR_MAILBOX_NOT_NOW;
}

// The motor process: the slot is free for the next text.
inline motor_mailbox_result motor_mailbox_clear(motor_mailbox *mailbox)
{
    if (motor_mailbox_lock_try(&mailbox->lock) != 0)
        return MOTOR_MAILBOX_LOCKED;
    __atomic_store_n(&mailbox->full, 0, __ATOMIC_RELEASE);
    motor_mailbox_lock_release(&mailbox->lock);
    return MOTOR_MAILBOX_DONE;
}

#endif
