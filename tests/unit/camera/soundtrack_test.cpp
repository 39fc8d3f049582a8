// The sound of files, played as a source: what the camera's ear makes of it, and when.
#include "soundtrack.h"

#include <chrono>
#include <condition_variable>
#include <ev.h>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <math.h>
#include <mutex>

#include "clip_maker.h"
#include "isolate.h"
#include "log_capture.h"
#include "shbf.h"
#include "sound.h"
#include "source.h"

extern "C" {
#include <libavutil/frame.h>
}

namespace
{

using testing::HasSubstr;

const std::string folder = scratch_root();

struct Tone {
    double from_s, to_s, amplitude; // full range: 1
};

struct Clip {
    const char *codec = "pcm_s16le";
    AVSampleFormat format = AV_SAMPLE_FMT_S16;
    int rate = 48000, channels = 1;
    double seconds = 4;
    double video_begins_s = 0, sound_begins_s = 0, sound_ends_s = 1e9; // in the file's own time
    std::vector<Tone> tones; // in the file's own time, in the last channel
};

template <typename T>
void put(AVFrame *frame, bool planar, int channel, int channels, int i, double value, double scale,
         double zero)
{
    T *plane = reinterpret_cast<T *>(frame->data[planar ? channel : 0]);
    plane[planar ? i : i * channels + channel] = static_cast<T>(value * scale + zero);
}

void put_sample(AVFrame *frame, AVSampleFormat format, int channel, int channels, int i, double value)
{
    const bool planar = av_sample_fmt_is_planar(format) != 0;
    switch (av_get_packed_sample_fmt(format)) {
    case AV_SAMPLE_FMT_U8:
        return put<uint8_t>(frame, planar, channel, channels, i, value, 127, 128);
    case AV_SAMPLE_FMT_S16:
        return put<int16_t>(frame, planar, channel, channels, i, value, 32767, 0);
    case AV_SAMPLE_FMT_S32:
        return put<int32_t>(frame, planar, channel, channels, i, value, 2147483000., 0);
    case AV_SAMPLE_FMT_FLT:
        return put<float>(frame, planar, channel, channels, i, value, 1, 0);
    case AV_SAMPLE_FMT_DBL:
        return put<double>(frame, planar, channel, channels, i, value, 1, 0);
    default:
        ADD_FAILURE();
    }
}

AVCodecContext *open_encoder(AVFormatContext *format, const char *name,
                             const std::function<void(AVCodecContext *)> &set_up)
{
    const AVCodec *encoder = avcodec_find_encoder_by_name(name);
    AVCodecContext *codec = avcodec_alloc_context3(encoder);
    codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    set_up(codec);
    EXPECT_GE(avcodec_open2(codec, encoder, nullptr), 0) << name;
    AVStream *stream = avformat_new_stream(format, nullptr);
    stream->time_base = codec->time_base;
    avcodec_parameters_from_context(stream->codecpar, codec);
    return codec;
}

void encode(AVFormatContext *format, AVCodecContext *codec, int stream, AVFrame *frame)
{
    AVPacket *packet = av_packet_alloc();
    avcodec_send_frame(codec, frame);
    av_frame_free(&frame);
    while (avcodec_receive_packet(codec, packet) == 0) {
        av_packet_rescale_ts(packet, codec->time_base, format->streams[stream]->time_base);
        packet->stream_index = stream;
        ASSERT_GE(av_interleaved_write_frame(format, packet), 0);
    }
    av_packet_free(&packet);
}

// A Matroska file with ten grey pictures a second and a sound beside them.
void make_sound_clip(const std::string &path, const Clip &clip)
{
    AVFormatContext *format = nullptr;
    ASSERT_GE(avformat_alloc_output_context2(&format, nullptr, "matroska", path.c_str()), 0);
    AVCodecContext *video = open_encoder(format, "ffv1", [](AVCodecContext *codec) {
        codec->width = codec->height = 32;
        codec->pix_fmt = AV_PIX_FMT_YUV420P;
        codec->time_base = {1, 1000};
    });
    AVCodecContext *sound = open_encoder(format, clip.codec, [&](AVCodecContext *codec) {
        codec->sample_fmt = clip.format;
        codec->sample_rate = clip.rate;
        codec->bit_rate = 192000;
        codec->time_base = {1, clip.rate};
#if LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(57, 28, 100)
        av_channel_layout_default(&codec->ch_layout, clip.channels);
#else
        codec->channels = clip.channels;
        codec->channel_layout = static_cast<uint64_t>(av_get_default_channel_layout(clip.channels));
#endif
    });
    ASSERT_GE(avio_open(&format->pb, path.c_str(), AVIO_FLAG_WRITE), 0);
    ASSERT_GE(avformat_write_header(format, nullptr), 0);
    const int step = sound->frame_size > 0 ? sound->frame_size : clip.rate / 50;
    int next_picture = 0;
    for (int64_t at = 0; static_cast<double>(at) < clip.seconds * clip.rate; at += step) {
        const double now_s = static_cast<double>(at) / clip.rate;
        for (; next_picture / 10. <= now_s; next_picture++) {
            if (next_picture / 10. < clip.video_begins_s)
                continue;
            AVFrame *picture = av_frame_alloc();
            picture->width = picture->height = 32;
            picture->format = AV_PIX_FMT_YUV420P;
            picture->pts = next_picture * 100;
            ASSERT_EQ(av_frame_get_buffer(picture, 0), 0);
            for (int plane = 0; plane < 3; plane++)
                memset(picture->data[plane], 128,
                       static_cast<size_t>(picture->linesize[plane] * (plane ? 16 : 32)));
            encode(format, video, 0, picture);
        }
        if (now_s < clip.sound_begins_s || now_s >= clip.sound_ends_s)
            continue;
        AVFrame *samples = av_frame_alloc();
        samples->nb_samples = step;
        samples->format = clip.format;
        samples->sample_rate = clip.rate;
        samples->pts = at;
#if LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(57, 28, 100)
        av_channel_layout_copy(&samples->ch_layout, &sound->ch_layout);
#else
        samples->channels = clip.channels;
        samples->channel_layout = sound->channel_layout;
#endif
        ASSERT_EQ(av_frame_get_buffer(samples, 0), 0);
        for (int i = 0; i < step; i++) {
            const double time_s = static_cast<double>(at + i) / clip.rate;
            double value = 0;
            for (const Tone &tone : clip.tones)
                if (time_s >= tone.from_s && time_s < tone.to_s)
                    value = tone.amplitude * sin(2 * M_PI * 1000 * time_s);
            for (int c = 0; c < clip.channels; c++)
                put_sample(samples, clip.format, c, clip.channels, i, c == clip.channels - 1 ? value : 0);
        }
        encode(format, sound, 1, samples);
    }
    encode(format, video, 0, nullptr);
    encode(format, sound, 1, nullptr);
    ASSERT_EQ(av_write_trailer(format), 0);
    avio_closep(&format->pb);
    avcodec_free_context(&video);
    avcodec_free_context(&sound);
    avformat_free_context(format);
}

uint64_t played_ms; // the source's time

class Soundtrack : public testing::Test
{
  protected:
    ~Soundtrack() override
    {
        source_stop();
        sound_stop();
        if (loop) {
            shbf_rcv_global_exit();
            ev_loop_destroy(loop);
        }
    }
    void ear()
    {
        played_ms = 0;
        loop = ev_loop_new(EVFLAG_AUTO);
        ASSERT_EQ(shbf_rcv_global_init(), 0);
        sound_settings settings = {};
        settings.threshold_db = SOUND_THRESHOLD_DB;
        settings.now_ms = [] { return played_ms; };
        ASSERT_EQ(sound_start(loop, &settings), 0);
    }
    void start(const std::string &file, bool again = false, bool listen = true)
    {
        path = file;
        ear();
        source_settings settings = {};
        settings.url = path.c_str();
        settings.loop = again;
        settings.sound = listen;
        settings.wake = [](void *self) { static_cast<Soundtrack *>(self)->wake(); };
        settings.context = this;
        ASSERT_EQ(source_start(&settings), 0);
    }
    void wake()
    {
        std::lock_guard<std::mutex> guard(mutex);
        wakes++;
        woken.notify_all();
    }
    // Plays on to a time of the source and asks there.
    uint32_t heard_at(uint64_t at_ms)
    {
        for (;;) {
            int before;
            {
                std::lock_guard<std::mutex> guard(mutex);
                before = wakes;
            }
            source_picture picture = {};
            const enum source_result result = source_take(at_ms, &picture);
            if (result == SOURCE_WAIT) {
                std::unique_lock<std::mutex> guard(mutex);
                EXPECT_TRUE(woken.wait_for(guard, std::chrono::seconds(20), [&] { return wakes > before; }));
                continue;
            }
            EXPECT_TRUE(result == SOURCE_PICTURE || result == SOURCE_END) << result;
            av_frame_free(&picture.frame);
            break;
        }
        played_ms = at_ms;
        return sound_answer();
    }
    // The answers ten times a second: '.' quiet, '#' loud.
    std::string heard(int from, int to)
    {
        std::string answers;
        for (int tenth = from; tenth < to; tenth++)
            answers += heard_at(static_cast<uint64_t>(tenth) * 100) ? '#' : '.';
        return answers;
    }

