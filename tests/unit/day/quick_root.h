// A scratch root in memory where there is such a place: a day in mode 5 reads the white LED's file 170,000 times.
#ifndef NARO_TESTS_QUICK_ROOT_H
#define NARO_TESTS_QUICK_ROOT_H

#include "isolate.h"

inline std::string quick_root()
{
    if (access("/dev/shm", W_OK) == 0)
        setenv("TMPDIR", "/dev/shm", 1);
    return scratch_root();
}

#endif
