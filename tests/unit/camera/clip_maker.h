// Makes small lossless clips, so that every picture of them can be told: picture k has the luma k everywhere.
#ifndef CLIP_MAKER_H
#define CLIP_MAKER_H

#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>
#include <string>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libavutil/frame.h>
}

// Says in the container that pictures are to be shown turned, as a camera held upright does.
inline void turn_stream(AVStream *stream, double degrees)
{
    int32_t matrix[9];
    av_display_rotation_set(matrix, degrees);
#if LIBAVFORMAT_VERSION_INT < AV_VERSION_INT(60, 15, 100)
    uint8_t *room = av_stream_new_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, sizeof matrix);
#else
    AVPacketSideData *data =
        av_packet_side_data_new(&stream->codecpar->coded_side_data, &stream->codecpar->nb_coded_side_data,
                                AV_PKT_DATA_DISPLAYMATRIX, sizeof matrix, 0);
    uint8_t *room = data ? data->data : nullptr;
#endif
    ASSERT_NE(room, nullptr);
    memcpy(room, matrix, sizeof matrix);
}

// A Matroska file with a picture at each of `times_ms`; or, turned by some degrees, a QuickTime file.
inline void make_clip(const std::string &path, const std::vector<int64_t> &times_ms, double turned = 0)
{
    AVFormatContext *format = nullptr;
    ASSERT_GE(
        avformat_alloc_output_context2(&format, nullptr, turned != 0 ? "mov" : "matroska", path.c_str()), 0);
    const AVCodec *encoder = avcodec_find_encoder(AV_CODEC_ID_FFV1);
    AVCodecContext *codec = avcodec_alloc_context3(encoder);
    codec->width = 64;
    codec->height = 48;
    codec->pix_fmt = AV_PIX_FMT_YUV420P;
    codec->time_base = {1, 1000};
    codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    ASSERT_GE(avcodec_open2(codec, encoder, nullptr), 0);
    AVStream *stream = avformat_new_stream(format, nullptr);
    stream->time_base = {1, 1000};
    avcodec_parameters_from_context(stream->codecpar, codec);
    if (turned != 0)
        turn_stream(stream, turned);
    ASSERT_GE(avio_open(&format->pb, path.c_str(), AVIO_FLAG_WRITE), 0);
    ASSERT_GE(avformat_write_header(format, nullptr), 0);
    AVPacket *packet = av_packet_alloc();
    for (size_t k = 0; k <= times_ms.size(); k++) {
        AVFrame *frame = k < times_ms.size() ? av_frame_alloc() : nullptr;
        if (frame) {
            frame->width = 64;
            frame->height = 48;
            frame->format = AV_PIX_FMT_YUV420P;
            frame->pts = times_ms[k];
            ASSERT_EQ(av_frame_get_buffer(frame, 0), 0);
            for (int plane = 0; plane < 3; plane++)
                memset(frame->data[plane], plane ? 128 : static_cast<int>(k),
                       static_cast<size_t>(frame->linesize[plane] * (plane ? 24 : 48)));
        }
        avcodec_send_frame(codec, frame);
        av_frame_free(&frame);
        while (avcodec_receive_packet(codec, packet) == 0) {
            av_packet_rescale_ts(packet, {1, 1000}, stream->time_base);
            packet->stream_index = 0;
            ASSERT_GE(av_interleaved_write_frame(format, packet), 0);
        }
    }
    ASSERT_EQ(av_write_trailer(format), 0);
    av_packet_free(&packet);
    avio_closep(&format->pb);
    avcodec_free_context(&codec);
    avformat_free_context(format);
}

// `count` pictures, `step_ms` apart.
inline void make_clip(const std::string &path, int count, int64_t step_ms)
{
    std::vector<int64_t> times(static_cast<size_t>(count));
    for (int k = 0; k < count; k++)
        times[static_cast<size_t>(k)] = k * step_ms;
    make_clip(path, times);
}

#endif
