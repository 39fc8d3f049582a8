// The look at the free memory: what is read, what is enough, and what is said.
#include <errno.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string.h>
#include <string>

#include "isolate.h"
#include "log_capture.h"
#include "naro_util.h"
#include "nn/nn_memory_check.h"

namespace
{

const std::string root = scratch_root();

void meminfo(const std::string &text)
{
    std::filesystem::create_directory(root + "/proc");
    std::ofstream(root + "/proc/meminfo") << text;
}

// 0 or -1, and the output must be `text`.
void expect(int result, const std::string &text, uint32_t base_bytes, double factor = 1)
{
    OutputCapture out(STDOUT_FILENO);
    EXPECT_EQ(nn_memory_check(base_bytes, factor), result);
    EXPECT_EQ(out.text(), text);
}

std::string refusal(unsigned required_kb, unsigned available_kb)
{
    return "Error: Require " + std::to_string(required_kb) + " KB + 2929 KB margin, but only " +
           std::to_string(available_kb) + " KB are available.\n";
}

// 3000 kB are the margin and 72000 bytes.
TEST(MemoryCheck, PassesWhenTheMarginStaysFreeToTheByte)
{
    meminfo("MemTotal:  900000 kB\nMemFree:  1 kB\nMemAvailable:    3000 kB\nBuffers: 7 kB\n");
    expect(0, "", 72000);
    expect(-1, refusal(70, 3000), 72001);
}

TEST(MemoryCheck, TheFactorMultipliesAndTheProductIsCutToWholeBytes)
{
    meminfo("MemAvailable: 3000 kB\n");
    expect(0, "", 28800, 2.5);
    expect(0, "", 144001, 0.5);
    expect(-1, refusal(70, 3000), 144002, 0.5);
    expect(-1, refusal(1186, 3000), 810000, 1.5);
}

TEST(MemoryCheck, WithoutTheLineNothingIsAvailable)
{
    meminfo("MemTotal:  900000 kB\nMemFree:  800000 kB\n");
    expect(-1, refusal(0, 0), 0);
    meminfo("");
    expect(-1, refusal(546, 0), 560000);
}

TEST(MemoryCheck, ALineWithoutNumberIsNothing)
{
    meminfo("MemAvailable:\n");
    expect(-1, refusal(0, 0), 0);
    meminfo("MemAvailable: many kB\n");
    expect(-1, refusal(0, 0), 0);
    // The number is the second of the tokens that blanks divide, and here that is the unit.
    meminfo("MemAvailable:90000 kB\n");
    expect(-1, refusal(0, 0), 0);
}

TEST(MemoryCheck, TheFirstLineThatNamesItCounts)
{
    meminfo("NotMemAvailable: 3000 kB\nMemAvailable: 90000 kB\n");
    expect(-1, refusal(70, 3000), 72001);
}

TEST(MemoryCheck, LinesAreReadSixtyThreeCharactersAtATime)
{
    // The name ends with the 63rd character.
    const std::string head = "x 9000 ";
    meminfo(head + std::string(63 - head.size() - strlen("MemAvailable:"), '.') + "MemAvailable: 1 kB\n");
    expect(0, "", 72000);
    // One further it is torn apart.
    meminfo(head + std::string(64 - head.size() - strlen("MemAvailable:"), '.') + "MemAvailable: 9000 kB\n");
    expect(-1, refusal(70, 0), 72000);
}

TEST(MemoryCheck, ALargeMachineIsNotCutTo32Bits)
{
    meminfo("MemAvailable: 4194304 kB\n"); // 4 GB: 0 in 32 bits
    expect(0, "", 560000);
    // 2 x 3 GB: 2 GB in 32 bits
    expect(-1, refusal(6291456, 4194304), 3221225472u, 2);
}

TEST(MemoryCheck, PassesWithAWarningWhenNothingIsKnown)
{
    meminfo("MemAvailable: 1 kB\n");
    naro_file_set_fault(
        [](void *, const char *call, const char *path) {
            return strcmp(call, "fopen") == 0 && strcmp(path, "/proc/meminfo") == 0 ? EACCES : 0;
        },
        nullptr);
    expect(0, "Warning: Cannot open /proc/meminfo, the amount of free memory is unknown.\n", 560000);
    naro_file_set_fault(nullptr, nullptr);
}

TEST(MemoryCheck, ClosesTheFile)
{
    meminfo("MemAvailable: 90000 kB\n");
    const auto descriptors = [] {
        const std::filesystem::directory_iterator all("/proc/self/fd");
        return std::distance(begin(all), end(all));
    };
    const auto before = descriptors();
    for (int i = 0; i < 3; ++i)
        expect(0, "", 1);
    EXPECT_EQ(descriptors(), before);
}

} // namespace
