// The head's place, shared by a file.
#include "motor_view.h"

#include <atomic>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "isolate.h"

namespace
{

const std::string root = scratch_root();

struct MotorView : testing::Test {
    MotorView()
    {
        mkdir((root + "/run").c_str(), 0755);
        mkdir((root + "/run/naro").c_str(), 0755);
    }
    std::string path() { return root + MOTOR_VIEW_PATH; }
    // A word of the file, by its place.
    void poke(int word, uint32_t value)
    {
        const int fd = open(path().c_str(), O_RDWR | O_CLOEXEC);
        ASSERT_EQ(pwrite(fd, &value, sizeof value, word * 4), 4);
        close(fd);
    }
};

motor_view_record sample(int n)
{
    motor_view_record record = {};
    record.moves = static_cast<uint32_t>(n);
    record.turning = n % 2 != 0;
    record.place = {{{n, n * 0.5}, {-n, n * -0.25}}};
    record.speed[MOTOR_PAN] = n;
    record.speed[MOTOR_TILT] = -n;
    return record;
}

void expect_sample(const motor_view_record &record, int n)
{
    EXPECT_EQ(record.moves, static_cast<uint32_t>(n));
    EXPECT_EQ(record.turning, n % 2 != 0);
    EXPECT_EQ(record.place.axis[MOTOR_PAN].steps, n);
    EXPECT_EQ(record.place.axis[MOTOR_TILT].steps, -n);
    EXPECT_NEAR(record.place.axis[MOTOR_PAN].head, n * 0.5, 1e-6);
    EXPECT_NEAR(record.place.axis[MOTOR_TILT].head, n * -0.25, 1e-6);
    EXPECT_NEAR(record.speed[MOTOR_PAN], n, 1e-3);
    EXPECT_NEAR(record.speed[MOTOR_TILT], -n, 1e-3);
}

TEST_F(MotorView, IsReadAsItWasWrittenByAnother)
{
    motor_view_file *writer = motor_view_open(true), *reader = motor_view_open(false);
    ASSERT_TRUE(writer && reader);
    motor_view_record record = sample(99);
    EXPECT_FALSE(motor_view_read(reader, &record)) << "nobody has written yet";
    expect_sample(record, 99);
    for (int n : {7, 120, 0}) {
        const motor_view_record written = sample(n);
        motor_view_write(writer, &written);
        ASSERT_TRUE(motor_view_read(reader, &record));
        expect_sample(record, n);
    }
    motor_view_close(writer);
    motor_view_close(reader);
    motor_view_close(nullptr);
    struct stat status;
    ASSERT_EQ(stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    EXPECT_EQ(status.st_size, 40);
}

TEST_F(MotorView, OutlivesItsWriterAndBeginsAnewWhenTheCameraIsSwitchedOn)
{
    motor_view_file *view = motor_view_open(true);
    const motor_view_record written = sample(5);
    motor_view_write(view, &written);
    motor_view_close(view);
    motor_view_record record;
    view = motor_view_open(false);
    ASSERT_TRUE(motor_view_read(view, &record));
    expect_sample(record, 5);
    motor_view_file *camera = motor_view_open(true);
    EXPECT_FALSE(motor_view_read(view, &record)) << "the same file, so whoever has it mapped sees it";
    motor_view_close(camera);
    motor_view_close(view);
}

TEST_F(MotorView, AWriterThatDiedInsideIsSeenAndReplaced)
{
    motor_view_file *view = motor_view_open(true);
    const motor_view_record written = sample(4), next = sample(6);
    motor_view_write(view, &written);
    poke(1, 3); // odd: inside a write
    motor_view_record record;
    EXPECT_FALSE(motor_view_read(view, &record));
    motor_view_write(view, &next);
    ASSERT_TRUE(motor_view_read(view, &record));
    expect_sample(record, 6);
    motor_view_close(view);
}

TEST_F(MotorView, NonsenseIsNoView)
{
    motor_view_file *view = motor_view_open(true);
    const motor_view_record written = sample(4);
    motor_view_write(view, &written);
    motor_view_record record;
    poke(6, 721 * 1000000); // the head's pan
    EXPECT_FALSE(motor_view_read(view, &record));
    poke(6, 720 * 1000000);
    EXPECT_TRUE(motor_view_read(view, &record));
    poke(7, static_cast<uint32_t>(-721 * 1000000));
    EXPECT_FALSE(motor_view_read(view, &record));
    poke(7, 0);
    EXPECT_TRUE(motor_view_read(view, &record));
    poke(0, 1); // the mark
    EXPECT_FALSE(motor_view_read(view, &record));
    motor_view_close(view);
}

TEST_F(MotorView, KeepsNoDescriptor)
{
    const int before = dup(0);
    close(before);
    motor_view_file *view = motor_view_open(true);
    ASSERT_TRUE(view);
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
    motor_view_close(view);
}

TEST_F(MotorView, AFileOfAnotherSizeIsMadeRight)
{
    motor_view_close(motor_view_open(true));
    ASSERT_EQ(truncate(path().c_str(), 3), 0);
    motor_view_file *view = motor_view_open(false);
    ASSERT_TRUE(view);
    const motor_view_record written = sample(4);
    motor_view_write(view, &written);
    motor_view_record record;
    EXPECT_TRUE(motor_view_read(view, &record));
    motor_view_close(view);
    unlink(path().c_str());
    mkdir(path().c_str(), 0755);
    EXPECT_EQ(motor_view_open(false), nullptr);
    rmdir(path().c_str());
}

TEST_F(MotorView, IsNeverSeenHalfWritten)
{
    motor_view_file *writer = motor_view_open(true), *reader = motor_view_open(false);
    std::atomic<bool> done{false};
    std::thread thread([&] {
        for (int n = 0; n < 100000; n++) {
            const motor_view_record record = sample(n % 700);
            motor_view_write(writer, &record);
        }
        done = true;
    });
    int read = 0;
    while (!done) {
        motor_view_record record;
        if (!motor_view_read(reader, &record))
            continue;
        read++;
        ASSERT_EQ(record.place.axis[MOTOR_PAN].steps, static_cast<int>(record.moves));
        ASSERT_EQ(record.place.axis[MOTOR_TILT].steps, -static_cast<int>(record.moves));
        ASSERT_NEAR(record.place.axis[MOTOR_PAN].head, record.moves * 0.5, 1e-6);
        ASSERT_NEAR(record.speed[MOTOR_TILT], -static_cast<double>(record.moves), 1e-3);
    }
    thread.join();
    EXPECT_GT(read, 0);
    motor_view_close(writer);
    motor_view_close(reader);
}

} // namespace
