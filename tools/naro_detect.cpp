// naro-detect: the daemon's detector on pictures, by the daemon's own road: NV12, colour conversion by the image
// engine, the network, its boxes. What the model's figures are measured with.
#include <errno.h>
#include <getopt.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <unistd.h>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/error.h>
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

#include "detector.h"

namespace
{

const char help[] =
    "usage: naro-detect [options] DIR LIST\n"
    "\n"
    "Looks for people in the pictures (PNG, JPEG) named in the file LIST, one name a line, relative to DIR.\n"
    "Each is taken as a crop that the daemon has cut out: turned into NV12 (BT.601, video range) and back "
    "into\n"
    "colours by the image engine, then given to the detector. A picture of odd width or height loses its "
    "last\n"
    "column or row, since NV12 has one colour for two pixels in each direction.\n"
    "\n"
    "Prints one line a box: name, score, x1, y1, x2, y2 in pixels of the picture.\n"
    "\n"
    "  --threshold T   least score of a box (0.5)\n"
    "  --max N         most boxes of a picture (5)\n"
    "  --iou T         of two that overlap by more than this only the better one counts (0.5)\n"
    "  --outputs DIR   also keep what the network was given (DIR/NAME.ppm) and what it made of it "
    "(DIR/NAME.txt: "
    "its\n"
    "                  three outputs, channel by channel); a / in a name becomes _\n"
    "  --help          this text\n"
    "\n"
    "Exit status 1 when a picture could not be read or looked at (the others are), 2 for a wrong call.\n";

enum { MAX_SIDE = INT16_MAX };

std::string av_error(int number)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = "";
    av_strerror(number, text, sizeof text);
    return text;
}

bool complain(const std::string &path, const std::string &what)
{
    fprintf(stderr, "naro-detect: %s: %s\n", path.c_str(), what.c_str());
    return false;
}

// The first picture of an opened file.
int decode_first(AVFormatContext *file, AVFrame *frame)
{
    const AVCodec *codec = nullptr;
    const int stream = av_find_best_stream(file, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    if (stream < 0)
        return stream;
    AVCodecContext *decoder = avcodec_alloc_context3(codec);
    AVPacket *packet = av_packet_alloc();
    int result = decoder && packet ? 0 : AVERROR(ENOMEM);
    if (result == 0)
        result = avcodec_parameters_to_context(decoder, file->streams[stream]->codecpar);
    if (result == 0)
        result = avcodec_open2(decoder, codec, nullptr);
    bool over = false;
    while (result == 0) {
        result = avcodec_receive_frame(decoder, frame);
        if (result != AVERROR(EAGAIN) || over)
            break;
        result = av_read_frame(file, packet);
        if (result == AVERROR_EOF) {
            over = true;
            result = avcodec_send_packet(decoder, nullptr);
            continue;
        }
        if (result == 0 && packet->stream_index == stream)
            result = avcodec_send_packet(decoder, packet);
        av_packet_unref(packet);
    }
    av_packet_free(&packet);
    avcodec_free_context(&decoder);
    return result;
}

// A picture in the daemon's format; planes and stride as in `frame`, which the caller frees.
AVFrame *to_nv12(const AVFrame *picture)
{
    AVFrame *nv12 = av_frame_alloc();
    if (!nv12)
        return nullptr;
    nv12->format = AV_PIX_FMT_NV12;
    nv12->width = picture->width & ~1;
    nv12->height = picture->height & ~1;
    SwsContext *scaler = nullptr;
    if (av_frame_get_buffer(nv12, 64) == 0)
        scaler = sws_getContext(
            nv12->width, nv12->height, static_cast<AVPixelFormat>(picture->format), nv12->width, nv12->height,
            AV_PIX_FMT_NV12, SWS_BILINEAR | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INP, nullptr, nullptr, nullptr);
    bool done = false;
    if (scaler) {
        const int *bt601 = sws_getCoefficients(SWS_CS_ITU601);
        const bool full = picture->color_range == AVCOL_RANGE_JPEG;
        sws_setColorspaceDetails(scaler, bt601, full, bt601, 0, 0, 1 << 16, 1 << 16);
        done = sws_scale(scaler, picture->data, picture->linesize, 0, nv12->height, nv12->data,
                         nv12->linesize) == nv12->height;
        sws_freeContext(scaler);
    }
    if (!done)
        av_frame_free(&nv12);
    return nv12;
}

// Null after saying why.
AVFrame *read_picture(const std::string &path)
{
    AVFrame *picture = av_frame_alloc();
    if (!picture) {
        complain(path, av_error(AVERROR(ENOMEM)));
        return nullptr;
    }
    AVFormatContext *file = nullptr;
    int result = avformat_open_input(&file, path.c_str(), nullptr, nullptr);
    if (result == 0) {
        result = avformat_find_stream_info(file, nullptr);
        if (result >= 0)
            result = decode_first(file, picture);
        avformat_close_input(&file);
    }
    AVFrame *nv12 = nullptr;
    if (result < 0)
        complain(path, av_error(result));
    else if (picture->width < 2 || picture->height < 2 || picture->width > MAX_SIDE ||
             picture->height > MAX_SIDE)
        complain(path, "pictures of 2 to 32767 pixels a side can be looked at");
    else if (!(nv12 = to_nv12(picture)))
        complain(path, "cannot be turned into NV12");
    av_frame_free(&picture);
    return nv12;
}

// Puts away what the detector was given and what it said.
bool keep_outputs(const std::string &folder, std::string name)
{
    for (char &c : name)
        c = c == '/' ? '_' : c;
    std::string why;
    const std::string path = folder + "/" + name;
    return detector_save((path + ".ppm").c_str(), (path + ".txt").c_str(), &why) || complain(name, why);
}

// `outputs`: where to keep the outputs; empty, nowhere.
bool look_at(const std::string &folder, const std::string &name, const std::string &outputs, FILE *results)
{
    const std::string path = folder + "/" + name;
    AVFrame *nv12 = read_picture(path);
    if (!nv12)
        return false;
    std::string why;
    const int count = detector_look(nv12->data[0], nv12->linesize[0], nv12->data[1], nv12->linesize[1],
                                    nv12->width, nv12->height, &why);
    av_frame_free(&nv12);
    const BBox *boxes = detector_boxes();
    for (int i = 0; i < count; ++i)
        fprintf(results, "%s %.6f %d %d %d %d\n", name.c_str(), static_cast<double>(boxes[i].score),
                boxes[i].x1, boxes[i].y1, boxes[i].x2, boxes[i].y2);
    if (count < 0)
        return complain(path, why);
    return outputs.empty() || keep_outputs(outputs, name);
}

// The number in `text`, between the bounds. Ends the program where there is none.
double number(const char *option, const char *text, double least, double most)
{
    char *end;
    errno = 0;
    const double value = strtod(text, &end);
    if (end == text || *end || errno || !(value >= least && value <= most)) {
        fprintf(stderr, "naro-detect: --%s wants a number from %g to %g, not '%s'\n", option, least, most,
                text);
        exit(2);
    }
    return value;
}

} // namespace

