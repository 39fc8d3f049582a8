// Recordings can be played again, and show what was found.
#include "record.h"

#include <fcntl.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include "isolate.h"
#include "log_capture.h"
#include "overlay.h"

namespace
{

using testing::HasSubstr;

const std::string folder = scratch_root() + "/recording";
using View = std::vector<uint32_t>;

View plain(uint32_t colour)
{
    return View(VIEW_WIDTH * VIEW_HEIGHT, colour);
}

uint32_t at(const View &view, int x, int y)
{
    return view[static_cast<size_t>(y * VIEW_WIDTH + x)] & 0xffffff;
}

// Every picture of a video: its time and its mean luma.
std::vector<std::pair<int64_t, int>> play(const std::string &path)
{
    std::vector<std::pair<int64_t, int>> pictures;
    AVFormatContext *format = nullptr;
    EXPECT_GE(avformat_open_input(&format, path.c_str(), nullptr, nullptr), 0) << path;
    if (!format)
        return pictures;
    avformat_find_stream_info(format, nullptr);
    const AVCodecParameters *parameters = format->streams[0]->codecpar;
    EXPECT_EQ(parameters->width, 640);
    EXPECT_EQ(parameters->height, 384);
    AVCodecContext *codec = avcodec_alloc_context3(nullptr);
    avcodec_parameters_to_context(codec, parameters);
    EXPECT_GE(avcodec_open2(codec, avcodec_find_decoder(parameters->codec_id), nullptr), 0);
    AVPacket *packet = av_packet_alloc();
    AVFrame *frame = av_frame_alloc();
    for (bool more = true; more;) {
        more = av_read_frame(format, packet) >= 0;
        avcodec_send_packet(codec, more ? packet : nullptr);
        while (avcodec_receive_frame(codec, frame) == 0)
            pictures.emplace_back(av_rescale_q(frame->pts, format->streams[0]->time_base, {1, 1000}),
                                  frame->data[0][200 * frame->linesize[0] + 300]);
        av_packet_unref(packet);
    }
    av_frame_free(&frame);
    av_packet_free(&packet);
    avcodec_free_context(&codec);
    avformat_close_input(&format);
    return pictures;
}

std::string text_of(const std::string &path)
{
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

TEST(Record, IsAVideoAndAListOfEvents)
{
    ASSERT_EQ(record_start(folder.c_str()), 0);
    for (uint64_t k = 0; k < 12; k++)
        record_picture(plain(k % 2 ? 0xffffffff : 0xff000000).data(), 200 * k);
    record_event("{\"one\":1}");
    record_event("{\"two\":2}");
    EXPECT_EQ(text_of(folder + "/events.jsonl"), "{\"one\":1}\n{\"two\":2}\n")
        << "readable while it is written";
    record_stop();
    const auto pictures = play(folder + "/video.mp4");
    ASSERT_EQ(pictures.size(), 12u);
    for (size_t k = 0; k < 12; k++) {
        EXPECT_EQ(pictures[k].first, static_cast<int64_t>(200 * k));
        EXPECT_NEAR(pictures[k].second, k % 2 ? 235 : 16, 6);
    }
}

TEST(Record, TimesThatStandStillRiseByTheSmallestStep)
{
    ASSERT_EQ(record_start(folder.c_str()), 0);
    for (const uint64_t time : {0, 0, 0, 200, 200})
        record_picture(plain(0).data(), time);
    record_stop();
    std::vector<int64_t> times;
    for (const auto &picture : play(folder + "/video.mp4"))
        times.push_back(picture.first);
    EXPECT_THAT(times, testing::ElementsAre(0, 1, 2, 200, 201));
}

TEST(Record, WritesOverWhatWasThere)
{
    mkdir(folder.c_str(), 0755);
    std::ofstream(folder + "/events.jsonl") << "old\n";
    ASSERT_EQ(record_start(folder.c_str()), 0);
    record_stop();
    EXPECT_EQ(text_of(folder + "/events.jsonl"), "");
}

TEST(Record, AFolderThatCannotBeMadeIsSaid)
{
    OutputCapture errors(STDERR_FILENO);
    EXPECT_EQ(record_start("/nowhere/at/all"), -1);
    EXPECT_THAT(errors.text(), HasSubstr("/nowhere/at/all: No such file or directory"));
    record_stop();
}

TEST(Record, AFullDiskEndsTheRecordingAndNothingElse)
{
    OutputCapture errors(STDERR_FILENO);
    ASSERT_EQ(record_start(folder.c_str()), 0);
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {2000, 2000};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    View noise = plain(0);
    for (uint64_t k = 0; k < 300; k++) {
        for (uint32_t &pixel : noise)
            pixel = pixel * 1664525u + 1013904223u + static_cast<uint32_t>(k);
        record_picture(noise.data(), 200 * k);
        record_event("{\"an event of some length\":1234567890}");
    }
    record_stop();
    EXPECT_THAT(errors.text(), HasSubstr("video.mp4: writing: "));
    EXPECT_THAT(errors.text(), HasSubstr("no more is recorded"));
    EXPECT_THAT(errors.text(), HasSubstr("no more events are recorded"));
}

// ---- What is drawn in ----

const uint32_t green = 0x40f266; // people

// The same colour, but for rounding.
bool alike(uint32_t a, uint32_t b)
{
    for (int shift = 0; shift < 24; shift += 8)
        if (abs(static_cast<int>(a >> shift & 255) - static_cast<int>(b >> shift & 255)) > 2)
            return false;
    return true;
}

frame_result result(int boxes, const std::vector<std::string> &events)
{
    frame_result result = {};
    result.time_ms = 12400;
    result.analysed = true;
    result.track.box[0] = {100, 60, 150, 160};
    result.boxes = boxes;
    result.events = events;
    return result;
}

struct Overlay : testing::Test {
    ~Overlay() override { overlay_exit(); }
};

TEST_F(Overlay, BoxesLieAtTwiceTheirPlace)
{
    View view = plain(0x808080);
    const frame_result one = result(1, {"PeopleMotion"});
    overlay_draw(view.data(), &one, nullptr);
    for (const auto &[x, y] : {std::pair{200, 200}, {300, 200}, {250, 120}, {250, 320}})
        EXPECT_TRUE(alike(at(view, x, y), green)) << x << "," << y;
    EXPECT_EQ(at(view, 250, 220), 0x808080u) << "inside";
    EXPECT_EQ(at(view, 190, 220), 0x808080u) << "outside";
    EXPECT_EQ(at(view, 250, 330), 0x808080u) << "below";
}

TEST_F(Overlay, WithoutBoxesNoneIsDrawn)
{
    View view = plain(0x808080);
    const frame_result none = result(0, {});
    overlay_draw(view.data(), &none, nullptr);
    for (const auto &[x, y] : {std::pair{200, 200}, {250, 120}, {250, 320}})
        EXPECT_EQ(at(view, x, y), 0x808080u);
    EXPECT_NE(at(view, 8, 8), 0x808080u) << "the time has a dark ground";
}

TEST_F(Overlay, TheTruthIsDashedAndNamed)
{
    truth_moment truth = {};
    truth.actors.resize(2);
    truth.actors[0].name = "anna";
    truth.actors[0].moves = true;
    const float box[] = {100, 60, 150, 160};
    memcpy(truth.actors[0].box, box, sizeof box);
    truth.actors[1].name = "unseen"; // nothing of it is visible
    View view = plain(0x808080), without = view;
    const frame_result none = result(0, {});
    overlay_draw(view.data(), &none, &truth);
    overlay_draw(without.data(), &none, nullptr);
    int dash = 0, gap = 0, named = 0;
    for (int y = 130; y < 310; y++)
        (at(view, 200, y) == 0x808080u ? gap : dash)++;
    EXPECT_GT(dash, 60);
    EXPECT_GT(gap, 60);
    EXPECT_EQ(at(view, 250, 220), 0x808080u) << "inside";
    EXPECT_EQ(at(view, 198, 220), 0x808080u) << "outside";
    for (int y = 321; y < 335; y++)
        for (int x = 200; x < 260; x++)
            named += at(view, x, y) != 0x808080u;
    EXPECT_GT(named, 40);
    for (int y = 0; y < 40; y++)
        for (int x = 0; x < VIEW_WIDTH; x++)
            EXPECT_EQ(at(view, x, y), at(without, x, y)) << x << "," << y;
}

// How many pixels of the upper edge have a colour.
int count(const View &view, uint32_t colour)
{
    int number = 0;
    for (int y = 0; y < 40; y++)
        for (int x = 0; x < VIEW_WIDTH; x++)
            number += alike(at(view, x, y), colour);
    return number;
}

TEST_F(Overlay, EventsAreNamedInTheirColours)
{
    const uint32_t amber = 0xffbf33, white = 0xffffff;
    View people = plain(0x808080), motion = people, other = people, lost = people, nothing = people;
    frame_result shown = result(0, {"PeopleMotion"});
    overlay_draw(people.data(), &shown, nullptr);
    shown = result(0, {"ObjectMotion"});
    overlay_draw(motion.data(), &shown, nullptr);
    shown = result(0, {"Door"});
    overlay_draw(other.data(), &shown, nullptr);
    shown = result(0, {});
    overlay_draw(nothing.data(), &shown, nullptr);
    shown.lost = true;
    overlay_draw(lost.data(), &shown, nullptr);
    EXPECT_GT(count(people, green), 50);
    EXPECT_EQ(count(people, amber), 0);
    EXPECT_GT(count(motion, amber), 50);
    EXPECT_EQ(count(motion, green), 0);
    EXPECT_GT(count(nothing, white), 20) << "the time";
    EXPECT_GT(count(other, white), count(nothing, white));
    EXPECT_GT(count(lost, white), count(nothing, white)) << "it is said when a frame was not analysed";
}

} // namespace
