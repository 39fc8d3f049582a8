// The detector's life: handle, activation, forward pass, and the road from output blobs to answers.
//
// Memory is what this file is careful with. The machine it is made for has little: both heavy steps look at
// what is free before they begin, a pass gives back everything it took but its outputs (no pool is kept
// between passes), and weights that are stored as 32-bit floats are used where they lie in the program.
#include "nn/network.h"

#include <algorithm>
#include <limits.h>
#include <new>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <datareader.h>

#include "naro_util.h"
#include "nn/nn_decode.h"
#include "nn/nn_handle.h"
#include "nn/nn_input_fit.h"
#include "nn/nn_memory_check.h"

namespace
{

enum { INPUT_BLOB = 0, MAX_SIDE = INT16_MAX }; // boxes carry 16-bit positions

bool is_missing(const NetworkHandle *handle)
{
    if (handle)
        return false;
    puts("Error: Please use Init_Network() first.");
    return true;
}

bool is_detector(const nn_model *model)
{
    return model->kind == NN_DETECTOR_GRID_ANCHORS || model->kind == NN_DETECTOR_MASKED_ANCHORS;
}

int fill_model(nn_model *model, int index)
{
    if (nn_model_fill(model, index) == 0)
        return 0;
    puts("Error: wrong network_index, keep using previous network.");
    return -1;
}

// An extractor takes its thread count from its network.
void set_thread_count(ncnn::Net *net, const NetworkConfig *config)
{
    if (config->thread_count != 0)
        net->opt.num_threads = static_cast<int>(std::min<uint32_t>(config->thread_count, INT_MAX));
}

// Settings that must stand before a network is loaded: its weights are laid out for them.
void set_options(ncnn::Net *net, const NetworkConfig *config)
{
    net->opt.lightmode = true;
    // A pool would keep the largest buffers of every input size seen so far: 2.5 MB after one pass.
    net->opt.use_local_pool_allocator = false;
    // Halves the time of a pass. What it costs is kept small by the model: its wide layers stand where the
    // picture is small, so that a pass stays within its run_bytes, and the structure's feature masks turn it
    // off where it would only make the loaded weights larger.
    net->opt.use_winograd_convolution = true;
    set_thread_count(net, config);
}

// Reads structure and weights into a new network, each only up to its end. Null when neither could be read,
// or without memory. `complete` tells whether both were.
ncnn::Net *load_network(nn_model *model, const NetworkConfig *config, bool *complete)
{
    ncnn::Net *net = nullptr;
    try { // the library's own small allocations throw
        net = new ncnn::Net;
        set_options(net, config);
        const unsigned char *at = model->structure;
        const bool structure_read =
            net->load_param_bin(ncnn::DataReaderFromMemory(at, model->structure_size)) == 0;
        at = model->weights;
        const bool weights_read = net->load_model(ncnn::DataReaderFromMemory(at, model->weights_size)) == 0;
        *complete = structure_read && weights_read;
        if (structure_read || weights_read) {
            model->structure = nullptr;
            model->weights = nullptr;
            return net;
        }
    } catch (const std::bad_alloc &) {
    }
    delete net;
    return nullptr;
}

bool blobs_present(const nn_model *model)
{
    return model->structure && model->structure_size > 0 && model->weights && model->weights_size > 0;
}

// Puts a loaded network and fresh outputs into the handle. False without memory, with nothing changed.
bool install(NetworkHandle *handle, const nn_model *model, ncnn::Net *net, bool complete)
{
    ncnn::Mat *outputs = new (std::nothrow) ncnn::Mat[NN_MAX_OUTPUTS];
    if (!outputs)
        return false;
    delete[] handle->outputs;
    delete handle->net;
    handle->outputs = outputs;
    handle->net = net;
    handle->model = *model;
    handle->complete = complete;
    handle->activated[model->index] = true;
    return true;
}

void empty_outputs(NetworkHandle *handle)
{
    for (int i = 0; i < handle->model.outputs; ++i)
        handle->outputs[i].release();
}

bool outputs_empty(const NetworkHandle *handle)
{
    return std::any_of(handle->outputs, handle->outputs + handle->model.outputs,
                       [](const ncnn::Mat &output) { return output.empty(); });
}

void destroy(NetworkHandle *handle)
{
    delete handle->net;
    delete[] handle->outputs;
    free(handle->boxes);
    delete handle;
}

int activate_first_model(NetworkHandle *handle)
{
    nn_model model;
    if (fill_model(&model, 0) != 0)
        return -1;
    if (nn_memory_check(model.activation_bytes, 1) != 0) {
        puts("Error: Memory is not enough to activate model.");
        return -1;
    }
    if (!blobs_present(&model))
        return -1;
    bool complete;
    ncnn::Net *net = load_network(&model, handle->config, &complete);
    if (net && install(handle, &model, net, complete))
        return 0;
    delete net;
    return -1;
}

// The library's name for what to turn the pixels into; -1 for a count of channels that it has none for.
int pixel_conversion(int input_color, int channels)
{
    if (input_color == 3 && channels == 3)
        return ncnn::Mat::PIXEL_RGB;
    if (input_color == 3 && channels == 1)
        return ncnn::Mat::PIXEL_GRAY2RGB;
    if (input_color == 1 && channels == 3)
        return ncnn::Mat::PIXEL_RGB2GRAY;
    if (input_color == 1 && channels == 1)
        return ncnn::Mat::PIXEL_GRAY;
    return -1;
}

// The picture at the network's input size as planes of floats; empty without memory. Resizes first: the
// library's own call that does both does not look whether it got its memory.
ncnn::Mat input_from_pixels(const uint8_t *pixels, int height, int width, int channels, int stride_bytes,
                            int conversion, const nn_model *model)
{
    const int to_height = model->input_height;
    const int to_width = model->input_width;
    if (height == to_height && width == to_width)
        return ncnn::Mat::from_pixels(pixels, conversion, width, height, stride_bytes);
    uint8_t *resized = static_cast<uint8_t *>(malloc(static_cast<size_t>(to_height) * to_width * channels));
    if (!resized)
        return ncnn::Mat();
    if (channels == 3)
        ncnn::resize_bilinear_c3(pixels, width, height, stride_bytes, resized, to_width, to_height,
                                 to_width * 3);
    else
        ncnn::resize_bilinear_c1(pixels, width, height, stride_bytes, resized, to_width, to_height, to_width);
    const ncnn::Mat input = ncnn::Mat::from_pixels(resized, conversion, to_width, to_height);
    free(resized);
    return input;
}

void normalise(ncnn::Mat *input, const float *means, const float *norms)
{
    enum { BLOCK = 16 };
    for (int c = 0; c < input->c; ++c) {
        const float mean = means ? means[c] : 0;
        const float norm = norms ? norms[c] : 1;
        float *value = input->channel(c);
        const int count = input->w * input->h;
        int i = 0;
        // Compilers make vectors of a loop whose length they know without being asked to.
        for (; i + BLOCK <= count; i += BLOCK)
            for (int k = 0; k < BLOCK; ++k)
                value[i + k] = (value[i + k] - mean) * norm;
        for (; i < count; ++i)
            value[i] = (value[i] - mean) * norm;
    }
}

// Runs the network and gives the input's memory back.
int run(NetworkHandle *handle, ncnn::Mat *input)
{
    // A network without all of its weights cannot run.
    if (!handle->complete)
        return -1;
    set_thread_count(handle->net, handle->config);
    ncnn::Extractor extractor = handle->net->create_extractor();
    extractor.set_light_mode(true);
    if (extractor.input(INPUT_BLOB, *input) != 0)
        return -1;
    // In light mode each blob goes when it has been used, the input too, unless someone else holds on to it.
    input->release();
    for (int i = 0; i < handle->model.outputs; ++i)
        if (extractor.extract(handle->model.output_blobs[i], handle->outputs[i]) != 0)
            return -1;
    return 0;
}

int failed_in_library()
{
    puts("Error: Failed to do Foward_Network(), something wrong in the library.");
    return -1;
}

int forward(NetworkHandle *handle, const uint8_t *pixels, int height, int width, int channels, int stride)
{
    if (stride < width) {
        puts("Error: stride CANNOT be less than width.");
        return -1;
    }
    nn_model *model = &handle->model;
    const int conversion = pixel_conversion(model->input_color, channels);
    if (conversion < 0) {
        puts("Error: Only support input color = 1 (Gray) or 3 (RGB/BGR).");
        return -1;
    }
    if (!pixels || height < 2 || width < 2 || height > MAX_SIDE || width > MAX_SIDE ||
        stride > INT_MAX / channels) {
        puts("Error: There is no picture of that size.");
        return -1;
    }

    const nn_input_size size = nn_input_fit(handle->config->input_height, handle->config->input_width,
                                            model->min_area, model->max_area, model->alignment_shift);
    model->input_height = size.height;
    model->input_width = size.width;
    if (nn_memory_check(model->run_bytes, static_cast<double>(size.height) * size.width / 16384) != 0) {
        printf("Error: Memory is not enough to inference %dx%d image by current model.\n", size.width,
               size.height);
        return -1;
    }

    ncnn::Mat input =
        input_from_pixels(pixels, height, width, channels, stride * channels, conversion, model);
    if (input.empty()) {
        puts("Error: Target size is too large for current memory space.");
        return -1;
    }
    normalise(&input, model->means, model->norms);
    return run(handle, &input) == 0 ? 0 : failed_in_library();
}

// The output as a grid of single floats; false when it is not one, or has too few channels.
bool grid_from_output(const nn_model *model, int output, const ncnn::Mat &blob, nn_grid *grid)
{
    *grid = {blob, blob.w, blob.h, blob.c, blob.cstep};
    return blob.dims == 3 && blob.elempack == 1 && blob.elemsize == sizeof(float) &&
           blob.c >= model->anchors_per_output[output] * (5 + model->classes);
}

// Copies the values of the first output in the order channel, row, column.
int copy_first_output(const NetworkHandle *handle, float *to, int room)
{
    if (outputs_empty(handle)) {
        puts("Error: Please use Forward_Network() first.");
        return 0;
    }
    const ncnn::Mat &output = handle->outputs[0];
    const int plane = output.w * output.h;
    int count = 0;
    for (int c = 0; c < output.c; ++c) {
        const float *values = output.channel(c);
        for (int i = 0; i < plane && count < room; ++i)
            to[count++] = values[i];
    }
    return count;
}

} // namespace