int main(int argc, char **argv)
{
    NetworkConfig config = {192, 320, 0.5f, 0.5f, 1, 5};
    std::string outputs;
    static const option options[] = {{"threshold", required_argument, nullptr, 't'},
                                     {"max", required_argument, nullptr, 'm'},
                                     {"iou", required_argument, nullptr, 'i'},
                                     {"outputs", required_argument, nullptr, 'o'},
                                     {"help", no_argument, nullptr, 'h'},
                                     {}};
    for (int option; (option = getopt_long(argc, argv, "", options, nullptr)) != -1;) {
        switch (option) {
        case 't':
            config.score_threshold = static_cast<float>(number("threshold", optarg, 0, 1));
            break;
        case 'm': {
            const double most = number("max", optarg, 1, 10000);
            config.max_detection = static_cast<int>(most);
            break;
        }
        case 'i':
            config.iou_threshold = static_cast<float>(number("iou", optarg, 0, 1));
            break;
        case 'o':
            outputs = optarg;
            break;
        case 'h':
            fputs(help, stdout);
            return 0;
        default:
            fputs(help, stderr);
            return 2;
        }
    }
    if (argc - optind != 2) {
        fputs(help, stderr);
        return 2;
    }
    const std::string folder = argv[optind];
    const char *list_path = argv[optind + 1];
    FILE *list = fopen(list_path, "r");
    if (!list) {
        complain(list_path, strerror(errno));
        return 2;
    }

    // The detector says what it has to say on standard output: from here on that is the error stream, and results
    // have the real one for themselves.
    FILE *results = fdopen(dup(STDOUT_FILENO), "w");
    if (!results || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        complain("standard output", strerror(errno));
        return 2;
    }
    av_log_set_level(AV_LOG_ERROR);

    if (detector_start(&config) != 0) {
        fputs("naro-detect: the detector cannot be started\n", stderr);
        return 1;
    }
    bool all_done = true;
    char *line = nullptr;
    size_t room = 0;
    for (ssize_t length; (length = getline(&line, &room, list)) >= 0;) {
        while (length > 0 && strchr("\r\n", line[length - 1]))
            line[--length] = '\0';
        if (length > 0)
            all_done = look_at(folder, line, outputs, results) && all_done;
    }
    free(line);
    fclose(list);
    detector_stop();
    if (ferror(results) || fclose(results) != 0)
        all_done = complain("standard output", strerror(errno));
    return all_done ? 0 : 1;
}