    std::string path;
    struct ev_loop *loop = nullptr;
    std::mutex mutex; // protects wakes
    std::condition_variable woken;
    int wakes = 0;
};

TEST_F(Soundtrack, IsHeardWhenItIsShown)
{
    Clip clip;
    clip.tones = {{1, 2, 0.5}};
    make_sound_clip(folder + "/clip.mkv", clip);
    start(folder + "/clip.mkv");
    // -9 dB once the window is full, over -15 from its first third on; until its last third, and half a second more.
    EXPECT_EQ(heard(0, 30), "...........################...");
    EXPECT_EQ(sound_get_counts()->loud, 16u);
}

TEST_F(Soundtrack, ALevelIsRight)
{
    Clip clip;
    clip.tones = {{0, 4, 0.1}};
    make_sound_clip(folder + "/clip.mkv", clip);
    start(folder + "/clip.mkv");
    EXPECT_EQ(heard_at(2000), 0u);
    EXPECT_TRUE(sound_get_counts()->has_level);
    EXPECT_NEAR(sound_get_counts()->level_db, -23.01, 0.05);
}

struct Form {
    const char *codec;
    AVSampleFormat format;
    int rate, channels;
};

class SoundtrackForm : public Soundtrack, public testing::WithParamInterface<Form>
{
};

TEST_P(SoundtrackForm, SamplesOfEveryKind)
{
    Clip clip;
    clip.codec = GetParam().codec;
    clip.format = GetParam().format;
    clip.rate = GetParam().rate;
    clip.channels = GetParam().channels;
    clip.tones = {{2, 4, 0.5}};
    make_sound_clip(folder + "/clip.mkv", clip);
    start(folder + "/clip.mkv");
    EXPECT_EQ(heard_at(1500), 0u);
    EXPECT_LT(sound_get_counts()->level_db, -40);
    EXPECT_EQ(heard_at(3000), 1u);
    EXPECT_NEAR(sound_get_counts()->level_db, -9.03, 0.3);
}

INSTANTIATE_TEST_SUITE_P(, SoundtrackForm,
                         testing::Values(Form{"pcm_u8", AV_SAMPLE_FMT_U8, 8000, 1},
                                         Form{"pcm_s16le", AV_SAMPLE_FMT_S16, 44100, 2},
                                         Form{"pcm_s24le", AV_SAMPLE_FMT_S32, 48000, 2},
                                         Form{"pcm_s32le", AV_SAMPLE_FMT_S32, 11025, 6},
                                         Form{"pcm_f32le", AV_SAMPLE_FMT_FLT, 48000, 1},
                                         Form{"pcm_f64le", AV_SAMPLE_FMT_DBL, 48000, 3},
                                         Form{"aac", AV_SAMPLE_FMT_FLTP, 48000, 2}),
                         [](const auto &test) {
                             return std::string(test.param.codec) + "_" + std::to_string(test.param.channels);
                         });

TEST_F(Soundtrack, TimeBeginsWithTheFirstPicture)
{
    Clip clip;
    clip.video_begins_s = 1.5;
    clip.tones = {{2, 2.5, 0.5}}; // half a second after the first picture
    make_sound_clip(folder + "/clip.mkv", clip);
    start(folder + "/clip.mkv");
    EXPECT_EQ(heard(0, 20), "......###########...");
}

TEST_F(Soundtrack, ThatBeginsLaterAndEndsEarlier)
{
    Clip clip;
    clip.sound_begins_s = 1;
    clip.sound_ends_s = 2;
    clip.tones = {{0, 4, 0.5}};
    make_sound_clip(folder + "/clip.mkv", clip);
    start(folder + "/clip.mkv");
    EXPECT_EQ(heard(0, 30), "...........##############.....") << "where it ends, so do its levels";
}

TEST_F(Soundtrack, PlaysAgainWithThePictures)
{
    Clip clip;
    clip.seconds = 3;
    clip.tones = {{1, 1.5, 0.5}};
    make_sound_clip(folder + "/clip.mkv", clip);
    start(folder + "/clip.mkv", true);
    const std::string round = "...........###########........";
    EXPECT_EQ(heard(0, 30), round);
    EXPECT_EQ(heard(30, 60), round);
    EXPECT_EQ(heard(60, 90), round);
}

TEST_F(Soundtrack, AGapIsSilence)
{
    Clip clip;
    clip.seconds = 8;
    clip.tones = {{1, 1.2, 0.7}, {3, 3.2, 0.3}};
    make_sound_clip(folder + "/clip.mkv", clip);
    start(folder + "/clip.mkv");
    // The first is loud by itself; the second is not, whatever came before it.
    EXPECT_EQ(heard(0, 45), "...........########..........................");
}

TEST_F(Soundtrack, IsNotListenedToUnasked)
{
    Clip clip;
    clip.tones = {{0, 4, 0.9}};
    make_sound_clip(folder + "/clip.mkv", clip);
    start(folder + "/clip.mkv", false, false);
    EXPECT_EQ(heard(10, 20), "..........");
    EXPECT_FALSE(sound_get_counts()->has_level);
}

TEST_F(Soundtrack, AFileWithoutOneIsQuiet)
{
    make_clip(folder + "/clip.mkv", 20, 100);
    OutputCapture errors(STDERR_FILENO);
    start(folder + "/clip.mkv");
    EXPECT_EQ(heard(0, 20), std::string(20, '.'));
    EXPECT_EQ(errors.text(), "");
}

TEST_F(Soundtrack, OneThatCannotBeDecodedIsSaidAndDoneWithout)
{
    make_sound_clip(folder + "/clip.mkv", Clip());
    std::string bytes;
    {
        std::ifstream file(folder + "/clip.mkv", std::ios::binary);
        bytes.assign(std::istreambuf_iterator<char>(file), {});
    }
    const size_t at = bytes.find("A_PCM/INT/LIT");
    ASSERT_NE(at, std::string::npos);
    bytes.replace(at, 5, "A_NIL");
    std::ofstream(folder + "/clip.mkv", std::ios::binary) << bytes;
    OutputCapture errors(STDERR_FILENO);
    start(folder + "/clip.mkv");
    EXPECT_EQ(heard(0, 20), std::string(20, '.'));
    EXPECT_THAT(errors.text(), HasSubstr("clip.mkv: its sound cannot be decoded: "));
}

// Rubbish in the place of a second of it: the rest is heard, at its time.
TEST_F(Soundtrack, WhatIsBrokenIsLeftOut)
{
    Clip clip;
    clip.codec = "aac";
    clip.format = AV_SAMPLE_FMT_FLTP;
    clip.tones = {{1, 1.5, 0.5}, {3.5, 4, 0.5}};
    make_sound_clip(folder + "/clip.mkv", clip);
    ear();
    AVFormatContext *format = nullptr;
    ASSERT_EQ(avformat_open_input(&format, (folder + "/clip.mkv").c_str(), nullptr, nullptr), 0);
    ASSERT_GE(avformat_find_stream_info(format, nullptr), 0);
    ASSERT_EQ(soundtrack_open(format, 0, "clip"), 1);
    AVPacket *packet = av_packet_alloc();
    int broken = 0;
    while (av_read_frame(format, packet) == 0) {
        if (packet->stream_index == 1) {
            if (packet->pts >= 2000 && packet->pts < 3000) {
                ASSERT_EQ(av_packet_make_writable(packet), 0);
                memset(packet->data, 0xaa, static_cast<size_t>(packet->size));
                broken++;
            }
            soundtrack_feed(packet);
        }
        av_packet_unref(packet);
    }
    soundtrack_feed(nullptr);
    soundtrack_settle(0);
    soundtrack_close();
    av_packet_free(&packet);
    avformat_close_input(&format);
    EXPECT_GT(broken, 40);
    std::string answers;
    for (played_ms = 0; played_ms < 4000; played_ms += 100)
        answers += sound_answer() ? '#' : '.';
    EXPECT_EQ(answers.substr(0, 20), "...........#########");
    EXPECT_EQ(answers.substr(30), ".......###");
}

TEST_F(Soundtrack, NothingIsOpenAndNothingHappens)
{
    ear();
    soundtrack_feed(nullptr);
    soundtrack_settle(0);
    soundtrack_settle_live(0);
    soundtrack_restart();
    soundtrack_close();
    EXPECT_EQ(sound_answer(), 0u);
}

// Of a source that comes at its own pace, what was just decoded has just been heard.
TEST_F(Soundtrack, LiveIsNow)
{
    Clip clip;
    clip.seconds = 1;
    clip.tones = {{0.7, 1, 0.5}};
    make_sound_clip(folder + "/clip.mkv", clip);
    ear();
    AVFormatContext *format = nullptr;
    ASSERT_EQ(avformat_open_input(&format, (folder + "/clip.mkv").c_str(), nullptr, nullptr), 0);
    ASSERT_GE(avformat_find_stream_info(format, nullptr), 0);
    ASSERT_EQ(soundtrack_open(format, 0, "clip"), 1);
    AVPacket *packet = av_packet_alloc();
    while (av_read_frame(format, packet) == 0) {
        if (packet->stream_index == 1)
            soundtrack_feed(packet);
        av_packet_unref(packet);
    }
    soundtrack_settle_live(70000);
    soundtrack_settle_live(80000); // there is nothing more
    soundtrack_close();
    av_packet_free(&packet);
    avformat_close_input(&format);
    std::string answers;
    for (played_ms = 69000; played_ms < 71000; played_ms += 100)
        answers += sound_answer() ? '#' : '.';
    EXPECT_EQ(answers, "........#######.....");
}

} // namespace
