// What every implementation of the platform's memory helpers owes to its callers.
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stdint.h>
#include <string.h>

#include "heap_use.h"
#include "naro_util.h"

namespace
{

TEST(naro_malloc, aligns)
{
    for (size_t alignment = 1; alignment <= 4096; alignment *= 2)
        for (size_t size : {1u, 63u, 64u, 184320u}) {
            void *memory = naro_malloc(size, alignment);
            ASSERT_NE(memory, nullptr);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(memory) % alignment, 0u);
            memset(memory, 0xA5, size); // all of it is ours
            naro_free(memory);
        }
}

TEST(naro_malloc, an_empty_area_is_not_a_failure)
{
    void *memory = naro_malloc(0, 64);
    EXPECT_NE(memory, nullptr);
    naro_free(memory);
}

TEST(naro_malloc, refuses_an_alignment_that_is_no_power_of_two)
{
    for (size_t alignment : {0u, 3u, 24u, 65u}) {
        errno = 0;
        EXPECT_EQ(naro_malloc(64, alignment), nullptr) << alignment;
        EXPECT_EQ(errno, EINVAL) << alignment;
    }
}

TEST(naro_malloc, null_when_there_is_not_so_much_memory)
{
    volatile size_t size = SIZE_MAX / 2 - 4096; // not known to the compiler, which would warn
    errno = 0;
    EXPECT_EQ(naro_malloc(size, 64), nullptr);
    EXPECT_EQ(errno, ENOMEM);
}

TEST(naro_free, gives_the_memory_back)
{
    EXPECT_EQ(leaked_bytes([] { naro_free(naro_malloc(1000, 64)); }), 0u);
}

TEST(naro_free, takes_null)
{
    naro_free(nullptr);
}

TEST(naro_copy, copies_exactly_the_length)
{
    const char from[] = "0123456789";
    char to[] = "abcdefghij";
    naro_copy(to + 1, from + 2, 3);
    EXPECT_STREQ(to, "a234efghij");
    naro_copy(to, from, 0);
    EXPECT_STREQ(to, "a234efghij");
    naro_copy(to, from, 1);
    EXPECT_STREQ(to, "0234efghij");
    naro_copy(nullptr, nullptr, 0);
}

TEST(naro_round, rounds_up_to_a_multiple)
{
    const struct {
        int value, multiple, expected;
    } cases[] = {
        {40, 64, 64},
        {0, 64, 0},
        {1, 64, 64},
        {63, 64, 64},
        {64, 64, 64},
        {65, 64, 128},
        {7, 1, 7},
        {10, 3, 12},
        {9, 3, 9},
        {-1, 4, 0},
        {-4, 4, -4},
        {-5, 4, -4},
        {-7, 4, -4},
        {-8, 4, -8},
        {INT_MAX - 1, 2, INT_MAX - 1},
        {INT_MAX, 1, INT_MAX},
        {5, INT_MAX, INT_MAX},
        {INT_MIN, 2, INT_MIN},
    };
    for (const auto &c : cases)
        EXPECT_EQ(naro_round(c.value, c.multiple), c.expected) << c.value << " to " << c.multiple;
}

TEST(naro_round, the_largest_int_where_the_multiple_is_beyond)
{
    EXPECT_EQ(naro_round(INT_MAX, 64), INT_MAX);
    EXPECT_EQ(naro_round(INT_MAX, 2), INT_MAX);
    EXPECT_EQ(naro_round(INT_MAX - 1, INT_MAX), INT_MAX);
}

TEST(naro_round, leaves_the_value_alone_without_a_multiple)
{
    EXPECT_EQ(naro_round(5, 0), 5);
    EXPECT_EQ(naro_round(5, -4), 5);
}

} // namespace
