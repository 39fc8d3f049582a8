// Frames in, events and boxes out, for an hour's worth of frames: live bytes, threads and descriptors stay
// what they were after the first thousand. Every frame is waited for, so that the counts are taken when
// nothing is under way.
#include <dirent.h>
#include <malloc.h>
#include <semaphore.h>

#include <atomic>
#include <cstdlib>
#include <vector>

#include <gtest/gtest.h>

#include "event_channels.h"
#include "ir_white_led.h"
#include "ircut.h"
#include "mid_hchd.h"
#include "mid_hchd_fav_area.h"
#include "motion_event_record.h"
#include "motion_track.h"
#include "naro_ipc_wire.h"
#include "queues.h"

#if defined(__SANITIZE_ADDRESS__)
// The sanitizer's own; not every compiler brings the header that declares it.
extern "C" size_t __sanitizer_get_current_allocated_bytes(void);
static long live_bytes()
{
    return static_cast<long>(__sanitizer_get_current_allocated_bytes());
}
static const bool counts_bytes = true;
#elif defined(__SANITIZE_THREAD__)
static long live_bytes()
{
    return 0;
}
static const bool counts_bytes = false; // its allocator belongs to the sanitizer
#else
static long live_bytes()
{
    struct mallinfo2 info = mallinfo2();
    return static_cast<long>(info.uordblks + info.hblkhd);
}
static const bool counts_bytes = true;
#endif

// ---- What stands around the detection task ---------------------------------------------------------------
static std::atomic<int> people_events, object_events;
static sem_t analysed;

int shbf_event_broadcast(int index, const void *buf, int len)
{
    EXPECT_EQ(EVENT_CHANNEL_MD, index);
    EXPECT_EQ(EVENT_MOTION_LENGTH, len);
    (*static_cast<const char *>(buf) == 'P' ? people_events : object_events)++;
    return 0;
}

// A night of the smart mode, so that its light is asked for.
int get_current_night_mode(int *night, int *mode, int *alarm)
{
    *night = 1;
    *mode = NARO_IRCUT_MODE_AUTO_SMART;
    *alarm = 0;
    return 0;
}
int led_task_set_white_led_on(void)
{
    return 0;
}
void mid_hchd_fav_area_algo_init(void) {}
int motion_track_coordinate_config(int, int, int, int)
{
    return 0;
}
int motion_record_event_write_wrap(uint32_t, uint64_t, int32_t, uint16_t, uint16_t, uint16_t, uint16_t)
{
    return -1; // the card is out
}

// The last thing that happens to a frame but the return of the one before.
int naro_isp_track_run(const naro_isp_track_param *param, int count)
{
    EXPECT_NE(nullptr, param);
    EXPECT_LE(count, 5);
    sem_post(&analysed);
    return 0;
}

static int entries(const char *folder)
{
    int n = 0;
    DIR *d = opendir(folder);
    while (readdir(d))
        n++;
    closedir(d);
    return n;
}

// A textured room with a bright block that walks and jumps: motion in places of every size, some frames
// still.
static void paint(std::vector<unsigned char> &picture, int frame)
{
    for (int y = 0; y < ANALYSIS_HEIGHT; y++)
        for (int x = 0; x < ANALYSIS_WIDTH; x++)
            picture[y * ANALYSIS_WIDTH + x] = static_cast<unsigned char>(60 + (x * 7 + y * 13) % 40);
    for (size_t i = ANALYSIS_CHROMA_OFFSET; i < picture.size(); i++)
        picture[i] = 128;
    if (frame % 7 == 0)
        return;
    int w = 16 + frame * 5 % 120, h = 24 + frame * 11 % 140;
    int x0 = frame * 37 % (ANALYSIS_WIDTH - w), y0 = frame * 23 % (ANALYSIS_HEIGHT - h);
    for (int y = y0; y < y0 + h; y++)
        for (int x = x0; x < x0 + w; x++)
            picture[y * ANALYSIS_WIDTH + x] = static_cast<unsigned char>(200 + (x ^ y) % 50);
}

TEST(soak, an_hour_of_frames_leaves_nothing_behind)
{
    // Five frames a second: 18,000 an hour. The sanitizers are an order slower; they get five minutes' worth
    // unless the long run is asked for.
    int last = 18000;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    if (!getenv("NARO_LONG"))
        last = 1500;
#endif
    // The picture repeats every 250 frames and both counts are taken at the same place of it, because the
    // detector keeps its last outputs, whose size follows the crop.
    const int period = 250, first = last == 18000 ? 1000 : period;
    sem_init(&analysed, 0, 0);
    ASSERT_EQ(0, queues2_init());
    ASSERT_EQ(0, mid_hchd_init(2));
    std::vector<unsigned char> picture(ANALYSIS_FRAME_BYTES);
    long bytes_then = 0;
    int threads_then = 0, files_then = 0;
    for (int frame = 0; frame <= last; frame++) {
        paint(picture, frame % period);
        ASSERT_EQ(0, motion_queue_list_enqueue(picture.data(), static_cast<uint32_t>(picture.size()),
                                               ANALYSIS_WIDTH, ANALYSIS_HEIGHT, QUEUE_ELEMENT_FRAME,
                                               200ull * frame));
        if (frame > 0) // the very first frame is only the reference
            sem_wait(&analysed);
        if (frame == first) {
            bytes_then = live_bytes();
            threads_then = entries("/proc/self/task");
            files_then = entries("/proc/self/fd");
        }
    }
    if (counts_bytes) {
        EXPECT_EQ(bytes_then, live_bytes());
    }
    EXPECT_EQ(threads_then, entries("/proc/self/task"));
    EXPECT_EQ(files_then, entries("/proc/self/fd"));
    EXPECT_GT(people_events + object_events, last / 2);
    EXPECT_EQ(0, mid_hchd_fini());
    EXPECT_EQ(0, queues2_exit());
}
