// The person detector: a pass beside the bare multiply-adds that its layers ask for, and the live bytes of
// activation and of a pass beside what the detector's interface declares.
#include "benches.h"

#include <inttypes.h>
#include <layer.h>
#include <layer_type.h>
#include <map>
#include <modelbin.h>
#include <net.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <unistd.h>

#include "harness.h"
#include "live_bytes.h"
#include "log_capture.h"
#include "machine_limits.h"
#include "nn/model_blob.h"
#include "nn/network.h"
#include "nn/nn_model.h"

namespace
{

// What the detector checks for before it activates a model and before a pass (for each 16384 input pixels).
enum { ACTIVATION_BYTES = 560000, PASS_BYTES = 810000, PASS_PIXELS = 16384 };

struct input {
    int width, height;
};
const input inputs[] = {{128, 128}, {192, 128}, {160, 160}};

// Number of weights of each convolution, by the blob that it makes: read from the structure, which is a list
// of layers (type, counts of inputs and outputs, their blobs, parameters up to -233) of 32-bit words.
std::map<int, uint64_t> convolution_weights(void)
{
    enum { END_OF_PARAMETERS = -233, FIRST_ARRAY = -23300, WEIGHT_COUNT = 6 };
    const unsigned char *at = person_model_structure;
    const auto next = [&at] {
        int32_t word;
        memcpy(&word, at, sizeof word);
        at += sizeof word;
        return word;
    };
    std::map<int, uint64_t> result;
    next(); // magic
    const int layers = next();
    next(); // blobs
    for (int layer = 0; layer < layers; layer++) {
        const int type = next();
        const int bottoms = next();
        const int tops = next();
        for (int i = 0; i < bottoms; i++)
            next();
        int top = -1;
        for (int i = 0; i < tops; i++)
            top = next();
        for (int id = next(); id != END_OF_PARAMETERS; id = next()) {
            if (id <= FIRST_ARRAY)
                at += sizeof(int32_t) * static_cast<size_t>(next());
            else {
                const int value = next();
                if ((type == ncnn::LayerType::Convolution || type == ncnn::LayerType::ConvolutionDepthWise) &&
                    id == WEIGHT_COUNT)
                    result[top] = static_cast<uint64_t>(value);
            }
        }
    }
    return result;
}

// With the library's default options.
void load_bare(ncnn::Net *net)
{
    net->opt.num_threads = 1;
    if (net->load_param(person_model_structure) == 0 || net->load_model(person_model_weights) == 0)
        abort();
}

// Each weight of a convolution meets each position of its output once.
uint64_t multiply_adds(const input &input)
{
    ncnn::Net net;
    load_bare(&net);
    ncnn::Extractor extractor = net.create_extractor();
    extractor.set_light_mode(false);
    extractor.input(0, ncnn::Mat(input.width, input.height, 3));
    uint64_t total = 0;
    for (const auto &layer : convolution_weights()) {
        ncnn::Mat blob;
        if (extractor.extract(layer.first, blob) != 0)
            abort();
        total += layer.second * static_cast<uint64_t>(blob.w) * static_cast<uint64_t>(blob.h);
    }
    return total;
}

// The measure of a pass: one 3x3 convolution from 64 to 64 channels on 48x32, as the library does it by itself, in the
// layout and with the pools of buffers that it has inside a network.
class measure_layer
{
  public:
    measure_layer()
    {
        options.num_threads = 1;
        options.blob_allocator = &blobs;
        options.workspace_allocator = &workspace;
        layer = ncnn::create_layer_cpu(ncnn::LayerType::Convolution);
        ncnn::ParamDict parameters;
        parameters.set(0, CHANNELS);
        parameters.set(1, 3); // kernel
        parameters.set(4, 1); // border
        parameters.set(5, 1); // with bias
        parameters.set(6, CHANNELS * CHANNELS * 9);
        ncnn::Mat weights[] = {ncnn::Mat(CHANNELS * CHANNELS * 9), ncnn::Mat(CHANNELS)};
        weights[0].fill(0.01f);
        weights[1].fill(0.f);
        ncnn::Mat plain(48, 32, CHANNELS);
        plain.fill(0.5f);
        if (layer->load_param(parameters) != 0 ||
            layer->load_model(ncnn::ModelBinFromMatArray(weights)) != 0 ||
            layer->create_pipeline(options) != 0)
            abort();
        ncnn::convert_packing(plain, input, 8, options);
    }
    ~measure_layer()
    {
        layer->destroy_pipeline(options);
        delete layer;
    }
    measure_layer(const measure_layer &) = delete;
    measure_layer &operator=(const measure_layer &) = delete;
    void run() const
    {
        ncnn::Mat output;
        if (layer->forward(input, output, options) != 0)
            abort();
        keep(output.data);
    }

