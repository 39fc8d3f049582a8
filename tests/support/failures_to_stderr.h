// Failures also go to the error stream: for tests that capture standard output, where the test library writes
// them. Including it is enough.
#ifndef NARO_TESTS_FAILURES_TO_STDERR_H
#define NARO_TESTS_FAILURES_TO_STDERR_H

#include <gtest/gtest.h>
#include <stdio.h>

class FailuresToStderr : public testing::EmptyTestEventListener
{
    void OnTestPartResult(const testing::TestPartResult &result) override
    {
        if (result.failed())
            fprintf(stderr, "%s:%d: %s\n", result.file_name() ? result.file_name() : "?",
                    result.line_number(), result.message());
    }
};

inline const bool failures_go_to_stderr =
    (testing::UnitTest::GetInstance()->listeners().Append(new FailuresToStderr), true);

#endif