int Init_Network(NetworkHandle **handle, NetworkConfig *config)
{
    if (!handle || !config) {
        puts("Error: Init_Network() needs a place for the handle and a config.");
        return -1;
    }
    if (*handle)
        puts("Warning: The handle is not NULL, it may be already initialized before.");
    NetworkHandle *created = new (std::nothrow) NetworkHandle();
    if (created) {
        created->config = config;
        if (config->max_detection > 0) {
            created->boxes =
                static_cast<BBox *>(calloc(static_cast<size_t>(config->max_detection), sizeof(BBox)));
            created->max_boxes = created->boxes ? config->max_detection : 0;
        }
        if ((config->max_detection <= 0 || created->boxes) && activate_first_model(created) == 0) {
            *handle = created;
            printf("Network handle (%p) is successfully created.\n", static_cast<void *>(created));
            return 0;
        }
        destroy(created);
    }
    puts("Error: Failed to activate model.");
    return -1;
}

int Release_Network(NetworkHandle **handle)
{
    if (!handle || !*handle) {
        puts("Error: Cannot release NULL handle.");
        return -1;
    }
    char was[40]; // the pointer's text, while it still points somewhere
    snprintf(was, sizeof was, "%p", static_cast<void *>(*handle));
    destroy(*handle);
    *handle = nullptr;
    printf("Network handle (%s) is successfully released.\n", was);
    return 0;
}

