// The segment, and the calls around threads and memory, in the hands of the test. Works by the linker's
// --wrap.
#ifndef ALGO_SHM_SEGMENT_H
#define ALGO_SHM_SEGMENT_H

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "motor_mailbox.h"

struct Segment {
    motor_mailbox *box;       // exactly its bytes, zero at first: nobody has initialised it
    int number = 77;          // what shmget gives; 0 is a number, too
    int get_error = 0;        // errno of shmget, where it is to fail
    int map_error = 0;        // of shmat
    bool mapped = false;      // somebody has attached it
    int unmap_error = 0;      // of shmdt
    bool map_to_null = false; // shmat gives null, and not its own sign of failure
    int create_error = 0;     // what pthread_create gives instead of creating
    int cancel_result = 0;    // what pthread_cancel and pthread_join give after they did their work
    int join_result = 0;
    int prctl_result = 0;
    bool no_memory = false; // calloc of a text fails
    // On the writer's thread, before it waits for texts.
    std::function<void()> on_wait;
    // After it has told of a wait for the motor, before that wait.
    std::function<void()> on_told;
    std::function<void()> on_cancel; // in pthread_cancel, when it is done
    std::function<void()> on_name;   // in prctl, the first call of the thread
};
extern Segment segment;

// The calls that matter for start, stop and texts, in order, each with the number of locks that its thread
// holds: "get KEY SIZE FLAGS in 0", "map in 0", "unmap in 1", "init SHARED VALUE in 2", "cancel in 1",
// "join in 1", "destroy in 2", "name NAME in 0", "post in 1".
std::vector<std::string> segment_calls(void);

#endif
