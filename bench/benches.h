// The comparisons, each in a file of its own. Each prints what it measured, and says so where it could not.
#ifndef NARO_BENCHES_H
#define NARO_BENCHES_H

void bench_block_difference(void);
void bench_conversion(void);
void bench_detector(void);
void bench_queue(void);
void bench_command(void);
void bench_broadcast(void);
void bench_settings(void);
void bench_notify(void);

#endif
