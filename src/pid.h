// Three controllers of one quantity, for a motor that is steered to a place step by step. Nothing in the
// daemon calls them: they are the tool for whoever steers.
//
// The error e is the setpoint, deliberately taken as an unsigned 16-bit number, less what was measured.
// Terms are single precision; the output is cut off toward zero, and kept within 32 bits. A state belongs
// to one thread at a time; begin with one that is all zero.
#ifndef PID_H
#define PID_H

enum { PID_HISTORY = 5 };

struct pid_state {
    float Kp, Ki, Kd;
    float P, I, D;            // the terms of the last step; I is the running sum
    int error;                // of the last step
    int earlier[PID_HISTORY]; // the errors before, the latest first
    int output;
};

// Sets the gains and nothing else: what is under way goes on with them.
void pid_init(pid_state *state, float Kp, float Ki, float Kd);

// One step each; the new output, which is also in the state.
//
// Positional: P + I + D, with P = Kp e, I = I + Ki e, D = Kd (e - e1).
int pid(int measured, int setpoint, pid_state *state);
// The same with the derivative smoothed over six errors, against a measurement that jitters:
//   D = Kd/16 (e + 3 e1 + 2 e2 - 2 e3 - 3 e4 - e5)
int better_pid(int measured, int setpoint, pid_state *state);
// Incremental: the output before + P + I + D, with P = Kp (e - e1), I = I + Ki e, D = Kd (e - 2 e1 + e2).
// Deliberate: I is the running sum here too, so that the integral is summed twice.
int incre_pid(int measured, int setpoint, pid_state *state);

#endif