int Change_Model(NetworkHandle *handle, int network_index)
{
    if (is_missing(handle))
        return -1;
    if (network_index == handle->model.index)
        return 0;
    nn_model model;
    if (fill_model(&model, network_index) != 0)
        return -1;
    if (nn_memory_check(model.activation_bytes, 1) != 0) {
        puts("Error: Memory is not enough to changle and activate the specified model.");
        return -1;
    }
    bool complete;
    ncnn::Net *net = blobs_present(&model) ? load_network(&model, handle->config, &complete) : nullptr;
    if (!net || !install(handle, &model, net, complete)) {
        delete net;
        puts("Error: Failed to change model.");
        return -1;
    }
    printf("Successfully changed to model #%d\n", network_index);
    return 0;
}

int Set_Area_Constraint(NetworkHandle *handle, int min_area, int max_area)
{
    if (is_missing(handle))
        return -1;
    if (min_area < 0 || max_area < 0) {
        puts("Error: area must be positive or zero (no constraint).");
        return -1;
    }
    if (min_area > 0 && max_area > 0 && max_area < min_area) {
        puts("Error: if max_area > 0 and min_area > 0, then it should be max_area >= min_area.");
        return -1;
    }
    handle->model.min_area = min_area;
    handle->model.max_area = max_area;
    return 0;
}

int Forward_Network(NetworkHandle *handle, const uint8_t *pixels, int height, int width, int channels)
{
    return Forward_Network_Stride(handle, pixels, height, width, channels, width);
}

int Forward_Network_Stride(NetworkHandle *handle, const uint8_t *pixels, int height, int width, int channels,
                           int stride)
{
    if (is_missing(handle))
        return -1;
    empty_outputs(handle);
    int result;
    try {
        result = forward(handle, pixels, height, width, channels, stride);
    } catch (const std::bad_alloc &) { // the library's own small allocations throw
        result = failed_in_library();
    }
    if (result != 0)
        empty_outputs(handle); // those that came before the one that failed
    return result;
}