  private:
    enum { CHANNELS = 64 };
    ncnn::UnlockedPoolAllocator blobs;
    ncnn::PoolAllocator workspace;
    ncnn::Layer *layer;
    ncnn::Option options;
    ncnn::Mat input;
};

// The same network as the library runs it by itself, which keeps its buffers from one pass to the next.
class bare_network
{
  public:
    explicit bare_network(const input &size)
    {
        load_bare(&net);
        if (nn_model_fill(&model, 0) != 0)
            abort();
        picture.create(size.width, size.height, 3);
        picture.fill(0.5f);
    }
    void run()
    {
        ncnn::Extractor extractor = net.create_extractor();
        extractor.input(0, picture);
        for (int i = 0; i < model.outputs; i++) {
            ncnn::Mat blob;
            if (extractor.extract(model.output_blobs[i], blob) != 0)
                abort();
            keep(blob.data);
        }
    }

  private:
    ncnn::Net net;
    nn_model model;
    ncnn::Mat picture;
};

void print_bytes(const char *what, size_t bytes, size_t declared)
{
    printf("  %-44s %9zu bytes", what, bytes);
    if (declared > 0)
        printf("   %.2f of the declared %zu%s", static_cast<double>(bytes) / static_cast<double>(declared),
               declared, bytes > declared ? "  OVER" : "");
    printf("\n");
}

std::string size_name(const input &input)
{
    return std::to_string(input.width) + "x" + std::to_string(input.height);
}

} // namespace

void bench_detector(void)
{
    NetworkConfig config = {};
    config.score_threshold = 0.5f;
    config.iou_threshold = 0.5f;
    config.thread_count = 1;
    config.max_detection = 5;
    NetworkHandle *network = nullptr;
    std::vector<uint8_t> pixels(size_t{160} * 160 * 3);
    for (size_t i = 0; i < pixels.size(); i++)
        pixels[i] = static_cast<uint8_t>(i * 2654435761u >> 24);

    const size_t before = live_bytes();
    size_t activation = 0;
    {
        OutputCapture quiet(STDOUT_FILENO);
        const size_t begin = live_bytes();
        live_bytes_restart();
        if (Init_Network(&network, &config) != 0)
            abort();
        activation = live_bytes_peak() - begin;
    }
    printf("Detector, live bytes of all allocators\n");
    print_bytes("weights as the program holds them (not counted)",
                static_cast<size_t>(person_model_weights_end - person_model_weights), ACTIVATION_BYTES);
    print_bytes("most during activation", activation, ACTIVATION_BYTES);
    print_bytes("live after it", live_bytes() - before, 0);
    for (const input &input : inputs) {
        config.input_width = static_cast<uint32_t>(input.width);
        config.input_height = static_cast<uint32_t>(input.height);
        size_t most = 0, left = 0;
        for (int pass = 0; pass < 3; pass++) {
            const size_t begin = live_bytes();
            live_bytes_restart();
            if (Forward_Network(network, pixels.data(), input.height, input.width, 3) != 0)
                abort();
            GetBBox(network, input.height, input.width);
            most = std::max(most, live_bytes_peak() - begin);
            left = live_bytes() - begin;
        }
        const auto area = static_cast<size_t>(input.width * input.height);
        print_bytes(("most during a pass at " + size_name(input)).c_str(), most,
                    PASS_BYTES * area / PASS_PIXELS);
        if (left > 0)
            print_bytes("  of which every further pass keeps", left, 0);
    }
    printf("\n");

    const measure_layer measure;
    const rival t = {"T: a 3x3 convolution, 64 to 64 channels on 48x32", [&](size_t times) {
                         for (; times > 0; times--)
                             measure.run();
                     }};
    for (const input &input : inputs) {
        config.input_width = static_cast<uint32_t>(input.width);
        config.input_height = static_cast<uint32_t>(input.height);
        const uint64_t sums = multiply_adds(input);
        std::vector<std::string> names;
        std::vector<rival> rivals = {
            {"Forward_Network and GetBBox",
             [&](size_t times) {
                 for (; times > 0; times--) {
                     if (Forward_Network(network, pixels.data(), input.height, input.width, 3) != 0)
                         abort();
                     keep(GetBBox(network, input.height, input.width));
                 }
             }},
            t};
        names.reserve(multiply_add_limit_count);
        for (size_t i = 0; i < multiply_add_limit_count; i++) {
            const multiply_add_limit &limit = multiply_add_limits[i];
            if (!limit.runs_here())
                continue;
            names.push_back(std::string("limit: as many multiply-adds, ") + limit.name);
            rivals.push_back({names.back().c_str(), [&limit, sums](size_t times) {
                                  limit.run((times * sums + MULTIPLY_ADDS / 2) / MULTIPLY_ADDS);
                              }});
        }
        char title[96];
        snprintf(title, sizeof title, "Detector pass, %s (%.1f million multiply-adds), one thread",
                 size_name(input).c_str(), static_cast<double>(sums) / 1e6);
        compare(title, rivals);

        bare_network bare(input);
        snprintf(title, sizeof title, "The network alone, %s, the library's default options, one thread",
                 size_name(input).c_str());
        compare(title, {{"its three outputs",
                         [&](size_t times) {
                             for (; times > 0; times--)
                                 bare.run();
                         }},
                        t});
    }
    OutputCapture quiet(STDOUT_FILENO);
    Release_Network(&network);
}