int GetBBox(NetworkHandle *handle, int image_height, int image_width)
{
    if (is_missing(handle))
        return 0;
    handle->count = 0;
    const nn_model *model = &handle->model;
    if (model->kind == NN_CLASSIFIER) {
        puts("Error: It's a classification model. Please use Get_Prob().");
        return 0;
    }
    if (!is_detector(model)) {
        puts("Error: Unknown detector.");
        return 0;
    }
    if (!model->anchors || !model->anchors_per_output || model->classes < 1 ||
        (model->kind == NN_DETECTOR_MASKED_ANCHORS && !model->anchor_masks)) {
        puts("Error: Cannot get detection without given related information.");
        return 0;
    }
    if (outputs_empty(handle)) {
        puts("Error: Please use Forward_Network() first.");
        return 0;
    }
    const int max_boxes = std::min(handle->max_boxes, static_cast<int>(handle->config->max_detection));
    if (!handle->boxes || max_boxes < 1) {
        puts("No result obtained because boxes == NULL or max_detection == 0.");
        return 0;
    }
    nn_grid grids[NN_MAX_OUTPUTS];
    for (int i = 0; i < model->outputs; ++i) {
        if (!grid_from_output(model, i, handle->outputs[i], &grids[i])) {
            puts("Error: Cannot get detection without given related information.");
            return 0;
        }
    }
    handle->count = nn_decode(model, grids, handle->config->score_threshold, handle->config->iou_threshold,
                              image_height, image_width, handle->boxes, max_boxes);
    return handle->count;
}

const BBox *Get_Boxes(const NetworkHandle *handle)
{
    return is_missing(handle) ? nullptr : handle->boxes;
}

int Get_Prob(NetworkHandle *handle, float *probabilities, int room)
{
    if (is_missing(handle))
        return 0;
    if (handle->model.kind != NN_CLASSIFIER) {
        puts("Error: Current model is not a classifier, cannot use Get_Prob().");
        return 0;
    }
    return copy_first_output(handle, probabilities, room);
}

int Get_Feature_Size(NetworkHandle *handle)
{
    if (is_missing(handle))
        return 0;
    if (handle->model.kind != NN_FEATURE_EXTRACTOR) {
        puts("Error: Only feature extractor can use Get_Feature_Size().");
        return 0;
    }
    const ncnn::Mat &output = handle->outputs[0];
    return output.w * output.h * output.c;
}

int Get_Feature(NetworkHandle *handle, float *feature, int room)
{
    if (is_missing(handle))
        return 0;
    if (handle->model.kind != NN_FEATURE_EXTRACTOR) {
        puts("Error: Current model is not a feature extractor, cannot use Get_Feature().");
        return 0;
    }
    return copy_first_output(handle, feature, room);
}

int Get_Num_Classes(NetworkHandle *handle)
{
    if (is_missing(handle))
        return 0;
    if (handle->model.kind != NN_CLASSIFIER && !is_detector(&handle->model)) {
        puts("Error: Only classifier and detector have the number of classes.");
        return 0;
    }
    return handle->model.classes;
}

int Save_Output_To_File(NetworkHandle *handle, const char *path)
{
    if (is_missing(handle))
        return -1;
    if (!path || !*path) {
        puts("Error: Cannot output to file without given filename.");
        return -1;
    }
    FILE *file = naro_fopen(path, "w");
    if (!file) {
        printf("Error: Cannot write %s.\n", path);
        return -1;
    }
    for (int i = 0; i < handle->model.outputs; ++i) {
        const ncnn::Mat &output = handle->outputs[i];
        for (int c = 0; c < output.c; ++c) {
            const float *value = output.channel(c);
            for (int row = 0; row < output.h; ++row)
                for (int column = 0; column < output.w; ++column)
                    fprintf(file, column + 1 < output.w ? "%.9g " : "%.9g\n", static_cast<double>(*value++));
        }
    }
    const bool failed = ferror(file) != 0;
    if (fclose(file) != 0 || failed) {
        printf("Error: Cannot write %s.\n", path);
        return -1;
    }
    printf("Output file: %s\n", path);
    return 0;
}

void Print_Options(void)
{
    puts("#OPTION_AVOID_OOM=ON#");
    puts("#OPTION_MEMORY_MARGIN=3000000#");
    puts("#OPTION_INPUT_FORMAT=RGB#");
}
